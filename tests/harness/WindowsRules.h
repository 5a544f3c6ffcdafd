// Behaviour that Windows documents and Wine lacks, in a layer between the built modules and the platform. Each rule names its
// document; tests/README.md lists them. Active when the environment has QUELCRYPT_WINDOWS_RULES.
#pragma once

namespace windows_rules {

// Is this rule active? The variable has its letter: "a" long paths, "b" scanners, "c" attribute bits, "d" no ids, "e" files marked for
// deletion, "f" write times, "g" renames of folders, "h" renames to another disk.
bool Has(char rule);
// Applies the rules to the loaded modules; to be called again when one was loaded again.
void TakeOver();
// Releases the files that scanners hold.
void Release();

}  // namespace windows_rules
