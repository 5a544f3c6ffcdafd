// A password as only this user of this machine can read it back: the system's data protection encrypts it under the user's own
// logon. It is as safe as the logon, and lost with it. (Wine encrypts with nothing that is secret: there it only hides the text.)
#pragma once

#include <string>

#include "Secret.h"

namespace companion {

// In letters that a configuration can hold. Both throw CQuelcryptErrorException.
std::string Protect(const Secret& secret);
Secret Unprotect(const std::string& text);

// Is this Wine? It tells in what people are told about the above.
bool IsWine();

}  // namespace companion
