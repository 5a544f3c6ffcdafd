#include "webdav/Access.h"

#include <algorithm>

#include "webdav/Limits.h"

namespace webdav {

namespace {

bool IsAddress(std::string_view host) {
    return host.starts_with('[') || (!host.empty() && host.find_first_not_of("0123456789.") == std::string_view::npos);
}

bool IsOwnHost(const AccessRules& rules, const std::string& host) {
    if (host == "localhost" || host == "127.0.0.1" || host == "[::1]" || (rules.anyAddress && IsAddress(host)))
        return true;
    return std::find(rules.hosts.begin(), rules.hosts.end(), host) != rules.hosts.end();
}

// A link to this server on another site's page is harmless: the browser loads a page, and the other site learns nothing. Anything else
// that another site's page requests is an attempt to act for the user.
bool IsForeign(const Request& request, std::string_view host) {
    if (const auto origin = request.Field("Origin"))
        return !EqualToken(*origin, "http://" + std::string(host)) && !EqualToken(*origin, "https://" + std::string(host));
    const auto site = request.Field("Sec-Fetch-Site");
    if (!site || (*site != "cross-site" && *site != "same-site"))
        return false;
    return request.method != "GET" || request.Field("Sec-Fetch-Mode").value_or("") != "navigate" ||
           request.Field("Sec-Fetch-Dest").value_or("document") != "document";
}

}  // namespace

void Guesses::NoteWrong() {
    const std::lock_guard guard(m_mutex);
    ++m_wrong;
    m_last = std::chrono::steady_clock::now();
}

std::chrono::milliseconds Guesses::Pause() {
    const std::lock_guard guard(m_mutex);
    if (m_last + limits::guessMemory < std::chrono::steady_clock::now())
        m_wrong = 0;
    return m_wrong > limits::freeGuesses ? limits::guessPause : std::chrono::milliseconds(0);
}

void CheckAccess(const AccessRules& rules, Guesses& guesses, const Request& request) {
    const auto host = request.Field("Host");
    if (!host)
        throw HttpError(400, "the request does not say which host it is for");
    if (host->find(',') != std::string::npos)
        throw HttpError(400, "the request is for more than one host");
    if (!IsOwnHost(rules, HostName(*host)))
        throw HttpError(403, "this server does not answer for that host; 'serve --host NAME' adds one");
    if (IsForeign(request, *host))
        throw HttpError(403, "requests that pages of other sites make are refused");
    if (rules.credentials.empty())
        return;
    const std::string given = request.Field("Authorization").value_or("");
    const bool isBasic = given.size() > 6 && EqualToken(std::string_view(given).substr(0, 6), "Basic ");
    if (isBasic && EqualInConstantTime(DecodeBase64(Trimmed(std::string_view(given).substr(6))), rules.credentials))
        return;
    if (isBasic)
        guesses.NoteWrong();
    throw HttpError(401, "a user and a password are needed", {}, {{"WWW-Authenticate", "Basic realm=\"quelvol\", charset=\"UTF-8\""}});
}

std::string HostName(std::string_view authority) {
    const std::size_t afterAddress = authority.starts_with('[') ? authority.find(']') : 0;
    const std::size_t colon = authority.find(':', std::min(afterAddress, authority.size()));
    std::string name(authority.substr(0, colon));
    std::transform(name.begin(), name.end(), name.begin(), [](char unit) { return unit >= 'A' && unit <= 'Z' ? char(unit + 32) : unit; });
    return name;
}

bool EqualInConstantTime(std::string_view left, std::string_view right) {
    unsigned difference = left.size() == right.size() ? 0 : 1;
    for (std::size_t i = 0; i < right.size(); ++i)
        difference |= static_cast<unsigned>((i < left.size() ? left[i] : 0) ^ right[i]);
    return difference == 0;
}

std::string DecodeBase64(std::string_view text) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string decoded;
    std::uint32_t bits = 0;
    int count = 0;
    while (text.ends_with('='))
        text.remove_suffix(1);
    for (const char unit : text) {
        const std::size_t digit = digits.find(unit);
        if (digit == std::string_view::npos)
            return {};
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            decoded += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return decoded;
}

}  // namespace webdav
