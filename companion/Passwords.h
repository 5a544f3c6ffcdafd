// Which password a container is read or written with.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Secret.h"
#include "Settings.h"

namespace companion {

// Calls tryPassword with each password: first that of the container's folder, for which a person may be asked, then all others, because
// a container may have been copied from another folder, and last, unless isEnough returns true by then, those that a person must be
// asked for. A password that is not available is left out and noted (Problem.h).
using TryPassword = std::function<void(const Secret& password, const std::string& key)>;
void ForPasswordsToRead(const Settings& settings, const std::wstring& containerPath, const TryPassword& tryPassword,
                        const std::function<bool()>& isEnough);

// The first of these that is configured decides the key:
// - the folder that the container lies in;
// - for a container outside all of them, which will be copied over the real one: the folder of the real one, which is named by the
//   tracking file beside containerPath, or else by that beside sourcePath (their names and ".hvf"); else the folder of
//   sourcePath;
// - the default key.
// The password is proven to be the folder's (PasswordProof.h); else CQuelcryptErrorException is thrown. Nothing, with a log line, when
// there is no key or its password is not available.
std::optional<Secret> PasswordToWrite(const Settings& settings, const std::wstring& containerPath, const std::wstring& sourcePath);

// Throws CQuelcryptErrorException unless the container would still be written with this password.
void RequireStillToWrite(const Secret& password, const std::wstring& containerPath, const std::wstring& sourcePath);

}  // namespace companion
