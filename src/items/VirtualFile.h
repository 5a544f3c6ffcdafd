// An open file of the volume. A plain file is used where it stands. An encrypted one is worked on in a temp file, which is
// decrypted at the first access to the content and encrypted into the container at Close when it was changed; whatever
// fails in between, the container stands whole, and an edit that could not be saved stays in its temp file with its
// tracking file beside. Used by one thread at a time, as every item; nothing process-wide is locked while the companion
// library works.
#pragma once

#include <memory>
#include <string>

#include "items/TrackingFile.h"
#include "items/VirtualItem.h"
#include "items/VirtualTempFileDispenser.h"
#include "locks/FileLocker.h"

class VirtualFile final : public VirtualItem {
public:
    ~VirtualFile() override { Close(); }

    // A new file is born encrypted when its folder's policy asks for it.
    VirtualVolumeStatus Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                             std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t* lockToken) override;
    // A move refuses an existing destination (VVS_PathAlreadyExists) unless it holds the destination's lock; a rename and a
    // copy replace an existing file. An existing folder is always refused.
    VirtualVolumeStatus Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus Rename(const wchar_t* newFilePath, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* readDataSize) override;
    VirtualVolumeStatus Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* writtenSize) override;
    VirtualVolumeStatus SetSize(std::uint64_t size) override;
    VirtualVolumeStatus Close() override;
    VirtualVolumeStatus Delete() override;
    VirtualVolumeStatus Undelete() override;
    bool GetFileInfo(VirtFindData* virtFindData) override;
    VirtualVolumeStatus SetFileInfo(const VirtFindData* virtFindData) override;

private:
    // What a temp file is to hold when it is made: what the open disposition says, or in any case what the container holds.
    enum class TempContent { AsOpened, OfContainer };

    // Opening and closing (VirtualFile.cpp)
    VirtualVolumeStatus OpenHalvaneFile(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                        std::uint32_t openDisposition, bool exists, const wchar_t* lockToken);
    VirtualVolumeStatus OpenPlainFile(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                      std::uint32_t openDisposition, const wchar_t* lockToken);
    static VirtualVolumeStatus CreteFileWithReadOnlyFallback(const std::wstring& filePath, std::uint32_t desiredAccess,
                                                             std::uint32_t shareMode, std::uint32_t openDisposition,
                                                             std::uint32_t& grantedAccess, UniqueHandle& hFile);
    VirtualVolumeStatus CloseContent();
    VirtualVolumeStatus DeleteContainer();
    VirtualVolumeStatus MarkForDeletion(bool deleteFile);
    std::wstring GetZipFilePath() const;
    std::wstring GetTempTrackingFile() const;
    std::wstring GetWorkingPath() const { return m_encrypted ? m_copy.tempFilePath : m_itemFullPath; }
    std::wstring DescriptionStr() const;

    // The temp file (VirtualFileTemp.cpp)
    VirtualVolumeStatus MakeSureTempFileOpenIfNeeded(TempContent content = TempContent::AsOpened);
    VirtualVolumeStatus FillTempFile(RetainedCopy& copy, HANDLE hFile);
    void KeepOrDropTempFile();
    void DropTempFile();
    bool SaveTrackerFileItem();

    // Decryption and encryption (VirtualFileCipher.cpp)
    VirtualVolumeStatus DecryptToFile(const std::wstring& destFilePath, HANDLE hDestFile);
    VirtualVolumeStatus DecryptContainer(const std::wstring& containerPath, const std::wstring& destFilePath, HANDLE hDestFile);
    VirtualVolumeStatus CopyLockedContainer(const std::wstring& tempZipFilePath);
    VirtualVolumeStatus EncryptChangedTempFileIfNeeded();
    VirtualVolumeStatus SaveUnderFreeName();
    VirtualVolumeStatus EncryptChangedTempFile();
    VirtualVolumeStatus EncryptOpenFileUnlocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                                                const std::wstring& srcFilePath);
    VirtualVolumeStatus EncryptOpenFileLocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                                              const std::wstring& srcFilePath, HANDLE hSource, const LockedFile& dest);
    // isOwnContainer: zipFilePath is the item's own. When it was changed while this encrypted, it stays: VVS_PathAlreadyExists.
    VirtualVolumeStatus EncryptOpenFileInternal(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                                                const std::wstring& srcFilePath, HANDLE hSource, bool isOwnContainer = false);
    bool IsSourceChanged() const;
    bool IsLockedByOthers() const;
    void RememberSavedState();

    // Moves (VirtualFileMove.cpp). Each does one variant whole, and re-points the item only when all of it was done.
    struct MoveRequest {
        std::wstring newFilePath;
        bool renameSrcFile;
        bool keepSrcFile;
        bool sameFile;              // another spelling of the source's own path
        LockedFile newFile;         // the destination, when it is held under a lock
        std::wstring replacedPath;  // what is replaced but stored in the other form: to be deleted at the end
        bool MayReplace() const { return renameSrcFile || keepSrcFile; }
    };
    VirtualVolumeStatus MoveInternal(const wchar_t* newFilePath, bool renameSrcFile, bool keepSrcFile, const wchar_t* newFileLockToken);
    VirtualVolumeStatus CheckDestination(MoveRequest& request, bool destEncrypted) const;
    VirtualVolumeStatus CheckSourceMayGo(const MoveRequest& request) const;
    VirtualVolumeStatus MoveFromPlainToPlainUnlocked(MoveRequest& request);
    VirtualVolumeStatus MoveFromPlainToPlainLocked(MoveRequest& request);
    VirtualVolumeStatus MoveFromHalvaneToPlain(MoveRequest& request);
    VirtualVolumeStatus MoveFromPlainToHalvane(MoveRequest& request);
    VirtualVolumeStatus MoveFromHalvaneToHalvane(MoveRequest& request);
    VirtualVolumeStatus MoveContainer(MoveRequest& request);
    VirtualVolumeStatus ReencryptTo(MoveRequest& request);
    VirtualVolumeStatus TurnIntoContainer(MoveRequest& request);
    VirtualVolumeStatus MovePlainFile(const std::wstring& newFilePath);
    VirtualVolumeStatus OpenSourceForReading(UniqueHandle& hSecond, HANDLE& hSource) const;
    VirtualVolumeStatus EncryptTo(const MoveRequest& request, const std::wstring& srcFilePath, HANDLE hSource);
    VirtualVolumeStatus DeleteOldContainer();
    void BecomePlain(MoveRequest& request);
    void BecomeEncrypted(MoveRequest& request);

    // A move may exchange the working handle; the host's place in the file stays.
    class PositionKeeper {
    public:
        explicit PositionKeeper(VirtualFile& file);
        ~PositionKeeper();
        PositionKeeper(const PositionKeeper&) = delete;
        PositionKeeper& operator=(const PositionKeeper&) = delete;

    private:
        VirtualFile& m_file;
        LARGE_INTEGER m_position{};
    };

    // Held while a locked plain file is worked on: all its openers share one file with one position.
    class ContentGuard {
    public:
        explicit ContentGuard(const VirtualFile& file) : m_lock(file.m_encrypted ? nullptr : file.m_lockedFile.contentLock) {
            if (m_lock)
                m_lock->lock();
        }
        ~ContentGuard() {
            if (m_lock)
                m_lock->unlock();
        }
        ContentGuard(const ContentGuard&) = delete;
        ContentGuard& operator=(const ContentGuard&) = delete;

    private:
        std::shared_ptr<CriticalSection> m_lock;
    };

    std::uint32_t m_grantedAccess = 0;
    std::uint32_t m_shareMode = 0;
    std::uint32_t m_openDisposition = 0;
    bool m_deleted = false;
    bool m_encrypted = false;
    bool m_tempFileOpen = false;  // in m_hFile
    bool m_modified = false;      // the temp file holds an edit that is not in the container
    bool m_tempIsContainers = false;  // the temp file holds what the container holds
    RetainedCopy m_copy;              // the temp file, and what it was made from
    TrackingRecord m_tracking;
    std::wstring m_lockToken;
    LockedFile m_lockedFile;  // the container; of a plain file, the flag and the lock alone: its handle is m_hFile
};
