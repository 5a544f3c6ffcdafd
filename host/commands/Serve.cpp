// serve: the volume for any program that speaks WebDAV.
#include <chrono>
#include <memory>
#include <mutex>

#include <windows.h>

#include "commands/Commands.h"
#include "core/Checks.h"
#include "core/Companion.h"
#include "core/Environment.h"
#include "core/Interrupt.h"
#include "core/LeftBehind.h"
#include "core/LocalFile.h"
#include "core/Text.h"
#include "webdav/Server.h"
#include "webdav/Site.h"

namespace {

struct Options {
    webdav::ServerOptions server;
    std::string credentialsFile;
    std::vector<std::string> hosts;
};

companion::Secret ReadCredentials(const std::string& file) {
    std::string text;
    if (file.empty()) {
        std::wstring variable = GetVariable(L"QUELVOL_CREDENTIALS");
        text = ToUtf8(variable);
        companion::Wipe(variable);
        SetVariable(L"QUELVOL_CREDENTIALS", L"");  // programs that this one starts must not see it
    } else {
        LocalSource source(ToUtf16(file));
        char part[4096];
        const std::size_t count = source.Read(part, sizeof(part));
        text.assign(part, count);
        companion::Wipe(part, sizeof(part));
    }
    const companion::Secret whole(std::move(text)), line = companion::FirstLineOf(whole.Text());
    const std::string_view credentials = line.Text();
    const std::size_t colon = credentials.find(':');
    if (!credentials.empty() && (colon == 0 || colon == std::string::npos || colon + 1 == credentials.size()))
        throw HostError("the credentials are not of the form user:password");
    if (credentials.empty() && !file.empty())
        throw HostError(file + ": its first line is empty; it should be user:password");
    return line;
}

bool IsLoopback(const std::string& address) { return address.starts_with("127.") || address == "::1"; }

webdav::AccessRules MakeRules(const Options& options) {
    webdav::AccessRules rules;
    rules.credentials = ReadCredentials(options.credentialsFile);
    rules.anyAddress = !IsLoopback(options.server.address);
    if (rules.anyAddress && rules.credentials.IsEmpty())
        throw UsageError(options.server.address +
                         ": other machines can reach that address, so a user and a password are needed: "
                         "name a file with --credentials, or set QUELVOL_CREDENTIALS");
    for (const std::string& host : options.hosts)
        rules.hosts.push_back(webdav::HostName(host));
    rules.hosts.push_back(webdav::HostName(options.server.address));
    return rules;
}

// Tells the person who starts the server, and readers of its pages, about edits that earlier runs left.
class LeftEdits {
public:
    explicit LeftEdits(const Volume& volume) : m_volume(volume) {}

    // Nothing, or one sentence. Counts again after some seconds, because somebody may have saved or deleted the edits meanwhile.
    std::vector<std::string> Sentence() {
        constexpr std::chrono::seconds lookEvery{10};
        const std::lock_guard guard(m_mutex);
        const auto now = std::chrono::steady_clock::now();
        if (now < m_lookAgain)
            return m_sentence;
        const std::size_t count = LeftBehind(m_volume.Temp().Path()).Edits(m_volume.Get()).size();
        m_sentence.clear();
        if (count > 0)
            m_sentence.push_back("Earlier runs left " + std::to_string(count) + (count == 1 ? " edit" : " edits") +
                                 " that may be unsaved; 'quelvol recover', on the machine of the server, lists them.");
        m_lookAgain = now + lookEvery;
        return m_sentence;
    }

private:
    const Volume& m_volume;
    std::mutex m_mutex;
    std::vector<std::string> m_sentence;
    std::chrono::steady_clock::time_point m_lookAgain{};
};

// Moves the process to an invisible window station, so that the volume does not prompt and edits wait: nobody sits at a server.
void LeaveTheScreen() {
    if (const HWINSTA station = CreateWindowStationW(nullptr, 0, WINSTA_ALL_ACCESS, nullptr))
        SetProcessWindowStation(station);
}

// Passwords are asked for now, because the running server asks nobody.
void TellProblems(const Volume& volume) {
    const std::vector<VirtMountInfo> mounts = volume.MountFolders();
    const std::vector<FolderProblem> problems = ProblemsOf(mounts, true);
    std::size_t unusable = 0;
    for (const FolderProblem& problem : problems) {
        PrintError("quelvol: " + problem.text + "\n");
        unusable += problem.isUsable ? 0 : 1;
    }
    if (unusable == mounts.size())
        throw HostError("no folder can be served");
    ForbidPasswordQuestions();
}

void Serve(Session& session, const Options& options) {
    webdav::AccessRules rules = MakeRules(options);
    const Volume& volume = session.GetVolumeToChange();
    TellProblems(volume);
    CatchEndOfSession();
    LeaveTheScreen();
    LeftEdits leftEdits(volume);
    for (const std::string& sentence : leftEdits.Sentence())
        PrintError("quelvol: " + sentence + "\n");
    webdav::Site site(volume, std::move(rules), [&leftEdits] { return leftEdits.Sentence(); });
    const auto answer = [&site](const webdav::Request& request, webdav::RequestBody& body, webdav::Response& response) {
        site.Answer(request, body, response);
    };
    const auto started = [&](unsigned short port) {
        const bool isSix = options.server.address.find(':') != std::string::npos;
        PrintOut("Serving the volume on http://" + (isSix ? "[" + options.server.address + "]" : options.server.address) + ":" +
                 std::to_string(port) + "/ (Ctrl-C ends)\n");
    };
    const auto keepGoing = [&site] {
        site.RemoveExpiredLocks();
        return !Interrupted();
    };
    webdav::RunServer(options.server, answer, started, keepGoing, [&site] { return site.Pause(); });
    PrintOut("Everything is closed.\n");
}

}  // namespace

void AddServe(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("serve", "Start a WebDAV server for the volume, by default for this machine only");
    command->add_option("--port", options->server.port, "The port; 0 takes a free one")->capture_default_str()->check(CLI::Range(0, 65535));
    command->add_option("--address", options->server.address, "The address to listen on")->capture_default_str();
    command
        ->add_option("--credentials", options->credentialsFile,
                     "A file with user:password, required of every client (or the variable QUELVOL_CREDENTIALS)")
        ->type_name("FILE");
    command->add_option("--host", options->hosts, "Another name that clients reach this server by")->type_name("NAME");
    command->add_flag("-v,--verbose", options->server.logRequests, "A line for each request on standard error");
    command->footer(
        "Clients open http://127.0.0.1:8080/; a browser shows pages. Ctrl-C finishes what is under way and stores it.\n"
        "An address other than the loopback needs credentials, and sends them and all content unencrypted.");
    command->callback([&session, options] { Serve(session, *options); });
}
