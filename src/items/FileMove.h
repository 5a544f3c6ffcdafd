// One move, rename or copy of an open file between plain and encrypted places. The source goes only after the destination is
// really written; what is written into a plain place is built aside and put there in one step. What would be replaced or
// removed is looked at when the move begins, and again at the last moment: another version that came up since stays. Holds the
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
    // content is the item's, to be exchanged when the item's form is another one afterwards.
    FileMove(ItemState& state, std::unique_ptr<FileContent>& content, const wchar_t* newFilePath, bool renameSrcFile, bool keepSrcFile);

    // On failure the item is where it was, and whole.
    VirtualVolumeStatus Run(const wchar_t* newFileLockToken);

private:
    bool MayReplace() const { return m_renameSrcFile || m_keepSrcFile; }
    PlainContent& Plain() const;
    EncryptedContent& Encrypted() const;
    // The lock of what is written: the destination's, which for a rename by letter case is the source's own.
    const LockedFile& DestLock() const;
    std::wstring LogStr() const;

    VirtualVolumeStatus Check(const wchar_t* newFileLockToken, bool destEncrypted, bool& isDone);
    VirtualVolumeStatus CheckDestination(bool destEncrypted);
    VirtualVolumeStatus CheckSource();
    VirtualVolumeStatus Dispatch(bool destEncrypted);

    // The variants. Each is done whole, and re-points the item only when all of it was done.
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
    std::wstring m_destPath;                 // of what is stored
    bool m_sameFile = false;                 // another spelling of the source's own path
    LockedFile m_newFile;                    // the destination, when it is held under a lock
    std::optional<FileVersion> m_replaced;   // what was at m_destPath when the move began
    bool m_wasThere = false;                 // something was
    std::optional<FileVersion> m_written;    // what this move put there
    std::wstring m_otherFormPath;            // what is shown at the destination but stored in the other form: to be deleted at the end
    std::optional<FileVersion> m_otherForm;  // what is there
};
