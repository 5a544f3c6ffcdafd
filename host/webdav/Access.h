// Who may talk to this server: pages of other sites must not reach it through a browser, and nobody reaches it from another
// machine without the password.
#pragma once

#include <string>
#include <vector>

#include "webdav/Http.h"

namespace webdav {

struct AccessRules {
    std::string credentials;         // "user:password"; empty: nobody is asked
    std::vector<std::string> hosts;  // names of this server beside those of the loopback, in lower case
    bool anyAddress = false;         // an address as the host is fine, whichever: no foreign site can have it as its name
};

// Throws HttpError: 400 without a host, 403 for a foreign one or a request that another site makes, 401 without the right
// user and password.
void CheckAccess(const AccessRules& rules, const Request& request);

// "host:8080" without the port, in lower case; "[::1]:8080" becomes "[::1]".
std::string HostName(std::string_view authority);
// Takes as long for any two texts of one length.
bool EqualInConstantTime(std::string_view left, std::string_view right);
// Empty for what is no Base64.
std::string DecodeBase64(std::string_view text);

}  // namespace webdav
