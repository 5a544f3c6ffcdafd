#include "WholeFile.h"

#include <windows.h>

#include "Boundary.h"
#include "Paths.h"
#include "common/Owners.h"

namespace companion {

std::string ReadWholeFile(const std::wstring& fullPath, std::size_t sizeLimit) {
    const UniqueHandle file =
        OwnHandle(CreateFileW(OpenablePath(fullPath).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size;
    if (!file || !GetFileSizeEx(file.Get(), &size))
        FailWithError(L"The file cannot be read", GetLastError());
    if (static_cast<std::uint64_t>(size.QuadPart) > sizeLimit)
        Fail(L"The file is too large");
    std::string text(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (!ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr))
        FailWithError(L"The file cannot be read", GetLastError());
    text.resize(read);
    return text;
}

}  // namespace companion
