// Nothing is written with a password that does not open what is there: a slip of the finger must not turn documents into what
// nobody can open. A folder with a key of its own has a check container, ".HalvaneCloud\password.zip", an ordinary container that opens
// with the folder's password; where there is none, the containers of the folder are the proof. It is made with the first
// container that is written, before it, unless the password stands in the configuration itself, where no slip can happen unseen.
// What was proven is remembered, so that a save asks the disk once at most.
#pragma once

#include <string>

#include "Secret.h"
#include "Settings.h"

namespace companion {

enum class BeforeWriting { No, Yes };  // yes: a missing check container is made

// Throws CQuelcryptErrorException, "This is not the password of Docs", when it is not; containerPath (may be empty) is the
// first place to look for a proof. A container that cannot be read proves nothing.
void ProvePassword(const Settings& settings, const KeyFolder& folder, const Secret& password, const std::wstring& containerPath,
                   BeforeWriting beforeWriting);

// Is it a container that no other configured password opens, but perhaps this key's? Its content need not be whole, nor, when that can be
// told no more, its records. Throws CQuelcryptErrorException when the file cannot be read.
bool NeedsPasswordOf(const Settings& settings, const std::wstring& containerPath, const std::string& key);

enum class CheckResult { Missing, Opened, Refused };
// Missing also when it is there, but no container any more, or through a link.
CheckResult OpensCheckContainer(const KeyFolder& folder, const Secret& password);

// Makes the check container anew for this password, in place of the one that is there. Throws CQuelcryptErrorException.
void ReplaceCheckContainer(const KeyFolder& folder, const Secret& password);

}  // namespace companion
