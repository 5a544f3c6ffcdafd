#include "harness/VolumeFixture.h"

class ListingAFolder : public VolumeFixture {
protected:
    void Container(const std::wstring& name, const std::wstring& storedName, std::string_view content = "content") {
        Encrypt(NativePath(L"Docs\\" + name), content, {.name = storedName});
    }
    void Plain(const std::wstring& name, std::string_view content = "plain") { WriteRaw(NativePath(L"Docs\\" + name), content); }
};

TEST_F(ListingAFolder, ShowsContainersUnderTheirStoredNames) {
    Container(L"a.txt.zip", L"a.txt", "seven b");
    Container(L"Überblick 日本.txt.zip", L"Überblick 日本.txt");
    Container(L"Letter.TXT.zip", L"letter.txt");  // the stored name's letter case wins
    Container(L"b.zip", L"c");                    // stored under another name than its own
    Plain(L"README");
    Plain(L"broken.txt.zip", "this is no container");
    MakeFolder(L"Docs\\sub");
    MakeFolder(L"Docs\\y.zip");
    MakeFolder(L"Plain\\y.zip");
    EXPECT_EQ((Names{L"README", L"a.txt", L"b.HvcConflicted", L"broken.txt.zip", L"letter.txt", L"sub", L"y.zip", L"Überblick 日本.txt"}),
              List(L"Docs\\*"));

    const VirtFindData a = Record(L"Docs\\a.txt");
    EXPECT_EQ(7, a.fileSize);
    EXPECT_EQ(133'590'402'140'000'000u, a.lastWriteTime) << "the times are those of the content";
    for (const wchar_t* name : {L"Docs\\y", L"Plain\\y"}) {
        Put(name, "not the folder");
        EXPECT_EQ("not the folder", Get(name));
    }
    // A broken container stays visible as what it is on disk.
    const std::map<std::wstring, VirtualItemType> types{
        {L"a.txt", VIT_EncryptedFile}, {L"README", VIT_PlainFile}, {L"broken.txt.zip", VIT_PlainFile},
        {L"sub", VIT_Folder},          {L"y.zip", VIT_Folder},     {L"b.zip", VIT_EncryptedFileInConflict}};
    for (const auto& [name, type] : types)
        EXPECT_EQ(type, Record(L"Docs\\" + name).itemType) << Narrow(name);
    MakeFolder(L"Docs\\z.txt.zip");
    EXPECT_EQ(VVS_PathAlreadyExists, TryOpen(L"Docs\\z.txt", kReadWrite, CREATE_ALWAYS)) << "its container could not be stored";
}

TEST_F(ListingAFolder, ShowsBothSidesOfAConflict) {
    Container(L"a.txt.zip", L"a.txt");
    Plain(L"a.txt");
    EXPECT_EQ((Names{L"a.txt", L"a.txt.HvcConflicted"}), List(L"Docs\\*"));
    EXPECT_EQ(VIT_PlainFile, Record(L"Docs\\a.txt").itemType);
    EXPECT_EQ((Names{L"a.txt", L"a.txt.HvcConflicted"}), List(L"Docs\\a.txt")) << "a search for the name finds both";
    // A name too long for the ending is the container's own, by which it can be opened as well.
    const std::wstring longest(244, L'n');
    Container(longest + L".x.zip", longest + L".x");
    Plain(longest + L".x");
    EXPECT_EQ((Names{L"a.txt", L"a.txt.HvcConflicted", longest + L".x", longest + L".x.zip"}), List(L"Docs\\*"));
    EXPECT_OK(TryOpen(L"Docs\\" + longest + L".x.zip"));
    // The conflict ends when the plain file is deleted, also for remembered records.
    for (const std::wstring& name : {std::wstring(L"a.txt"), longest + L".x"})
        fs::remove(NativePath(L"Docs\\" + name));
    EXPECT_EQ((Names{L"a.txt", longest + L".x"}), List(L"Docs\\*"));
}

TEST_F(ListingAFolder, NeverShowsReservedNames) {
    for (const wchar_t* name : {L"policy.hvc", L"- HalvaneCloud Readme -.htm"})
        Plain(name);
    Container(L"Policy.hvc.zip", L"policy.hvc");
    MakeFolder(L"Docs\\.HalvaneBox");
    EXPECT_EQ(Names{}, List(L"Docs\\*")) << "a folder with reserved names alone is empty";
    EXPECT_EQ(Names{}, List(L"Docs\\POLICY.*"));
    EXPECT_EQ(VIT_PlainFile, Record(L"Docs\\policy.hvc").itemType) << "who knows the name finds it";
    Plain(L"my policy.hvc");
    EXPECT_EQ((Names{L"my policy.hvc"}), List(L"Docs\\*"));
}

TEST_F(ListingAFolder, LosesNoEntryToAContainerThatCannotBeRead) {
    const Names all{L"a.txt", L"b.txt", L"c.txt", L"plain"};
    for (const wchar_t* name : {L"a.txt", L"b.txt", L"c.txt"})
        Container(std::wstring(name) + L".zip", name);
    Plain(L"plain");
    for (const Fault fault : {Fault::Null, Fault::Raise, Fault::Error, Fault::OutOfMemory}) {
        SCOPED_TRACE(static_cast<int>(fault));
        Touch(NativePath(L"Docs"));
        Companion().FailNth("Quelcrypt_GetFileInformation", 2, fault, false);
        const Names once = List(L"Docs\\*");
        EXPECT_TRUE(Companion().wasHit);
        EXPECT_EQ(4u, once.size());
        EXPECT_EQ(1, std::count_if(once.begin(), once.end(), [](const std::wstring& name) { return name.ends_with(L".zip"); }));
        EXPECT_EQ(all, List(L"Docs\\*")) << "it is asked for again";
    }
}

TEST_F(ListingAFolder, TellsAFolderThatCannotBeReadFurtherFromItsEnd) {
    for (const wchar_t* name : {L"a", L"b", L"c"})
        Plain(name);
    VirtFindData findData{};
    for (const DWORD error : {ERROR_NO_MORE_FILES, ERROR_NETNAME_DELETED}) {
        void* const search = volume()->FindFirstFileW(L"Docs\\?*", &findData);
        EXPECT_TRUE(volume()->FindNextFileW(search, &findData));
        if (error != ERROR_NO_MORE_FILES)
            REPLACE_IN_VOLUME(FindNextFileW, [](auto, auto) -> BOOL { return SetLastError(ERROR_NETNAME_DELETED), FALSE; });
        while (volume()->FindNextFileW(search, &findData)) {
        }
        EXPECT_EQ(error == ERROR_NO_MORE_FILES ? ERROR_FILE_NOT_FOUND : error, GetLastError());  // the search for containers found none
        EXPECT_TRUE(volume()->FindClose(search));
    }
}

// A pattern must list the same names as the platform lists in a plain folder.
TEST_F(ListingAFolder, TakesEveryPatternAsAPlainFolderDoes) {
    for (const wchar_t* name : {L"a.txt", L"ab.txt", L"abc.txt", L" blank.txt", L"b;c.txt", L"d.e.txt", L"q.t", L"noext"}) {
        MakePlain(std::wstring(L"Plain\\") + name, "plain");
        std::wcschr(name, L'.') ? MakeEncrypted(std::wstring(L"Docs\\") + name, "content") : Plain(name);
    }
    for (const wchar_t* path : {L"Docs\\ac.txt", L"Plain\\ac.txt", L"Docs\\k.zipx", L"Plain\\k.zipx"})
        MakePlain(path, "plain in both");
    for (const std::wstring pattern :
         {L" *",      L" b*",    L" *.txt", L"*;*",    L"b;c.txt", L"b*;c.txt", L"b*;c*", L"a.txt;b*", L"a?.txt",
          L"a??.txt", L"??.txt", L"?",      L"*.",     L"*.?",     L"*.t?t",    L"*.TXT", L"*.*.*",    L"*t",
          L"*x*",     L"a*.*",   L"no*.",   L"noext.", L"a.txt ",  L"**",       L"?*?",   L"k*"}) {
        std::set<std::wstring> expected;
        WIN32_FIND_DATAW entry{};
        const HANDLE hFind = FindFirstFileW(NativePath(L"Plain\\" + pattern).c_str(), &entry);
        for (bool isThere = hFind != INVALID_HANDLE_VALUE; isThere; isThere = FindNextFileW(hFind, &entry))
            if (entry.cFileName[0] != L'.')
                expected.insert(entry.cFileName);
        FindClose(hFind);
        for (const wchar_t* folder : {L"Docs\\", L"Plain\\"})
            EXPECT_EQ(Names(expected.begin(), expected.end()), List(folder + pattern)) << Narrow(pattern);
    }
    // What only containers have: their own names.
    EXPECT_EQ(Names{L"a.txt"}, List(L"Docs\\A.TXT.zip"));
    EXPECT_EQ(List(L"Docs\\*"), List(L"Docs\\*.*"));
    Names containers = List(L"Docs\\*.zip");
    std::erase(containers, L"k.zipx");  // which has a short name that ends so
    EXPECT_EQ(7u, containers.size());
    EXPECT_EQ(Names{}, List(L"Docs\\missing\\*"));
}

TEST_F(ListingAFolder, AsksTheCompanionOnceAndThenRemembers) {
    constexpr const char* kCall = "Quelcrypt_GetFileInformation";
    constexpr std::uint32_t limit = 1014;
    Container(L"0.txt.zip", L"0.txt");
    const std::string bytes = ReadRaw(NativePath(L"Docs\\0.txt.zip"));
    for (std::uint32_t number = 1; number < limit; ++number)
        MakePlain(L"Docs\\" + std::to_wstring(number) + L".txt.zip", bytes);
    EXPECT_EQ(limit, CallsDuring(kCall, [&] { List(L"Docs\\*"); })) << "a cold listing asks for each";
    EXPECT_EQ(0u, CallsDuring(nullptr, [&] { List(L"Docs\\*"); })) << "a warm one asks for nothing";
    EXPECT_EQ(2u, CallsDuring(nullptr, [&] { List(L"*"); })) << "the root asks whether its folders changed";
    EXPECT_EQ(0u, CallsDuring(kCall, [&] { Find(L"Docs\\0.TXT"); })) << "whatever the letter case";
    Touch(NativePath(L"Docs\\5.txt.zip"));
    EXPECT_EQ(1u, CallsDuring(kCall, [&] { List(L"Docs\\*"); })) << "a changed container alone";
    Plain(L"new");
    EXPECT_EQ(limit, CallsDuring(kCall, [&] { List(L"Docs\\*"); })) << "a changed folder is read anew";
    MakePlain(L"Docs\\one more.zip", bytes);
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(limit + 1, CallsDuring(kCall, [&] { List(L"Docs\\*"); })) << "it pushes the oldest out, time and again";
}

TEST_F(ListingAFolder, ShowsMountFoldersAtTheRoot) {
    const Names all{L"Docs", L"Other", L"Plain", L"Theirs"};
    for (const auto& [spec, names] : {std::pair(L"*", all), {L"", all}, {L"Doc*", {L"Docs"}}, {L"docs", {L"Docs"}}, {L"Nowhere", {}}})
        EXPECT_EQ(names, List(spec)) << Narrow(spec);
    const VirtFindData root = Record(L"");
    EXPECT_EQ(VIT_Root, root.itemType);
    EXPECT_EQ(FILE_ATTRIBUTE_DIRECTORY, root.fileAttributes);
    EXPECT_EQ(L"", std::wstring(root.fileName));
    EXPECT_NE(0u, root.lastWriteTime);
    std::uint64_t created = UINT64_MAX, written = 0;
    for (const std::wstring& name : all) {
        EXPECT_EQ(VIT_MountFolder, Record(name).itemType);
        created = std::min(created, Record(name).creationTime);
        written = std::max(written, Record(name).lastWriteTime);
    }
    EXPECT_EQ(created, root.creationTime);
    EXPECT_EQ(written, root.lastWriteTime);

    // A folder that is gone from disk hides no other; one that was renamed shows under its mounted name.
    Configure(R"({"folders": [{"name": "Gone", "path": "Gone"}, {"name": "Letters", "path": "Docs"}, {"name": "P2", "path": "Plain"}]})");
    EXPECT_EQ((Names{L"Letters", L"P2"}), List(L"*"));
    EXPECT_EQ(L"Letters", std::wstring(Record(L"LETTERS").fileName));
    EXPECT_EQ(VIT_MountFolder, Record(L"Letters\\").itemType);
    EXPECT_EQ(VIT_MountFolder, Record(L"Letters\\sub\\..").itemType);
    EXPECT_FALSE(Find(L"Gone") || Find(L"Docs"));

    // While the companion cannot list them, they stay what they were.
    for (const Fault fault : {Fault::Null, Fault::Raise, Fault::OutOfMemory})
        for (const char* call : {"Quelcrypt_GetProtectedFolderEnum", "IProtectedFolder::GetPath", "IQuelcryptText::GetText"}) {
            if (fault == Fault::Null && *call == 'I')
                continue;  // a folder without a text is left out
            Configure(DefaultConfiguration());
            Companion().FailNth(call, 1, fault, true);
            List(L"*");
            EXPECT_TRUE(Companion().wasHit);
            EXPECT_EQ(VIT_MountFolder, Record(L"Letters").itemType) << call;
            Companion().FailNth();
            Configure(R"({"folders": [{"name": "Letters", "path": "Docs"}]})");
            EXPECT_EQ((Names{L"Letters"}), List(L"*"));
        }
}

TEST_F(ListingAFolder, FollowsTheConfiguration) {
    EXPECT_EQ(4u, List(L"*").size());
    const std::wstring name63(63, L'n'), name64(64, L'm'), name127(127, L'l'), name128(128, L'k');
    const auto longPath = [&](std::size_t units) { return root() + L"\\" + std::wstring(units - root().size() - 1, L'p'); };
    std::string folders;
    const std::map<std::wstring, std::wstring> paths{{name63, L"Docs"},    {name64, L"Other"},       {name127, L"Plain"},
                                                     {name128, L"Theirs"}, {L"Fits", longPath(259)}, {L"Longer", longPath(260)}};
    for (const auto& [name, path] : paths)
        folders += R"({"name": ")" + Narrow(name) + R"(", "path": ")" + Narrow(fs::path(path).generic_wstring()) + R"("},)";
    folders.back() = ']';
    Configure(R"({"folders": [)" + folders + "}");
    VirtMountInfo mountInfo{};
    EXPECT_TRUE(volume()->GetMountInfoByVolumePath((name63 + L"\\x").c_str(), &mountInfo)) << "found after one forced reload";
    EXPECT_EQ(name63, mountInfo.name);
    EXPECT_FALSE(volume()->GetMountInfoByVolumePath(name64.c_str(), &mountInfo) ||
                 volume()->GetMountInfoByVolumePath(L"Longer", &mountInfo) ||
                 volume()->GetMountInfoByNativePath(NativePath(L"Other\\f").c_str(), &mountInfo));
    EXPECT_EQ(name63, mountInfo.name) << "what does not fit leaves the record alone";
    EXPECT_TRUE(volume()->GetMountInfoByVolumePath(L"Fits", &mountInfo));
    EXPECT_EQ(longPath(259), mountInfo.path);

    // A search delivers names of up to 127 units cut, and paths whole or not at all.
    std::map<std::wstring, std::wstring> delivered;
    void* const hFind = volume()->FindFirstMountFolder(nullptr);
    ASSERT_NE(nullptr, hFind);
    while (volume()->FindNextMountFolder(hFind, &mountInfo))
        delivered[mountInfo.name] = mountInfo.path;
    EXPECT_TRUE(volume()->FindClose(hFind));
    EXPECT_EQ(4u, delivered.size());
    for (const std::wstring& name : {name127, name64, name63, std::wstring(L"Fits")})
        EXPECT_EQ(name == L"Fits" ? longPath(259) : NativePath(paths.at(name)), delivered[name.substr(0, 63)]) << Narrow(name);
    EXPECT_EQ((Names{name128, name127, name64, name63}), List(L"*")) << "records of files have room for them";

    // A search whose next folder vanished ends.
    VirtFindData findData{};
    void* const hRoot = volume()->FindFirstFileW(L"*", &findData);
    ASSERT_NE(nullptr, hRoot);
    Configure(R"({"folders": []})");
    EXPECT_EQ(Names{}, List(L"*"));
    EXPECT_FALSE(volume()->FindNextFileW(hRoot, &findData));
    EXPECT_TRUE(volume()->FindClose(hRoot));
}

TEST_F(ListingAFolder, ResolvesPathsWithinTheirMountFolderOnly) {
    Plain(L"README");
    WriteRaw(root() + L"\\outside", "secret");
    VirtMountInfo mountInfo{};
    WriteRaw(NativePath(L"Docs.zip"), "beside the mount folder");
    const std::wstring native = root() + L"\\outside";  // such paths are for opening
    for (const wchar_t* nowhere : {L"Docs\\..\\outside", L"Docs\\sub\\..\\..\\outside", L"D\\README", L"Docs:README", native.c_str(),
                                   L"Docs\\..\\*", L"Docs\\sub\\..\\..\\*"}) {
        EXPECT_FALSE(Find(nowhere)) << Narrow(nowhere);
        EXPECT_EQ(Names{}, List(nowhere)) << Narrow(nowhere);
    }
    EXPECT_EQ(Names{}, List(L"Docs\\."));
    MakeFolder(L"Docs\\sub");
    EXPECT_EQ(VIT_Folder, Record(L"Docs\\sub\\").itemType);
    EXPECT_EQ((Names{L"README", L"sub"}), List(L"Docs\\.\\*"));

    EXPECT_TRUE(volume()->GetMountInfoByNativePath(NativePath(L"docs\\any\\thing").c_str(), &mountInfo));
    EXPECT_EQ(L"Docs", std::wstring(mountInfo.name));
    EXPECT_EQ(PFT_Dropbox, mountInfo.type);
    EXPECT_FALSE(volume()->GetMountInfoByNativePath((NativePath(L"Docs") + L"2\\f").c_str(), &mountInfo));
    EXPECT_FALSE(volume()->GetMountInfoByNativePath(nullptr, &mountInfo));
    EXPECT_TRUE(volume()->GetMountInfoByVolumePath(L"OTHER\\not\\there", &mountInfo)) << "the folder counts, not what is below it";
}
