// Containers are ZIP files that other programs open. What any companion library must do, companion/conformance shows of this one.
#include <tuple>

#include "CompanionFixture.h"
#include "common/TrackingText.h"
#include "companion/ZipFormat.h"

namespace {

namespace fs = std::filesystem;

std::string FromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t at = 0; at < hex.size(); at += 2)
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(at, 2)), nullptr, 16));
    return bytes;
}

// A thousand times "x", compressed and encrypted by another program. What it makes else is read by quelvol.commands.
const std::string kDeflated = FromHex(
    "504b0304330001006300e641765d000000002d000000e803000005000b00612e7478740199070002004145030800acee5cba74beb549840a2d7de86e6439"
    "342b8518eda4068da4dc06608e7218e790bcf7fc95de0aa44ae2601057504b01023f03330001006300e641765d000000002d000000e803000005002f0000"
    "00000000002080a48100000000612e7478740a0020000000000001001800ad9c4f98597add01000000000000000000000000000000000199070002004145"
    "030800504b05060000000001000100620000005b0000000000");

class ContainersAreOrdinaryZips : public CompanionTest {
protected:
    static bool SaysDamaged(const std::function<void()>& action) { return ErrorOf(action).starts_with(L"The container is damaged"); }
};

TEST_F(ContainersAreOrdinaryZips, HoldTimesFrom1970To2106) {
    Encrypt(InDocs("a.zip"), "x", {.times = {{{2060, 1, 4, 1, 0, 0, 0, 999}, {1601, 1, 1, 1, 0, 0, 0, 0}, {2400, 1, 6, 1, 0, 0, 0, 0}}}});
    const PlainFile held{.times = {{{2060, 1, 4, 1, 0, 0, 0, 0}, {1970, 1, 4, 1, 0, 0, 1, 0}, {2106, 2, 0, 7, 6, 28, 15, 0}}}};
    const PlainFile told = Inform(InDocs("a.zip"));
    EXPECT_EQ(0, std::memcmp(&told.times, &held.times, sizeof(held.times)));
}

// Nobody has the patience for a real container of these sizes.
TEST_F(ContainersAreOrdinaryZips, MayBeLongerThanAnOlderZip) {
    constexpr std::uint64_t border = 0xFFFFFFFF;
    for (const std::uint64_t size : {border - 200, border - 29, border - 28, border - 1, border, border + 1, border << 8}) {
        companion::ZipEntry entry;
        entry.name = "a.txt";
        entry.keyBytes = 32;
        entry.plainBytes = size;
        entry.storedBytes = size + 28;
        const std::string local = companion::LocalHeader(entry);
        const std::uint64_t at = local.size() + entry.storedBytes;
        const std::string end = companion::CentralDirectory(entry, at);
        const auto read = companion::OnlyEntry(end, at + end.size());
        ASSERT_TRUE(read) << size;
        EXPECT_EQ(read->plainBytes, size);
        EXPECT_EQ(read->storedBytes, size + 28);
        EXPECT_TRUE(read->isOwnForm);
        EXPECT_FALSE(companion::OnlyEntry(end, at + end.size() - 1)) << "a byte was cut out";
    }
}

TEST_F(ContainersAreOrdinaryZips, TellOthersWhatTheyMustKnow) {
    // Nothing of the content: this form of encryption has no checksum. A name outside ASCII stands there as UTF-8, and the file says so.
    Encrypt(InDocs("e.zip"), "x", {.name = L"\u00E9.txt"});
    const std::string bytes = ReadRaw(InDocs("e.zip"));
    EXPECT_NE(bytes.find(std::string("\1\x99\7\0\2\0AE\3\0\0", 11)), std::string::npos);
    EXPECT_EQ(bytes.substr(14, 4), std::string(4, '\0'));
    EXPECT_EQ(bytes.substr(30, 6), "\xC3\xA9.txt");
    EXPECT_TRUE(bytes[7] & 0x08);
    WriteRaw(InDocs("x.zip"), kDeflated);
    EXPECT_EQ(Decrypt(InDocs("x.zip")), std::string(1000, 'x'));
    EXPECT_EQ(Inform(InDocs("x.zip")).name, L"a.txt");
    EXPECT_EQ(Inform(InDocs("x.zip")).size, 1000u);
}

// The format checks a password with two bytes; "other 51704" was searched for to agree in them with this container's own.
TEST_F(ContainersAreOrdinaryZips, AreNotTakenForDamagedWhenAWrongPasswordSeemsToFit) {
    std::string bytes = FromHex(
        "504b03042d00090063000000a15800000000ffffffffffffffff01003f007255540d000700863166008631660086316675780b0001040000000004000000000199"
        "0700010041450300000100100000000000000000000000000000000000ac9ade3808f44b85eed9b41073b747cd7816f120a3abb0f8bfebb2181daa5cffd6504b07"
        "081475cab421000000000000000500000000000000504b01022d032d00090063000000a1581475cab4210000000500000001002b000000000000000000a4810000"
        "00007255540d000700863166008631660086316675780b0001040000000004000000000199070001004145030000504b050600000000010001005a000000970000"
        "000000");
    WriteRaw(InDocs("r.zip"), bytes);
    Configure(R"({"folders": [{"path": "docs", "targetKey": "own"}], "passwords": {"own": "other 51704"}})");
    EXPECT_TRUE(SaysDamaged([&] { Decrypt(InDocs("r.zip")); }));
    Configure(R"({"folders": [{"path": "docs", "targetKey": "own"}], "passwords": {"own": "other 51704", "old": "secret-1"}})");
    EXPECT_EQ(Decrypt(InDocs("r.zip")), "right");
    ++bytes[bytes.rfind("PK\1\2") + 16];  // the checksum, which newer containers lack
    WriteRaw(InDocs("r.zip"), bytes);
    EXPECT_TRUE(SaysDamaged([&] { Decrypt(InDocs("r.zip")); }));
}

// Of containers of their own, the conformance check shows the same.
TEST_F(ContainersAreOrdinaryZips, SayWhenTheyAreDamaged) {
    const Path container = InDocs("a.txt.zip");
    for (std::size_t at = 0; at < kDeflated.size(); ++at) {
        std::string bytes = kDeflated, read(1000, 'x');
        bytes[at] = static_cast<char>(bytes[at] ^ 0xFF);
        for (const std::string& damaged : {bytes, kDeflated.substr(0, at)}) {
            WriteRaw(container, damaged);
            ErrorOf([&] { read = Decrypt(container); });
            EXPECT_EQ(read, std::string(1000, 'x')) << "byte " << at;
        }
        EXPECT_EQ(Inform(container).name, L"") << "cut to " << at;
    }

    // In a container of many blocks the failure comes late, and asking again does not turn it into an end.
    Encrypt(container, std::string(1'000'000, 'y'));
    std::string bytes = ReadRaw(container);
    bytes[999'000] = static_cast<char>(bytes[999'000] ^ 1);
    WriteRaw(container, bytes);
    const auto reader = Reader(container);
    for (int time = 0; time < 2; ++time)
        EXPECT_TRUE(SaysDamaged([&] {
            while (reader->Advance()) {
            }
        }));
    EXPECT_EQ(reader->GetDataLength(), 0u);
}

TEST_F(ContainersAreOrdinaryZips, HandOutTheSizeThatTheyTellAndNoOther) {
    const Path container = InDocs("a.zip");
    Encrypt(container, std::string(1'000'000, 'y'));
    for (auto [bytes, size] : {std::pair(ReadRaw(container), 1'000'000u), std::pair(kDeflated, 1000u)}) {
        for (const std::uint32_t told : {0u, 5u, size - 1, size + 1}) {
            bytes.replace(bytes.rfind("PK\1\2") + 24, 4, reinterpret_cast<const char*>(&told), 4);
            WriteRaw(container, bytes);
            std::size_t handedOut = 0;
            EXPECT_TRUE(SaysDamaged([&] {
                const auto reader = Reader(container);  // throws for a size that cannot be
                while (reader->Advance())
                    handedOut += reader->GetDataLength();
            })) << told;
            EXPECT_LE(handedOut, told);
        }
    }
}

TEST_F(ContainersAreOrdinaryZips, AreToldFromOtherFiles) {
    WriteRaw(InDocs("x.zip"), std::string("PK\5\6", 4) + std::string(18, '\0'));
    EXPECT_EQ(Inform(InDocs("x.zip")).name, L"");
    EXPECT_EQ(ErrorOf([&] { Decrypt(InDocs("x.zip")); }), L"The file is not a container");
    // What is left of a container after a crash is told from these.
    for (const std::string& bytes : {std::string(), std::string(4096, '\0'), FromHex("504b0304330001006300") + "and so on"}) {
        WriteRaw(InDocs("x.zip"), bytes);
        EXPECT_EQ(ErrorOf([&] { Decrypt(InDocs("x.zip")); }), L"The container is damaged: its records are not whole") << bytes.size();
    }
}

TEST_F(ContainersAreOrdinaryZips, AreNotReplacedByWhatFailedOrWasGivenUp) {
    const Path container = InDocs("a.txt.zip");
    Encrypt(container, "old");
    const auto givenUp = Writer(container), failed = Writer(container);
    EXPECT_TRUE(WriteAll(*givenUp, "new") && givenUp->Finish(false));
    EXPECT_FALSE(givenUp->Finish(true));
    EXPECT_TRUE(WriteAll(*failed, "new"));
    EXPECT_EQ(ErrorOf([&] { failed->Write(nullptr, 5); }), L"Invalid argument");
    EXPECT_FALSE(failed->Write("new", 3) || failed->Finish(true));
    EXPECT_EQ(Decrypt(container), "old");
    EXPECT_FALSE(fs::exists(InDocs(".HalvaneCloud")));
}

TEST_F(ContainersAreOrdinaryZips, KeepTheAttributesOfTheFileOnDisk) {
    const Path container = InDocs("a.txt.zip");
    Encrypt(container, "old");
    SetFileAttributesW(container.c_str(), FILE_ATTRIBUTE_HIDDEN);
    Encrypt(container, "new", {.attributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE});
    constexpr DWORD both = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY;
    EXPECT_EQ(GetFileAttributesW(container.c_str()) & both, both);

    // One that became read-only while the writer worked stays.
    SetFileAttributesW(container.c_str(), FILE_ATTRIBUTE_NORMAL);
    const auto writer = Writer(container);
    SetFileAttributesW(container.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(ErrorOf([&] { writer->Finish(true); }), L"The container is read-only");
    EXPECT_EQ(Decrypt(container), "new");
}

TEST_F(ContainersAreOrdinaryZips, AreNeverTakenFromWhatACrashLeft) {
    const Path aside = InDocs(".HalvaneCloud");
    fs::create_directory(aside);
    char process[16];
    std::snprintf(process, sizeof(process), "%lx", GetCurrentProcessId());
    const std::string own = "container-" + std::string(process), living = own + "-2-2.part", old = own + "-1-1.part",
                      ended = "container-7ffffff0-1-1.part";
    for (const std::string& name : {living, old, ended, std::string("notes.txt")})
        WriteRaw(aside / name, "not whole");
    for (const std::string& name : {old, std::string("notes.txt")})
        fs::last_write_time(aside / name, fs::file_time_type::clock::now() - std::chrono::hours(48));

    Encrypt(InDocs("a.txt.zip"), "whole");
    EXPECT_EQ(Decrypt(InDocs("a.txt.zip")), "whole");
    EXPECT_FALSE(fs::exists(aside / old) || fs::exists(aside / ended));
    EXPECT_TRUE(fs::exists(aside / living)) << "its writer may live";
    EXPECT_TRUE(fs::exists(aside / "notes.txt")) << "not ours";
    fs::remove_all(aside);

    // A folder that cannot hold a side file is said to be so at once.
    WriteRaw(aside, "a file in its place");
    EXPECT_NE(ErrorOf([&] { Writer(InDocs("a.txt.zip")); }), L"");
    EXPECT_EQ(Decrypt(InDocs("a.txt.zip")), "whole");
    fs::remove(aside);
    EXPECT_NE(ErrorOf([&] { Writer(InDocs("missing folder") / "a.txt.zip"); }), L"");
}

TEST_F(ContainersAreOrdinaryZips, AreOpenedOnceForAllListings) {
    const Path container = InDocs("a.txt.zip");
    Encrypt(container, "1234");
    WIN32_FIND_DATAW entry = {};
    FindClose(FindFirstFileW(container.c_str(), &entry));

    // Only the placeholder of a sync client is here: asking would fetch it.
    WIN32_FIND_DATAW placeholder = entry;
    placeholder.dwFileAttributes |= 0x00400000;
    EXPECT_EQ(Inform(container, &placeholder).name, L"");
    EXPECT_EQ(Inform(container, &entry).name, L"a.txt");
    EXPECT_EQ(Inform(container, &placeholder).name, L"a.txt") << "known already";

    const Held held(container);
    EXPECT_EQ(Inform(container, &entry).size, 4u);
    ++entry.ftLastWriteTime.dwLowDateTime;
    EXPECT_EQ(Inform(container, &entry).name, L"") << "it cannot be opened now";
}

TEST_F(ContainersAreOrdinaryZips, GetTheKeyOfThePlaceTheyAreFor) {
    const Path temp = m_folder / "temp", team = m_folder / "team", aside = temp / "a.zip", tracked = temp / "tracked.txt";
    fs::create_directories(team);
    fs::create_directories(temp);
    WriteRaw(tracked.wstring() + L".hvf", TrackingText({team / "tracked.txt.zip", {}, tracked, {}, L"tracked.txt"}));
    const std::tuple<const char*, Path, Path, const char*> rows[] = {
        {"in a folder with a key", InDocs("a.zip"), tracked, "h"},
        {"aside, for the container that the tracking file names", aside, tracked, "t"},
        {"aside, for a plain file of a folder with a key", aside, team / "p.txt", "t"},
        {"anywhere else", aside, temp / "other.txt", "d"},
        {"no source", aside, {}, "d"},
    };
    for (const auto& [what, container, source, password] : rows) {
        SCOPED_TRACE(what);
        Configure(R"({"folders": [{"path": "docs", "targetKey": "home"}, {"path": "team", "targetKey": "team"},
                                  {"path": "unknown", "targetKey": "not here"}],
                      "passwords": {"home": "h", "team": "t", "default": "d"}, "defaultKey": "default"})");
        EXPECT_FALSE(Writer(m_folder / "unknown" / "a.zip", {.source = source})) << "key without a password";
        Encrypt(container, "x", {.source = source});
        Configure(R"({"passwords": {"only": ")" + std::string(password) + "\"}}");
        EXPECT_EQ(ErrorOf([&] { EXPECT_EQ(Decrypt(container), "x"); }), L"");
    }
    Configure("{}");
    EXPECT_FALSE(Writer(InDocs("a.zip"))) << "no key at all";
}

}  // namespace
