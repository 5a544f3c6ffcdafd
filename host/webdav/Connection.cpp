#include "webdav/Connection.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "core/Text.h"

namespace webdav {

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using ErrorCode = boost::system::error_code;

constexpr std::size_t c_headerLimit = 32 * 1024;
constexpr std::size_t c_bufferSize = 64 * 1024;  // with less, uploads come in drops
constexpr std::size_t c_writeSize = 32 * 1024;
constexpr std::size_t c_drainLimit = 256 * 1024;
constexpr std::chrono::seconds c_idleTime{75}, c_headerTime{20}, c_stallTime{60}, c_lingerTime{2};
constexpr std::chrono::milliseconds c_turn{200};
constexpr int c_slowestBytesPerSecond = 1024;

// The socket with a deadline for what is being read. A body's deadline moves on with every byte, so that a slow client may
// take long, but not for ever.
class TimedSocket {
public:
    TimedSocket(tcp::socket& socket, const std::atomic<bool>& isStopping) : m_socket(socket), m_isStopping(isStopping) {
        ErrorCode ignored;
        m_socket.set_option(tcp::no_delay(true), ignored);
        const DWORD milliseconds = static_cast<DWORD>(std::chrono::milliseconds(c_stallTime).count());
        setsockopt(m_socket.native_handle(), SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&milliseconds),
                   sizeof(milliseconds));
    }

    void ExpectWithin(Clock::duration time) {
        m_deadline = Clock::now() + time;
        m_extends = false;
    }
    void ExpectBody() {
        ExpectWithin(c_stallTime);
        m_extends = true;
    }

    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, ErrorCode& error) {
        do {
            const bool isStopping = m_isStopping && !m_isLeaving;
            if (isStopping || Clock::now() >= m_deadline) {
                error = isStopping ? boost::asio::error::operation_aborted : boost::asio::error::timed_out;
                return 0;
            }
        } while (!WaitForData());
        const std::size_t count = m_socket.read_some(buffers, error);
        if (m_extends) {
            const auto earned = std::chrono::milliseconds(count * 1000 / c_slowestBytesPerSecond);
            m_deadline = std::min(m_deadline + earned, Clock::now() + c_stallTime);
        }
        return count;
    }
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        return Checked([&](ErrorCode& error) { return read_some(buffers, error); });
    }

    template <class Buffers>
    std::size_t write_some(const Buffers& buffers, ErrorCode& error) {
        const std::size_t count = m_socket.write_some(buffers, error);
        m_bytesSent += count;
        return count;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers) {
        return Checked([&](ErrorCode& error) { return write_some(buffers, error); });
    }

    std::uint64_t BytesSent() const { return m_bytesSent; }

    // Says goodbye so that the client reads the last answer even while it is still sending.
    void Leave() {
        ErrorCode error;
        m_socket.shutdown(tcp::socket::shutdown_send, error);
        ExpectWithin(c_lingerTime);
        m_isLeaving = true;
        char dropped[4096];
        while (!error)
            read_some(boost::asio::buffer(dropped), error);
        m_socket.close(error);
    }

private:
    template <class Operation>
    static std::size_t Checked(Operation operation) {
        ErrorCode error;
        const std::size_t count = operation(error);
        if (error)
            throw boost::system::system_error(error);
        return count;
    }

    // In short turns: a thread that waits inside of a read is not woken by what other threads do to the socket.
    bool WaitForData() {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(m_deadline - Clock::now());
        const auto turn = std::clamp(left, std::chrono::microseconds(0), std::chrono::microseconds(c_turn));
        fd_set sockets;
        FD_ZERO(&sockets);
        FD_SET(m_socket.native_handle(), &sockets);
        timeval patience{0, static_cast<long>(turn.count())};
        return select(0, &sockets, nullptr, nullptr, &patience) != 0;
    }

    tcp::socket& m_socket;
    const std::atomic<bool>& m_isStopping;
    Clock::time_point m_deadline;
    bool m_extends = false;
    bool m_isLeaving = false;
    std::uint64_t m_bytesSent = 0;
};

using Parser = http::request_parser<http::buffer_body>;

// The client is there and sends what is not HTTP; rather than that it is gone.
bool IsMalformed(const ErrorCode& error) {
    return error && error.category() == http::make_error_code(http::error::bad_version).category() &&
           error != http::error::need_buffer && error != http::error::end_of_stream && error != http::error::partial_message;
}

class BeastBody : public RequestBody {
public:
    BeastBody(TimedSocket& socket, beast::flat_buffer& buffer, Parser& parser)
        : m_socket(socket), m_buffer(buffer), m_parser(parser),
          m_awaitsContinue(EqualToken(parser.get()[http::field::expect], "100-continue")) {
        m_socket.ExpectBody();
    }

    bool IsExpected() const override { return !m_parser.is_done(); }

    std::size_t Read(char* data, std::size_t capacity) override {
        if (m_parser.is_done())
            return 0;
        ErrorCode error;
        if (std::exchange(m_awaitsContinue, false))
            boost::asio::write(m_socket, boost::asio::buffer(std::string_view("HTTP/1.1 100 Continue\r\n\r\n")), error);
        m_parser.get().body().data = data;
        m_parser.get().body().size = capacity;
        if (!error)
            http::read(m_socket, m_buffer, m_parser, error);
        if (IsMalformed(error))
            throw HttpError(400, "the body of the request: " + error.message());
        if (error && error != http::error::need_buffer)
            throw ConnectionLost("the request broke off: " + error.message());
        return capacity - m_parser.get().body().size;
    }

    // Reads what the handler left, so that the next request can be found. False: too much, or the client waits.
    bool Drain() {
        char dropped[4096];
        std::size_t total = 0;
        while (!m_parser.is_done() && !m_awaitsContinue && total < c_drainLimit)
            total += Read(dropped, sizeof(dropped));
        return m_parser.is_done();
    }

private:
    TimedSocket& m_socket;
    beast::flat_buffer& m_buffer;
    Parser& m_parser;
    bool m_awaitsContinue;
};

class BeastResponse : public Response {
public:
    BeastResponse(TimedSocket& socket, unsigned version, bool isHead, bool keepAlive)
        : m_socket(socket), m_version(version), m_isHead(isHead), m_keepAlive(keepAlive) {}

    void Begin(int status, const Fields& fields, std::optional<std::uint64_t> length) override {
        m_message.result(static_cast<unsigned>(status));
        m_message.version(m_version);
        m_message.set(http::field::date, HttpDate(Now()));
        for (const auto& [name, value] : fields)
            m_message.insert(name, value);
        m_hasBody = !m_isHead && status != 204 && status != 304 && length != 0;
        if (length && status != 204 && status != 304)
            m_message.content_length(*length);
        else if (!length && m_version >= 11)
            m_message.chunked(true);
        else if (!length)
            m_keepAlive = false;  // the end of the connection is the end of the body
        m_message.keep_alive(m_keepAlive);
        m_message.body().more = m_hasBody;
        m_serializer.emplace(m_message);
        m_serializer->split(true);
        ErrorCode error;
        http::write_header(m_socket, *m_serializer, error);
        Check(error);
    }

    void Write(std::string_view data) override {
        if (!m_hasBody || data.empty())
            return;
        if (m_pending.size() + data.size() < c_writeSize) {
            m_pending += data;
            return;
        }
        Flush();
        if (data.size() < c_writeSize)
            m_pending += data;
        else
            WriteNow(data, true);
    }

    bool HasBegun() const override { return m_serializer.has_value(); }

    void Finish() {
        if (!HasBegun())
            Begin(500, {}, 0);
        if (!m_hasBody)
            return;
        Flush();
        WriteNow({}, false);
    }

    int Status() const { return static_cast<int>(m_message.result_int()); }
    bool KeepAlive() const { return m_keepAlive; }
    void CloseAfterwards() { m_keepAlive = false; }

private:
    void Flush() {
        if (!m_pending.empty())
            WriteNow(m_pending, true);
        m_pending.clear();
    }

    void WriteNow(std::string_view data, bool more) {
        m_message.body().data = data.empty() ? nullptr : const_cast<char*>(data.data());
        m_message.body().size = data.size();
        m_message.body().more = more;
        ErrorCode error;
        http::write(m_socket, *m_serializer, error);
        Check(error);
    }

    static void Check(const ErrorCode& error) {
        if (error && error != http::error::need_buffer)
            throw ConnectionLost("the answer broke off: " + error.message());
    }

    TimedSocket& m_socket;
    unsigned m_version;
    bool m_isHead, m_keepAlive;
    bool m_hasBody = false;
    http::response<http::buffer_body> m_message;
    std::optional<http::response_serializer<http::buffer_body>> m_serializer;
    std::string m_pending;
};

Request TakeRequest(const Parser& parser) {
    const auto& header = parser.get();
    Request request{std::string(header.method_string()), std::string(header.target()), {}};
    for (const auto& field : header)
        request.fields.emplace_back(std::string(field.name_string()), std::string(field.value()));
    return request;
}

// A target may hold anything; a line of the log is one line.
void LogRequest(const Request& request, int status, std::uint64_t bytes, Clock::duration time) {
    std::string target = request.target;
    std::replace_if(target.begin(), target.end(), [](unsigned char unit) { return unit < 32 || unit == 127; }, '?');
    char figures[96];
    std::snprintf(figures, sizeof(figures), " %d %llu bytes %.1f ms\n", status, static_cast<unsigned long long>(bytes),
                  std::chrono::duration<double, std::milli>(time).count());
    PrintError(request.method + " " + target + figures);
}

// What to answer when the header cannot be read; 0: nothing, the client is gone.
int StatusOfHeaderError(const ErrorCode& error) {
    if (error == http::error::header_limit)
        return 431;
    if (error == boost::asio::error::timed_out)
        return 408;
    return IsMalformed(error) ? 400 : 0;
}

// Any other coding than "chunked" would leave open where the body ends, and what stands in it would be taken for a request.
bool IsUnknownCoding(const Parser& parser) {
    const auto& header = parser.get();
    return header.count(http::field::transfer_encoding) > 0 && !EqualToken(header[http::field::transfer_encoding], "chunked");
}

bool WaitForFirstByte(TimedSocket& socket, beast::flat_buffer& buffer) {
    if (buffer.size() > 0)
        return true;
    socket.ExpectWithin(c_idleTime);
    ErrorCode error;
    buffer.commit(socket.read_some(buffer.prepare(c_bufferSize), error));
    return !error && buffer.size() > 0;
}

// False: the connection ends.
bool ServeOne(TimedSocket& socket, beast::flat_buffer& buffer, const Handler& handler, bool logRequests) {
    if (!WaitForFirstByte(socket, buffer))
        return false;
    const Clock::time_point start = Clock::now();
    const std::uint64_t sentBefore = socket.BytesSent();
    Parser parser;
    parser.header_limit(c_headerLimit);
    parser.body_limit(boost::none);
    socket.ExpectWithin(c_headerTime);
    ErrorCode error;
    http::read_header(socket, buffer, parser, error);
    if (error) {
        if (const int status = StatusOfHeaderError(error))
            BeastResponse(socket, 11, false, false).Begin(status, {}, 0);
        return false;
    }
    if (IsUnknownCoding(parser)) {
        BeastResponse(socket, 11, false, false).Begin(501, {}, 0);
        return false;
    }
    const Request request = TakeRequest(parser);
    BeastBody body(socket, buffer, parser);
    BeastResponse response(socket, parser.get().version(), request.method == "HEAD", parser.get().keep_alive());
    bool goesOn = true;
    try {
        handler(request, body, response);
        response.Finish();
        goesOn = response.KeepAlive() && body.Drain();
    } catch (const std::exception&) {
        goesOn = false;
    }
    if (logRequests)
        LogRequest(request, response.Status(), socket.BytesSent() - sentBefore, Clock::now() - start);
    return goesOn;
}

}  // namespace

void ServeConnection(tcp::socket& plainSocket, const Handler& handler, bool logRequests, const std::atomic<bool>& isStopping) {
    TimedSocket socket(plainSocket, isStopping);
    try {
        beast::flat_buffer buffer;
        buffer.reserve(c_bufferSize);
        while (!isStopping && ServeOne(socket, buffer, handler, logRequests)) {
        }
    } catch (const std::exception&) {
        // Nobody is left to be told.
    }
    socket.Leave();
}

void RefuseConnection(tcp::socket& plainSocket) {
    ErrorCode ignored;
    boost::asio::write(plainSocket, boost::asio::buffer(std::string_view("HTTP/1.1 503 Service Unavailable\r\nRetry-After: 5\r\n"
                                                                         "Content-Length: 0\r\nConnection: close\r\n\r\n")),
                       ignored);
    plainSocket.close(ignored);
}

}  // namespace webdav
