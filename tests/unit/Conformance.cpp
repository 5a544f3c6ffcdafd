// The check for authors of companion libraries finds what is wrong with one.
#include <filesystem>
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

#include "companion/Control.h"
#include "companion/conformance/Checks.h"

using namespace conformance;

TEST(Conformance, NoticesWhatALibraryDoesWrong) {
    const Path place = std::filesystem::temp_directory_path() / ("conformance-" + std::to_string(GetCurrentProcessId()));
    const Folders folders{place / "encrypted", place / "plain", {}};
    std::filesystem::create_directories(folders.encrypted);
    WriteFileBytes(place / "quelcrypt.json",
                   R"({"folders": [{"path": "encrypted", "policy": "all", "targetKey": "k"}], "passwords": {"k": "p"}})");
    SetEnvironmentVariableW(L"QUELCRYPT_CONFIG", (place / "quelcrypt.json").c_str());
    wchar_t dll[MAX_PATH] = {};
    GetModuleFileNameW(GetModuleHandleW(L"QuelcryptLib64.dll"), dll, MAX_PATH);
    std::ostringstream loading;
    Report loads(loading);
    const Library library(loads, dll);
    library.Initialize([] { throw CQuelcryptInterfaceException(); });

    const auto deletes = [&] { std::filesystem::remove(folders.encrypted / L"conformance saved.txt.zip"); };
    const std::tuple<decltype(&CheckSaving), const char*, Fault, std::function<void()>, const char*> rows[] = {
        {CheckConfiguration, "IHalvaneBoxConfig::GetPolicy", Fault::OverLong, {}, "that it filled 1120"},
        {CheckOtherFiles, "Quelcrypt_GetFileInformation", Fault::OutOfMemory, {}, "outside of the CQuelcryptException family"},
        {CheckSaving, "IFileWriter::Finish", Fault::Null, {}, "Finish answered false"},
        {CheckSaving, "IFileWriter::Write", Fault::None, deletes, "it cannot be opened"},
        {CheckThreads, "IFileReader::Advance", Fault::Null, {}, "has another content"},
    };
    for (const auto& [check, call, fault, hook, told] : rows) {
        std::ostringstream lines;
        Report report(lines);
        Companion().SetHook(call, hook);
        Companion().FailNth(call, 3, fault, true);
        check(report, library, folders);
        Companion().SetHook();
        Companion().FailNth();
        EXPECT_GT(report.UnmetCount(), 0) << call;
        EXPECT_NE(lines.str().find(told), std::string::npos) << call << '\n' << lines.str();
        EXPECT_EQ(0, Companion().liveObjects) << call;
        EXPECT_TRUE(ShownNames(folders.encrypted).empty()) << call;
    }
    library.Uninitialize();
    Discard(place);
}
