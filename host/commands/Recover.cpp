// recover: edits that a crash or a failed save left behind. clean: deletes retained copies.
#include <algorithm>
#include <memory>

#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "companion/SideFile.h"
#include "core/LocalFile.h"
#include "core/Progress.h"
#include "core/Recovery.h"
#include "core/Storage.h"
#include "core/Text.h"

namespace {

constexpr const char* kFooter = R"(Without a subcommand the edits are listed, the oldest first: ID, last change, bytes,
document, and whether the document changed since.

Examples:
  quelvol recover                          list them
  quelvol recover show 1a2b3c4d | more     look at one
  quelvol recover save 1a2b3c4d            store it in its document; beside it, as
                                           "report (HalvaneCloud conflicted edit
                                           2024-05-01).docx", if it changed since
  quelvol recover save all                 the same for each
  quelvol recover export 1a2b3c4d a.docx   keep it elsewhere, unencrypted
  quelvol recover clean                    delete those that were saved

save deletes an edit after the document was read back and has its content; clean
deletes those whose document has it already. Only discard deletes other edits.
What a running program uses is not touched.
)";

struct Options {
    std::vector<std::string> ids;
    std::string id, local, target;
};

const char* SinceWords(const LeftEdit& edit) {
    if (!edit.tracking)
        return "its tracking file cannot be read; save needs --to";
    switch (edit.ContainerSince()) {
        case LeftEdit::Since::Same: return "the document is as it was";
        case LeftEdit::Since::Changed: return "the document was changed since: save stores the edit beside it";
        case LeftEdit::Since::Gone: return "the document is gone: save stores it again";
        case LeftEdit::Since::New: return "a new document";
        case LeftEdit::Since::Unknown: break;
    }
    return "its document is unknown; save needs --to";
}

std::string Description(const LeftEdit& edit) {
    if (edit.isGone)
        return "its content is gone; clean deletes the rest";
    if (edit.state == FileStamp{})
        return "its content cannot be opened: it is a link, or this system does not accept its name";
    std::string text = SinceWords(edit);
    if (!edit.UploadedName().empty())
        text = "an upload that was broken off, perhaps incomplete: save stores it beside the document";
    if (edit.IsContainer())
        text += "; kept as a container";
    if (edit.LooksUntouched())
        text += "; it seems that nothing was written";
    return text;
}

std::string ShownDocument(const Volume& volume, const LeftEdit& edit) {
    if (const std::optional<VolumePath> document = DocumentOf(volume, edit))
        return document->Shown();
    return ToShown(edit.container.empty() ? edit.file.filename().native() : edit.container.native());
}

// They are only listed: nothing says which document one is a copy of, so it cannot be proven that its content is stored.
void ListBegunCopies(const Volume& volume) {
    ForEachFile(volume, {}, [](const Entry& entry, Stored) {
        if (IsSideFileName(entry.path.Name()))
            PrintOut(entry.path.Shown() + ", " + std::to_string(entry.data.fileSize) +
                     " bytes: a copy that a program had not finished; what it copied is where it was. When no program makes it any more, "
                     "'quelvol rm' deletes it\n");
    });
}

void List(Session& session, bool json) {
    const Volume& volume = session.GetVolumeWithoutFolders();
    const LeftBehind left(volume.Temp().Path());
    const std::vector<LeftEdit> edits = left.Edits(volume.Get());
    if (json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const LeftEdit& edit : edits)
            all.push_back({{"id", edit.id},
                           {"changed", TimeStr(edit.WriteTime())},
                           {"size", edit.Size()},
                           {"document", ShownDocument(volume, edit)},
                           {"state", Description(edit)}});
        return PrintOut(all.dump(2) + "\n");
    }
    for (const LeftEdit& edit : edits)
        PrintOut(edit.id + "  " + TimeStr(edit.WriteTime()) + "  " + std::to_string(edit.Size()) + "  " + ShownDocument(volume, edit) +
                 "\n          " + Description(edit) + "\n");
    if (edits.empty())
        PrintOut("No edits were left behind.\n");
    for (const std::string& line : left.InUse())
        PrintOut("Left alone: " + line + "\n");
    ListBegunCopies(volume);
}

Progress ProgressOver(const char* doing, const std::vector<LeftEdit>& edits) {
    std::uint64_t bytes = 0;
    for (const LeftEdit& edit : edits)
        bytes += edit.Size();
    return Progress(doing, bytes, edits.size());
}

LeftEdit Chosen(const std::vector<LeftEdit>& edits, const std::string& id) {
    const auto hasId = [&](const LeftEdit& edit) { return edit.id == id; };
    const auto found = std::find_if(edits.begin(), edits.end(), hasId);
    if (found == edits.end())
        throw HostError(id + ": no edit of this ID; 'quelvol recover' lists them");
    // An ID is made from a path; somebody may make a file whose path has the same ID.
    if (std::count_if(edits.begin(), edits.end(), hasId) > 1)
        throw HostError(id + ": more than one edit has this ID; use 'all'");
    return *found;
}

std::vector<LeftEdit> Chosen(const std::vector<LeftEdit>& edits, const std::vector<std::string>& ids) {
    if (ids == std::vector<std::string>{"all"})
        return edits;
    std::vector<LeftEdit> chosen;
    for (const std::string& id : ids)
        chosen.push_back(Chosen(edits, id));
    return chosen;
}

void Copy(Session& session, const std::string& id, const std::string& local) {
    const Volume& volume = session.GetVolumeWithoutFolders();
    const LeftBehind left(volume.Temp().Path());
    const LeftEdit edit = Chosen(left.Edits(volume.Get()), id);
    LocalTarget target(ToUtf16(local));
    ReadEdit(volume, edit, [&target](const char* data, std::size_t size) { target.Write(data, size); });
    target.Finish(edit.WriteTime());
}

void SaveOne(const Volume& volume, const LeftEdit& edit, const std::optional<VolumePath>& given) {
    const std::optional<VolumePath> saved = given ? std::nullopt : FindSaved(volume, edit);
    const VolumePath place = saved ? *saved : SaveEdit(volume, edit, given);
    if (!saved && !HasContent(volume, place, edit))
        throw HostError(place.Shown() + ": it was stored, but its content is different when read back; the edit stays");
    DeleteEdit(edit);
    PrintOut(edit.id + (saved ? " was saved already as " : " is saved as ") + place.Shown() + "\n");
}

void Save(Session& session, const Options& options) {
    const Volume& volume = session.GetVolumeToChange();
    const LeftBehind left(volume.Temp().Path());
    const std::vector<LeftEdit> edits = Chosen(left.Edits(volume.Get()), options.ids);
    if (!options.target.empty() && edits.size() != 1)
        throw UsageError("--to is for one edit");
    Progress progress = ProgressOver("saving", edits);
    for (const LeftEdit& edit : edits) {
        progress.NextFile();
        try {
            std::optional<VolumePath> given;
            if (!options.target.empty())
                given = TargetFor(volume, PathArgument(volume, options.target), edit.file.filename().native());
            SaveOne(volume, edit, given);
            progress.Advance(edit.Size());
        } catch (const HostError& error) {
            session.Report(error);
            if (error.Code() == Exit_Interrupted)
                return;
        }
    }
}

void CleanEdits(Session& session) {
    const Volume& volume = session.GetVolumeWithoutFolders();
    const LeftBehind left(volume.Temp().Path());
    const std::vector<LeftEdit> edits = left.Edits(volume.Get());
    std::size_t kept = 0;
    Progress progress = ProgressOver("comparing", edits);
    for (const LeftEdit& edit : edits) {
        progress.NextFile();
        try {
            const std::optional<VolumePath> saved = edit.isGone ? std::nullopt : FindSaved(volume, edit);
            progress.Advance(edit.Size());
            if (!edit.isGone && !saved) {
                ++kept;
                continue;
            }
            DeleteEdit(edit);
            PrintOut(edit.id + " is deleted: " + (edit.isGone ? "its content was gone" : saved->Shown() + " has its content") + "\n");
        } catch (const HostError& error) {
            session.Report(error);
            if (error.Code() == Exit_Interrupted)
                return;
        }
    }
    if (kept > 0)
        PrintOut(std::to_string(kept) + " may be unsaved and stay; 'quelvol recover' lists them\n");
}

void Discard(Session& session, const Options& options) {
    const Volume& volume = session.GetVolumeWithoutFolders();
    const LeftBehind left(volume.Temp().Path());
    for (const LeftEdit& edit : Chosen(left.Edits(volume.Get()), options.ids)) {
        try {
            DeleteEdit(edit);
            PrintOut(edit.id + " is deleted\n");
        } catch (const HostError& error) {
            session.Report(error);
        }
    }
}

void CleanCopies(Session& session) {
    const LeftBehind left{std::filesystem::path()};
    std::size_t kept = 0;
    const std::size_t deleted = left.DeleteCopies(kept), edits = left.Edits(nullptr).size();
    PrintOut(std::to_string(deleted) + " decrypted copies were deleted\n");
    if (kept > 0)
        PrintOut(std::to_string(kept) + " are open in a program and stay\n");
    if (edits > 0)
        PrintOut(std::to_string(edits) + " edits that may be unsaved stay; 'quelvol recover' lists them\n");
    for (const std::string& line : left.InUse())
        PrintOut("Left alone: " + line + "\n");
    std::size_t removed = 0;
    const Volume& volume = session.GetVolumeWithoutFolders();
    ForEachFile(
        volume, {}, [](const Entry&, Stored) {},
        [&](const VolumePath& folder) { removed += folder.IsRoot() ? 0 : companion::RemoveLeftSideFiles(ConfiguredPath(volume, folder)); });
    if (removed > 0)
        PrintOut("unfinished files of killed runs that were deleted in mount folders: " + std::to_string(removed) + "\n");
}

}  // namespace

void AddRecover(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("recover", "List, save or export edits that a crash or a failed save left behind");
    command->require_subcommand(0, 1);
    command->footer(kFooter);
    const auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "A list of objects: id, changed, size, document, state");

    CLI::App* const show = command->add_subcommand("show", "Print the content of an edit");
    show->add_option("ID", options->id, "The edit")->required();
    show->callback([&session, options] { Copy(session, options->id, "-"); });

    CLI::App* const save = command->add_subcommand("save", "Store edits in the volume and then delete them here");
    save->add_option("ID", options->ids, "The edits, or all")->required();
    save->add_option("--to", options->target, "A file, which is replaced, or a folder of the volume (default: the edit's own document)")
        ->type_name("PATH");
    save->callback([&session, options] { Save(session, *options); });

    CLI::App* const exportTo = command->add_subcommand("export", "Copy an edit, unencrypted, to a local file");
    exportTo->add_option("ID", options->id, "The edit")->required();
    exportTo->add_option("LOCALFILE", options->local, "The local file; an existing one is replaced completely or not at all")->required();
    exportTo->callback([&session, options] { Copy(session, options->id, options->local); });

    CLI::App* const clean = command->add_subcommand("clean", "Delete the edits whose content is stored in the volume");
    clean->callback([&session] { CleanEdits(session); });

    CLI::App* const discard = command->add_subcommand("discard", "Delete edits, saved or not");
    discard->add_option("ID", options->ids, "The edits, or all")->required();
    discard->callback([&session, options] { Discard(session, *options); });

    command->callback([&session, command, json] {
        if (command->get_subcommands().empty())
            List(session, *json);
    });
}

void AddClean(CLI::App& app, Session& session) {
    CLI::App* const command = app.add_subcommand(
        "clean", "Delete the decrypted copies that programs kept in the temp folder, and unfinished files of killed runs in mount folders");
    command->footer("Edits that may be unsaved stay (see 'recover'), and so does what a running program uses.");
    command->callback([&session] { CleanCopies(session); });
}
