// An open folder below a mount folder, or a mount folder itself. Its content cannot be read or written.
#pragma once

#include "items/VirtualItem.h"

class VirtualFolder final : public VirtualItem {
public:
    ~VirtualFolder() override { Close(); }

    // CreateNewFolder creates the folder, OpenOrCreateFolder creates it if it is missing; every other disposition opens it.
    VirtualVolumeStatus Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode, std::uint32_t openDisposition,
                             const VirtFindData* findData, const wchar_t* lockToken) override;
    // Only between folders of the same target key and owner (VVS_GeneralError otherwise, VSS_EncryptError when the companion
    // library cannot say): containers are moved unchanged, and plain files must not get into an encrypted folder.
    VirtualVolumeStatus Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus Rename(const wchar_t* newFilePath, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus Read(std::uint64_t, void*, std::uint32_t, std::uint32_t*) override { return VSS_NotImplemented; }
    VirtualVolumeStatus Write(std::uint64_t, const void*, std::uint32_t, std::uint32_t*) override { return VSS_NotImplemented; }
    VirtualVolumeStatus SetSize(std::uint64_t) override { return VSS_NotImplemented; }
    VirtualVolumeStatus Close() override;
    VirtualVolumeStatus Delete() override;
    VirtualVolumeStatus Undelete() override;
    bool GetFileInfo(VirtFindData* virtFindData) override;

private:
    // VVS_AccessDenied when the folder must not be moved: it is or contains a mount folder, or something below is open or locked, which
    // will be saved under its old path.
    VirtualVolumeStatus RefuseWhileNeeded() const;
    // VVS_AccessDenied while an unsaved edit waits below: a copy would be without it, and a deletion would leave it without its folder.
    VirtualVolumeStatus RefuseWhileEditsWait() const;
    VirtualVolumeStatus CheckDestination(const wchar_t* newFilePath, bool mayBeFolder) const;
    VirtualVolumeStatus CheckSameKeyAndOwner(const std::wstring& newFilePath);
    HANDLE WorkingFile() const override { return m_hFile.Get(); }

    UniqueHandle m_hFile;
    bool m_deleted = false;
};
