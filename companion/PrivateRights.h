// Access rights for new files and folders that only their user and the system may use; a folder passes them on to what is created in it.
#pragma once

#include <memory>

#include <windows.h>

namespace companion {

class PrivateRights {
public:
    enum class For { File, Folder };
    // Throws CQuelcryptErrorException.
    explicit PrivateRights(For what);
    // For CreateFile and CreateDirectory, while this object is there.
    SECURITY_ATTRIBUTES* Get() { return &m_attributes; }

private:
    struct LocalFreed {
        void operator()(void* memory) const { LocalFree(memory); }
    };
    std::unique_ptr<void, LocalFreed> m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{sizeof(m_attributes), nullptr, FALSE};
};

}  // namespace companion
