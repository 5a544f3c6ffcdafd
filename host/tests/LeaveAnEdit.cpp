// leave_an_edit VOLUME HOW PATH TEXT: a host that uses the volume badly. Changes the document PATH to TEXT and then ends in
// the middle of it ("crash"), closes it and ends without clearing up ("close"), or waits with the document open until
// standard input ends, and then crashes ("hold").
#include <cstdio>
#include <cwchar>
#include <string>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"

int wmain(int count, wchar_t** values) {
    if (count != 5)
        return 2;
    const std::wstring how = values[2], text = values[4];
    const HMODULE module = LoadLibraryExW(values[1], nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    const FARPROC address = module ? GetProcAddress(module, "Quelcrypt_VolumeFactory") : nullptr;
    if (!address)
        return 3;
    IVirtualVolume* const volume = reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(address))();
    VirtFindData existing{};
    const bool exists = volume->FindFile(values[3], &existing);
    void* file = nullptr;
    const std::string bytes(text.begin(), text.end());
    if (volume->OpenFile(&file, values[3], GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, exists ? OPEN_EXISTING : CREATE_NEW, nullptr,
                         nullptr) != VVS_Success ||
        volume->SetFileSize(file, 0, nullptr) != VVS_Success ||
        volume->WriteFile(file, 0, bytes.data(), static_cast<std::uint32_t>(bytes.size()), nullptr, nullptr) != VVS_Success)
        return 1;
    if (how == L"close") {
        volume->CloseFile(file, nullptr);
        return 0;
    }
    std::puts("open");
    std::fflush(stdout);
    while (how == L"hold" && std::getchar() != EOF) {
    }
    TerminateProcess(GetCurrentProcess(), 9);
    return 9;
}
