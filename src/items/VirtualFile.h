// An open file of the volume: a deletion mark, a position, and a content, which is a plain file used in place or the decrypted copy
// of a container. A move may replace the content object. Like every item, used by one thread at a time.
#pragma once

#include <memory>

#include "items/FileContent.h"
#include "items/VirtualItem.h"

class VirtualFile final : public VirtualItem {
public:
    ~VirtualFile() override { Close(); }

    // A new file is encrypted if its folder's policy says so. A name that could never be saved is refused (VVS_InvalidParameter).
    VirtualVolumeStatus Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode, std::uint32_t openDisposition,
                             const VirtFindData* findData, const wchar_t* lockToken) override;
    // A move refuses an existing destination (VVS_PathAlreadyExists) unless it has the destination's lock; a rename and a
    // copy replace an existing file. An existing folder is always refused. VSS_SharingViolation: somebody else replaced the
    // source or the destination meanwhile; nothing was changed.
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
    VirtualVolumeStatus Flush() override;

private:
    VirtualVolumeStatus MoveInternal(const wchar_t* newFilePath, bool renameSrcFile, bool keepSrcFile, const wchar_t* newFileLockToken);
    HANDLE WorkingFile() const override { return m_content ? m_content->WorkingFile() : nullptr; }

    std::unique_ptr<FileContent> m_content;  // null until the file is open
    bool m_deleted = false;
    std::uint64_t m_position = 0;  // bytes from the start, for reads and writes at kCurrentPosition
};
