// A temp folder for this run alone. The volume decrypts into the temp folder and keeps copies there for the next open of
// the same process; when a short run is over nobody would use or remove them, and they are clear text. So the run gets a
// folder of its own, which only its user may look into and which is removed with it, except for edits that could not be saved.
// It lies in the user's local application data: temp folders are cleaned by the system, at the end of a remote session for
// example, with the edits in them. What a killed run left is removed by the next one, copy by copy. No link is followed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <windows.h>

// The folder in a temp folder that the volume makes its copies in.
inline constexpr const wchar_t* kCopiesFolder = L"HalvaneCloud";

// The user's temp folder, as it was before a run pointed to its own. Throws HostError.
std::filesystem::path UserTempFolder();
// The temp folders of all runs, also of those that were killed, as real paths (OnDisk.h). Throws HostError.
std::vector<std::filesystem::path> RunFolders();
// Opens the file by which a run marks its folder, a real path, as long as it lives. INVALID_HANDLE_VALUE: the folder is in use
// (ERROR_SHARING_VIOLATION), or no run's.
HANDLE OpenRunMark(const std::filesystem::path& folder, DWORD disposition);

class TempFolder {
public:
    // Makes the folder and points TMP and TEMP to it. Throws HostError.
    TempFolder();
    // Puts TMP and TEMP back and removes the folder, but for the copies beside which a tracking file tells of an unsaved edit:
    // then the path is printed.
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    // Deletes the copies that the volume keeps for the next open, so that the next one decrypts anew. Those of open files stay.
    void ForgetCopies() const;
    // Has its disk room for so many bytes? If not, these copies go.
    bool HasRoomFor(std::uint64_t bytes) const;

    // Which temp folder this process names to programs that it starts.
    void UseOwn() const;
    void UseOriginal() const;

private:
    std::filesystem::path m_path, m_realPath;  // the second as OnDisk.h has it
    HANDLE m_mark;                             // on a file that nobody else can open while this run lives
    std::wstring m_originalTmp, m_originalTemp;
};
