// One client's connection: its requests one after the other, each within its time and size limits.
#pragma once

#include <boost/asio/ip/tcp.hpp>

#include "webdav/Server.h"

namespace webdav {

// Serves until the client leaves, is too slow or asks to close. Throws nothing.
void ServeConnection(boost::asio::ip::tcp::socket& socket, const Handler& handler, bool logRequests);

// Tells the client that there are too many, and leaves.
void RefuseConnection(boost::asio::ip::tcp::socket& socket);

}  // namespace webdav
