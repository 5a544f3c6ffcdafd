// The passwords of target keys, fetched from where the configuration says when they are first needed. A typed password is kept until
// the process ends; one that a command printed or the store had, as long as its configuration is unchanged. A person is asked once
// for a key, but up to three times if there is a check container (PasswordProof.h) that the password does not open, and not again after
// giving no answer. One mutex guards everything: a thread that needs a password waits while another one asks for it.
#pragma once

#include <optional>
#include <string>

#include "Secret.h"
#include "Settings.h"

namespace companion {

enum class Asking { Allowed, Forbidden };

// Nothing: a person would have to be asked, which is forbidden. Throws CQuelcryptErrorException when there is no password; the text names
// the key.
std::optional<Secret> PasswordOf(const Settings& settings, const std::string& key, Asking asking);

// From now on nobody is asked in this process: for servers, whose requests do not come from a person at the terminal.
void ForbidAsking();

}  // namespace companion
