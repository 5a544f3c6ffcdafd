#include "webdav/Server.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "core/HostError.h"
#include "core/Text.h"
#include "webdav/Connection.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

using boost::asio::ip::tcp;

constexpr long kPollMilliseconds = 200;

struct Place {
    explicit Place(tcp::socket theSocket) : socket(std::move(theSocket)) {
        boost::system::error_code error;
        if (const auto endpoint = socket.remote_endpoint(error); !error)
            state.peer = endpoint.address().to_string();
    }
    bool IsFresh() const { return std::chrono::steady_clock::now() - accepted < limits::freshTime; }

    tcp::socket socket;
    ConnectionState state;
    std::chrono::steady_clock::time_point accepted = std::chrono::steady_clock::now();
};

class Connections {
public:
    // Serves a new connection; if there are too many, closes another one for it, or refuses it when none can be closed.
    void Start(tcp::socket socket, const Handler& handler, bool logRequests) {
        std::unique_lock guard(m_mutex);
        const auto place = m_places.emplace(m_places.end(), std::move(socket));
        const auto ofOneAddress = [&](const Place& other) { return other.state.peer == place->state.peer; };
        const auto notLetIn = [](const Place& other) { return !other.state.wasLetIn; };
        const bool fits = MakeRoom(limits::connectionsOfOneAddress, ofOneAddress) && MakeRoom(limits::connectionsNotLetIn, notLetIn) &&
                          MakeRoom(limits::connections, [](const Place&) { return true; });
        if (!fits || !WaitUntilSomeLeft(guard)) {
            RefuseConnection(place->socket);
            m_places.erase(place);
            return;
        }
        try {
            std::thread([this, place, &handler, logRequests] {
                ServeConnection(place->socket, handler, logRequests, place->state);
                const std::lock_guard threadGuard(m_mutex);
                m_places.erase(place);
                m_ended.notify_all();
            }).detach();
        } catch (const std::system_error&) {
            m_places.erase(place);  // there is no thread for it: the client will try again
        }
    }

    // Ends reading on all connections, waits for answers under way, then closes the connections of clients that do not take them, and
    // waits for what is being stored. False: some threads have not ended, and still use their arguments.
    bool Stop() {
        std::unique_lock guard(m_mutex);
        for (Place& place : m_places)
            place.state.mustLeave = true;
        const auto allEnded = [this] { return m_places.empty(); };
        if (m_ended.wait_for(guard, limits::timeToFinish, allEnded))
            return true;
        boost::system::error_code ignored;
        for (Place& place : m_places)
            place.socket.shutdown(tcp::socket::shutdown_both, ignored);
        return m_ended.wait_for(guard, limits::timeToStore, allEnded);
    }

private:
    // At most limit connections, including the new one, may be of the kind. Closes the oldest of the first kind that there is: it waits
    // for a request and has no access yet; it waits and has access; it is slow; it waits and is new. Otherwise, if there are many
    // transfers, closes the slowest. False: none can be closed.
    template <class IsOfKind>
    bool MakeRoom(std::size_t limit, IsOfKind isOfKind) {
        const auto counts = [&](const Place& place) { return !place.state.mustLeave && isOfKind(place); };
        if (static_cast<std::size_t>(std::count_if(m_places.begin(), m_places.end(), counts)) <= limit)
            return true;
        const auto last = std::prev(m_places.end());
        const std::function<bool(const Place&)> kinds[] = {
            [](const Place& place) { return place.state.isWaiting && !place.state.wasLetIn && !place.IsFresh(); },
            [](const Place& place) { return place.state.isWaiting && place.state.wasLetIn; },
            [](const Place& place) { return place.state.isSlow.load(); },
            [](const Place& place) { return place.state.isWaiting.load(); },
        };
        for (const auto& isOfTheseFirst : kinds) {
            const auto found =
                std::find_if(m_places.begin(), last, [&](const Place& place) { return counts(place) && isOfTheseFirst(place); });
            if (found != last)
                return TellToLeave(*found);
        }
        const auto isTransfer = [&](const Place& place) { return counts(place) && place.state.rate >= 0; };
        if (static_cast<std::size_t>(std::count_if(m_places.begin(), last, isTransfer)) <= limits::transfersKept)
            return false;
        return TellToLeave(*std::min_element(m_places.begin(), last, [&](const Place& left, const Place& right) {
            return isTransfer(left) && (!isTransfer(right) || left.state.rate < right.state.rate);
        }));
    }

    static bool TellToLeave(Place& place) {
        place.state.mustLeave = true;
        boost::system::error_code ignored;
        place.socket.shutdown(tcp::socket::shutdown_both, ignored);
        return true;
    }

    // Connections that were told to end do so soon, but new ones must not arrive faster than that.
    bool WaitUntilSomeLeft(std::unique_lock<std::mutex>& guard) {
        const auto leaves = [](const Place& place) { return place.state.mustLeave.load(); };
        return m_ended.wait_for(guard, std::chrono::seconds(1), [&] {
            return static_cast<std::size_t>(std::count_if(m_places.begin(), m_places.end(), leaves)) <= limits::connectionsLeaving;
        });
    }

    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::list<Place> m_places;
};

tcp::acceptor Listen(boost::asio::io_context& context, const ServerOptions& options) {
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(options.address, error);
    if (error)
        throw UsageError(options.address + ": not an address, like 127.0.0.1 or ::1");
    const tcp::endpoint endpoint(address, options.port);
    tcp::acceptor acceptor(context);
    // Without the option to share a port, with which another program could receive requests for this one.
    if (!acceptor.open(endpoint.protocol(), error) && !acceptor.bind(endpoint, error) && !acceptor.listen(64, error) &&
        !acceptor.non_blocking(true, error))
        return acceptor;
    const std::string shown = options.address + " port " + std::to_string(options.port);
    if (error == boost::asio::error::address_in_use)
        throw HostError(
            shown +
            ": another program listens there, perhaps another 'quelvol serve'; end that, or take another port with --port N (0: any)");
    throw HostError(shown + ": the server cannot listen there: " + SystemMessage(static_cast<unsigned long>(error.value())));
}

bool WaitForClient(tcp::acceptor& acceptor) {
    fd_set sockets;
    FD_ZERO(&sockets);
    FD_SET(acceptor.native_handle(), &sockets);
    timeval patience{0, kPollMilliseconds * 1000};
    return select(0, &sockets, nullptr, nullptr, &patience) > 0;
}

}  // namespace

void RunServer(const ServerOptions& options, const Handler& handler, const std::function<void(unsigned short)>& started,
               const std::function<bool()>& keepGoing, const std::function<std::chrono::milliseconds()>& pause) {
    boost::asio::io_context context;
    tcp::acceptor acceptor = Listen(context, options);
    Connections connections;
    started(acceptor.local_endpoint().port());
    while (keepGoing()) {
        if (!WaitForClient(acceptor))
            continue;
        boost::system::error_code error;
        tcp::socket socket = acceptor.accept(error);
        if (!error && !socket.non_blocking(true, error))
            connections.Start(std::move(socket), handler, options.logRequests);
        std::this_thread::sleep_for(pause());
    }
    boost::system::error_code ignored;
    acceptor.close(ignored);
    if (connections.Stop())
        return;
    // Their stored files are complete, the old or the new ones, and the next run finds an edit in the temp folder.
    PrintError("quelvol: some requests do not end; the server ends without them\n");
    TerminateProcess(GetCurrentProcess(), Exit_Failed);
}

}  // namespace webdav
