// Who may talk to this server: pages of other sites must not reach it through a browser, and nobody reaches it from another
// machine without the password.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "webdav/Http.h"

namespace webdav {

struct AccessRules {
    std::string credentials;         // "user:password"; empty: nobody is asked
    std::vector<std::string> hosts;  // names of this server beside those of the loopback, in lower case
    bool anyAddress = false;         // an address as the host is fine, whichever: no foreign site can have it as its name
};

// Slows down who guesses passwords: after some wrong ones, all further attempts from that address are looked at one after
// the other, each after a while, the right one too. Any thread may call.
class Guesses {
public:
    // Waits for this address's turn, if it has to. Throws HttpError 503 when too many wait already.
    void Wait(const std::string& address);
    void NoteWrong(const std::string& address);

private:
    struct Suspect {
        std::size_t wrong = 0, waiting = 0;
        std::chrono::steady_clock::time_point last{}, nextTurn{};
    };
    void Forget(std::chrono::steady_clock::time_point now);

    std::mutex m_mutex;
    std::map<std::string, Suspect> m_suspects;
};

// Throws HttpError: 400 without a host, 403 for a foreign one or a request that another site makes, 401 without the right
// user and password, 503 for a guess when too many are made.
void CheckAccess(const AccessRules& rules, Guesses& guesses, const Request& request);

// "host:8080" without the port, in lower case; "[::1]:8080" becomes "[::1]".
std::string HostName(std::string_view authority);
// Takes as long for any two texts of one length.
bool EqualInConstantTime(std::string_view left, std::string_view right);
// Empty for what is no Base64.
std::string DecodeBase64(std::string_view text);

}  // namespace webdav
