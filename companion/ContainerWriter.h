// Writing a container that is not a document's; MakeWriter (Library.h) is for documents.
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

// The container has the current time. Throws CQuelcryptErrorException, and so does the writer.
std::unique_ptr<IFileWriter, Releaser> NewContainer(const std::wstring& path, const std::wstring& name, const Secret& password,
                                                    IfThere ifThere);

}  // namespace companion
