// What the pure parts ask of the platform, for running them natively: plain stand-ins, with letter case of ASCII alone.
#include <algorithm>

#include "core/Text.h"
#include "webdav/Http.h"

namespace {

template <class Unit>
Unit Lower(Unit unit) {
    return unit >= 'A' && unit <= 'Z' ? static_cast<Unit>(unit + ('a' - 'A')) : unit;
}

template <class View>
bool Equal(View left, View right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](auto a, auto b) { return Lower(a) == Lower(b); });
}

}  // namespace

std::string ToUtf8(std::wstring_view text) { return {text.begin(), text.end()}; }
std::wstring ToUtf16(std::string_view text) { return {text.begin(), text.end()}; }
std::wstring UniqueSuffix() { return L"1a2b3c4d"; }

namespace webdav {
bool EqualToken(std::string_view left, std::string_view right) { return Equal(left, right); }
std::string_view Trimmed(std::string_view text) {
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}
std::vector<std::string_view> SplitList(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (const std::string_view part = Trimmed(text.substr(0, end)); !part.empty())
            parts.push_back(part);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}
std::optional<std::uint64_t> ParseNumber(std::string_view text) {
    std::uint64_t number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9' || text.size() > 18)
            return std::nullopt;
        number = number * 10 + static_cast<std::uint64_t>(digit - '0');
    }
    return text.empty() ? std::nullopt : std::optional(number);
}
}  // namespace webdav
