// Who may talk to this server: pages of other sites must not reach it through a browser, and nobody reaches it from another
// machine without the password.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "companion/Secret.h"
#include "webdav/Http.h"

namespace webdav {

struct AccessRules {
    companion::Secret credentials;   // "user:password"; empty: nobody is asked
    std::vector<std::string> hosts;  // names of this server beside those of the loopback, in lower case
    bool anyAddress = false;         // an address as the host is fine, whichever: no foreign site can have it as its name
};

// Slows down who guesses passwords. A wrong one costs its connection, and while there are many of them the server takes new
// connections at a pace, whoever they come from: on the loopback all have one address. So the guesses of all together are few,
// and who knows the password waits for a place in the row, but is never refused for what others do. Any thread may call.
class Guesses {
public:
    void NoteWrong();
    // How long the server waits between two new connections at the moment.
    std::chrono::milliseconds Pause();

private:
    std::mutex m_mutex;
    std::size_t m_wrong = 0;
    std::chrono::steady_clock::time_point m_last{};
};

// Throws HttpError: 400 without a host, 403 for a foreign one or a request that another site makes, 401 without the right
// user and password.
void CheckAccess(const AccessRules& rules, Guesses& guesses, const Request& request);

// "host:8080" without the port, in lower case; "[::1]:8080" becomes "[::1]".
std::string HostName(std::string_view authority);
// Takes as long for any two texts of one length.
bool EqualInConstantTime(std::string_view left, std::string_view right);
// Empty for what is no Base64.
std::string DecodeBase64(std::string_view text);

}  // namespace webdav
