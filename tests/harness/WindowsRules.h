// Behaviour that Windows documents and Wine lacks, in a layer between the built modules and the platform. Each rule names its
// document; tests/README.md lists them. Active when the environment has QUELCRYPT_WINDOWS_RULES.
#pragma once

#include <string>

#include <windows.h>

namespace windows_rules {

// Is this rule active? The variable has its letter: "a" long paths, "b" scanners, "c" attribute bits, "d" no ids, "e" files marked for
// deletion, "f" write times, "g" renames of folders, "h" renames to another disk, "i" connected files, "j" a service, which shows no
// dialog, "k" reparse points that are no links, "l" times in steps.
bool Has(char rule);
// Applies the rules to the loaded modules; to be called again when one was loaded again.
void TakeOver();
// Until the module is loaded again, also without rules: what has a name with this end, in any letter case, is a reparse point
// with this tag: a symbolic link, a junction, or a placeholder (IO_REPARSE_TAG_CLOUD) until somebody opens it to read it.
void Mark(const std::wstring& ending, DWORD tag);
bool IsFetched();
// Releases the files that scanners hold.
void Release();

}  // namespace windows_rules
