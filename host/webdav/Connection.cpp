#include "webdav/Connection.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "core/Text.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using ErrorCode = boost::system::error_code;

constexpr std::size_t kWriteSize = 32 * 1024;
constexpr std::chrono::milliseconds kTurn{200};

// The non-blocking socket, with a deadline for each read or write. The deadline of a body or an answer
// is extended with every byte, so that a slow client may take long, but not for ever.
class TimedSocket {
public:
    TimedSocket(tcp::socket& socket, ConnectionState& state) : m_socket(socket), m_state(state) {
        ErrorCode ignored;
        m_socket.set_option(tcp::no_delay(true), ignored);
        m_socket.non_blocking(true, ignored);
    }

    void ExpectWithin(Clock::duration time) { m_reading = {Clock::now() + time, {}, 0}; }
    void ExpectBody() { m_reading = Deadline::Moving(limits::bodyStall, limits::bodyBytesPerSecond); }
    void ExpectAnswerTaken() { m_writing = Deadline::Moving(limits::answerStall, limits::answerBytesPerSecond); }

    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, ErrorCode& error) {
        const std::size_t count = WhenReady(
            m_reading, !m_isLeaving, [&] { return m_socket.read_some(buffers, error); }, error);
        m_bytesReceived += count;
        return count;
    }
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        return Checked([&](ErrorCode& error) { return read_some(buffers, error); });
    }

    template <class Buffers>
    std::size_t write_some(const Buffers& buffers, ErrorCode& error) {
        const std::size_t count = WhenReady(
            m_writing, false, [&] { return m_socket.write_some(buffers, error); }, error);
        m_bytesSent += count;
        return count;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers) {
        return Checked([&](ErrorCode& error) { return write_some(buffers, error); });
    }

    std::uint64_t BytesSent() const { return m_bytesSent; }
    std::uint64_t BytesReceived() const { return m_bytesReceived; }

    // Closes the connection so that the client can read the last answer even while it is still sending.
    void Leave() {
        ErrorCode error;
        m_socket.shutdown(tcp::socket::shutdown_send, error);
        ExpectWithin(m_state.mustLeave ? Clock::duration() : limits::lingerTime);
        m_isLeaving = true;
        char dropped[4096];
        while (!error)
            read_some(boost::asio::buffer(dropped), error);
        m_socket.close(error);
    }

private:
    struct Deadline {
        Clock::time_point time;
        Clock::duration stall;         // the deadline is never later than so long from now
        std::uint64_t bytesPerSecond;  // 0: the deadline is fixed
        Clock::time_point start{};
        std::uint64_t bytes = 0;  // since then

        static Deadline Moving(Clock::duration stall, std::uint64_t bytesPerSecond) {
            const Clock::time_point now = Clock::now();
            return {now + stall, stall, bytesPerSecond, now};
        }
        std::chrono::seconds Elapsed() const { return std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start); }
        std::int64_t Rate() const {
            const bool isKnown = bytesPerSecond != 0 && Elapsed() > limits::rateAfter;
            return isKnown ? static_cast<std::int64_t>(bytes) / Elapsed().count() : -1;
        }
        bool IsSlow() const {
            return Elapsed() > limits::slowAfter && Rate() >= 0 && Rate() < static_cast<std::int64_t>(limits::slowBytesPerSecond);
        }
    };

    template <class Operation>
    static std::size_t Checked(Operation operation) {
        ErrorCode error;
        const std::size_t count = operation(error);
        if (error)
            throw boost::system::system_error(error);
        return count;
    }

    template <class Operation>
    std::size_t WhenReady(Deadline& deadline, bool mayBeToldToLeave, Operation operation, ErrorCode& error) {
        const bool forReading = &deadline == &m_reading;
        for (;;) {
            const bool leaves = mayBeToldToLeave && m_state.mustLeave;
            if (leaves || Clock::now() >= deadline.time) {
                error = leaves ? boost::asio::error::operation_aborted : boost::asio::error::timed_out;
                return 0;
            }
            m_state.isSlow = deadline.IsSlow();
            m_state.rate = deadline.Rate();
            if (!Wait(deadline.time, forReading))
                continue;
            error = {};
            const std::size_t count = operation();
            if (error == boost::asio::error::would_block || error == boost::asio::error::try_again)
                continue;
            if (deadline.bytesPerSecond != 0) {
                const auto earned = std::chrono::milliseconds(count * 1000 / deadline.bytesPerSecond);
                deadline.time = std::min(deadline.time + earned, Clock::now() + deadline.stall);
                deadline.bytes += count;
            }
            m_state.rate = -1;
            m_state.isSlow = false;  // the time for processing the bytes does not count
            return count;
        }
    }

    // In short turns, because a thread that waits in select does not notice when another one closes the socket.
    bool Wait(Clock::time_point until, bool forReading) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(until - Clock::now());
        const auto turn = std::clamp(left, std::chrono::microseconds(0), std::chrono::microseconds(kTurn));
        fd_set sockets;
        FD_ZERO(&sockets);
        FD_SET(m_socket.native_handle(), &sockets);
        timeval patience{0, static_cast<long>(turn.count())};
        return select(0, forReading ? &sockets : nullptr, forReading ? nullptr : &sockets, nullptr, &patience) != 0;
    }

    tcp::socket& m_socket;
    ConnectionState& m_state;
    Deadline m_reading{}, m_writing{};
    bool m_isLeaving = false;
    std::uint64_t m_bytesSent = 0, m_bytesReceived = 0;
};

using Parser = http::request_parser<http::buffer_body>;

// Did the client send something that is not HTTP, rather than disconnect?
bool IsMalformed(const ErrorCode& error) {
    return error && error.category() == http::make_error_code(http::error::bad_version).category() && error != http::error::need_buffer &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

class BeastBody : public RequestBody {
public:
    BeastBody(TimedSocket& socket, beast::flat_buffer& buffer, Parser& parser)
        : m_socket(socket),
          m_buffer(buffer),
          m_parser(parser),
          m_awaitsContinue(EqualToken(parser.get()[http::field::expect], "100-continue")),
          m_receivedBefore(socket.BytesReceived() - buffer.size()) {
        m_socket.ExpectBody();
    }

    bool IsExpected() const override { return !m_parser.is_done(); }

    std::size_t Read(char* data, std::size_t capacity) override {
        if (m_parser.is_done())
            return 0;
        ErrorCode error;
        m_socket.ExpectAnswerTaken();
        if (std::exchange(m_awaitsContinue, false))
            boost::asio::write(m_socket, boost::asio::buffer(std::string_view("HTTP/1.1 100 Continue\r\n\r\n")), error);
        m_parser.get().body().data = data;
        m_parser.get().body().size = capacity;
        while (!error && !m_parser.is_done() && m_parser.get().body().size > 0) {
            http::read_some(m_socket, m_buffer, m_parser, error);
            RefuseMuchFraming(capacity - m_parser.get().body().size);
        }
        if (error == http::error::buffer_overflow)
            throw HttpError(413, "the body of the request: a chunk's header or the trailer is too long");
        if (IsMalformed(error))
            throw HttpError(400, "the body of the request: " + error.message());
        if (error && error != http::error::need_buffer)
            throw ConnectionLost("the request broke off: " + error.message());
        const std::size_t count = capacity - m_parser.get().body().size;
        m_bodyBytes += count;
        return count;
    }

    // Reads what the handler left of the body, so that the next request can be read. False: it is too much, or the client waits.
    bool Drain() {
        char dropped[4096];
        const std::uint64_t before = m_socket.BytesReceived();
        m_socket.ExpectWithin(limits::lingerTime);
        while (!m_parser.is_done() && !m_awaitsContinue && m_socket.BytesReceived() - before < limits::drainBytes)
            Read(dropped, sizeof(dropped));
        return m_parser.is_done();
    }

private:
    // The headers of chunks and the trailers have a limit of their own for the whole body.
    void RefuseMuchFraming(std::uint64_t newBytes) const {
        const std::uint64_t body = m_bodyBytes + newBytes, all = m_socket.BytesReceived() - m_receivedBefore - m_buffer.size();
        if (all > body + body * limits::framingPerBodyByte + limits::framingBytes)
            throw HttpError(413, "the body of the request: its chunks are mostly headers");
    }

    TimedSocket& m_socket;
    beast::flat_buffer& m_buffer;
    Parser& m_parser;
    bool m_awaitsContinue;
    std::uint64_t m_receivedBefore, m_bodyBytes = 0;
};

class BeastResponse : public Response {
public:
    BeastResponse(TimedSocket& socket, ConnectionState& state, unsigned version, bool isHead, bool keepAlive)
        : m_socket(socket), m_state(state), m_version(version), m_isHead(isHead), m_keepAlive(keepAlive) {}

    void Begin(int status, const Fields& fields, std::optional<std::uint64_t> length) override {
        m_socket.ExpectAnswerTaken();
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
            m_keepAlive = false;  // the body ends with the connection
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
        if (m_pending.size() + data.size() < kWriteSize) {
            m_pending += data;
            return;
        }
        Flush();
        if (data.size() < kWriteSize)
            m_pending += data;
        else
            WriteNow(data, true);
    }

    bool HasBegun() const override { return m_serializer.has_value(); }
    void CloseAfterwards() override { m_keepAlive = false; }
    void LetIn() override { m_state.wasLetIn = true; }

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
    ConnectionState& m_state;
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

void LogRequest(const Request& request, int status, std::uint64_t bytes, Clock::duration time) {
    char figures[96];
    std::snprintf(figures, sizeof(figures), " %d %llu bytes %.1f ms\n", status, static_cast<unsigned long long>(bytes),
                  std::chrono::duration<double, std::milli>(time).count());
    PrintError(request.method + " " + request.target + figures);  // neither can contain a line end
}

// The status when the header cannot be read; 0: no answer, the client has disconnected.
int StatusOfHeaderError(const ErrorCode& error) {
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
        return 431;
    if (error == boost::asio::error::timed_out)
        return 408;
    return IsMalformed(error) ? 400 : 0;
}

// With any other coding than "chunked" the end of the body would be unknown, and a part of it could be taken for a request.
bool IsUnknownCoding(const Parser& parser) {
    const auto& header = parser.get();
    return header.count(http::field::transfer_encoding) > 0 && !EqualToken(header[http::field::transfer_encoding], "chunked");
}

bool WaitForFirstByte(TimedSocket& socket, beast::flat_buffer& buffer) {
    if (buffer.size() > 0)
        return true;
    socket.ExpectWithin(limits::idleTime);
    ErrorCode error;
    buffer.commit(socket.read_some(buffer.prepare(limits::bufferBytes), error));
    return !error && buffer.size() > 0;
}

// 0: the header of a request was read, and its body can be; otherwise the status to answer, or -1: none, the client has disconnected.
int ReadHeader(TimedSocket& socket, beast::flat_buffer& buffer, Parser& parser) {
    parser.header_limit(limits::headerBytes);
    parser.body_limit(boost::none);
    socket.ExpectWithin(limits::headerTime);
    ErrorCode error;
    http::read_header(socket, buffer, parser, error);
    if (!error)
        return IsUnknownCoding(parser) ? 501 : 0;
    const int status = StatusOfHeaderError(error);
    return status != 0 ? status : -1;
}

// Returns false when the connection ends.
bool ServeOne(TimedSocket& socket, beast::flat_buffer& buffer, const Handler& handler, bool logRequests, ConnectionState& state) {
    state.isWaiting = true;
    state.isSlow = false;
    if (!WaitForFirstByte(socket, buffer))
        return false;
    const Clock::time_point start = Clock::now();
    const std::uint64_t sentBefore = socket.BytesSent();
    Parser parser;
    const int problem = ReadHeader(socket, buffer, parser);
    if (problem > 0)
        BeastResponse(socket, state, 11, false, false).Begin(problem, {}, 0);
    if (problem != 0)
        return false;
    state.isWaiting = false;
    const Request request = TakeRequest(parser);
    BeastBody body(socket, buffer, parser);
    BeastResponse response(socket, state, parser.get().version(), request.method == "HEAD", parser.get().keep_alive());
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

void ServeConnection(tcp::socket& plainSocket, const Handler& handler, bool logRequests, ConnectionState& state) noexcept {
    try {
        TimedSocket socket(plainSocket, state);
        try {
            beast::flat_buffer buffer(limits::bufferBytes);
            buffer.reserve(limits::bufferBytes);
            while (!state.mustLeave && ServeOne(socket, buffer, handler, logRequests, state)) {
            }
        } catch (const std::exception&) {
            // The client has disconnected.
        }
        state.isWaiting = true;  // a connection that lingers may be closed for a new one, too
        socket.Leave();
    } catch (...) {
        // Failures while closing do not matter.
    }
}

void RefuseConnection(tcp::socket& plainSocket) {
    ErrorCode ignored;
    plainSocket.write_some(boost::asio::buffer(std::string_view("HTTP/1.1 503 Service Unavailable\r\nRetry-After: 5\r\n"
                                                                "Content-Length: 0\r\nConnection: close\r\n\r\n")),
                           ignored);
    plainSocket.close(ignored);
}

}  // namespace webdav
