#include <algorithm>

#include "companion/conformance/Checks.h"

namespace conformance {
namespace {

Path InUpperCase(const Path& path) {
    std::wstring text = path;
    CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

void CheckFolder(Report& report, const Library& library, const std::string& what, const Path& folder) {
    report.Require("says a policy for " + what, [&] {
        const Box box = library.AskBox(folder);
        Must(box.isAnswered, "the answer is 0");
        Must(!box.policy.empty(), "its policy is empty");
    });
    report.Require("says the same of " + what + " when its path is in other letter case",
                   [&] { Must(library.AskBox(InUpperCase(folder)) == library.AskBox(folder), "policy, key or owner is another one"); });
    // What cannot be told of a place may not be moved or copied there.
    for (const wchar_t* const name : {L"sub", L"\u00DCbergr\u00F6\u00DFe \u65E5\u672C \U0001F600"})
        report.Require(
            "answers for a folder below that is not there yet, with a name " + std::string(*name < 0x80 ? "in" : "outside") + " ASCII",
            [&] { Must(library.AskBox(folder / (kOwnName + name)).isAnswered, "the answer is 0"); });
}

}  // namespace

void CheckConfiguration(Report& report, const Library& library, const Folders& folders) {
    CheckFolder(report, library, "the encrypted folder", folders.encrypted);
    report.Require("says no policy for the folder that is not encrypted, and answers all the same", [&] {
        const Box box = library.AskBox(folders.plain);
        Must(box.isAnswered, "the answer is 0, so nothing can be moved or copied there");
        Must(box.policy.empty(), "the policy is \"" + box.policy + "\"");
    });
    if (!folders.otherKey.empty()) {
        CheckFolder(report, library, "the folder of another key", folders.otherKey);
        report.Require("says another key for it", [&] {
            Must(library.AskBox(folders.otherKey).keyId != library.AskBox(folders.encrypted).keyId, "the two are the same");
        });
    }
    report.Require("says whether a name is excluded, whatever letters it has, or hands out no configuration", [&] {
        const LibraryPtr<IQuelcryptConfig> config(CallCompanion([&] { return library.GetQuelcryptConfig(nullptr, nullptr); }));
        for (const std::string& name :
             {std::string("a.txt"), std::string("\xC3\x9C\xE6\x97\xA5\xF0\x9F\x98\x80.docx"), std::string(251, 'n') + ".txt"})
            if (config)
                CallCompanion([&] { return config->IsExcluded(name.c_str(), 0); });
    });
    report.Require("lists the protected folders to their end, with absolute paths", [&] { library.ListFolders(); });
    report.Require("begins each list at the first folder",
                   [&] { Must(library.ListFolders() == library.ListFolders(), "a second list is another one"); });
}

void CheckLogger(Report& report, const Library& library) {
    report.Require("has a logger that takes lines of every level as they are, or none", [&] {
        IFileLogger* const logger = CallCompanion([&] { return library.GetFileLogger(1); });
        if (!logger)
            return;
        const std::uint32_t component = CallCompanion([&] { return library.GetLoggerComponentIndex("QuelcryptVol"); });
        CallCompanion([&] { logger->GetLevel(component); });
        for (const std::uint32_t level : {LogLevel_Error, LogLevel_Warning, LogLevel_Information, LogLevel_Trace})
            CallCompanion([&] { logger->Write(component, level, L"conformance check: 100 %s %n \u00E9\u65E5 \U0001F600", nullptr); });
    });
}

}  // namespace conformance
