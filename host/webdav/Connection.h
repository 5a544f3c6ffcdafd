// One client's connection: its requests one after the other, each within its time and size limits.
#pragma once

#include <atomic>
#include <cstdint>

#include <boost/asio/ip/tcp.hpp>

#include "webdav/Server.h"

namespace webdav {

// What the server and the thread of a connection tell each other.
struct ConnectionState {
    std::string peer;                    // the client's address
    std::atomic<bool> mustLeave{false};  // nothing more is read; what is being answered is the last
    std::atomic<bool> isWaiting{true};   // for a request, whose header may have begun to come in
    std::atomic<bool> isSlow{false};     // takes or sends very little for some time
    std::atomic<std::int64_t> rate{-1};  // bytes a second of the body or answer for which the client is waited for; -1: it is not
    std::atomic<bool> wasLetIn{false};
};

// Serves until the client leaves, is too slow or asks to close, or has to leave. Throws nothing.
void ServeConnection(boost::asio::ip::tcp::socket& socket, const Handler& handler, bool logRequests, ConnectionState& state) noexcept;

// Tells the client that there are too many, and leaves.
void RefuseConnection(boost::asio::ip::tcp::socket& socket);

}  // namespace webdav
