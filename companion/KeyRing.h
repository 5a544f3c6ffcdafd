// The passwords of target keys, fetched from where the configuration says when they are first needed. What was typed stays until
// the process ends; what a command printed or the store held stays as long as its configuration does. A person is asked once
// for a key, and where there is a check container (PasswordProof.h) up to three times until it opens that; who answers nothing is
// not asked again. One mutex guards all: who needs a password waits for the one who is being asked.
#pragma once

#include <optional>
#include <string>

#include "Secret.h"
#include "Settings.h"

namespace companion {

enum class Asking { Allowed, Forbidden };

// Nothing: it has to be asked for, and may not be. Throws CQuelcryptErrorException when it cannot be had; the text names the key.
std::optional<Secret> PasswordOf(const Settings& settings, const std::string& key, Asking asking);

// From now on nobody is asked in this process: for servers, whose requests are no person's.
void ForbidAsking();

}  // namespace companion
