// One HTTP request and its answer, independent of the library that sends and receives them.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace webdav {

// HTTP ignores letter case in ASCII only.
bool EqualToken(std::string_view left, std::string_view right);
std::string_view Trimmed(std::string_view text);
// "a, b" without the blanks; empty parts are left out.
std::vector<std::string_view> SplitList(std::string_view text, char separator = ',');
// A number of at most 18 decimal digits and nothing else.
std::optional<std::uint64_t> ParseNumber(std::string_view text);

struct Request {
    std::string method, target;
    std::vector<std::pair<std::string, std::string>> fields;

    // The value of the field, several joined by ", "; nothing when it is missing.
    std::optional<std::string> Field(std::string_view name) const;
};

// The body of a request, while it is received. At the first read the client is told to continue (100-continue).
class RequestBody {
public:
    virtual ~RequestBody() = default;
    // Has the client announced a body of at least one byte, or of unknown length?
    virtual bool IsExpected() const = 0;
    // The next bytes; 0 at the end of a complete body. Throws ConnectionLost.
    virtual std::size_t Read(char* buffer, std::size_t capacity) = 0;
};

using Fields = std::vector<std::pair<std::string, std::string>>;

// The answer. Begin must be called first, and once. Throws ConnectionLost when the client has disconnected.
class Response {
public:
    virtual ~Response() = default;
    // Without a length the body is sent in chunks. For HEAD, what is written is dropped.
    virtual void Begin(int status, const Fields& fields, std::optional<std::uint64_t> length) = 0;
    virtual void Write(std::string_view data) = 0;
    virtual bool HasBegun() const = 0;
    // Before Begin: the connection ends with this answer.
    virtual void CloseAfterwards() = 0;
    // The client has access: other connections are closed before this one.
    virtual void LetIn() = 0;

    // Sends a complete answer.
    void Send(int status, const Fields& fields = {}, std::string_view body = {});
};

// The client has disconnected or is too slow, so it cannot be answered.
class ConnectionLost : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Ends a request with this status. condition is the XML inside a DAV:error body, or empty.
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
// Accepts the first form, which is usual, and the two old ones, "Saturday, 21-Nov-26 08:10:04 GMT" and "Sat Nov 21 08:10:04 2026";
// 0 for anything else.
std::uint64_t ParseHttpDate(std::string_view text);
std::uint64_t Now();
constexpr std::uint64_t kSecond = 10'000'000;

}  // namespace webdav
