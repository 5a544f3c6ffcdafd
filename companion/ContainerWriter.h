// Writing a container. Only exceptions of the CQuelcryptException family leave these functions and the writers.
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

// A container that is not a document's. It has the current time. Throws CQuelcryptErrorException, and so does the writer.
std::unique_ptr<IFileWriter, Releaser> NewContainer(const std::wstring& path, const std::wstring& name, const Secret& password,
                                                    IfThere ifThere);

// Null when no password is configured for the container. Throws when its folder cannot be written or the existing container
// is read-only. Any of the three times may be null.
IFileWriter* MakeWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath, std::uint32_t sourceAttributes,
                        const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation, IfThere ifThere);

}  // namespace companion
