// A file that is stored plain and used in place. Under a lock, its openers share the lock's file, and whatever changes it
// holds the shared content's section. As on any disk, what another handle writes into a deleted file is lost.
#pragma once

#include <memory>

#include "items/FileContent.h"
#include "library/Owners.h"
#include "locks/FileLocker.h"

class PlainContent final : public FileContent {
public:
    using FileContent::FileContent;

    // Opens or creates the file at filePath, for reading only if more is refused. A file that was deleted under its lock is missing. With
    // DELETE only, a link itself is opened; otherwise its target, which then cannot be deleted or moved.
    VirtualVolumeStatus Open(const std::wstring& filePath, bool isLink, std::uint32_t desiredAccess, std::uint32_t shareMode,
                             std::uint32_t openDisposition, const wchar_t* lockToken);
    // Makes the file at the item's path this content's: by the lock's handle, or by opening it.
    void Adopt(LockedFile lock);

    bool IsEncrypted() const override { return false; }
    std::wstring StoredPath() const override { return m_state.Path(); }
    std::wstring WorkingPath() const override { return m_state.Path(); }
    HANDLE WorkingFile() const override { return m_hFile.Get(); }
    std::wstring DescriptionStr() const override;
    bool IsOpen() const override { return true; }
    VirtualVolumeStatus SetSize(std::uint64_t size) override;
    VirtualVolumeStatus MarkForDeletion(bool deleteFile) override;
    VirtualVolumeStatus Close(bool isDeleted) override;
    bool GetFileInfo(VirtFindData* virtFindData) override;
    void InfoWasSet(bool withWriteTime) override;

    // For moves.
    bool IsLocked() const { return m_lock.locked; }
    bool MayDelete() { return IsGranted(DELETE | GENERIC_ALL); }
    std::shared_ptr<LockedContent> Shared() const { return m_lock.content; }
    // A read-only file cannot be marked for deletion.
    bool IsReadOnly() const;
    // Is the open file still the one at the item's path? Assumed where files have no identity.
    bool IsAtItsPath() const;
    // The handle was opened to start empty: the first change deletes the file's content.
    void StartEmpty() { m_startsEmpty = true; }
    bool StartsEmpty() const { return m_startsEmpty; }
    // Stores the own handle if it may read, otherwise a second one, which a lock also allows.
    VirtualVolumeStatus OpenForReading(UniqueHandle& hSecond, HANDLE& hSource) const;
    void CloseFile() { m_hFile.Reset(); }
    // Opens the file at the item's path again, with the access granted before, or with full access.
    void Reopen(bool withFullAccess);

private:
    VirtualVolumeStatus CreteFileWithReadOnlyFallback(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                                      std::uint32_t openDisposition);
    // Is any of the rights granted? One that was refused at the open because others held the file is asked for again, for a moment.
    bool IsGranted(std::uint32_t access);
    VirtualVolumeStatus DoRead(std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) override;
    VirtualVolumeStatus DoWrite(std::uint64_t place, const void* data, std::uint32_t dataSize, std::uint32_t* count) override;
    // Before a change of the content: checks that it is allowed, and takes back a deletion that only an unwritten file has.
    VirtualVolumeStatus BeginWrite() REQUIRES(m_lock.content->section);
    VirtualVolumeStatus OpenLocked(std::uint32_t openDisposition);

    UniqueHandle m_hFile;
    std::uint32_t m_wantedAccess = 0;
    std::uint32_t m_grantedAccess = 0;
    std::uint32_t m_shareMode = 0;
    DWORD m_openFlags = 0;
    bool m_startsEmpty = false;
    LockedFile m_lock{false, {}, std::make_shared<LockedContent>()};  // its handle is m_hFile; without a lock the content is not shared
};
