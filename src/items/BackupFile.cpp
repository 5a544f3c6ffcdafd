#include "items/BackupFile.h"

#include <shlobj.h>

#include "common/SaveNames.h"
#include "diagnostics/Trace.h"
#include "files/SideFile.h"
#include "library/Disk.h"
#include "library/Locks.h"
#include "library/Owners.h"
#include "library/Paths.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "policy/HvcUtils.h"

namespace {

constexpr int kMostNames = 1000;

// COM during the prompt, on a thread that may have it already.
class ComForPrompt {
public:
    ComForPrompt() : m_result(CoInitialize(nullptr)) {}
    ~ComForPrompt() {
        if (SUCCEEDED(m_result))
            CoUninitialize();
    }
    ComForPrompt(const ComForPrompt&) = delete;
    ComForPrompt& operator=(const ComForPrompt&) = delete;

private:
    HRESULT m_result;
};

CriticalSection& PromptSection() {
    static CriticalSection s_section{LockOrder::Prompt};
    return s_section;
}

// The window station of a service, or one that a host without a user chose, is invisible: a prompt there would wait for ever
// ("SetProcessWindowStation", "Window Stations").
bool CanSomebodyAnswer() {
    USEROBJECTFLAGS flags{};
    return GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof(flags), nullptr) && (flags.dwFlags & WSF_VISIBLE);
}

bool PickFolderForBackup(const std::wstring& zipFilePath, std::wstring& folderPath) {
    QC_TRACE(L"VirtualFile::PickFolderForBackup");
    const std::wstring shownName(WithoutContainerExtension(PathStripPathStr(zipFilePath)));
    const std::wstring title = std::wstring(L"Saving modified file ") + L"\"" + shownName + L"\"" +
                               L" to HalvaneCloud failed. Please select another folder for its backup";
    BROWSEINFOW browseInfo{};
    browseInfo.lpszTitle = title.c_str();
    browseInfo.ulFlags = BIF_RETURNONLYFSDIRS | BIF_EDITBOX | BIF_VALIDATE | BIF_NEWDIALOGSTYLE;
    static_assert((BIF_RETURNONLYFSDIRS | BIF_EDITBOX | BIF_VALIDATE | BIF_NEWDIALOGSTYLE) == 0x71);
    const ShellMemoryPtr<ITEMIDLIST> backupFolderPidl(reinterpret_cast<ITEMIDLIST*>(SHBrowseForFolderW(&browseInfo)));
    QC_CHECK_OR_RETURN(static_cast<bool>(backupFolderPidl), false, L"backupFolderPidl != 0 =>false%s, ");
    wchar_t path[MAX_PATH];
    const BOOL backupFolderRetrieved = SHGetPathFromIDListW(backupFolderPidl.Get(), path);
    QC_CHECK_OR_RETURN(backupFolderRetrieved, false, L"backupFolderRetrieved != 0 =>false%s, ");
    folderPath = path;
    return qcLog.Leave(true);
}

std::wstring FreeBackupPath(const std::wstring& folderPath, const std::wstring& itemName) {
    std::wstring path;
    for (int number = 1; number <= kMostNames; ++number) {
        path = PathAppendStr(folderPath, SaveNameStr(itemName, SaveName::BackupEdit, number));
        if (!PathExists(path))
            break;
    }
    return path;
}

}  // namespace

bool BackupTempFile(const std::wstring& srcFilePath, const std::wstring& zipFilePath, const std::wstring& itemName,
                    const std::wstring& description) {
    QC_TRACE(L"VirtualFile::BackupTempFile", L"srcFilePath[%s], %s", srcFilePath, description);
    std::wstring backupFolderPath;
    bool folderForBackupIsPicked = CanSomebodyAnswer();
    if (folderForBackupIsPicked) {
        const SectionGuard guard(PromptSection());
        const ComForPrompt com;
        folderForBackupIsPicked = PickFolderForBackup(zipFilePath, backupFolderPath);
    }
    QC_CHECK_OR_RETURN(folderForBackupIsPicked, false, L"folderForBackupIsPicked =>false%s, ");
    const std::wstring destFilePath = FreeBackupPath(backupFolderPath, itemName);
    const Win32Error copied = CopyWholeFile(srcFilePath, destFilePath);
    QC_CHECK_OR_RETURN(copied == Win32Error::None, false, L"::CopyFileW(srcFilePath, destFilePath, 1) != 0 =>false%s,  %s",
                       L"Src[%s], Dest[%s], Error[%s]", srcFilePath, destFilePath, SystemErrorStr(static_cast<DWORD>(copied)));
    QC_LOG(L"CopyFile is Succesfull. Src[%s], Dest[%s]", srcFilePath, destFilePath);
    return qcLog.Leave(true);
}
