// stat PATH: everything the volume says about one item.
#include <memory>

#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "core/Storage.h"
#include "core/Text.h"

namespace {

std::string AttributesStr(std::uint32_t attributes) {
    constexpr std::pair<std::uint32_t, const char*> names[] = {{FILE_ATTRIBUTE_READONLY, "read-only"}, {FILE_ATTRIBUTE_HIDDEN, "hidden"},
                                                               {FILE_ATTRIBUTE_SYSTEM, "system"},      {FILE_ATTRIBUTE_DIRECTORY, "folder"},
                                                               {FILE_ATTRIBUTE_ARCHIVE, "archive"},    {FILE_ATTRIBUTE_OFFLINE, "offline"}};
    std::string text;
    for (const auto& [bit, name] : names)
        if (attributes & bit)
            text += (text.empty() ? "" : ", ") + std::string(name);
    return text.empty() ? "none" : text;
}

void Stat(Session& session, const std::string& argument, bool json) {
    const Volume& volume = session.GetVolume();
    const VolumePath path = PathArgument(volume, argument);
    RequireUndamaged(volume, path);
    const Entry entry = volume.Require(path);
    if (json)
        return PrintOut(JsonOf(volume, entry).dump(2) + "\n");
    std::string text = "Name:        " + ToShown(entry.Name()) + "\n";
    text += "Type:        " + KindWord(volume, entry) + "\n";
    if (!entry.IsFolder())
        text += "Size:        " + std::to_string(entry.data.fileSize) + "\n";
    if (!entry.IsFolder())
        text += "Stored:      " + std::string(StoredReason(StoredAs(volume, entry))) + "\n";
    text += "Changed:     " + TimeStr(entry.data.lastWriteTime) + "\n";
    text += "Accessed:    " + TimeStr(entry.data.lastAccessTime) + "\n";
    text += "Created:     " + TimeStr(entry.data.creationTime) + "\n";
    text += "Attributes:  " + AttributesStr(entry.data.fileAttributes) + "\n";
    VirtMountInfo mount{};
    if (volume->GetMountInfoByVolumePath(entry.path.Str(), &mount))
        text += "Mounted at:  " + ToShown(BoundedText(mount.path)) + "\n";
    PrintOut(text);
}

}  // namespace

void AddStat(CLI::App& app, Session& session) {
    const auto path = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand("stat", "Describe one file or folder");
    command->add_option("PATH", *path, "What to describe")->required();
    const auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "For programs: path, kind, size, changed, stored");
    command->callback([&session, path, json] { Stat(session, *path, *json); });
}
