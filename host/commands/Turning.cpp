// encrypt PATH, decrypt PATH: turn files into containers and back, in place.
#include <map>
#include <memory>

#include "commands/Commands.h"
#include "core/Checks.h"
#include "core/Companion.h"
#include "core/Interrupt.h"
#include "core/Progress.h"
#include "core/Storage.h"
#include "core/Text.h"
#include "core/Turn.h"

namespace {

struct Options {
    std::string path;
    bool dryRun = false;
};

struct Work {
    std::vector<Entry> files;
    std::uint64_t bytes = 0;
    std::map<Stored, std::size_t> left;  // how many files stay as they are, and why
    bool isWhole = true;                 // no folder was left out
};

bool IsToBeTurned(Stored stored, bool encrypt) {
    return encrypt ? stored == Stored::InClear : stored == Stored::Encrypted || stored == Stored::ConflictCopy;
}

Work FindWork(Session& session, const Volume& volume, const VolumePath& path, bool encrypt) {
    Work work;
    work.isWhole = ForEachFile(volume, path, [&](const Entry& entry, Stored stored) {
        if (stored == Stored::BadName)
            return ReportBadName(session, entry);
        if (!IsToBeTurned(stored, encrypt)) {
            ++work.left[stored];
            return;
        }
        work.files.push_back(entry);
        work.bytes += static_cast<std::uint64_t>(entry.data.fileSize);
    });
    return work;
}

std::string Files(std::size_t count) { return std::to_string(count) + (count == 1 ? " file" : " files"); }

void TurnAll(Session& session, const Options& options, bool encrypt) {
    const Volume& volume = session.GetVolumeToChange();
    const VolumePath path = PathArgument(volume, options.path);
    const UniqueHandle onlyOne = options.dryRun ? UniqueHandle() : LockOutOthers();
    ReportMissingFolders(session, volume, path);
    const Work work = FindWork(session, volume, path, encrypt);
    if (!work.isWhole)
        session.exitCode = Exit_Failed;
    // Each file is read again to be compared.
    Progress progress(encrypt ? "encrypting" : "decrypting", 2 * work.bytes, work.files.size());
    std::size_t done = 0;
    for (const Entry& entry : work.files) {
        const std::string shown = entry.ListedPath().Shown();
        try {
            StopIfInterrupted();
            progress.NextFile();
            if (options.dryRun)
                PrintOut(shown + "\n");
            else
                (encrypt ? EncryptInPlace : DecryptInPlace)(volume, entry, [&](std::uint64_t bytes) { progress.Advance(bytes); });
            ++done;
        } catch (const HostError& error) {
            session.Report(error);
            if (error.Code() == Exit_Interrupted)
                break;
        }
    }
    PrintOut((options.dryRun ? "would be " : "") + std::string(encrypt ? "encrypted: " : "decrypted: ") + Files(done) + "\n");
    for (const auto& [stored, count] : work.left)
        PrintOut("left as they are: " + Files(count) + ", " + StoredReason(stored) + "\n");
    if (done < work.files.size())
        PrintOut("not done: " + Files(work.files.size() - done) + "; run the command again\n");
}

void Add(CLI::App& app, Session& session, bool encrypt) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand(encrypt ? "encrypt" : "decrypt", encrypt ? "Encrypt in place what is unencrypted in a protected folder"
                                                                    : "Turn documents into ordinary, unencrypted files in place");
    command->add_option("PATH", options->path, "A file, or a folder with everything below it")->required();
    command->add_flag("--dry-run", options->dryRun, "Only show what would be done");
    command->footer(std::string("Each file is compared with its new form before the old one is deleted. If it was interrupted, run the\n"
                                "command again.") +
                    (encrypt ? " The deleted files may be readable on the disk with special tools until\nthey are overwritten." : ""));
    command->callback([&session, options, encrypt] { TurnAll(session, *options, encrypt); });
}

}  // namespace

void AddEncrypt(CLI::App& app, Session& session) { Add(app, session, true); }

void AddDecrypt(CLI::App& app, Session& session) { Add(app, session, false); }
