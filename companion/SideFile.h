// A file that is written aside and then put in place of its target by one rename, so that the target is always the old
// file or the new one, whole. Aside is the folder ".HalvaneCloud" beside the target: on the same disk, and under a name
// that is never listed. A side file that a dead process left there is never read, and nobody's only copy; the next writer removes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Handle.h"

namespace companion {

enum class IfThere { Replace, Keep };

// Makes ".HalvaneCloud" in a folder unless it is there. Throws CQuelcryptErrorException, also for a link in its place: what that leads to
// is none of ours.
void MakeSideFolder(const std::wstring& folder);
bool IsSideFolderLink(const std::wstring& folder);

// The paths of the side files in a folder that were left by processes which have ended, as far as can be told.
std::vector<std::wstring> LeftSideFiles(const std::wstring& folder);
// Deletes them, but nothing that a link leads to. Returns how many.
std::size_t RemoveLeftSideFiles(const std::wstring& folder);

class SideFile {
public:
    // Throws CQuelcryptErrorException when the folder cannot be written or the target is read-only or a folder.
    explicit SideFile(const std::wstring& targetPath);
    // Removes the side file unless it was put in place, and the folder when it is empty.
    ~SideFile();
    SideFile(const SideFile&) = delete;
    SideFile& operator=(const SideFile&) = delete;

    // A Win32 error; 0 when everything was written.
    DWORD Write(const void* data, std::size_t length);
    // Writes over the file's beginning. What is written next comes behind it.
    DWORD WriteBeginning(const void* data, std::size_t length);

    // Returns when all that was written has reached the disk; nothing can be written then. PutInPlace does this, too: it is for who has to
    // ask something between the two. Throws CQuelcryptErrorException.
    void Complete();
    // Replaces the target, after everything has reached the disk; with IfThere::Keep a target that is there is a failure. The target keeps
    // the hidden, system and read-only attributes that it has and gets those of attributes. Throws CQuelcryptErrorException, and the target
    // is as it was.
    void PutInPlace(std::uint32_t attributes, IfThere ifThere = IfThere::Replace);

private:
    void CreateAside();
    DWORD TryToCreateAside();  // a Win32 error; 0 when the file is there
    void Remove() noexcept;

    std::wstring m_targetPath;
    std::wstring m_folderPath;
    std::wstring m_path;  // of the side file; empty once it is gone
    Handle m_file;
};

}  // namespace companion
