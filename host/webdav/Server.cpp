#include "webdav/Server.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "core/HostError.h"
#include "core/Text.h"
#include "webdav/Connection.h"

namespace webdav {

namespace {

using boost::asio::ip::tcp;

constexpr std::size_t c_maxConnections = 64;
constexpr long c_pollMilliseconds = 200;
constexpr std::chrono::seconds c_timeToFinish{30};

class Connections {
public:
    std::size_t Count() {
        const std::lock_guard guard(m_mutex);
        return m_sockets.size();
    }

    void Start(tcp::socket socket, const Handler& handler, bool logRequests) {
        const std::lock_guard guard(m_mutex);
        const auto place = m_sockets.insert(m_sockets.end(), std::move(socket));
        try {
            std::thread([this, place, &handler, logRequests] {
                ServeConnection(*place, handler, logRequests, m_isStopping);
                const std::lock_guard threadGuard(m_mutex);
                m_sockets.erase(place);
                m_ended.notify_all();
            }).detach();
        } catch (const std::system_error&) {
            m_sockets.erase(place);  // no thread to be had: the client will try again
        }
    }

    // Ends reading everywhere, waits for what is being answered, then cuts off who does not take the answer.
    void Stop() {
        m_isStopping = true;
        std::unique_lock guard(m_mutex);
        if (m_ended.wait_for(guard, c_timeToFinish, [this] { return m_sockets.empty(); }))
            return;
        boost::system::error_code ignored;
        for (tcp::socket& socket : m_sockets)
            socket.shutdown(tcp::socket::shutdown_both, ignored);
        m_ended.wait(guard, [this] { return m_sockets.empty(); });  // what is being stored is stored to the end
    }

private:
    std::atomic<bool> m_isStopping{false};
    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::list<tcp::socket> m_sockets;
};

tcp::acceptor Listen(boost::asio::io_context& context, const ServerOptions& options) {
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(options.address, error);
    if (error)
        throw UsageError(options.address + ": not an address, like 127.0.0.1 or ::1");
    const tcp::endpoint endpoint(address, options.port);
    tcp::acceptor acceptor(context);
    // Without the option that lets two programs share a port: here it would let another one steal requests.
    if (!acceptor.open(endpoint.protocol(), error) && !acceptor.bind(endpoint, error) && !acceptor.listen(64, error) &&
        !acceptor.non_blocking(true, error))
        return acceptor;
    throw HostError(options.address + " port " + std::to_string(options.port) +
                    ": cannot be listened on: " + SystemMessage(static_cast<unsigned long>(error.value())));
}

bool WaitForClient(tcp::acceptor& acceptor) {
    fd_set sockets;
    FD_ZERO(&sockets);
    FD_SET(acceptor.native_handle(), &sockets);
    timeval patience{0, c_pollMilliseconds * 1000};
    return select(0, &sockets, nullptr, nullptr, &patience) > 0;
}

}  // namespace

void RunServer(const ServerOptions& options, const Handler& handler, const std::function<void(unsigned short)>& started,
               const std::function<bool()>& keepGoing) {
    boost::asio::io_context context;
    tcp::acceptor acceptor = Listen(context, options);
    Connections connections;
    started(acceptor.local_endpoint().port());
    while (keepGoing()) {
        if (!WaitForClient(acceptor))
            continue;
        boost::system::error_code error;
        tcp::socket socket = acceptor.accept(error);
        if (error || socket.non_blocking(false, error))
            continue;
        if (connections.Count() >= c_maxConnections)
            RefuseConnection(socket);
        else
            connections.Start(std::move(socket), handler, options.logRequests);
    }
    boost::system::error_code ignored;
    acceptor.close(ignored);
    connections.Stop();
}

}  // namespace webdav
