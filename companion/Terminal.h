// Asks the person at the terminal, not through standard input and output, which may be files and pipes.
#pragma once

#include <optional>
#include <string>

#include "Secret.h"

namespace companion {

bool HasTerminal();
void TellAtTerminal(const std::wstring& text);
// The line that is typed. Nothing: there is no terminal, or the person broke off.
std::optional<std::wstring> AskForLine(const std::wstring& question);
// The same, without showing what is typed.
std::optional<Secret> AskForPassword(const std::wstring& question);

}  // namespace companion
