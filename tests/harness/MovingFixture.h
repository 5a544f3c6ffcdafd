// What tests of moves share: plain words for moving, and the disk as it is.
#pragma once

#include <filesystem>
#include <map>

#include "harness/VolumeFixture.h"

class Moving : public VolumeFixture {
protected:
    using Snapshot = std::map<std::wstring, std::string>;

    Snapshot DiskBelow(const std::wstring& volumePath) const {
        Snapshot snapshot;
        for (const std::wstring& file : FilesBelow(NativePath(volumePath)))
            snapshot[file] = ReadRaw(file);
        return snapshot;
    }
    Snapshot Disk() const {
        Snapshot snapshot;
        for (const wchar_t* mount : {L"Docs", L"Other", L"Theirs", L"Plain"})
            snapshot.merge(DiskBelow(mount));
        return snapshot;
    }
    std::vector<std::wstring> NamesBelow(const std::wstring& volumePath) const {
        std::vector<std::wstring> names;
        for (const std::wstring& file : FilesBelow(NativePath(volumePath)))
            names.push_back(std::filesystem::path(file).filename().wstring());
        return names;
    }
    void MakeFolder(const std::wstring& volumePath) const { std::filesystem::create_directories(NativePath(volumePath)); }
    void MakePlain(const std::wstring& volumePath, std::string_view content) const { WriteRaw(NativePath(volumePath), content); }
    // Made where there is a key and then put in place, which may be a folder without one.
    void MakeEncrypted(const std::wstring& volumePath, std::string_view content) {
        const std::wstring making = NativePath(L"Docs\\making.zip");
        MakeContainer(making, std::filesystem::path(volumePath).filename().wstring(), content);
        std::filesystem::rename(making, ContainerPath(volumePath));
    }
    VirtualVolumeStatus Move(const std::wstring& from, const std::wstring& to, const wchar_t* token = nullptr) {
        return volume()->MoveFileW(from.c_str(), to.c_str(), token);
    }
    VirtualVolumeStatus Copy(const std::wstring& from, const std::wstring& to, const wchar_t* token = nullptr) {
        return volume()->CopyFileW(from.c_str(), to.c_str(), token);
    }
    VirtualVolumeStatus Rename(void* hFile, const std::wstring& to, const wchar_t* token = nullptr) {
        return volume()->RenameFile(hFile, nullptr, to.c_str(), token);
    }
    VirtualVolumeStatus Rename(const std::wstring& from, const std::wstring& to) {
        void* const hFile = MustOpen(from);
        const VirtualVolumeStatus status = Rename(hFile, to);
        Close(hFile);
        return status;
    }
};
