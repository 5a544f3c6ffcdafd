#include "core/Upload.h"

#include <algorithm>

#include "companion/ProtectedText.h"
#include "core/Conflicts.h"
#include "core/HostError.h"
#include "core/Text.h"

namespace {

constexpr std::uint32_t kKeepAttributes = 0xFFFFFFFF;

std::optional<Entry> FindReplaced(const Volume& volume, const VolumePath& target) {
    if (target.IsRoot() || target.IsMountFolder())
        throw HostError(target.Shown() + ": a file must be inside a mount folder");
    volume.RequireFolder(target.Parent());
    std::optional<Entry> existing = volume.Find(target);
    if (existing && existing->IsFolder())
        throw HostError(target.Shown() + ": a folder");
    return existing;
}

}  // namespace

void RequireShortName(const VolumePath& path, bool encrypted) {
    const bool areBytes = companion::IsWine();
    const std::size_t most = kMaxName - (encrypted ? kContainerExtension.size() : 0);
    if ((areBytes ? ToUtf8(path.Name()).size() : path.Name().size()) > most)
        throw HostError(path.Shown() + ": its name is too long; it may have " + std::to_string(most) +
                        (areBytes ? " bytes" : " characters") + (encrypted ? ", because \".zip\" is added to it on disk" : ""));
}

Upload::Upload(const Volume& volume, const VolumePath& target) : Upload(volume, target, FindReplaced(volume, target)) {}

Upload::Upload(const Volume& volume, const VolumePath& target, const std::optional<Entry>& existing) : m_volume(volume), m_target(target) {
    if (existing)
        m_target = existing->path;

    if (existing && existing->IsConflict()) {
        m_replacedConflict = existing;
        m_target = OrdinaryPath(*existing);
    }

    m_file = volume.Open(m_asidePath = m_target.Aside(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ, CREATE_NEW);
    try {
        Check(volume->SetFileSize(m_file.Get(), 0, nullptr), m_target);  // so that an empty file is stored too
        m_encrypted = IsEncrypted();
        RequireFit(existing);
    } catch (...) {
        volume->Delete(m_file.Get(), nullptr);  // the destructor does not run after an exception here
        throw;
    }
}

Upload::~Upload() {
    if (m_file)
        m_volume->Delete(m_file.Get(), nullptr);
}

void Upload::RequireFit(const std::optional<Entry>& existing) const {
    RequireShortName(m_target, m_encrypted);
    if (!existing)
        m_volume.RequireFree(m_target, m_encrypted);
    else if (existing->data.itemType != VIT_PlainFile && !m_encrypted)
        throw HostError(m_target.Shown() +
                        ": it is stored encrypted, but new content would not be: the rules of its folder have "
                        "changed. Remove it first, or use another name");
    else if (existing->IsConflict() && m_volume.Find(m_target))
        throw HostError(existing->ListedPath().Shown() + ": a conflict copy, to be stored as " + m_target.Shown() +
                        ", which is there as well; use another name");
}

bool Upload::IsEncrypted() const {
    VirtFindData data{};
    if (!m_volume->GetFileInfo(m_file.Get(), &data))
        throw StatusError(m_target.Shown(), VVS_GeneralError);
    return data.itemType != VIT_PlainFile;
}

void Upload::Write(const void* data, std::size_t size) {
    const char* position = static_cast<const char*>(data);
    while (size > 0) {
        std::uint32_t count = 0;
        const std::uint32_t request = static_cast<std::uint32_t>(std::min<std::size_t>(size, 1 << 30));
        Check(m_volume->WriteFile(m_file.Get(), kCurrentPosition, position, request, &count, nullptr), m_target);
        if (count == 0)
            throw StatusError(m_target.Shown(), VVS_GeneralError);
        position += count;
        size -= count;
        m_written += count;
    }
}

void Upload::Place(const VirtFindData& times, const std::function<void()>& lastLook) {
    m_volume->SetFileInfo(m_file.Get(), kKeepAttributes, &times);  // a failure is ignored: the content is complete
    lastLook();
    if (m_replacedConflict)
        MakeOrdinary(m_volume, *m_replacedConflict);
    m_volume.Rename(m_file, m_target);
    m_file.Reset();
    Verify();
}

bool Upload::PlaceIfFree() {
    m_file.Reset();  // it is stored under the other name, from which a move replaces nothing
    try {
        m_volume.Move(m_asidePath, m_target);
    } catch (const StatusError& error) {
        m_volume->Delete(m_volume.Open(m_asidePath, DELETE, kShareAll, OPEN_EXISTING).Get(), nullptr);
        if (error.Status() == VVS_PathAlreadyExists)
            return false;
        throw;
    }
    Verify();
    return true;
}

void Upload::Verify() {
    std::optional<Entry> stored = m_volume.Find(m_target);
    const bool hasOwnName = stored.has_value();
    Entry other{m_target};
    if (!hasOwnName && m_volume->FindFile(m_target.Str(), &other.data))
        stored = m_volume.Find(m_target.Parent().Child(other.Name()));
    if (!stored)
        throw HostError(m_target.Shown() + ": it was stored, but the volume does not show it");
    m_stored = *stored;
    if (!hasOwnName)
        m_target = m_target.Parent().Child(stored->Name());
    if (m_encrypted && stored->data.itemType == VIT_PlainFile)
        throw HostError(m_target.Shown() +
                        ": it was stored, but another program has just stored an unencrypted file of this name, which is shown");
    const bool isAsWritten = hasOwnName || m_encrypted;  // if the content is itself a container, its document's size is shown
    if (isAsWritten && static_cast<std::uint64_t>(stored->data.fileSize) != m_written)
        throw HostError(m_target.Shown() + ": the volume shows " + std::to_string(stored->data.fileSize) + " bytes where " +
                        std::to_string(m_written) + " were stored");
}
