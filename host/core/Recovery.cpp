#include "core/Recovery.h"

#include <algorithm>
#include <vector>

#include "common/SaveNames.h"
#include "core/HostError.h"
#include "core/Interrupt.h"
#include "core/LocalFile.h"
#include "core/OnDisk.h"
#include "core/Text.h"
#include "core/Upload.h"

namespace {

constexpr std::uint32_t kPartSize = 1 << 20;

std::string Shown(const LeftEdit& edit) { return ToShown(OrdinaryPath(edit.file)); }

void ReadOpen(const Volume& volume, void* file, const std::string& shown, const std::function<void(const char*, std::size_t)>& take) {
    std::vector<char> part(kPartSize);
    for (std::uint32_t count = 1; count != 0;) {
        StopIfInterrupted();
        const VirtualVolumeStatus status = volume->ReadFile(file, kCurrentPosition, part.data(), kPartSize, &count, nullptr);
        if (status != VVS_Success)
            throw StatusError(shown, status);
        take(part.data(), count);
    }
}

// By the absolute path of the container, because for the document's path the volume would open a plain file beside it.
FileHandle OpenContainer(const Volume& volume, const LeftEdit& edit) {
    if (StandingAt(edit.file.native()) != Standing::Itself)
        throw HostError(Shown(edit) + ": a link, which is not followed");
    const std::wstring container = OrdinaryPath(edit.file);
    void* handle = nullptr;
    const VirtualVolumeStatus status =
        volume->OpenFile(&handle, container.c_str(), GENERIC_READ, kShareAll, OPEN_EXISTING, nullptr, nullptr);
    if (status != VVS_Success)
        throw StatusError(Shown(edit), status);
    return FileHandle(volume.Get(), handle);
}

// The name by which the volume saves beside a changed container.
VolumePath FreeConflictPath(const Volume& volume, const VolumePath& document) {
    for (int number = 1;; ++number) {
        const VolumePath path = document.Parent().Child(SaveNameStr(document.Name(), SaveName::ConflictedEdit, number));
        VirtFindData data{};
        if (!volume->FindFile(path.Str(), &data))
            return path;
    }
}

// Is something else at the document's path than the container that was edited?
bool GoesAside(const Volume& volume, const VolumePath& document, const LeftEdit& edit) {
    const LeftEdit::Since since = edit.ContainerSince();
    if (since == LeftEdit::Since::Changed || !edit.UploadedName().empty())
        return true;
    VirtFindData there{};
    const bool isItsContainer = since == LeftEdit::Since::Same;
    return volume->FindFile(document.Str(), &there) && (!isItsContainer || there.itemType < VIT_EncryptedFile);
}

}  // namespace

std::optional<VolumePath> DocumentOf(const Volume& volume, const LeftEdit& edit) {
    VirtMountInfo mount{};
    const std::wstring container = edit.container.native();
    if (container.empty() || !volume->GetMountInfoByNativePath(container.c_str(), &mount))
        return std::nullopt;
    const std::size_t folderSize = BoundedText(mount.path).size();
    if (container.size() <= folderSize + kContainerExtension.size() || !EndsWithNoCase(container, kContainerExtension))
        return std::nullopt;
    const std::wstring below = container.substr(folderSize, container.size() - folderSize - kContainerExtension.size());
    try {
        const VolumePath path = VolumePath::Parse(std::wstring(BoundedText(mount.name)) + L'\\' + below);
        const std::wstring uploaded = edit.UploadedName();
        if (!uploaded.empty())
            return path.Parent().Child(uploaded);
        // A conflict copy is used under its listed name.
        Entry listed{path};
        const bool found = volume->FindFile(path.Str(), &listed.data);
        return found && listed.IsConflict() ? path.Parent().Child(listed.Name()) : path;
    } catch (const HostError&) {
        return std::nullopt;
    }
}

void ReadEdit(const Volume& volume, const LeftEdit& edit, const std::function<void(const char*, std::size_t)>& take) {
    if (edit.IsContainer())
        return ReadOpen(volume, OpenContainer(volume, edit).Get(), Shown(edit), take);
    UniqueHandle file = OpenItself(edit.file.native(), GENERIC_READ, FILE_SHARE_READ);
    if (!file)
        throw LocalError(OrdinaryPath(edit.file), GetLastError());
    LocalSource source(std::move(file), OrdinaryPath(edit.file));
    std::vector<char> part(kPartSize);
    while (const std::size_t count = source.Read(part.data(), part.size())) {
        StopIfInterrupted();
        take(part.data(), count);
    }
}

bool HasContent(const Volume& volume, const VolumePath& path, const LeftEdit& edit) {
    volume.Temp().ForgetCopies();
    const FileHandle stored = volume.Open(path, GENERIC_READ, kShareAll, OPEN_EXISTING);
    VirtFindData data{};
    if (!volume->GetFileInfo(stored.Get(), &data))
        throw StatusError(path.Shown(), VVS_GeneralError);
    if (!edit.IsContainer() && static_cast<std::uint64_t>(data.fileSize) != edit.Size())
        return false;  // without reading all of it, which may take long
    std::vector<char> part(kPartSize);
    bool same = true;
    const auto compare = [&](const char* read, std::size_t size) {
        for (std::size_t done = 0; same && done < size;) {
            std::uint32_t count = 0;
            Check(volume->ReadFile(stored.Get(), kCurrentPosition, part.data(), static_cast<std::uint32_t>(size - done), &count, nullptr),
                  path);
            same = count > 0 && std::equal(part.begin(), part.begin() + count, read + done);
            done += count;
        }
    };
    ReadEdit(volume, edit, compare);
    std::uint32_t more = 0;
    Check(volume->ReadFile(stored.Get(), kCurrentPosition, part.data(), 1, &more, nullptr), path);
    return same && more == 0;
}

std::optional<VolumePath> FindSaved(const Volume& volume, const LeftEdit& edit) {
    const std::optional<VolumePath> document = DocumentOf(volume, edit);
    if (!document)
        return std::nullopt;
    std::vector<VolumePath> places;
    if (const std::optional<Entry> entry = volume.Find(*document))
        places.push_back(entry->path);
    const std::wstring saved = SaveNamePattern(document->Name(), SaveName::ConflictedEdit);
    for (const Entry& entry : SortedEntries(volume, document->Parent(), saved.c_str()))
        places.push_back(entry.path);
    for (const VolumePath& path : places) {
        try {
            if (HasContent(volume, path, edit))
                return path;
        } catch (const StatusError&) {  // an unreadable document proves nothing
        }
    }
    return std::nullopt;
}

VolumePath SaveEdit(const Volume& volume, const LeftEdit& edit, const std::optional<VolumePath>& given) {
    const std::optional<VolumePath> document = given ? given : DocumentOf(volume, edit);
    if (!document)
        throw HostError(Shown(edit) + ": its document is unknown or in no mount folder; say with --to where to save it");
    if (!volume.HasRoomFor(edit.Size(), document->Parent()))
        throw HostError(Shown(edit) + ": there is no room for it, in the folder of its document or in the temp folder");
    bool aside = !given && GoesAside(volume, *document, edit);
    for (;;) {
        const VolumePath target = aside ? FreeConflictPath(volume, *document) : *document;
        Upload upload(volume, target);
        ReadEdit(volume, edit, [&upload](const char* data, std::size_t size) { upload.Write(data, size); });
        if (!aside && !given && GoesAside(volume, *document, edit)) {  // somebody changed it meanwhile
            aside = true;
            continue;
        }
        VirtFindData times{};
        times.lastWriteTime = edit.WriteTime();
        upload.Place(times);
        return upload.Target();
    }
}
