// One client's connection: its requests one after the other, each within its time and size limits.
#pragma once

#include <atomic>

#include <boost/asio/ip/tcp.hpp>

#include "webdav/Server.h"

namespace webdav {

// Serves until the client leaves, is too slow or asks to close. Once isStopping is true nothing more is read, and what is being
// answered is the last. Throws nothing.
void ServeConnection(boost::asio::ip::tcp::socket& socket, const Handler& handler, bool logRequests,
                     const std::atomic<bool>& isStopping);

// Tells the client that there are too many, and leaves.
void RefuseConnection(boost::asio::ip::tcp::socket& socket);

}  // namespace webdav
