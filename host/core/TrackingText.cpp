#include "core/TrackingText.h"

namespace {

// The text between start and the first end behind it, which is taken off the front of text with all before it.
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
    if (digits.empty() || digits.size() > 19)  // more do not fit
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

}  // namespace

std::optional<Tracking> ParseTracking(std::wstring_view text) {
    Tracking tracking;
    const bool whole = TakeBetween(text, L"<filetracking>", L"<srcfile>") && TakeName(text, tracking.container) &&
                       TakeState(text, tracking.containerState) && TakeBetween(text, L"</srcfile>", L"<filespec>") &&
                       TakeName(text, tracking.name) && TakeBetween(text, L"</filespec>", L"<tempfile>") &&
                       TakeName(text, tracking.copy) && TakeState(text, tracking.copyState) &&
                       text.find(L"</halvanecloud>") != std::wstring_view::npos;
    return whole && !tracking.container.empty() ? std::optional(std::move(tracking)) : std::nullopt;
}
