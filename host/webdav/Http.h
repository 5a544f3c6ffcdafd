// One HTTP request and the answer to it, free of the library that carries them over the wire.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace webdav {

// HTTP asks for "no letter case" in ASCII alone.
bool EqualToken(std::string_view left, std::string_view right);
std::string_view Trimmed(std::string_view text);
// "a, b" without the blanks; empty parts are left out.
std::vector<std::string_view> SplitList(std::string_view text, char separator = ',');
// Decimal digits and nothing else, up to 18 of them.
std::optional<std::uint64_t> ParseNumber(std::string_view text);

struct Request {
    std::string method, target;
    std::vector<std::pair<std::string, std::string>> fields;

    // The value of the field, several joined by ", "; nothing when it is missing.
    std::optional<std::string> Field(std::string_view name) const;
};

// The body of a request as it comes in. The client is told to go on (100-continue) at the first read.
class RequestBody {
public:
    virtual ~RequestBody() = default;
    // Has the client announced a body of at least one byte, or of unknown length?
    virtual bool IsExpected() const = 0;
    // The next bytes; 0 at the end of a body that came in whole. Throws ConnectionLost.
    virtual std::size_t Read(char* buffer, std::size_t capacity) = 0;
};

using Fields = std::vector<std::pair<std::string, std::string>>;

// The answer. Begin comes first and once. Throws ConnectionLost when the client is gone.
class Response {
public:
    virtual ~Response() = default;
    // Without a length the body is sent in chunks. What is written after the answer to HEAD is dropped.
    virtual void Begin(int status, const Fields& fields, std::optional<std::uint64_t> length) = 0;
    virtual void Write(std::string_view data) = 0;
    virtual bool HasBegun() const = 0;
    // Before Begin: the connection ends with this answer.
    virtual void CloseAfterwards() = 0;
    // The client may use this server: others have to make room first.
    virtual void LetIn() = 0;

    // A whole answer at once.
    void Send(int status, const Fields& fields = {}, std::string_view body = {});
};

// The other side went away or is too slow; there is nobody to tell.
class ConnectionLost : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Ends the handling of a request with this status. condition is the XML inside of a DAV:error body, or empty.
class HttpError : public std::runtime_error {
public:
    explicit HttpError(int status, const std::string& text = {}, std::string condition = {}, Fields fields = {})
        : std::runtime_error(text), m_status(status), m_condition(std::move(condition)), m_fields(std::move(fields)) {}
    int Status() const { return m_status; }
    const std::string& Condition() const { return m_condition; }
    const Fields& ExtraFields() const { return m_fields; }

private:
    int m_status;
    std::string m_condition;
    Fields m_fields;
};

// "HTTP/1.1 404 Not Found"
std::string StatusLine(int status);

// Times are FILETIMEs: 100 ns steps since 1601, UTC.
std::string HttpDate(std::uint64_t fileTime);  // "Sat, 21 Nov 2026 08:10:04 GMT"
std::string IsoDate(std::uint64_t fileTime);   // "2026-11-21T08:10:04Z"
// Takes the first form, which everybody sends, and the two old ones, "Saturday, 21-Nov-26 08:10:04 GMT" and "Sat Nov 21 08:10:04 2026";
// 0 for anything else.
std::uint64_t ParseHttpDate(std::string_view text);
std::uint64_t Now();
constexpr std::uint64_t kSecond = 10'000'000;

}  // namespace webdav
