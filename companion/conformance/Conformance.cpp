#include "companion/conformance/Conformance.h"

#include <sstream>
#include <thread>
#include <vector>

namespace conformance {
namespace {

[[noreturn]] void Raise() { throw CQuelcryptInterfaceException(); }

// Only what an earlier run left is removed.
void Empty(const Path& folder) {
    std::error_code error;
    Must(std::filesystem::is_directory(folder, error), folder.string() + " is no folder");
    for (const std::wstring& name : ShownNames(folder)) {
        Must(name.starts_with(kOwnName), folder.string() + " is to be empty");
        Discard(folder / name);
    }
}

// Everything that one thread of a host may bring about while the others do the same.
void WorkBeside(const Library& library, const Folders& folders, const Path& common, std::size_t number) {
    const Scratch file(folders.encrypted, L"thread " + std::to_wstring(number) + L".txt");
    const Box box = library.AskBox(folders.encrypted);
    const std::string listed = library.ListFolders();
    IFileLogger* const logger = CallCompanion([&] { return library.GetFileLogger(1); });
    for (std::size_t round = 0; round < 10; ++round) {
        const Document document{.name = file.plain.filename(), .content = SomeBytes(40'000 * number + 1000 * round)};
        library.Save(file.container, document);
        Must(library.Read(file.container) == document.content, "what a thread stored has another content");
        const auto info = library.Inform(file.container);
        Must(info && info->size == document.content.size() && info->name == document.name, "what a thread stored has another size or name");
        Must(library.Read(common) == "common", "what all threads read has another content");
        Must(library.AskBox(folders.encrypted) == box && library.ListFolders() == listed, "the configuration seems to have changed");
        if (logger)
            CallCompanion([&] { logger->Write(1, LogLevel_Trace, L"conformance check", nullptr); });
    }
}

// One life of the library, as the volume's loading and unloading makes it. False: it could not begin.
bool Use(Report& report, const Path& dll, const std::function<void(const Library&)>& work) {
    Library library(report, dll);
    if (!library.IsUsable())
        return false;
    report.Require("begins with Quelcrypt_Initialize", [&] { CallCompanion([&] { library.Initialize(&Raise); }); });
    work(library);
    report.Require("ends with Quelcrypt_Uninitialize, and can be unloaded", [&] {
        CallCompanion([&] { library.Uninitialize(); });
        Must(library.Unload(), "FreeLibrary failed");
    });
    return true;
}

}  // namespace

void CheckThreads(Report& report, const Library& library, const Folders& folders) {
    report.Require("answers four threads at once as it does one", [&] {
        const Scratch common(folders.encrypted, L"common.txt");
        library.Save(common.container, {.name = common.plain.filename(), .content = "common"});
        std::vector<std::string> seen(4);
        std::vector<std::thread> threads;
        for (std::size_t number = 0; number < seen.size(); ++number)
            threads.emplace_back(
                [&, number] { seen[number] = SeenInstead([&] { WorkBeside(library, folders, common.container, number); }); });
        for (std::thread& thread : threads)
            thread.join();
        for (const std::string& one : seen)
            Must(one.empty(), one);
    });
}

void CheckLibrary(Report& report, const Path& dll, const Folders& folders) {
    for (const Path& folder : {folders.encrypted, folders.otherKey})
        if (!folder.empty())
            Empty(folder);
    Must(std::filesystem::is_directory(folders.plain), folders.plain.string() + " is no folder");
    const Scratch kept(folders.encrypted, L"kept.txt");
    const bool isUsable = Use(report, dll, [&](const Library& library) {
        CheckConfiguration(report, library, folders);
        CheckLogger(report, library);
        CheckContainers(report, library, folders);
        CheckOtherFiles(report, library, folders);
        CheckSaving(report, library, folders);
        CheckPlaces(report, library, folders);
        CheckThreads(report, library, folders);
        SeenInstead([&] { library.Save(kept.container, {.name = kept.plain.filename(), .content = "kept"}); });
    });
    if (!isUsable)
        return;
    report.Require("can be loaded and used again", [&] {
        std::ostringstream lines;
        Report again(lines);
        Use(again, dll, [&](const Library& library) { Must(library.Read(kept.container) == "kept", "it read another content"); });
        Must(again.UnmetCount() == 0, lines.str());
    });
}

}  // namespace conformance
