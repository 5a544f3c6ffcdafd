#include "core/TrackingText.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string>

#include "core/Text.h"

namespace {

// The text between start and the next end. Removes everything to that end from the front of text.
std::optional<std::wstring_view> TakeBetween(std::wstring_view& text, std::wstring_view start, std::wstring_view end) {
    const std::size_t begin = text.find(start);
    if (begin == std::wstring_view::npos)
        return std::nullopt;
    std::wstring_view found = text.substr(begin + start.size());
    const std::size_t length = found.find(end);
    if (length == std::wstring_view::npos)
        return std::nullopt;
    text = found.substr(length + end.size());
    return found.substr(0, length);
}

bool TakeName(std::wstring_view& text, std::wstring& name) {
    const auto found = TakeBetween(text, L"<![CDATA[", L"]]></name>");
    name = found.value_or(std::wstring_view());
    return found.has_value();
}

// Attributes are written as signed 32-bit numbers, times and sizes as signed 64-bit ones.
bool TakeNumber(std::wstring_view& text, std::wstring_view start, std::wstring_view end, std::uint64_t& number) {
    const auto found = TakeBetween(text, start, end);
    if (!found)
        return false;
    std::wstring_view digits = *found;
    const bool negative = digits.starts_with(L'-');
    digits.remove_prefix(negative ? 1 : 0);
    if (digits.empty() || digits.size() > 19)  // more do not fit into 64 bits
        return false;
    number = 0;
    for (const wchar_t digit : digits) {
        if (digit < L'0' || digit > L'9')
            return false;
        number = number * 10 + static_cast<std::uint64_t>(digit - L'0');
    }
    number = negative ? 0 - number : number;
    return true;
}

bool TakeState(std::wstring_view& text, FileState& state) {
    std::uint64_t attributes = 0;
    const bool whole = TakeNumber(text, L"<attributes>", L"</attributes>", attributes) &&
                       TakeNumber(text, L"<writetime>", L"</writetime>", state.lastWriteTime) &&
                       TakeNumber(text, L"<size>", L"</size>", state.size);
    state.attributes = static_cast<std::uint32_t>(attributes);
    return whole;
}

constexpr std::wstring_view kSubstitutes = L"?\xFFFD";

int HexDigit(wchar_t unit) {
    const std::size_t digit = std::wstring_view(L"0123456789ABCDEF").find(unit);
    return digit == std::wstring_view::npos ? -1 : static_cast<int>(digit);
}

bool IsUnreserved(wchar_t unit) {
    return (unit >= L'a' && unit <= L'z') || (unit >= L'A' && unit <= L'Z') || (unit >= L'0' && unit <= L'9') || unit == L'.' ||
           unit == L'_' || unit == L'-';
}

std::optional<std::wstring> Decoded(std::wstring_view text) {
    std::string utf8;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == L'%' && i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = high < 0 ? -1 : HexDigit(text[i + 2]);
        if (low >= 0) {
            utf8 += static_cast<char>(high * 16 + low);
            i += 2;
        } else if (IsUnreserved(text[i])) {
            utf8 += static_cast<char>(text[i]);
        } else {
            return std::nullopt;
        }
    }
    try {
        return ToUtf16(utf8);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Could narrow be full, converted to narrow characters? ASCII characters have a narrow form in every set.
bool IsNarrowForm(std::wstring_view narrow, std::wstring_view full) {
    const auto ascii = [](std::wstring_view text) {
        std::wstring kept;
        std::copy_if(text.begin(), text.end(), std::back_inserter(kept), [](wchar_t unit) { return unit < 0x80 && unit != L'?'; });
        return kept;
    };
    return ascii(narrow) == ascii(full);
}

// Takes the names from the last line, if it is well-formed and has the same names as the text before it.
void TakeFullNames(std::wstring_view line, Tracking& tracking) {
    constexpr std::wstring_view start = L"<!-- utf8: ", end = L" -->", bar = L" | ";
    const std::size_t begin = std::min(line.find_first_not_of(L"\r\n"), line.size());
    line = line.substr(begin, line.find_last_not_of(L"\r\n") + 1 - begin);
    if (!line.starts_with(start) || !line.ends_with(end) || line.size() < start.size() + end.size())
        return;
    line = line.substr(start.size(), line.size() - start.size() - end.size());
    const std::size_t first = line.find(bar), second = first == line.npos ? first : line.find(bar, first + bar.size());
    if (second == line.npos)
        return;
    const auto container = Decoded(line.substr(0, first)), name = Decoded(line.substr(second + bar.size())),
               copy = Decoded(line.substr(first + bar.size(), second - first - bar.size()));
    const auto isName = [](const std::optional<std::wstring>& text) { return text && text->find_first_of(L"<>") == text->npos; };
    if (!isName(container) || !isName(copy) || !isName(name) || !IsNarrowForm(tracking.container, *container) ||
        !IsNarrowForm(tracking.copy, *copy) || !IsNarrowForm(tracking.name, *name))
        return;
    tracking.container = *container;
    tracking.copy = *copy;
    tracking.name = *name;
}

}  // namespace

bool Tracking::IsContainerKnown() const {
    constexpr std::wstring_view longPrefix = L"\\\\?\\";
    return container.find_first_of(kSubstitutes, container.starts_with(longPrefix) ? longPrefix.size() : 0) == container.npos;
}

std::optional<Tracking> ParseTracking(std::wstring_view text) {
    Tracking tracking;
    const bool whole = TakeBetween(text, L"<filetracking>", L"<srcfile>") && TakeName(text, tracking.container) &&
                       TakeState(text, tracking.containerState) && TakeBetween(text, L"</srcfile>", L"<filespec>") &&
                       TakeName(text, tracking.name) && TakeBetween(text, L"</filespec>", L"<tempfile>") && TakeName(text, tracking.copy) &&
                       TakeState(text, tracking.copyState) && TakeBetween(text, L"</halvanecloud>", L"");
    if (whole)
        TakeFullNames(text, tracking);
    return whole && !tracking.container.empty() ? std::optional(std::move(tracking)) : std::nullopt;
}
