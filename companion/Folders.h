// The configuration as objects: protected folders, the box configuration of a folder, excluded names. Only exceptions of the
// CQuelcryptException family leave these functions and objects.
#pragma once

#include <cstdint>

#include "quelcrypt/QuelcryptLib.h"

namespace companion {

IQuelcryptConfig* MakeQuelcryptConfig();
std::int32_t MakeHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config);
std::int32_t MakeProtectedFolderEnum(IProtectedFolderEnum** folders);

}  // namespace companion
