// What Windows documents and Wine is more lenient about, in a layer between the built modules and the platform. Each rule names its
// document; docs/windows.md lists them. On when the environment has QUELCRYPT_WINDOWS_RULES.
#pragma once

namespace windows_rules {

// Is this rule on? The letters stand in the variable: "a" long paths, "b" scanners, "c" bits of others, "d" no identities, "e" files to be
// deleted, "f" write times.
bool Has(char rule);
// From now on the loaded modules meet the rules; to be called again when one was loaded anew.
void TakeOver();
// What somebody else still holds is released.
void Release();

}  // namespace windows_rules
