#include "ProtectedText.h"

#include <windows.h>

#include <wincrypt.h>

#include "Boundary.h"

namespace companion {
namespace {

// Memory that the system allocated.
struct Blob {
    DATA_BLOB data{};
    ~Blob() {
        if (data.pbData)
            Wipe(data.pbData, data.cbData);
        LocalFree(data.pbData);
    }
};

}  // namespace

std::string Protect(const Secret& secret) {
    std::string text = secret.Text();
    DATA_BLOB in{static_cast<DWORD>(text.size()), reinterpret_cast<BYTE*>(text.data())};
    Blob out;
    const BOOL done = CryptProtectData(&in, L"quelvol", nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out.data);
    const DWORD error = GetLastError();
    Wipe(text);
    if (!done)
        FailWithError(L"The system's store does not take the password", error);
    constexpr DWORD form = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    DWORD length = 0;
    CryptBinaryToStringA(out.data.pbData, out.data.cbData, form, nullptr, &length);
    std::string letters(length, '\0');
    if (!CryptBinaryToStringA(out.data.pbData, out.data.cbData, form, letters.data(), &length))
        FailWithError(L"The system's store does not take the password", GetLastError());
    letters.resize(length);
    return letters;
}

Secret Unprotect(const std::string& text) {
    std::string bytes(text.size(), '\0');
    DWORD length = static_cast<DWORD>(bytes.size());
    if (!CryptStringToBinaryA(text.data(), static_cast<DWORD>(text.size()), CRYPT_STRING_BASE64, reinterpret_cast<BYTE*>(bytes.data()),
                              &length, nullptr, nullptr))
        Fail(L"The stored password is damaged");
    DATA_BLOB in{length, reinterpret_cast<BYTE*>(bytes.data())};
    Blob out;
    if (!CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out.data))
        FailWithError(L"Only the user who stored it, on the machine where it was stored, can use it", GetLastError());
    return Secret(std::string(reinterpret_cast<const char*>(out.data.pbData), out.data.cbData));
}

bool IsWine() {
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    return system && GetProcAddress(system, "wine_get_version");
}

}  // namespace companion
