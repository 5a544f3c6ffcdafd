// Files as others see them, whatever holds them open: each call shares everything, and none reads or writes more than 4 GiB.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <windows.h>

#include "common/Owners.h"

// As long as it lives others can open the file or folder only as shareMode says.
class Held {
public:
    explicit Held(const std::wstring& nativePath, DWORD shareMode = 0, DWORD access = GENERIC_READ, DWORD disposition = OPEN_EXISTING)
        : handle(CreateFileW(nativePath.c_str(), access, shareMode, nullptr, disposition, FILE_FLAG_BACKUP_SEMANTICS, nullptr)) {}
    ~Held() {
        if (*this)
            CloseHandle(handle);
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    explicit operator bool() const { return handle != INVALID_HANDLE_VALUE; }

    const HANDLE handle;
};

// UTF-8, for messages and for files.
inline std::string Narrow(const std::wstring& text) {
    std::string narrow(text.size() * 3, '\0');
    narrow.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                                                               static_cast<int>(narrow.size()), nullptr, nullptr)));
    return narrow;
}

inline bool WriteRaw(const std::wstring& nativePath, std::string_view bytes, DWORD disposition = CREATE_ALWAYS) {
    const Held file(nativePath, kShareAll, GENERIC_WRITE, disposition);
    DWORD done = 0;
    return file && WriteFile(file.handle, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) && done == bytes.size();
}

// "<none>" when there is no file.
inline std::string ReadRaw(const std::wstring& nativePath) {
    const Held file(nativePath, kShareAll);
    std::string bytes(file ? GetFileSize(file.handle, nullptr) : 0, '\0');
    DWORD done = 0;
    if (!file || !ReadFile(file.handle, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr))
        return file ? "<unreadable>" : "<none>";
    bytes.resize(done);
    return bytes;
}
