#include "common/TrackingText.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

#include "common/CharacterSets.h"

namespace {

constexpr std::wstring_view kForm =
    L"<halvanecloud>\n<filetracking>\n<process>\n<name><![CDATA[%s]]></name>\n<id>%d</id>\n</process>\n"
    L"<srcfile>\n<name><![CDATA[%s]]></name>\n<attributes>%d</attributes>\n<writetime>%I64d</writetime>\n<size>%I64d</size>\n</srcfile>\n"
    L"<filespec>\n<name>\n<![CDATA[%s]]></name>\n</filespec>\n"
    L"<tempfile>\n<name><![CDATA[%s]]></name>\n<attributes>%d</attributes>\n<writetime>%I64d</writetime>\n<size>%I64d</size>\n</tempfile>\n"
    L"<ar>\n<fid>%s</fid>\n<fv>%s</fv>\n<o>\n<id>%s</id>\n<iid>%s</iid>\n<fn>%s</fn>\n<ofn>%s</ofn></o>\n"
    L"<a><id>%s</id>\n<iid>%s</iid>\n<ifn>%s</ifn>\n<ofn>%s</ofn></a>\n</ar>\n</filetracking>\n</halvanecloud>\n";

// The form with the values in place of its fields, which begin with "%" and end with "s" or "d"; fields without a value are empty.
std::wstring Filled(std::initializer_list<std::wstring> values) {
    std::wstring text;
    auto value = values.begin();
    for (std::size_t i = 0; i < kForm.size(); ++i) {
        if (kForm[i] == L'%') {
            i = kForm.find_first_of(L"sd", i);
            text += value != values.end() ? *value++ : std::wstring();
        } else {
            text += kForm[i] == L'\n' ? std::wstring(L"\r\n") : std::wstring(1, kForm[i]);
        }
    }
    return text;
}

std::wstring AttributesStr(const FileStamp& stamp) { return std::to_wstring(static_cast<std::int32_t>(stamp.attributes)); }

constexpr std::wstring_view kUnreserved = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
constexpr std::wstring_view kHexDigits = L"0123456789ABCDEF";

std::wstring PercentEncoded(std::wstring_view text) {
    std::wstring encoded;
    for (const char unit : Narrowed(text, CharacterSet::Utf8)) {
        const auto byte = static_cast<unsigned char>(unit);
        if (kUnreserved.find(byte) != kUnreserved.npos)
            encoded += static_cast<wchar_t>(byte);
        else
            encoded.append({L'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]});
    }
    return encoded;
}

std::optional<std::wstring> PercentDecoded(std::wstring_view text) {
    std::string utf8;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCode = text[i] == L'%' && i + 2 < text.size();
        const std::size_t high = isCode ? kHexDigits.find(text[i + 1]) : kHexDigits.npos;
        const std::size_t low = isCode ? kHexDigits.find(text[i + 2]) : kHexDigits.npos;
        if (high != kHexDigits.npos && low != kHexDigits.npos) {
            utf8 += static_cast<char>(high * 16 + low);
            i += 2;
        } else if (kUnreserved.find(text[i]) != kUnreserved.npos) {
            utf8 += static_cast<char>(text[i]);
        } else {
            return std::nullopt;
        }
    }
    return WidenedExactly(utf8, CharacterSet::Utf8);
}

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
bool TakeNumber(std::wstring_view& text, std::wstring_view start, std::wstring_view end, std::int64_t& number) {
    const auto found = TakeBetween(text, start, end);
    if (!found)
        return false;
    std::wstring_view digits = *found;
    const bool negative = digits.starts_with(L'-');
    digits.remove_prefix(negative ? 1 : 0);
    if (digits.empty() || digits.size() > 19)  // more do not fit into 64 bits
        return false;
    std::uint64_t value = 0;
    for (const wchar_t digit : digits) {
        if (digit < L'0' || digit > L'9')
            return false;
        value = value * 10 + static_cast<std::uint64_t>(digit - L'0');
    }
    number = static_cast<std::int64_t>(negative ? 0 - value : value);
    return true;
}

bool TakeStamp(std::wstring_view& text, FileStamp& stamp) {
    std::int64_t attributes = 0;
    const bool whole = TakeNumber(text, L"<attributes>", L"</attributes>", attributes) &&
                       TakeNumber(text, L"<writetime>", L"</writetime>", stamp.writeTime) &&
                       TakeNumber(text, L"<size>", L"</size>", stamp.size);
    stamp.attributes = static_cast<std::uint32_t>(attributes);
    return whole;
}

constexpr std::wstring_view kFullStart = L"<!-- utf8: ", kFullEnd = L" -->", kFullBar = L" | ";  // of the line with full names

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
void TakeFullNames(std::wstring_view line, TrackingRecord& record) {
    const std::size_t begin = std::min(line.find_first_not_of(L"\r\n"), line.size());
    line = line.substr(begin, line.find_last_not_of(L"\r\n") + 1 - begin);
    if (!line.starts_with(kFullStart) || !line.ends_with(kFullEnd) || line.size() < kFullStart.size() + kFullEnd.size())
        return;
    line = line.substr(kFullStart.size(), line.size() - kFullStart.size() - kFullEnd.size());
    const std::size_t first = line.find(kFullBar), second = first == line.npos ? first : line.find(kFullBar, first + kFullBar.size());
    if (second == line.npos)
        return;
    const auto source = PercentDecoded(line.substr(0, first)), spec = PercentDecoded(line.substr(second + kFullBar.size())),
               temp = PercentDecoded(line.substr(first + kFullBar.size(), second - first - kFullBar.size()));
    const auto isName = [](const std::optional<std::wstring>& text) { return text && text->find_first_of(L"<>") == text->npos; };
    if (!isName(source) || !isName(temp) || !isName(spec) || !IsNarrowForm(record.sourceName, *source) ||
        !IsNarrowForm(record.tempName, *temp) || !IsNarrowForm(record.fileSpec, *spec))
        return;
    record.sourceName = *source;
    record.tempName = *temp;
    record.fileSpec = *spec;
}

}  // namespace

bool TrackingRecord::IsSourceKnown() const {
    constexpr std::wstring_view longPrefix = L"\\\\?\\", substitutes = L"?\xFFFD";
    return sourceName.find_first_of(substitutes, sourceName.starts_with(longPrefix) ? longPrefix.size() : 0) == sourceName.npos;
}

std::string TrackingText(const TrackingRecord& record) {
    const auto number = [](std::int64_t value) { return std::to_wstring(value); };
    const std::wstring text =
        Filled({L"", L"0", record.sourceName, AttributesStr(record.source), number(record.source.writeTime), number(record.source.size),
                record.fileSpec, record.tempName, AttributesStr(record.temp), number(record.temp.writeTime), number(record.temp.size)});
    if (auto exact = NarrowedExactly(text, CharacterSet::System))
        return *exact;
    std::wstring names(kFullStart);
    names.append(PercentEncoded(record.sourceName)).append(kFullBar).append(PercentEncoded(record.tempName)).append(kFullBar);
    names.append(PercentEncoded(record.fileSpec)).append(kFullEnd).append(L"\r\n");
    return Narrowed(text + names, CharacterSet::System);
}

std::optional<TrackingRecord> ParseTrackingText(std::string_view bytes) {
    const std::wstring whole = Widened(bytes, CharacterSet::System);
    std::wstring_view text = whole;
    TrackingRecord record;
    const bool isWhole = TakeBetween(text, L"<filetracking>", L"<srcfile>") && TakeName(text, record.sourceName) &&
                         TakeStamp(text, record.source) && TakeBetween(text, L"</srcfile>", L"<filespec>") &&
                         TakeName(text, record.fileSpec) && TakeBetween(text, L"</filespec>", L"<tempfile>") &&
                         TakeName(text, record.tempName) && TakeStamp(text, record.temp) && TakeBetween(text, L"</halvanecloud>", L"");
    if (!isWhole || record.sourceName.empty())
        return std::nullopt;
    TakeFullNames(text, record);
    return record;
}
