// get PATH [LOCALFILE]: copies a file of the volume, decrypted, to a local file.
#include <memory>
#include <vector>

#include "commands/Commands.h"
#include "core/Interrupt.h"
#include "core/LocalFile.h"
#include "core/Progress.h"
#include "core/Storage.h"
#include "core/Text.h"

namespace {

struct Options {
    std::string path, local;
};

std::wstring LocalPath(const std::string& given, const std::wstring& name) {
    if (given.empty())
        return name;
    const std::wstring local = ToUtf16(given);
    return IsLocalFolder(local) ? local + L"\\" + name : local;
}

// If somebody writes the file during the read, the copy could be a mixture of old and new content.
void RequireUnchanged(const Volume& volume, const Entry& before, std::uint64_t bytesRead) {
    const std::optional<Entry> after = volume.FindAgain(before);
    if (!after || after->data.fileSize != before.data.fileSize || after->data.lastWriteTime != before.data.lastWriteTime)
        throw HostError(before.path.Shown() + ": it was changed while it was being read; try again");
    if (bytesRead != static_cast<std::uint64_t>(before.data.fileSize))
        throw HostError(before.path.Shown() + ": " + std::to_string(bytesRead) + " bytes were read where " +
                        std::to_string(before.data.fileSize) + " were expected");
}

void CopyOut(const Volume& volume, const Entry& entry, LocalTarget& target) {
    const FileHandle file = volume.Open(entry.path, GENERIC_READ, kShareAll, OPEN_EXISTING);
    Progress progress(entry.path.Shown(), static_cast<std::uint64_t>(entry.data.fileSize));
    if (entry.data.itemType != VIT_PlainFile)
        progress.Say("decrypting");  // the first read decrypts everything
    constexpr std::uint32_t blockSize = 1 << 20;
    std::vector<char> buffer(blockSize);
    std::uint64_t total = 0;
    for (std::uint32_t count = 1; count != 0; total += count) {
        StopIfInterrupted();
        Check(volume->ReadFile(file.Get(), kCurrentPosition, buffer.data(), blockSize, &count, nullptr), entry.path);
        target.Write(buffer.data(), count);
        progress.Advance(count);
    }
    RequireUnchanged(volume, entry, total);
}

void Get(Session& session, const Options& options) {
    const Volume& volume = session.GetVolume();
    const VolumePath path = PathArgument(volume, options.path);
    RequireUndamaged(volume, path);
    const Entry entry = volume.Require(path);
    if (entry.IsFolder())
        throw HostError(entry.path.Shown() + ": a folder; get takes one file");
    if (entry.data.itemType != VIT_PlainFile && !volume.HasRoomFor(static_cast<std::uint64_t>(entry.data.fileSize)))
        throw HostError(entry.path.Shown() + ": the disk of the temp folder has no room for its content");
    LocalTarget target(LocalPath(options.local, entry.Name()));
    CopyOut(volume, entry, target);
    target.Finish(entry.data.lastWriteTime);
    if (StoredAs(volume, entry) == Stored::Damaged)
        PrintError("quelvol: " + entry.path.Shown() + ": a damaged container, which was copied as it is\n");
}

}  // namespace

void AddGet(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("get", "Copy a file of the volume, decrypted, to a local file");
    command->add_option("PATH", options->path, "The file to get")->required();
    command->add_option("LOCALFILE", options->local,
                        "A local file, which is replaced completely or not at all, a folder, or - for standard output (default: the same "
                        "name in the current folder)");
    command->callback([&session, options] { Get(session, *options); });
}
