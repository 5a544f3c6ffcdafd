#include "items/FolderCopy.h"

#include <optional>
#include <utility>
#include <vector>

#include "diagnostics/Trace.h"
#include "files/Deletion.h"
#include "files/SideFile.h"
#include "items/ItemState.h"
#include "items/SaveGate.h"
#include "library/Disk.h"
#include "library/FileVersion.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Text.h"
#include "policy/HvcUtils.h"

namespace {

// Whichever paths lead there. What is above a link's own path says nothing of what it leads to.
bool IsAtOrBelow(const std::wstring& path, const std::wstring& folder) {
    const std::wstring finalPath = FinalPathStr(path);
    std::wstring at = finalPath.empty() ? path : finalPath;
    for (;;) {
        if (AreSameFile(at, folder))
            return true;
        std::wstring above = PathRemoveFileSpecStr(at);
        if (above.size() >= at.size())
            return false;
        at = std::move(above);
    }
}

// Saves and moves of a document hold the gate of its container, whichever form is there.
std::wstring ContainerOf(const std::wstring& path) { return EndsWithNoCase(path, kContainerExtension) ? path : ZipPathStr(path); }

class FolderCopy {
public:
    FolderCopy(const std::wstring& source, bool failIfExists) : m_source(source), m_failIfExists(failIfExists) {}

    // isInOwnFolder: this copy created the folder that the destination lies in.
    Win32Error CopyItem(const std::wstring& source, const std::wstring& destination, bool isInOwnFolder) {
        const DWORD attributes = GetFileAttributesW(PlatformPath(source).c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return LastWin32Error();
        if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLink(source))
            return static_cast<Win32Error>(ERROR_NOT_SUPPORTED);  // it may lead anywhere, also back up
        return attributes & FILE_ATTRIBUTE_DIRECTORY ? CopyTree(source, destination, isInOwnFolder)
                                                     : CopyOneFile(source, destination, isInOwnFolder);
    }

    bool HasMade(const std::wstring& path) const { return !m_made.empty() && m_made.front().path == path; }

    // Deletes, last made first, the files that are still as they were made and the folders that are empty then.
    void TakeBack() {
        for (; !m_made.empty(); m_made.pop_back()) {
            const Made& made = m_made.back();
            const auto removeFolder = [&] {
                const bool isGone = RemoveDirectoryW(PlatformPath(made.path).c_str()) || !PathExists(made.path);
                return isGone ? Win32Error::None : static_cast<Win32Error>(ERROR_SHARING_VIOLATION);
            };
            if (made.isFolder) {
                TryForAMoment(removeFolder);
            } else if (made.version) {
                const SaveGate gate(ContainerOf(made.path));
                DeleteIfVersion(made.path, *made.version);
            }
        }
    }

private:
    struct Made {
        std::wstring path;
        bool isFolder;
        std::optional<FileVersion> version;  // of a file; nothing when it was gone at once
    };

    Win32Error CopyTree(const std::wstring& source, const std::wstring& destination, bool isInOwnFolder) {
        if (!isInOwnFolder && IsAtOrBelow(destination, m_source))
            return static_cast<Win32Error>(ERROR_INVALID_PARAMETER);  // it would never end
        const bool isOwnFolder = CreateDirectoryW(PlatformPath(destination).c_str(), nullptr);
        const Win32Error notMade = isOwnFolder ? Win32Error::None : LastWin32Error();
        const bool mayGoInto = !m_failIfExists && notMade == static_cast<Win32Error>(ERROR_ALREADY_EXISTS) && IsExistingFolder(destination);
        if (!isOwnFolder && !mayGoInto)
            return notMade;
        if (isOwnFolder)
            m_made.push_back({destination, true, {}});
        Win32Error error = Win32Error::None;
        const bool complete = ForEachEntry(source, [&](const std::wstring& child, const WIN32_FIND_DATAW& entry) {
            if (EqualNoCase(entry.cFileName, kSideFolderName))
                return true;
            error = CopyItem(child, PathAppendStr(destination, entry.cFileName), isOwnFolder);
            return error == Win32Error::None;
        });
        return complete || error != Win32Error::None ? error : LastWin32Error();
    }

    Win32Error CopyOneFile(const std::wstring& source, const std::wstring& destination, bool isInOwnFolder) {
        // A save under a lock writes a container where it stands, which must not be copied meanwhile.
        const SaveGates gates(ContainerOf(source), ContainerOf(destination));
        const std::optional<FileVersion> known = isInOwnFolder ? std::nullopt : ReadFileVersion(destination);
        const Win32Error error = CopyInPlace(source, destination, m_failIfExists, &known);
        if (error != Win32Error::None)
            return error;
        SaveCount(destination).Keep();
        if (!known)
            m_made.push_back({destination, false, ReadFileVersion(destination)});
        return error;
    }

    const std::wstring m_source;
    const bool m_failIfExists;
    std::vector<Made> m_made;  // in this order
};

}  // namespace

Win32Error qcCopyFileOrFolder(const std::wstring& source, const std::wstring& destination, bool failIfExists) {
    QC_TRACE(L"qcCopyFileOrFolder", L"source[%s], destination[%s]", source, destination);
    FolderCopy copy(source, failIfExists);
    const Win32Error error = copy.CopyItem(source, destination, false);
    // What is open there will be saved where it was opened.
    if (error != Win32Error::None && copy.HasMade(destination) && !ItemState::IsAnyOpenBelow(destination))
        copy.TakeBack();
    return qcLog.Leave(error);
}
