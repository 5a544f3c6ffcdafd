// Stores a document through the volume and lists its folder. "Docs" is a mount folder of the configuration in use.
#include <cstdio>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"

int main() {
    IVirtualVolume* const volume = Quelcrypt_VolumeFactory();
    if (!volume)
        return 1;

    // The volume decides by its configuration that this file is stored encrypted.
    void* file = nullptr;
    VirtualVolumeStatus status =
        volume->OpenFile(&file, L"Docs\\hello.txt", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS, nullptr, nullptr);
    if (status == VVS_Success) {
        status = volume->WriteFile(file, 0, "hello", 5, nullptr, nullptr);
        volume->CloseFile(file, nullptr);  // encrypts
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
    return static_cast<int>(status);
}
