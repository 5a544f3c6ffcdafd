#include "core/HostError.h"

#include <windows.h>

#include "core/Companion.h"
#include "core/Text.h"

namespace {

struct StatusRow {
    VirtualVolumeStatus status;
    const char* name;
    const char* meaning;
};

constexpr StatusRow kStatuses[] = {
    {VVS_Success, "VVS_Success", "success"},
    {VVS_PathNotFound, "VVS_PathNotFound", "no such folder"},
    {VVS_PathAlreadyExists, "VVS_PathAlreadyExists", "it exists already"},
    {VVS_MountFolderNotFound, "VVS_MountFolderNotFound", "no such mount folder; 'quelvol mounts' lists them"},
    {VVS_QuelcryptException, "VVS_QuelcryptException", "an unexpected failure; --trace shows where"},
    {VVS_Locked, "VVS_Locked", "locked by somebody else"},
    {VVS_LockScopeViolation, "VVS_LockScopeViolation", "it is locked already, and one of the two locks is exclusive"},
    {VVS_LockTokenNotFound, "VVS_LockTokenNotFound", "it has no lock with this token"},
    {VVS_FileNotLocked, "VVS_FileNotLocked", "it is not locked"},
    {VVS_Unauthorized, "VVS_Unauthorized", "it may not be locked"},
    {VVS_BadRequest, "VVS_BadRequest", "a folder cannot be locked"},
    {VVS_PreConditionFailed, "VVS_PreConditionFailed", "a precondition is not met"},
    {VVS_FileNotFound, "VVS_FileNotFound", "no such file or folder"},
    {VVS_AccessDenied, "VVS_AccessDenied", "access denied"},
    {VVS_InvalidParameter, "VVS_InvalidParameter", "the volume does not take this name or value"},
    {VSS_FileExists, "VSS_FileExists", "the file exists already"},
    {VSS_LockViolation, "VSS_LockViolation", "a part of the file is locked by another program"},
    {VSS_SharingViolation, "VSS_SharingViolation", "another program has it open"},
    {VSS_OutMemory, "VSS_OutMemory", "out of memory"},
    {VSS_NotImplemented, "VSS_NotImplemented", "not possible on this item"},
    {VSS_DecryptError, "VSS_DecryptError", "it could not be decrypted, as with a wrong password; --trace shows more"},
    {VSS_EncryptError, "VSS_EncryptError", "it could not be encrypted and stored; --trace shows why"},
    {VVS_GeneralError, "VVS_GeneralError", "the operation failed; --trace shows where"},
};

// The status with the companion library's reason, if there is one, otherwise with its meaning.
std::string WithReason(VirtualVolumeStatus status) {
    if (status != VSS_EncryptError && status != VSS_DecryptError)
        return StatusText(status);
    const std::string reason = LastContainerProblem();
    return reason.empty() ? StatusText(status)
                          : std::string(status == VSS_EncryptError ? "VSS_EncryptError" : "VSS_DecryptError") + " (" + reason + ")";
}

}  // namespace

std::string StatusText(VirtualVolumeStatus status) {
    for (const StatusRow& row : kStatuses)
        if (row.status == status)
            return std::string(row.name) + " (" + row.meaning + ")";
    return "status " + std::to_string(status) + " (unknown)";
}

StatusError::StatusError(std::string_view shownPath, VirtualVolumeStatus status)
    : HostError(std::string(shownPath) + ": " + WithReason(status)), m_status(status) {}

std::string SystemMessage(unsigned long error) {
    wchar_t text[512];
    constexpr DWORD oneLine = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
    DWORD length = FormatMessageW(oneLine, nullptr, error, 0, text, static_cast<DWORD>(std::size(text)), nullptr);
    while (length > 0 && (text[length - 1] == L' ' || text[length - 1] == L'.'))
        --length;
    return (length ? ToUtf8({text, length}) : "failed") + " (error " + std::to_string(error) + ")";
}

HostError LocalError(std::wstring_view localPath, unsigned long error) {
    return HostError(ToShown(localPath) + ": " + SystemMessage(error));
}
