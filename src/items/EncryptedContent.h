// A file that is stored as a container. It is worked on in a copy, which is decrypted at the first access to the content and
// encrypted at the close when it holds an edit. base is the stored version that the item's user knows: whatever replaces or
// removes the container asks at the last moment whether that is still the one there. Nothing process-wide is locked while the
// companion library works.
#pragma once

#include "items/FileContent.h"
#include "items/SaveNames.h"
#include "items/WorkingCopy.h"
#include "locks/FileLocker.h"

class EncryptedContent final : public FileContent {
public:
    using FileContent::FileContent;

    // What a look at filePath found: the document, perhaps by its container's own path; nothing, but it is the own path of a container
    // for which an edit waits; something else there or at the container's path; nothing at either.
    enum class Found { Document, WaitingContainer, Other, Nothing };
    // Opens no file; a lock's handle is taken.
    VirtualVolumeStatus Open(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                             std::uint32_t openDisposition, Found found, const wchar_t* lockToken);
    // Takes the container that was just written for the item's path.
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
    // Makes the copy hold what the document holds, whatever the disposition says.
    VirtualVolumeStatus PrepareContent();
    // Does the handle still hold nothing, by its disposition, whatever is stored?
    bool StartsEmpty() const { return m_startsEmpty && !m_wasWritten; }
    // A move had filled the copy with what is stored, or waits: the handle holds nothing again, and what waited there waits on.
    void StartEmptyAgain(const std::optional<FileVersion>& base);
    const std::optional<FileVersion>& Base() const { return m_base; }
    // A new file, of which nothing was stored and nothing is written yet.
    bool IsOnlyNamed() const;
    // After a failed write under the lock: whatever it left there is the base, since nobody else can write there.
    void FollowOwnLock() { m_base = ReadFileVersion(StoredPath()); }
    // Unless the item's user knows a stored version already, the one that is there now becomes the base.
    // VSS_SharingViolation: another one is there.
    VirtualVolumeStatus CheckBase();
    // May the container be deleted at the end of a move? VSS_SharingViolation when it was replaced.
    VirtualVolumeStatus CheckMayGo();
    // Deletes the container, or marks it when it is locked; not when it was replaced (VSS_SharingViolation).
    VirtualVolumeStatus DeleteOldContainer();
    // The item stands at another path. What the copy holds was just saved there, under newLock if one is given; or the
    // container was renamed and is there; or nothing is stored yet.
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
    // before: the container as it was just seen, if it was.
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
    void RememberSavedState();

    WorkingCopy m_copy;
    LockedFile m_lock;
    bool m_startsEmpty = false;  // by its disposition; the stored content goes only with a save
    bool m_wasWritten = false;
    bool m_isBaseKnown = false;
    bool m_mayAskUser = true;  // for a folder to put a backup in
    bool m_isBackedUp = false;
    std::optional<SaveGate> m_gate;               // while it is saved
    std::optional<FileVersion> m_base;            // nothing: there was none
    std::optional<FileVersion> m_deletedVersion;  // what was there when the deletion was marked
    std::optional<RetainedCopy> m_deletedEdit;    // and the edit that waited, if it was shown
};
