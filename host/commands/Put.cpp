// put LOCALFILE PATH: stores a local file in the volume.
#include <memory>
#include <vector>

#include "commands/Commands.h"
#include "core/Interrupt.h"
#include "core/LocalFile.h"
#include "core/OnDisk.h"
#include "core/Progress.h"
#include "core/Storage.h"
#include "core/Text.h"
#include "core/Upload.h"

namespace {

struct Options {
    std::string local, path;
};

std::wstring LocalName(const Options& options) {
    const std::wstring local = ToUtf16(options.local);
    return local.substr(local.find_last_of(L"/\\:") + 1);
}

VolumePath Target(const Volume& volume, const Options& options, const LocalSource& source) {
    const VolumePath path = TargetArgument(volume, options.path);
    if (source.IsStandardInput())
        return path;
    const VolumePath target = TargetFor(volume, path, LocalName(options));
    if (const char* reason = VolumePath::ComponentProblem(target.Name()))
        throw UsageError("'" + options.local + "': not a valid name in the volume: " + reason);
    return target;
}

void RequireAnother(const Volume& volume, const VolumePath& target, const Options& options) {
    const std::optional<Entry> existing = volume.Find(target);
    if (existing && EqualNoCase(RealPath(ConfiguredPath(volume, *existing)), RealPath(ToUtf16(options.local))))
        throw HostError(options.local + ": this is the file that " + target.Shown() + " is stored in; it cannot be stored in itself" +
                        (existing->data.itemType == VIT_PlainFile ? ". 'quelvol encrypt' encrypts it in place" : ""));
}

void Put(Session& session, const Options& options) {
    if (IsDeviceName(LocalName(options)))  // to open it may wait for ever
        throw UsageError("'" + options.local + "': Windows takes this name for a device, so the file cannot be opened; rename it");
    LocalSource source(ToUtf16(options.local));
    const Volume& volume = session.GetVolumeToChange();
    const VolumePath target = Target(volume, options, source);
    if (!target.IsRoot() && target.Depth() > 2 && !volume.Find(target.Parent()))
        throw HostError(StatusError(target.Parent().Shown(), VVS_FileNotFound).what() + std::string("; 'quelvol mkdir -p ") +
                        target.Parent().Shown() + "' makes it");
    RequireAnother(volume, target, options);
    Upload upload(volume, target);
    Progress progress(target.Shown(), source.Size());
    std::vector<char> buffer(1 << 20);
    while (const std::size_t count = source.Read(buffer.data(), buffer.size())) {
        StopIfInterrupted();
        upload.Write(buffer.data(), count);
        progress.Advance(count);
    }
    progress.Say("storing");
    VirtFindData times{};
    source.ReadTimes(times);
    StopIfInterrupted();  // also at the question for the password
    upload.Place(times);
    Exposed exposed;
    exposed.Note(upload.Target(), StoredAs(volume, upload.Stored()));
    if (const std::string text = exposed.Text(); !text.empty())
        PrintError("quelvol: " + text + "\n");
}

}  // namespace

void AddPut(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("put", "Store a local file in the volume, and replace a file that is there");
    command->add_option("LOCALFILE", options->local, "The file to store, or - for standard input")->required();
    command->add_option("PATH", options->path, "A file of the volume, or a folder to put it in")->required();
    command->callback([&session, options] { Put(session, *options); });
}
