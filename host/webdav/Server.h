// The listening side: a thread for each connection, up to a limit, on HTTP/1.1 with keep-alive. Requests and answers go
// to and from a handler, which may be called on many threads at once.
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

// Listens until keepGoing says no, which is asked several times a second on the calling thread. started is called once
// with the port. Before it returns, connections that wait for a request are closed, and requests under way get time to
// finish; an upload that is still coming in is broken off. What does not end within the limits ends with the process.
// Throws HostError when the address cannot be listened on.
// pause says how long the next client has to wait after one that was taken.
void RunServer(const ServerOptions& options, const Handler& handler, const std::function<void(unsigned short)>& started,
               const std::function<bool()>& keepGoing, const std::function<std::chrono::milliseconds()>& pause);

}  // namespace webdav
