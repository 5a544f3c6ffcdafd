// The options by which commands take a new password.
#pragma once

#include <CLI/CLI.hpp>

#include "core/NewPassword.h"

inline void AddPasswordOptions(CLI::App& command, PasswordChoice& choice) {
    command.add_flag("--generate", choice.generate, "Make the password, without asking");
    command
        .add_option("--keep", choice.keep,
                    "How to keep it: protected (for your own logon; the default), prompt (you are asked for it) or plain")
        ->check(CLI::IsMember({"protected", "prompt", "plain"}));
    command.add_option("--environment", choice.environment, "The password is in this environment variable")->type_name("NAME");
    command.add_option("--command", choice.command, "The password is the first line that this command prints")->type_name("LINE");
    command.add_flag("--weak", choice.allowWeak, "Accept a weak password");
}
