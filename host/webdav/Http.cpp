#include "webdav/Http.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include <windows.h>

#include "common/Halves.h"

namespace webdav {

namespace {

constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct Reason {
    int status;
    const char* text;
};

constexpr Reason kReasons[] = {
    {200, "OK"},
    {201, "Created"},
    {204, "No Content"},
    {206, "Partial Content"},
    {207, "Multi-Status"},
    {304, "Not Modified"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {422, "Unprocessable Content"},
    {423, "Locked"},
    {424, "Failed Dependency"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {507, "Insufficient Storage"},
};

SYSTEMTIME SystemTimeOf(std::uint64_t fileTime) {
    const FILETIME time = FileTimeOf(fileTime);
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&time, &parts);
    return parts;
}

char Lower(char unit) { return unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit + 32) : unit; }

}  // namespace

bool EqualToken(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) { return Lower(a) == Lower(b); });
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
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
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::optional<std::string> Request::Field(std::string_view name) const {
    std::optional<std::string> value;
    for (const auto& [fieldName, fieldValue] : fields)
        if (EqualToken(fieldName, name))
            value = value ? *value + ", " + fieldValue : fieldValue;
    return value;
}

void Response::Send(int status, const Fields& fields, std::string_view body) {
    Begin(status, fields, body.size());
    Write(body);
}

std::string StatusLine(int status) {
    for (const Reason& reason : kReasons)
        if (reason.status == status)
            return "HTTP/1.1 " + std::to_string(status) + " " + reason.text;
    return "HTTP/1.1 " + std::to_string(status) + " Unknown";
}

std::string HttpDate(std::uint64_t fileTime) {
    const SYSTEMTIME time = SystemTimeOf(fileTime);
    char text[64];
    std::snprintf(text, sizeof(text), "%s, %02u %s %04u %02u:%02u:%02u GMT", kDays[time.wDayOfWeek % 7], time.wDay,
                  kMonths[(time.wMonth + 11) % 12], time.wYear, time.wHour, time.wMinute, time.wSecond);
    return text;
}

std::string IsoDate(std::uint64_t fileTime) {
    const SYSTEMTIME time = SystemTimeOf(fileTime);
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02uZ", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                  time.wSecond);
    return text;
}

std::uint64_t ParseHttpDate(std::string_view value) {
    const std::string text(value);
    char month[4] = {};
    unsigned day = 0, year = 0, hour = 0, minute = 0, second = 0;
    const auto isForm = [&](const char* form, auto*... parts) { return std::sscanf(text.c_str(), form, parts...) == 6; };
    if (isForm("%*[A-Za-z], %2u-%3s-%2u %2u:%2u:%2u GMT", &day, month, &year, &hour, &minute, &second)) {
        const unsigned now = SystemTimeOf(Now()).wYear;
        year += now - now % 100;
        year -= year > now + 50 ? 100 : 0;
    } else if (!isForm("%*3s, %2u %3s %4u %2u:%2u:%2u GMT", &day, month, &year, &hour, &minute, &second) &&
               !isForm("%*3s %3s %2u %2u:%2u:%2u %4u", month, &day, &hour, &minute, &second, &year)) {
        return 0;
    }
    const auto found = std::find(std::begin(kMonths), std::end(kMonths), std::string_view(month));
    SYSTEMTIME parts{};
    parts.wYear = static_cast<WORD>(year);
    parts.wMonth = static_cast<WORD>(found - std::begin(kMonths) + 1);
    parts.wDay = static_cast<WORD>(day);
    parts.wHour = static_cast<WORD>(hour);
    parts.wMinute = static_cast<WORD>(minute);
    parts.wSecond = static_cast<WORD>(second);
    FILETIME time{};
    if (found == std::end(kMonths) || !SystemTimeToFileTime(&parts, &time))
        return 0;
    return FileTimeNumber(time);
}

std::uint64_t Now() {
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    return FileTimeNumber(time);
}

}  // namespace webdav
