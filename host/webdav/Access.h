// Who has access to this server: pages of other sites must not reach it through a browser, and nobody may reach it from another
// machine without the password.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "webdav/Http.h"

namespace webdav {

struct AccessRules {
    std::string credentials;         // "user:password"; empty: not required
    std::vector<std::string> hosts;  // names of this server besides those of the loopback, in lower case
    bool anyAddress = false;         // a numeric address is accepted as the host, because it cannot be the name of another site
};

// Slows down guessing of passwords. After a wrong one the connection is closed, and after many of them the server accepts new
// connections slowly, from everybody, because on the loopback all have one address. So there are few guesses in all, and a client with
// the password waits, but is never refused because of others. Any thread may call.
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
// Takes equally long for any two texts of the same length.
bool EqualInConstantTime(std::string_view left, std::string_view right);
// Empty if text is not Base64.
std::string DecodeBase64(std::string_view text);

}  // namespace webdav
