// What a support engineer relies on: the trace log, as the companion library's logger receives it.
#include "harness/VolumeFixture.h"

#include <regex>

namespace {

// One line taken apart: "<tabs>[thread]hh:ss.mmm [ENTER |LEAVE(time) ][this[address]->]Function message\n".
struct TraceLine : LogLine {
    std::size_t indent;
    std::string kind, time, function, message;  // kind: "ENTER", "LEAVE" or empty; time: of a LEAVE line, in its parentheses
};

std::vector<TraceLine> Parse(const std::vector<LogLine>& lines) {
    static const std::regex pattern(
        "(\t*)\\[([0-9a-f]+)\\]\\d\\d:\\d\\d\\.\\d{3} (?:(ENTER) |(LEAVE)\\(([^)]*)\\) )?(?:this\\[[0-9a-f]+\\]->)?(\\S+) ([^]*)\n");
    std::vector<TraceLine> all;
    for (const LogLine& line : lines) {
        std::smatch parts;
        const std::string text = Narrow(line.text);
        EXPECT_TRUE(std::regex_match(text, parts, pattern) && std::stoul(parts[2], nullptr, 16) == line.threadId) << text;
        all.push_back({line, static_cast<std::size_t>(parts.length(1)), parts[3].str() + parts[4].str(), parts[5], parts[6], parts[7]});
    }
    return all;
}

DWORD g_later = 0;  // by so many ms the volume's clock is fast

}  // namespace

class FollowingTheTrace : public VolumeFixture {
protected:
    // Longer than the volume remembers the log's level.
    static void LetTheLevelBeReadAgain() {
        REPLACE_IN_VOLUME(GetTickCount, [] { return GetTickCount() + g_later; });
        g_later += 3100;
    }
    void RunOutOfMemory() {
        Failing("Quelcrypt_GetQuelcryptConfig", Fault::OutOfMemory, [&] { TryOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW); });
    }
};

TEST_F(FollowingTheTrace, EveryEnterHasItsLeaveAndIndentsWhatHappensBetween) {
    const auto useEverything = [&](const std::wstring& name) {
        Put(L"Docs\\" + name, "first");
        Get(L"Docs\\" + name);
        List(L"Docs\\*");
        Move(L"Docs\\" + name, L"Plain\\" + name);
        LockInfo lockInfo = NewLock();
        volume()->Lock((L"Plain\\" + name).c_str(), &lockInfo);
        volume()->Unlock((L"Plain\\" + name).c_str(), lockInfo.token);
        TryOpen(L"Nowhere\\" + name);
        EXPECT_OK(Delete(L"Plain\\" + name));
    };
    Companion().SetHook("Quelcrypt_FileWriterFactory", [] { Sleep(40); });
    const auto lines = LinesDuring([&] {
        std::vector<std::thread> threads;
        for (const wchar_t* name : {L"a.txt", L"b.txt", L"c.txt"})
            threads.emplace_back(useEverything, name);
        for (std::thread& thread : threads)
            thread.join();
        RunOutOfMemory();
    });
    std::map<std::uint32_t, std::vector<std::string>> open;  // functions, by thread
    std::set<std::string> left;
    for (const TraceLine& line : Parse(lines)) {
        std::vector<std::string>& functions = open[line.threadId];
        if (line.kind == "LEAVE") {
            ASSERT_FALSE(functions.empty()) << line.text;
            ASSERT_EQ(functions.back(), line.function) << line.text;
            functions.pop_back();
            std::smatch parts;
            ASSERT_TRUE(std::regex_match(line.time, parts, std::regex("(!!!SLOW!!! )?(\\d+)s"))) << line.time;
            EXPECT_EQ(std::stol(parts[2]) > 16, parts[1].matched) << line.text;
            left.insert(line.function + " " + parts[1].str() + line.message);
        }
        ASSERT_EQ(functions.size(), line.indent) << line.text;
        if (line.kind == "ENTER")
            functions.push_back(line.function);
        EXPECT_TRUE(line.kind.empty() || line.level == LogLevel_Trace) << line.text;
    }
    EXPECT_EQ(4u, open.size());
    for (const auto& [threadId, functions] : open)
        EXPECT_TRUE(functions.empty()) << functions.back() << " was never left";
    for (const char* told :
         {"VirtualVolume::OpenFile VVS_MountFolderNotFound", "VirtualVolume::OpenFile VSS_OutMemory", "VirtualFile::Open VVS_Success",
          "VirtualFile::Close !!!SLOW!!! VVS_Success", "VirtualFindFile::FindFile true"})
        EXPECT_EQ(1u, left.count(told)) << told << " is not among\n" << ::testing::PrintToString(left);
}

TEST_F(FollowingTheTrace, TheLevelIsAskedSeldomAndObeyed) {
    Put(L"Docs\\a.txt", "first");
    LetTheLevelBeReadAgain();
    EXPECT_EQ(1u, CallsDuring("IFileLogger::GetLevel", [&] { List(L"*"); })) << "one question for many lines";
    EXPECT_EQ(0u, CallsDuring("IFileLogger::GetLevel", [&] { List(L"*"); }));
    Companion().level = LogLevel_Error;
    EXPECT_LT(0u, LinesDuring([&] { List(L"*"); }).size()) << "the new level is not known yet";
    LetTheLevelBeReadAgain();
    const auto lines = Parse(LinesDuring([&] {
        List(L"*");
        TryOpen(L"Nowhere\\a.txt");
    }));
    EXPECT_LT(0u, lines.size());
    for (const TraceLine& line : lines) {
        EXPECT_EQ(LogLevel_Error, line.level) << line.text;
        EXPECT_EQ(0u, line.indent) << line.text;
    }
}

TEST_F(FollowingTheTrace, FailedChecksQuoteThemselves) {
    Put(L"Docs\\a.txt", "first");
    MakeEncrypted(L"Docs\\c.txt", "content");
    Lock(L"Plain\\b");
    const auto ending = [](const char* calls) { Companion().FailNth(calls, 1, Fault::Null, true); };
    const std::tuple<std::function<void()>, std::string> rows[] = {
        {[&] { TryOpen(L"Nowhere\\a.txt"); },
         "VirtualVolume::OpenFile VirtualVolume::GetFullFilePath(filePath, fullFilePath) =>false,  filePath[Nowhere\\a.txt]"},
        {[&] { Read(nullptr); },
         "VirtualVolume::ReadFile hFile->Read(fileOffset, data, requestedSize, outActualSize) =>VVS_InvalidParameter, "},
        {[&] { volume()->Unlock(L"Plain\\b", L"{other}"); }, "FileLocker::Unlock foundIdx >= 0 =>false, "},
        {[&] { ending("Quelcrypt_FileReaderFactory"), Get(L"Docs\\c.txt"); }, "VirtualFile::DecryptContainer reader != 0 =>false, "},
        // A slot logs each exception with its arguments and the resulting status.
        {[&] { RunOutOfMemory(); },
         "VirtualVolume::OpenFile Exception[Out of memory]. filePath[Docs\\new.txt], desiredAccess[0xc0010000], shareMode[7], "
         "openDisposition[1], lockToken[<NULL>]"},
        {[&] { RunOutOfMemory(); }, "VirtualVolume::OpenFile errorStatus =>VSS_OutMemory, "},
    };
    for (const auto& [action, line] : rows) {
        std::set<std::string> errors;
        for (const TraceLine& told : Parse(LinesDuring(action)))
            if (told.level == LogLevel_Error)
                errors.insert(told.function + " " + told.message);
        Companion().FailNth();
        EXPECT_EQ(1u, errors.count(line)) << line << "\nis not among\n" << ::testing::PrintToString(errors);
    }
    Failing("IFileLogger::Write", Fault::Error, [&] { EXPECT_EQ("first", Get(L"Docs\\a.txt")) << "no log, and nothing else"; });
}

TEST_F(FollowingTheTrace, OrdinaryUseLeavesNoErrorsAndNoContent) {
    const auto lines = LinesDuring([&] {
        Put(L"Docs\\100%s%n%d.txt", "TOP SECRET WORDS");
        EXPECT_EQ("TOP SECRET WORDS", Get(L"Docs\\100%s%n%d.txt"));
        List(L"Docs\\*.txt");
        VirtFindData findData{};
        EXPECT_FALSE(Find(L"Docs\\missing.txt")) << "what may be missing is no error";
        EXPECT_EQ(nullptr, volume()->FindFirstFileW(L"Docs\\missing.txt", &findData));
        VirtMountInfo mountInfo{};
        EXPECT_FALSE(volume()->GetMountInfoByVolumePath(L"Nowhere", &mountInfo));
        EXPECT_OK(Delete(L"Docs\\100%s%n%d.txt"));
    });
    for (const LogLine& line : lines)
        EXPECT_LE(LogLevel_Information, line.level) << line.text;
    EXPECT_FALSE(HasLine(lines, L"SECRET"));
    for (const wchar_t* shown :
         {L"ENTER VirtualMountFolder::ParseFilePath path[Docs\\100%s%n%d.txt]\n", L"lockToken[<NULL>]", L"VirtFindData[<NULL>]",
          L"Name:100%s%n%d.txt, Virtual:VIT_EncryptedFile, Size:16, Attr:FILE_ATTRIBUTE_ARCHIVE(0x20), Create:"})
        EXPECT_TRUE(HasLine(lines, shown)) << Narrow(shown);
}
