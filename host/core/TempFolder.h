// A temp folder for this run only. The volume decrypts into the temp folder and keeps retained copies there for
// the same process; after a short run nobody would use or delete them, and they are unencrypted. So the run has a
// folder of its own, which only its user may look into and which is deleted at its end, except edits that could not be saved.
// It is in the user's local application data, because the system cleans temp folders, with the edits in them, for example
// at the end of a remote session. The next run deletes what a killed run left, copy by copy. No link is followed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <windows.h>

#include "core/OnDisk.h"

// The folder in a temp folder that the volume makes its copies in.

// The user's temp folder, which TMP named before the run set it. Throws HostError.
std::filesystem::path UserTempFolder();
// The temp folders of all runs, including killed ones, as real paths (OnDisk.h). Throws HostError.
std::vector<std::filesystem::path> RunFolders();
// Opens the file that a run keeps open to mark its folder, a real path. Null: the folder is in use
// (ERROR_SHARING_VIOLATION), or not a run's.
UniqueHandle OpenRunMark(const std::filesystem::path& folder, DWORD disposition);

class TempFolder {
public:
    // Makes the folder and sets TMP and TEMP to it. Throws HostError.
    TempFolder();
    // Restores TMP and TEMP and deletes the folder, except copies with a tracking file, which may be unsaved edits:
    // then the path is printed.
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    // Deletes the retained copies, so that the next open decrypts again. The copies of open files stay.
    void ForgetCopies() const;
    // Has its disk room for so many bytes? If not, deletes the retained copies and checks again.
    bool HasRoomFor(std::uint64_t bytes) const;

    // The temp folder for programs that this process starts.
    void UseOwn() const;
    void UseOriginal() const;

private:
    std::filesystem::path m_path, m_realPath;  // real: see OnDisk.h
    UniqueHandle m_mark;                       // of a file that nobody else can open during this run
    std::wstring m_originalTmp, m_originalTemp;
};
