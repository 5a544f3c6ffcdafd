// A side file: it is written first and then replaces its target by one rename, so that the target is always the complete
// old or new file. It is in the folder ".HalvaneCloud" beside the target, which is on the same disk and never listed.
// A side file that an ended process left is never read, and is not the only copy of anything; the next writer deletes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/Owners.h"

namespace companion {

enum class IfThere { Replace, Keep };

// Makes ".HalvaneCloud" in a folder if it is missing. Throws CQuelcryptErrorException, also when it is a link, which may lead anywhere.
void MakeSideFolder(const std::wstring& folder);
bool IsSideFolderLink(const std::wstring& folder);

// The paths of the side files in a folder whose processes seem to have ended.
std::vector<std::wstring> LeftSideFiles(const std::wstring& folder);
// Deletes them, but never a link's target. Returns how many.
std::size_t RemoveLeftSideFiles(const std::wstring& folder);

class SideFile {
public:
    // Throws CQuelcryptErrorException when the folder cannot be written or the target is read-only or a folder.
    explicit SideFile(const std::wstring& targetPath);
    // Deletes the side file unless it was put in place, and the folder when it is empty.
    ~SideFile();
    SideFile(const SideFile&) = delete;
    SideFile& operator=(const SideFile&) = delete;

    // A Win32 error; 0 when everything was written.
    DWORD Write(const void* data, std::size_t length);
    // Overwrites the file's beginning. The next Write continues after these bytes.
    DWORD WriteBeginning(const void* data, std::size_t length);

    // Flushes everything to the disk; nothing can be written afterwards. PutInPlace does this too; call it before only to check something
    // between the two. Throws CQuelcryptErrorException.
    void Complete();
    // Replaces the target, after everything was flushed to the disk; with IfThere::Keep an existing target is a failure. The new file has
    // the target's hidden, system and read-only attributes and those in attributes. Throws CQuelcryptErrorException, and the target
    // is then as it was.
    void PutInPlace(std::uint32_t attributes, IfThere ifThere = IfThere::Replace);

private:
    void CreateAside();
    DWORD TryToCreateAside();  // a Win32 error; 0 when the file is there
    void Remove() noexcept;

    std::wstring m_targetPath;
    std::wstring m_folderPath;
    std::wstring m_path;  // of the side file; empty after it was put in place or deleted
    UniqueHandle m_file;
};

}  // namespace companion
