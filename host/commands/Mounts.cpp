// mounts: the folders at the root, and where they are on disk.
#include <algorithm>

#include "commands/Commands.h"
#include "core/Text.h"

namespace {

std::string TypeStr(ProtectedFolderType type) {
    switch (type) {
        case PFT_Dropbox: return "Dropbox";
        case PFT_General: return "general";
        default: return "type " + std::to_string(type);
    }
}

void ListMounts(Session& session) {
    const std::vector<VirtMountInfo> folders = session.GetVolume().MountFolders();
    std::size_t nameWidth = 0, typeWidth = 0;
    for (const VirtMountInfo& folder : folders) {
        nameWidth = std::max(nameWidth, BoundedText(folder.name).size());
        typeWidth = std::max(typeWidth, TypeStr(folder.type).size());
    }
    std::string text;
    for (const VirtMountInfo& folder : folders) {
        const std::wstring_view name = BoundedText(folder.name);
        const std::string type = TypeStr(folder.type);
        text += ToShown(name) + std::string(nameWidth - name.size() + 2, ' ');
        text += type + std::string(typeWidth - type.size() + 2, ' ') + ToShown(BoundedText(folder.path)) + "\n";
    }
    PrintOut(text);
}

}  // namespace

void AddMounts(CLI::App& app, Session& session) {
    CLI::App* const command = app.add_subcommand("mounts", "List the mount folders and where they are on disk");
    command->callback([&session] { ListMounts(session); });
}
