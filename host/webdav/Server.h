// The HTTP/1.1 server, with keep-alive and one thread for each connection, up to a limit. It passes requests to a handler, which may be
// called on many threads at once.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "webdav/Http.h"

namespace webdav {

using Handler = std::function<void(const Request&, RequestBody&, Response&)>;

struct ServerOptions {
    std::string address = "127.0.0.1";
    unsigned short port = 8080;  // 0: any that is free
    bool logRequests = false;
};

// Listens until keepGoing, which is called several times a second on this thread, returns false. started is called once
// with the port. Before RunServer returns, connections that wait for a request are closed, and requests under way get time to
// finish; an upload that is still being received is broken off. Requests that exceed the limits for this end with the process.
// Throws HostError when the server cannot listen on the address.
// pause returns how long to wait between two new connections.
void RunServer(const ServerOptions& options, const Handler& handler, const std::function<void(unsigned short)>& started,
               const std::function<bool()>& keepGoing, const std::function<std::chrono::milliseconds()>& pause);

}  // namespace webdav
