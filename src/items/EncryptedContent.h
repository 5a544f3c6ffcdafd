// A file that is stored as a container. Its content is a temp file, which is decrypted at the first access and encrypted at the
// close when it holds an edit. base is the stored version that the item's user knows: whatever replaces or
// deletes the container checks at the last moment that the base is still stored. No process-wide lock is held while the
// companion library works.
#pragma once

#include "items/FileContent.h"
#include "items/SaveGate.h"
#include "items/WorkingCopy.h"
#include "locks/FileLocker.h"

class EncryptedContent final : public FileContent {
public:
    using FileContent::FileContent;

    // What was found at filePath. Document: the document, perhaps by its container's path. WaitingContainer: nothing, but an edit waits
    // for a container of this path. Other: something else, there or at the container's path. Nothing: nothing at either.
    enum class Found { Document, WaitingContainer, Other, Nothing };
    // Opens no file, but takes the handle of a lock.
    VirtualVolumeStatus Open(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                             std::uint32_t openDisposition, Found found, const wchar_t* lockToken);
    // Makes the container that was just written at the item's path this content's.
    void Adopt(LockedFile lock);

    bool IsEncrypted() const override { return true; }
    std::wstring StoredPath() const override;
    std::wstring WorkingPath() const override { return m_copy.Path(); }
    HANDLE WorkingFile() const override { return m_copy.File(); }
    std::wstring DescriptionStr() const override;
    VirtualVolumeStatus Prepare() override { return MakeSureTempFileOpenIfNeeded(TempContent::AsOpened); }
    VirtualVolumeStatus SetSize(std::uint64_t size) override;
    VirtualVolumeStatus MarkForDeletion(bool deleteFile) override;
    VirtualVolumeStatus Close(bool isDeleted) override;
    bool GetFileInfo(VirtFindData* virtFindData) override;
    bool IsOpen() const override { return m_copy.IsMade(); }
    void InfoWasSet(bool withWriteTime) override { m_copy.InfoWasSet(withWriteTime); }

    // For moves.
    const LockedFile& Lock() const { return m_lock; }
    // Fills the copy with the document's content, even if the disposition starts it empty.
    VirtualVolumeStatus PrepareContent();
    // Is the content still empty because of the disposition, whatever is stored?
    bool StartsEmpty() const { return m_startsEmpty && !m_wasWritten; }
    // After a move that filled the copy with the stored content or an unsaved edit: the content is empty again, and the edit still waits.
    void StartEmptyAgain(const std::optional<FileVersion>& base);
    const std::optional<FileVersion>& Base() const { return m_base; }
    // A new file, of which nothing is stored or written yet.
    bool IsOnlyNamed() const;
    // After a failed write under the lock: what it left there becomes the base, because nobody else can write there.
    void FollowOwnLock() { m_base = ReadFileVersion(StoredPath()); }
    // Is the base still stored? (VSS_SharingViolation) If there is no base yet, what is stored now becomes it.
    VirtualVolumeStatus CheckBase();
    // May the container be deleted at the end of a move? VSS_SharingViolation when it was replaced.
    VirtualVolumeStatus CheckMayGo();
    // Deletes the container, or marks it when it is locked; not when it was replaced (VSS_SharingViolation).
    VirtualVolumeStatus DeleteOldContainer();
    // The item has another path. SavedAt: the copy's content was just saved there, under newLock if one is given. RenamedTo: the
    // container was renamed to it, or nothing is stored yet.
    void SavedAt(const std::wstring& newFilePath, LockedFile* newLock);
    void RenamedTo(const std::wstring& newFilePath);
    void DiscardCopy() { m_copy.Discard(); }
    // The plain file that was encrypted into the container serves as the copy until the close.
    void TakeCopy(RetainedCopy copy, UniqueHandle hFile);
    bool SaveTrackerFileItem();

private:
    enum class TempContent { AsOpened, OfContainer };

    VirtualVolumeStatus DoRead(std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) override;
    VirtualVolumeStatus DoWrite(std::uint64_t place, const void* data, std::uint32_t dataSize, std::uint32_t* count) override;

    // The copy (EncryptedContent.cpp)
    void WasWritten();
    VirtualVolumeStatus MakeSureTempFileOpenIfNeeded(TempContent content);
    // before: the container's version, if it was just read.
    VirtualVolumeStatus FillTempFile(std::optional<FileVersion> before, RetainedCopy& copy, HANDLE hFile);
    bool IsSourceChanged() const { return !IsStillVersion(m_base, ReadFileVersion(StoredPath())); }
    std::optional<FileVersion> StoredVersion() const;
    std::wstring TrackingPath() const;

    // The end (EncryptedContentSave.cpp)
    VirtualVolumeStatus EncryptChangedTempFileIfNeeded();
    VirtualVolumeStatus SaveUnderFreeName();
    bool ReserveFreeName(const std::wstring& ownPath, bool& isReserved);
    VirtualVolumeStatus EncryptChangedTempFile();
    VirtualVolumeStatus EncryptOpenFileUnlocked();
    VirtualVolumeStatus CloseDeleted();
    VirtualVolumeStatus DeleteContainer();
    void SaveOvertakenEdit();
    void FollowTrackingFile();
    bool IsLockedByOthers() const;
    bool IsNameTaken() const;
    void RememberSavedState();

    WorkingCopy m_copy;
    LockedFile m_lock;
    bool m_startsEmpty = false;  // by its disposition; only a save replaces the stored content
    bool m_wasWritten = false;
    bool m_isBaseKnown = false;
    bool m_mayAskUser = true;  // for a folder to put a backup in
    bool m_isBackedUp = false;
    std::optional<SaveGate> m_gate;               // while it is saved
    std::optional<FileVersion> m_base;            // nothing: there was none
    std::optional<FileVersion> m_deletedVersion;  // what was stored when the deletion was marked
    std::optional<RetainedCopy> m_deletedEdit;    // the unsaved edit that was shown then, if any
};
