#include "PrivateRights.h"

#include <string>

#include <sddl.h>

#include "Boundary.h"
#include "ProtectedText.h"
#include "common/Owners.h"

namespace companion {
namespace {

std::wstring UserSid() {
    HANDLE handle = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &handle))
        FailWithError(L"The user cannot be found out", GetLastError());
    const UniqueHandle token(handle);
    alignas(TOKEN_USER) char user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    wchar_t* text = nullptr;
    if (!GetTokenInformation(token.Get(), TokenUser, user, sizeof(user), &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &text))
        FailWithError(L"The user cannot be found out", GetLastError());
    const std::wstring sid(text);
    LocalFree(text);
    return sid;
}

}  // namespace

PrivateRights::PrivateRights(For what) {
    // Wine makes mode bits of the rights: those of the user also become the group's, but those of an owner who is nobody do not; the
    // file belongs to the user all the same.
    const std::wstring owner = IsWine() ? L"S-1-0-0" : UserSid(), all = what == For::Folder ? L"OICI;FA" : L";0x1f01df";  // not to execute
    const std::wstring text = (IsWine() ? L"O:" + owner : L"") + L"D:P(A;" + all + L";;;" + owner + L")(A;" + all + L";;;SY)";
    void* descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        FailWithError(L"Access rights cannot be made", GetLastError());
    m_descriptor.reset(descriptor);
    m_attributes.lpSecurityDescriptor = descriptor;
}

}  // namespace companion
