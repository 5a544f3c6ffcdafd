// Nothing is written with a password that does not open what is stored already: a mistyped password must not encrypt documents so
// that nobody can open them. A folder with a key of its own has a check container, ".HalvaneCloud\password.zip", an ordinary container
// that opens with the folder's password; without it, the folder's other containers are tried. It is made before the first
// container is written, unless the password is in the configuration itself, where it is typed only once.
// Results are remembered, so that a save reads the disk at most once for this.
#pragma once

#include <string>
#include <vector>

#include "Secret.h"
#include "Settings.h"

namespace companion {

enum class BeforeWriting { No, Yes };  // yes: a missing check container is made

// Throws CQuelcryptErrorException, "This is not the password of Docs", for a wrong password; containerPath (may be empty) is the
// first container to try. A container that cannot be read decides nothing, and only that first one does if another program made it:
// anybody may put a ZIP file with a password of its own into the folder.
void ProvePassword(const Settings& settings, const KeyFolder& folder, const Secret& password, const std::wstring& containerPath,
                   BeforeWriting beforeWriting);

// The paths of the containers in the folder that neither this password nor another configured one opens. Nobody is asked for one.
std::vector<std::wstring> ContainersOfOthers(const Settings& settings, const KeyFolder& folder, const Secret& password);

// Is this a container that may need the password of this key, because no other configured password opens it? Also true for a damaged
// container of which this is not certain. Throws CQuelcryptErrorException when the file cannot be read.
bool NeedsPasswordOf(const Settings& settings, const std::wstring& containerPath, const std::string& key);

enum class CheckResult { Missing, Opened, Refused };
// Missing also when the file is not a container, or lies behind a link.
CheckResult OpensCheckContainer(const KeyFolder& folder, const Secret& password);

// Makes a check container for this password and replaces the existing one. Throws CQuelcryptErrorException.
void ReplaceCheckContainer(const KeyFolder& folder, const Secret& password);

}  // namespace companion
