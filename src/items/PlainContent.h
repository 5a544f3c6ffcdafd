// A file that is stored plain and used where it stands. Under a lock, its openers share the lock's file, and what changes it
// holds the shared content's section. What another handle writes into a file after it was deleted goes with it, as anywhere.
#pragma once

#include <memory>

#include "items/FileContent.h"
#include "library/Owners.h"
#include "locks/FileLocker.h"

class PlainContent final : public FileContent {
public:
    using FileContent::FileContent;

    // Opens or creates the file at filePath, read-only where more is refused. A file that was deleted under its lock is missing. A link
    // is opened itself for DELETE alone; else what it leads to, which then cannot be deleted or moved.
    VirtualVolumeStatus Open(const std::wstring& filePath, bool isLink, std::uint32_t desiredAccess, std::uint32_t shareMode,
                             std::uint32_t openDisposition, const wchar_t* lockToken);
    // Takes a file that exists at the item's path: through the handle that a lock handed out, or by opening it.
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
    // A file that is read-only cannot be marked for deletion.
    bool IsReadOnly() const;
    // Is the file that is open still the one at the item's path? Where files have no identity, it counts as the one.
    bool IsAtItsPath() const;
    // The handle was opened to start empty: what is in the file goes with the first change.
    void StartEmpty() { m_startsEmpty = true; }
    // The own handle where it may read, else a second one, which a lock allows too.
    VirtualVolumeStatus OpenForReading(UniqueHandle& hSecond, HANDLE& hSource) const;
    void CloseFile() { m_hFile.Reset(); }
    // Opens the file at the item's path again, with what was granted before, or with everything.
    void Reopen(bool withFullAccess);

private:
    VirtualVolumeStatus CreteFileWithReadOnlyFallback(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                                      std::uint32_t openDisposition);
    // Any of the rights? What was refused at the open because others held the file is asked for again, for a moment.
    bool IsGranted(std::uint32_t access);
    VirtualVolumeStatus DoRead(std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) override;
    VirtualVolumeStatus DoWrite(std::uint64_t place, const void* data, std::uint32_t dataSize, std::uint32_t* count) override;
    // Before a change of the content: may it be changed, and will it stay?
    VirtualVolumeStatus BeginWrite() REQUIRES(m_lock.content->section);
    VirtualVolumeStatus OpenLocked(std::uint32_t openDisposition);

    UniqueHandle m_hFile;
    std::uint32_t m_wantedAccess = 0;
    std::uint32_t m_grantedAccess = 0;
    std::uint32_t m_shareMode = 0;
    DWORD m_openFlags = 0;
    bool m_startsEmpty = false;
    LockedFile m_lock{false, {}, std::make_shared<LockedContent>()};  // its handle is m_hFile; unlocked, the content is ours alone
};
