// Operations of the volume by path, with folders held during the call and paths checked again afterwards.
#include "core/HostError.h"
#include "core/OnDisk.h"
#include "core/Volume.h"

namespace {

[[noreturn]] void ThrowLeftItsPlace(const VolumePath& path) { throw StatusError(path.Shown(), VVS_PathNotFound); }

}  // namespace

UniqueHandle Volume::Hold(const VolumePath& folder) const {
    if (folder.IsRoot())
        return {};
    const auto path = PathOnDisk(folder);
    if (!path)
        throw StatusError(folder.Shown(), VVS_MountFolderNotFound);
    if (folder.IsMountFolder())
        return {};  // it is not moved, and the root of a disk cannot be opened like a folder
    UniqueHandle handle = HoldFolder(*path);
    if (const DWORD error = GetLastError(); !handle)
        throw StatusError(folder.Shown(), error == ERROR_SHARING_VIOLATION ? VSS_SharingViolation
                                          : error == ERROR_ACCESS_DENIED   ? VVS_AccessDenied
                                                                           : VVS_PathNotFound);
    return handle;
}

void Volume::RequireRealFolder(const VolumePath& folder) const {
    if (!folder.IsRoot() && !FolderOnDisk(folder))
        ThrowLeftItsPlace(folder);
}

void Volume::RequireInPlace(const VolumePath& path, void* file) const {
    Entry entry{path};
    if (path.IsMountFolder())
        return;
    m_volume->GetFileInfo(file, &entry.data);  // fails for a new file without a container: then only the folder is checked
    if (LeadsAway(entry))
        ThrowLeftItsPlace(path);
}

bool Volume::LeadsAway(const Entry& entry) const {
    const auto folder = PathOnDisk(entry.path.Parent());
    const Standing standing = folder ? StandingAt(*folder + L'\\' + entry.NameOnDisk()) : Standing::Link;
    return standing == Standing::Link || (standing == Standing::Nothing && !FolderOnDisk(entry.path.Parent()));
}

bool Volume::LeadsAway(const VolumePath& path) const {
    Entry entry{path};
    m_volume->FindFile(path.Str(), &entry.data);
    return LeadsAway(entry);
}

FileHandle Volume::Open(const VolumePath& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) const {
    UniqueHandle folder = Hold(path.Parent());
    void* handle = nullptr;
    Check(m_volume->OpenFile(&handle, path.Str(), access, share, disposition, nullptr, nullptr), path);
    FileHandle file(m_volume, handle, std::move(folder));
    try {
        RequireInPlace(path, handle);
    } catch (const StatusError&) {
        if (disposition == CREATE_NEW || disposition == CreateNewFolder)
            m_volume->Delete(handle, nullptr);
        throw;
    }
    return file;
}

void Volume::Rename(const FileHandle& file, const VolumePath& target) const {
    const UniqueHandle folder = Hold(target.Parent());
    Check(m_volume->RenameFile(file.Get(), nullptr, target.Str(), nullptr), target);
}

void Volume::Copy(const VolumePath& source, const VolumePath& target) const {
    const UniqueHandle from = Hold(source.Parent()), to = Hold(target.Parent());
    Check(m_volume->CopyFileW(source.Str(), target.Str(), nullptr), target);
    if (!LeadsAway(source) && !LeadsAway(target))
        return;
    m_volume->Delete(Open(target, DELETE, kShareAll, OPEN_EXISTING).Get(), nullptr);
    ThrowLeftItsPlace(source);
}

void Volume::CopyToFree(const VolumePath& source, const VolumePath& target) const {
    // In a folder of its own the copy gets its name at once, so that one rename puts it in place.
    const VolumePath folder = target.Aside(), made = folder.Child(target.Name());
    Open(folder, GENERIC_READ, kShareAll, CreateNewFolder);
    bool isMoved = false;
    const OnExit removeFolder([&] {
        if (!isMoved && Find(made))
            m_volume->Delete(Open(made, DELETE, kShareAll, OPEN_EXISTING).Get(), nullptr);
        RemoveReserved(folder);
        m_volume->Delete(Open(folder, DELETE, kShareAll, OPEN_EXISTING).Get(), nullptr);
    });
    Copy(source, made);
    Move(made, target);
    isMoved = true;
}

void Volume::Move(const VolumePath& source, const VolumePath& target) const {
    const UniqueHandle from = Hold(source.Parent()), to = Hold(target.Parent());
    Check(m_volume->MoveFileW(source.Str(), target.Str(), nullptr), target);
    if (LeadsAway(target))
        ThrowLeftItsPlace(target);
}

void Volume::Lock(const VolumePath& path, LockInfo& info) const {
    const UniqueHandle folder = Hold(path.Parent());
    Check(m_volume->Lock(path.Str(), &info), path);
    if (!LeadsAway(path))
        return;
    m_volume->Unlock(path.Str(), info.token);
    ThrowLeftItsPlace(path);
}
