// Which password a container is read or written with.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Settings.h"

namespace companion {

// To be tried in this order, UTF-8: the one of the container's folder, then all others, because a container may have been
// copied from another folder.
std::vector<std::string> PasswordsToRead(const Settings& settings, const std::wstring& containerPath);

// The first of these that is configured decides the key:
// - the folder that the container lies in;
// - for a container outside all of them, which will be copied over the real one: the folder of the real one, which the
//   tracking file beside containerPath, else that beside sourcePath (their names and ".hvf"), names; else the folder of
//   sourcePath;
// - the default key.
// Nothing, with a log line, when there is no key or its password is not known here.
std::optional<std::string> PasswordToWrite(const Settings& settings, const std::wstring& containerPath,
                                           const std::wstring& sourcePath);

}  // namespace companion
