// rekey FOLDER: a new password for the documents of a folder.
#include <memory>
#include <set>

#include "commands/Commands.h"
#include "commands/PasswordOptions.h"
#include "companion/KeyRing.h"
#include "companion/PasswordProof.h"
#include "companion/Paths.h"
#include "companion/ProtectedText.h"
#include "companion/SettingsFile.h"
#include "core/Checks.h"
#include "core/Companion.h"
#include "core/Interrupt.h"
#include "core/OnDisk.h"
#include "core/Progress.h"
#include "core/Storage.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

using companion::CheckResult;
using companion::KeyFolder;
using companion::Secret;
using companion::SettingsFile;

namespace {

struct Options {
    std::string folder;
    PasswordChoice password;
};

constexpr const char* kChanged = "the configuration was changed meanwhile; run the command again";

Secret PasswordIn(const SettingsFile& file, const std::string& key) {
    return *companion::PasswordOf(file.Get(), key, companion::Asking::Allowed);
}

// Puts both passwords into the configuration until the end, so that nobody is asked for them: documents are read with both and written
// with the new one, and a run that is broken off can be continued.
void Begin(const SettingsFile& file, const std::string& key, const NewPassword& password) {
    const companion::PasswordSource before = file.Get().passwords.at(key);
    const Secret old = PasswordIn(file, key);
    for (const KeyFolder& folder : file.Get().FoldersOfKey(key))
        companion::ProvePassword(file.Get(), folder, old, {}, companion::BeforeWriting::No);
    if (old == password.secret)
        throw HostError("the new password is the old one; nothing was changed");
    using Kind = companion::PasswordSource::Kind;
    const companion::PasswordSource former =
        before.kind == Kind::Plain ? before : companion::PasswordSource{Kind::Protected, companion::Protect(old)};
    SettingsFile::Change(file.Path(), [&](SettingsFile& now) {
        const auto found = now.Get().passwords.find(key);
        if (now.Get().formerKeys.contains(key) || found == now.Get().passwords.end() || found->second != before)
            throw HostError(kChanged);
        now.BeginRekey(key, former, {Kind::Protected, companion::Protect(password.secret)}, password.source);
    });
}

void MoveChecks(const SettingsFile& file, const std::string& key) {
    const Secret now = PasswordIn(file, key), old = PasswordIn(file, file.Get().formerKeys.at(key));
    for (const KeyFolder& folder : file.Get().FoldersOfKey(key)) {
        if (companion::OpensCheckContainer(folder, now) == CheckResult::Opened)
            continue;
        if (companion::OpensCheckContainer(folder, old) == CheckResult::Refused)
            throw HostError(ToUtf8(folder.name) + ": neither the old nor the new password is that of its documents");
        companion::ReplaceCheckContainer(folder, now);
    }
}

std::size_t HashOf(const std::wstring& container) {
    std::size_t hash = 0xcbf29ce484222325;
    ReadContainer(container, [&](const char* data, std::size_t size) {
        for (std::size_t at = 0; at < size; ++at)
            hash = (hash ^ static_cast<unsigned char>(data[at])) * 0x100000001b3;
    });
    return hash;
}

// Through the volume, as an edit that changes nothing, so that nothing that somebody saves meanwhile is lost.
void Reencrypt(const Volume& volume, const Entry& entry, const std::wstring& container) {
    const std::size_t before = HashOf(container);
    {
        const FileHandle file = volume.Open(entry.path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING);
        char byte = 0;
        std::uint32_t count = 0;
        Check(volume->ReadFile(file.Get(), 0, &byte, 1, &count, nullptr), entry.path);
        Check(volume->WriteFile(file.Get(), 0, &byte, count, &count, nullptr), entry.path);
        constexpr std::uint32_t kKeepAttributes = 0xFFFFFFFF;
        Check(volume->SetFileInfo(file.Get(), kKeepAttributes, &entry.data), entry.path);
    }
    if (ExamineContainer(container, [](std::uint64_t) { return true; }).state != ContainerState::Whole)
        throw StatusError(entry.path.Shown(), VSS_EncryptError);
    if (HashOf(container) != before)
        throw HostError(entry.path.Shown() + ": somebody changed it meanwhile; run the command again");
}

struct Work {
    std::vector<Entry> files;
    std::uint64_t bytes = 0;
    std::size_t left = 0;               // documents that still have the old password, or may have it
    std::vector<std::string> ofOthers;  // documents that neither password opens
};

Work FindWork(Session& session, const Volume& volume, const SettingsFile& file, const std::string& key) {
    Work work;
    const bool isWhole = ForEachFile(volume, {}, [&](const Entry& entry, Stored stored) {
        const auto holder = file.Get().KeyFolderOf(ConfiguredPath(volume, entry));
        if (!holder || holder->key != key)
            return;
        if (stored == Stored::BadName && entry.IsFolder())
            ReportBadName(session, entry), ++work.left;
        if (stored == Stored::Encrypted || stored == Stored::ConflictCopy || stored == Stored::Damaged)
            work.files.push_back(entry), work.bytes += static_cast<std::uint64_t>(entry.data.fileSize);
    });
    work.left += isWhole ? 0 : 1;
    return work;
}

void ReencryptAll(Session& session, const Volume& volume, Work& work) {
    std::size_t done = 0;
    Progress progress("re-encrypting", work.bytes, work.files.size());
    for (const Entry& entry : work.files) {
        progress.NextFile();
        try {
            const std::wstring container = ConfiguredPath(volume, entry);
            const Verdict verdict = ExamineContainer(container, [&](std::uint64_t count) {
                progress.Advance(count);
                return !Interrupted();
            });
            StopIfInterrupted();
            if (verdict.state == ContainerState::OtherKey)
                Reencrypt(volume, entry, container), ++done;
            else if (verdict.state == ContainerState::WrongKey)
                work.ofOthers.push_back(entry.ListedPath().Shown());
            else if (verdict.state != ContainerState::Whole)
                throw HostError(entry.ListedPath().Shown() + ": left as it is: " + verdict.reason);
        } catch (const HostError& error) {
            if (error.Code() == Exit_Interrupted)
                throw;
            session.Report(error);
            ++work.left;
        }
    }
    PrintOut(std::to_string(done) + (done == 1 ? " document was" : " documents were") + " encrypted with the new password\n");
}

// Containers that the volume does not list as documents of these folders, because they were moved elsewhere, have names that the volume
// does not accept, or were just added. Each is reported.
class Rest {
public:
    Rest(Session& session, const SettingsFile& file, const std::string& key)
        : m_session(session), m_settings(file.Get()), m_formerKey(m_settings.formerKeys.at(key)) {}

    // The number of these containers in the configured folders.
    std::size_t Count() {
        for (const companion::ConfiguredFolder& folder : m_settings.folders) {
            const std::wstring real = RealPath(companion::OpenablePath(folder.path));
            if (!real.empty())
                LookIn(real, 0);
            else if (!m_settings.BoxOf(companion::FolderOf(folder.path)))
                Report(folder.path, "it is missing; connect its disk, or remove it from the configuration");
        }
        return m_count;
    }

private:
    void Report(const std::wstring& path, const std::string& text) {
        m_session.Report(HostError(ToShown(OrdinaryPath(path)) + ": " + text));
        ++m_count;
    }

    void LookIn(const std::wstring& realFolder, std::size_t depth) {
        constexpr std::size_t kDeepest = 256;
        if (!m_seen.insert(realFolder).second || StandingAt(realFolder) != Standing::Itself)
            return;
        const UniqueHandle held = HoldFolder(realFolder);
        if (!held || depth > kDeepest)
            return Report(realFolder, "the folder cannot be read");
        for (const std::wstring& name : NamesIn(realFolder)) {
            StopIfInterrupted();
            const std::wstring path = realFolder + (realFolder.ends_with(L'\\') ? L"" : L"\\") + name;
            const DWORD attributes = GetFileAttributesW(path.c_str());
            const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
            if (isFolder)
                LookIn(path, depth + 1);
            else if (EndsWithNoCase(name, kContainerExtension))
                LookAt(path, name);
        }
    }

    void LookAt(const std::wstring& path, const std::wstring& name) {
        const Standing standing = StandingAt(path);
        if (standing == Standing::Nothing && VolumePath::ComponentProblem(name))
            return Report(path, "its name is not one that Windows allows, so it cannot be opened; rename it or delete it");
        if (standing != Standing::Itself)
            return;
        try {
            if (companion::NeedsPasswordOf(m_settings, path, m_formerKey))
                Report(path, "it may need the old password; move it to the folder's documents, rename it or delete it");
        } catch (const CQuelcryptErrorException& error) {
            Report(path, ToUtf8(error.GetDescription()));
        }
    }

    Session& m_session;
    const companion::Settings& m_settings;
    const std::string m_formerKey;
    std::set<std::wstring> m_seen;
    std::size_t m_count = 0;
};

// Afterwards the configuration has the new password: that of the run that was broken off, if one was.
void BeginOrContinue(const SettingsFile& file, const companion::KeyFolder& folder, const PasswordChoice& choice) {
    const companion::Settings& settings = file.Get();
    NewPassword password;
    if (settings.formerKeys.contains(folder.key)) {
        PrintOut("Continuing what was broken off, with the new password that was chosen then, which will be kept as was said then.\n");
        const auto later = settings.laterPasswords.find(folder.key);
        password.source = later == settings.laterPasswords.end() ? settings.passwords.at(folder.key) : later->second;
    } else {
        password = ChoosePassword(choice, ToUtf8(folder.name));
        Begin(file, folder.key, password);
    }
    PrintOut(AboutPassword(password));
}

Work DoAll(Session& session, const Volume& volume, const SettingsFile& file, const std::string& key) {
    try {
        MoveChecks(file, key);
        Work work = FindWork(session, volume, file, key);
        ReencryptAll(session, volume, work);
        if (work.left == 0)
            work.left = Rest(session, file, key).Count();
        return work;
    } catch (const HostError& error) {
        if (error.Code() != Exit_Interrupted)
            throw;
        throw HostError("stopped; run the command again to continue. Until then documents are read with the old and the new password",
                        Exit_Interrupted);
    }
}

void Rekey(Session& session, const Options& options) {
    const Volume& volume = session.GetVolumeToChange();
    const UniqueHandle onlyOne = LockOutOthers();
    const SettingsFile file(companion::SettingsPath());
    const VolumePath path = PathArgument(volume, options.folder);
    volume.RequireFolder(path);
    const auto folder = file.Get().KeyFolderOf(ConfiguredPath(volume, path));
    if (!folder)
        throw HostError(path.Shown() + ": it has no password");
    const std::string key = folder->key;
    BeginOrContinue(file, *folder, options.password);
    const SettingsFile begun(file.Path());
    const Work work = DoAll(session, volume, begun, key);
    if (work.left == 0) {
        SettingsFile::Change(file.Path(), [&](SettingsFile& now) {
            if (now.Get().formerKeys != begun.Get().formerKeys || now.Get().passwords.at(key) != begun.Get().passwords.at(key))
                throw HostError(kChanged);
            now.EndRekey(key);
        });
        PrintOut(std::string(work.ofOthers.empty() ? "All documents have" : "All documents that had the old password have") +
                 " the new password. Copies made earlier (backups, a cloud's older versions) still open with the old one.\n");
    }
    for (const std::string& shown : work.ofOthers)
        session.Report(HostError(shown + ": left as it is: neither the old nor the new password opens it"));
    if (work.left > 0)
        throw HostError("not finished: " + std::to_string(work.left) +
                        " or more still have the old password; they stay readable; run the command again");
}

}  // namespace

void AddRekey(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("rekey", "Give the documents of a folder a new password");
    command->add_option("FOLDER", options->folder, "The folder; all folders with the same key get the new password")->required();
    AddPasswordOptions(*command, options->password);
    command->footer("Can be interrupted and run again: until it has finished, documents are read with the old and the new password.");
    command->callback([&session, options] { Rekey(session, *options); });
}
