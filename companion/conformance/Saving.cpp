#include <tuple>

#include "common/TrackingText.h"
#include "companion/conformance/Checks.h"

namespace conformance {
namespace {

// What the volume does to save a document whose container a lock holds, and to open it.
void SaveUnderLock(const Library& library, const Path& folder) {
    const Scratch locked(folder, L"locked.txt"), temp(std::filesystem::temp_directory_path(), std::to_wstring(GetCurrentProcessId()));
    std::filesystem::create_directory(temp.plain);
    const Path aside = temp.plain / locked.container.filename(), source = temp.plain / locked.plain.filename();
    WriteFileBytes(source, "new");
    WriteFileBytes(aside.native() + std::wstring(kTrackingExtension),
                   TrackingText({locked.container, {FILE_ATTRIBUTE_ARCHIVE}, aside, {}, locked.plain.filename()}));
    library.Save(locked.container, {.name = locked.plain.filename(), .content = "the content before"});
    library.Save(aside, {.name = locked.plain.filename(), .content = "new", .source = source});
    WriteFileBytes(locked.container, ReadFileBytes(aside));
    Must(library.Read(locked.container) == "new", "copied over the container in its folder, it has another content");
    Must(library.Read(aside) == "new", "a container that was copied to the temp folder has another content there");
}

// What disturbs a save, and is gone when this is.
class Disturbance {
public:
    enum Kind { ReadOnly, Held };
    Disturbance(Kind kind, const Path& path) : m_path(path) {
        if (kind == ReadOnly)
            SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
        else
            m_handle.Reset(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    }
    ~Disturbance() { SetFileAttributesW(m_path.c_str(), FILE_ATTRIBUTE_NORMAL); }
    Disturbance(const Disturbance&) = delete;
    Disturbance& operator=(const Disturbance&) = delete;

private:
    Path m_path;
    UniqueHandle m_handle;
};

void CheckAttributes(Report& report, const Library& library, const Folders& folders) {
    report.Require("gives the container the read-only, hidden and system attributes of the document", [&] {
        for (const DWORD attribute : {FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_SYSTEM}) {
            const Scratch marked(folders.encrypted, L"marked.txt");
            library.Save(marked.container,
                         {.name = marked.plain.filename(), .content = "x", .attributes = static_cast<std::uint32_t>(attribute)});
            Must(GetFileAttributesW(marked.container.c_str()) & attribute, "attribute " + std::to_string(attribute) + " is missing");
        }
    });
}

}  // namespace

void CheckSaving(Report& report, const Library& library, const Folders& folders) {
    const Scratch file(folders.encrypted, L"saved.txt"), added(folders.encrypted, L"added.txt");
    const Document before{.name = file.plain.filename(), .content = SomeBytes(100'000)};
    const Document after{.name = file.plain.filename(), .content = SomeBytes(70'000)};
    const auto mustBeKept = [&] {
        Must(library.Read(file.container) == before.content, "the stored container is another one");
        Must(ShownNames(folders.encrypted) == std::set<std::wstring>{file.container.filename()}, "it left something in the folder");
    };
    report.Require("keeps the stored container, which others can open while they exclude writers, until Finish", [&] {
        library.Save(file.container, before);
        Saving saving(library, file.container, after);
        Must(saving.HasWriter() && saving.Write(after.content), "nothing could be written");
        Must(CanBeOpened(file.container, FILE_SHARE_READ | FILE_SHARE_DELETE), "it cannot be opened");
        Must(library.Read(file.container) == before.content, "it is another one already");
    });
    report.Require("keeps it when the writer is released without Finish", mustBeKept);
    report.Require("leaves nothing of a new container when the writer is released without Finish", [&] {
        {
            Saving saving(library, added.container, after);
            Must(saving.HasWriter() && saving.Write(after.content), "nothing could be written");
        }
        mustBeKept();
    });
    const std::tuple<const char*, Disturbance::Kind> rows[] = {
        {"does not claim to have replaced a container that somebody holds, and keeps that", Disturbance::Held},
        {"does not replace a read-only container", Disturbance::ReadOnly},
    };
    for (const auto& [requirement, kind] : rows)
        report.Require(requirement, [&, kind = kind] {
            {
                const Disturbance disturbance(kind, file.container);
                Must(library.RefusesToSave(file.container, after), "Finish answered true");
            }
            mustBeKept();
        });
    report.Require("does not claim to have stored where there is no folder", [&] {
        Must(library.RefusesToSave(folders.encrypted / L"conformance missing" / L"a.txt.zip", after), "Finish answered true");
        mustBeKept();
    });
    report.Require("replaces a container by a shorter one as a whole, and describes the new one at once", [&] {
        Must(library.Inform(file.container)->size == before.content.size(), "before, the size was another one");
        library.Save(file.container, after);
        Must(library.Read(file.container) == after.content, "the content is another one");
        Must(library.Inform(file.container)->size == after.content.size(), "the size is still that of the old one");
    });
    CheckAttributes(report, library, folders);
}

void CheckPlaces(Report& report, const Library& library, const Folders& folders) {
    report.Require("writes a container in the temp folder for the place that the tracking file (.hvf) names, and reads copies there",
                   [&] { SaveUnderLock(library, folders.encrypted); });
    report.Require("reads a container that was moved to a folder of the same key", [&] {
        const Scratch file(folders.encrypted, L"moved.txt"), sub(folders.encrypted, L"sub");
        std::filesystem::create_directory(sub.plain);
        const Path moved = sub.plain / file.container.filename();
        library.Save(file.container, {.name = file.plain.filename(), .content = "moved"});
        const Box here = library.AskBox(folders.encrypted), there = library.AskBox(sub.plain);
        std::filesystem::rename(file.container, moved);
        Must(there.policy.empty() || there.keyId != here.keyId || library.Read(moved) == "moved", "the content is another one");
    });
    if (folders.otherKey.empty())
        return;
    report.Require("writes one there for a place in the folder of another key as well", [&] { SaveUnderLock(library, folders.otherKey); });
    report.Require("reads a container of another key's folder as it was, or refuses it", [&] {
        const Scratch file(folders.encrypted, L"copied.txt"), copy(folders.otherKey, L"copied.txt");
        library.Save(file.container, {.name = file.plain.filename(), .content = "copied"});
        std::filesystem::copy_file(file.container, copy.container);
        Must(library.ReadUnlessRefused(copy.container).value_or("copied") == "copied", "the content is another one");
    });
}

}  // namespace conformance
