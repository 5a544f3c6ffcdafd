// One move, rename or copy of an open file between plain and encrypted folders. The source is deleted only after the destination
// was written; a plain destination is written as a side file and renamed. What would be replaced or
// deleted is checked when the move begins, and again at the last moment: a version that was stored since stays. Holds the
// save gates of both paths.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "items/ContainerCipher.h"
#include "items/FileContent.h"
#include "library/FileVersion.h"
#include "locks/FileLocker.h"

class EncryptedContent;
class PlainContent;

class FileMove {
public:
    // content is the item's, and is replaced when the file's form changes.
    FileMove(ItemState& state, std::unique_ptr<FileContent>& content, const wchar_t* newFilePath, bool renameSrcFile, bool keepSrcFile);

    // On failure the item is at its old path, and complete.
    VirtualVolumeStatus Run(const wchar_t* newFileLockToken);

private:
    bool MayReplace() const { return m_renameSrcFile || m_keepSrcFile; }
    PlainContent& Plain() const;
    EncryptedContent& Encrypted() const;
    // The destination's lock, which is the source's own when only the letter case changes.
    const LockedFile& DestLock() const;
    std::wstring LogStr() const;

    VirtualVolumeStatus Check(const wchar_t* newFileLockToken, bool destEncrypted, bool& isDone);
    VirtualVolumeStatus CheckDestination(bool destEncrypted);
    VirtualVolumeStatus CheckSource();
    VirtualVolumeStatus Dispatch(bool destEncrypted);

    // The variants. Each gives the item its new path only after everything else has succeeded.
    VirtualVolumeStatus MoveFromPlainToPlainUnlocked();
    VirtualVolumeStatus MoveFromPlainToPlainLocked();
    VirtualVolumeStatus MoveFromHalvaneToPlain();
    VirtualVolumeStatus MoveFromPlainToHalvane();
    VirtualVolumeStatus MoveFromHalvaneToHalvane();

    VirtualVolumeStatus MovePlainFile();
    VirtualVolumeStatus MoveToOtherDisk();
    VirtualVolumeStatus WithLockedSource(const std::function<VirtualVolumeStatus(HANDLE)>& write);
    VirtualVolumeStatus CopyIntoLockedPlainFile(HANDLE hSource);
    VirtualVolumeStatus TurnIntoContainer();
    VirtualVolumeStatus MoveContainer();
    VirtualVolumeStatus ReencryptTo();
    VirtualVolumeStatus EncryptTo(const container_cipher::PlainSource& source);
    VirtualVolumeStatus PutCopyInPlace(HANDLE hSource);
    VirtualVolumeStatus LookAgain();
    VirtualVolumeStatus DeleteSource();
    void RememberWritten();
    void TakeBackDestination();
    void BecomePlain();
    void BecomeEncrypted();

    ItemState& m_state;
    std::unique_ptr<FileContent>& m_content;
    const std::wstring m_newFilePath;
    const bool m_renameSrcFile;
    const bool m_keepSrcFile;
    std::wstring m_destPath;                 // where the file or container is stored
    bool m_sameFile = false;                 // another spelling of the source's own path
    LockedFile m_newFile;                    // the destination, when it is held under a lock
    std::optional<FileVersion> m_replaced;   // what was at m_destPath when the move began
    bool m_wasThere = false;                 // m_destPath existed then
    std::optional<FileVersion> m_written;    // what this move put there
    std::wstring m_otherFormPath;            // the destination's file stored in the other form, to be deleted at the end
    std::optional<FileVersion> m_otherForm;  // its version
};
