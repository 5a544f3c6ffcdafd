// What Windows documents and Wine lacks: see harness/WindowsRules.h.
#include "harness/VolumeFixture.h"

using AsOnWindows = VolumeFixture;

// Every file that was written is held open by somebody else for a moment after its close, and a page has a folder of its files.
TEST_F(AsOnWindows, NothingFails) {
    UnloadVolume();
    SetEnvironmentVariableW(L"QUELCRYPT_WINDOWS_RULES", L"abcdefghijkl");
    LoadVolume();
    for (const std::wstring& folder : {std::wstring(L"Docs\\"), std::wstring(L"Plain\\")})
        for (int round = 0; round < 6; ++round) {
            SCOPED_TRACE(Narrow(folder) + " round " + std::to_string(round));
            const std::wstring a = folder + L"a.txt", b = folder + L"b.txt", c = folder + L"c.htm";
            const std::wstring other = (folder == L"Docs\\" ? L"Plain\\" : L"Docs\\") + std::wstring(L"a.txt");
            MakeFolder(folder + L"c_files");
            MakePlain(folder + L"c_files\\image.png", "of the page");
            for (int at = 0; at <= round; ++at)  // who scans which one
                Put(folder + L"before" + std::to_wstring(at) + L".tmp", "written");
            Put(a, "first");
            Put(a, "second");
            EXPECT_EACH(VVS_Success, Move(a, b), Copy(b, a), Rename(a, b));
            Put(a, "third");
            EXPECT_EACH(VVS_Success, Move(a, other), Rename(other, c));
            const std::wstring token = Lock(c);
            Put(c, "fourth");
            Unlock(c, token);
            EXPECT_EQ("fourth", Get(c));
            EXPECT_EQ("second", Get(b));
            EXPECT_EACH(VVS_Success, Delete(b), Delete(c));
            windows_rules::Release();  // a plain file's name stays until then
            EXPECT_EQ(0u, List(folder + L"?.*").size());
            EXPECT_TRUE(Exists(NativePath(folder + L"c_files\\image.png")));
        }
    SetEnvironmentVariableW(L"QUELCRYPT_WINDOWS_RULES", nullptr);
}

// A placeholder is fetched when it is read ("File Attribute Constants", FILE_ATTRIBUTE_OFFLINE).
TEST_F(AsOnWindows, OnlyOpeningFetchesAPlaceholder) {
    for (const bool isLocked : {false, true}) {
        MakeEncrypted(L"Docs\\elsewhere.txt", "content");
        windows_rules::Mark(L"elsewhere.txt.zip", IO_REPARSE_TAG_CLOUD);
        EXPECT_EQ(Names{L"elsewhere.txt.zip"}, List(L"Docs\\else*"));
        EXPECT_FALSE(windows_rules::IsFetched());
        const std::wstring token = isLocked ? Lock(L"Docs\\elsewhere.txt") : L"";
        EXPECT_EQ("content", Get(L"Docs\\elsewhere.txt"));
        EXPECT_TRUE(windows_rules::IsFetched());
        EXPECT_EQ(Names{L"elsewhere.txt"}, List(L"Docs\\else*"));
        Unlock(L"Docs\\elsewhere.txt", token);
    }
}

// A companion library of another compiler may raise that compiler's exceptions, which are handled like its other failures.
using OtherCompilers = VolumeFixture;

TEST_F(OtherCompilers, AnExceptionOfAnotherCompilerFailsTheCallAndHoldsNothing) {
    const std::wstring name = L"Docs\\a.txt";
    MakeFolder(L"Docs\\folder");
    const auto work = [&] {
        Get(name);
        Takes(name, "edit");
        Move(L"Docs\\folder", L"Docs\\folder2");
        Move(L"Docs\\folder2", L"Docs\\folder");
        TryOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
        List(L"*");
    };
    MakeEncrypted(name, "content");
    Companion().calls.clear();
    work();
    const auto calls = Companion().calls;
    EXPECT_LE(20u, calls.size());
    for (const auto& [call, count] : calls) {
        if (call.starts_with("IFileLogger"))
            continue;
        SCOPED_TRACE(call);
        UnloadVolume();  // a new module asks for everything
        LoadVolume();
        MakeEncrypted(name, "content");
        Failing(call.c_str(), Fault::Foreign, work);
        work();  // nothing is locked, and what waited is saved
        EXPECT_EQ("edit", Stored(name));
        EXPECT_EQ(4u, List(L"*").size());
    }
}
