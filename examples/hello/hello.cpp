// Stores a document through the volume and lists its folder. "Docs" must be a mount folder of the configuration.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"

namespace fs = std::filesystem;

// The volume decrypts into the temp folder of its process, and leaves edits there that it could not encrypt, with a tracking file. A
// program with a temp folder of its own, which it deletes at its end, leaves no decrypted copy behind.
class OwnTempFolder {
public:
    OwnTempFolder() : m_path(fs::temp_directory_path() / ("hello-" + std::to_string(GetCurrentProcessId()))) {
        fs::create_directory(m_path);
        SetEnvironmentVariableW(L"TMP", m_path.c_str());
    }
    const fs::path& Path() const { return m_path; }
    bool HoldsUnsavedEdit() const {
        const fs::recursive_directory_iterator entries(m_path);
        return std::any_of(begin(entries), end(entries), [](const auto& entry) { return entry.path().extension() == ".hvf"; });
    }
    ~OwnTempFolder() {
        std::error_code error;
        if (!HoldsUnsavedEdit())
            fs::remove_all(m_path, error);
    }

private:
    const fs::path m_path;
};

int main() {
    const OwnTempFolder temp;
    IVirtualVolume* const volume = Quelcrypt_VolumeFactory();
    if (!volume)
        return 1;

    // The configuration decides that this file is stored encrypted.
    void* file = nullptr;
    VirtualVolumeStatus status =
        volume->OpenFile(&file, L"Docs\\hello.txt", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS, nullptr, nullptr);
    if (status == VVS_Success) {
        status = volume->WriteFile(file, 0, "hello", 5, nullptr, nullptr);
        volume->CloseFile(file, nullptr);  // encrypts, but does not report failures
    }

    VirtFindData entry;
    if (void* const search = volume->FindFirstFileW(L"Docs\\*", &entry)) {
        do
            std::printf("%10lld  %ls\n", static_cast<long long>(entry.fileSize), entry.fileName);
        while (volume->FindNextFileW(search, &entry));
        volume->FindClose(search);
    }
    volume->Release();
    if (status != VVS_Success)
        std::fprintf(stderr, "hello: Docs\\hello.txt could not be stored (status %u)\n", static_cast<unsigned>(status));
    else if (temp.HoldsUnsavedEdit())
        std::fprintf(stderr, "hello: Docs\\hello.txt could not be encrypted; its content is in %ls\n", temp.Path().c_str());
    return status == VVS_Success && !temp.HoldsUnsavedEdit() ? 0 : 1;
}
