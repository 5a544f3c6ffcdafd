// A password in a form that only this user of this machine can read: the system's data protection encrypts it with the user's
// logon. It is as safe as the logon, and lost with it. (Wine encrypts without a secret: there the text is only hidden.)
#pragma once

#include <string>

#include "Secret.h"

namespace companion {

// The protected form is a text for the configuration. Both throw CQuelcryptErrorException.
std::string Protect(const Secret& secret);
Secret Unprotect(const std::string& text);

// Is this Wine? What people are told about the protection depends on it.
bool IsWine();

}  // namespace companion
