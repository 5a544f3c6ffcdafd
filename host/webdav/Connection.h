// One client's connection: its requests one after the other, each within its time and size limits.
#pragma once

#include <atomic>
#include <cstdint>

#include <boost/asio/ip/tcp.hpp>

#include "webdav/Server.h"

namespace webdav {

// Shared by the server and the thread of a connection.
struct ConnectionState {
    std::string peer;                    // the client's address
    std::atomic<bool> mustLeave{false};  // the connection ends after the current answer
    std::atomic<bool> isWaiting{true};   // for a request, of whose header a part may have been received
    std::atomic<bool> isSlow{false};     // the client has been sending or taking very little for some time
    std::atomic<std::int64_t> rate{-1};  // bytes a second of a body or answer while the server waits for the client; -1: it does not
    std::atomic<bool> wasLetIn{false};
};

// Serves until the client disconnects, is too slow or asks to close, or state.mustLeave is set. Throws nothing.
void ServeConnection(boost::asio::ip::tcp::socket& socket, const Handler& handler, bool logRequests, ConnectionState& state) noexcept;

// Answers that there are too many connections, and closes this one.
void RefuseConnection(boost::asio::ip::tcp::socket& socket);

}  // namespace webdav
