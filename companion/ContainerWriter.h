// Writing a container that no document is saved to: see Library.h for the others.
#pragma once

#include <memory>
#include <string>

#include "Secret.h"
#include "SideFile.h"
#include "quelcrypt/QuelcryptLib.h"

namespace companion {

struct Releaser {
    void operator()(IQuelcryptBase* object) const { object->Release(); }
};

// With the time of now. Throws CQuelcryptErrorException, and so does what it returns.
std::unique_ptr<IFileWriter, Releaser> NewContainer(const std::wstring& path, const std::wstring& name, const Secret& password,
                                                    IfThere ifThere);

}  // namespace companion
