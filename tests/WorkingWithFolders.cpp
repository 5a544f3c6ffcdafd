// Folders, and where they can be moved: with everything in them, to a folder of the same key and owner, replacing nothing.
#include "harness/VolumeFixture.h"

class WorkingWithFolders : public VolumeFixture {
protected:
    void* OpenFolder(const std::wstring& path, std::uint32_t disposition = OPEN_EXISTING) {
        return MustOpen(path, GENERIC_READ | DELETE, disposition);
    }
    // A folder with one encrypted and one plain file and a folder of its own with an encrypted one.
    void MakeTree(const std::wstring& path) {
        MakeFolder(path + L"\\deep");
        MakeEncrypted(path + L"\\a.txt", "encrypted a");
        MakeEncrypted(path + L"\\deep\\b.txt", "encrypted b");
        MakePlain(path + L"\\README", "plain");
    }
    void ExpectTree(const std::wstring& path) {
        EXPECT_EQ((Names{L"README", L"a.txt", L"deep"}), List(path + L"\\*"));
        EXPECT_EQ("encrypted a", Get(path + L"\\a.txt"));
        EXPECT_EQ("encrypted b", Get(path + L"\\deep\\b.txt"));
        EXPECT_EQ("plain", Get(path + L"\\README"));
    }
};

TEST_F(WorkingWithFolders, AreMadeAndOpened) {
    MakeEncrypted(L"Docs\\a.txt", "a document");
    MakePlain(L"Docs\\README", "plain");
    MakePlain(L"Docs\\zip.zip", "an ordinary ZIP file");
    const std::tuple<std::uint32_t, Status, Names> rows[] = {
        {OPEN_EXISTING, VVS_FileNotFound, {L"Docs\\new"}},
        {CreateNewFolder, VVS_Success, {L"Docs\\new", L"Docs\\zip"}},
        {CreateNewFolder, VVS_PathAlreadyExists, {L"Docs\\new", L"Docs", L"Docs\\a.txt"}},  // it would hide the document
        {OpenOrCreateFolder, VVS_PathAlreadyExists, {L"Docs\\README", L"Docs\\a.txt"}},
        {OpenOrCreateFolder, VVS_Success, {L"Docs\\new", L"Docs\\new\\deeper", L"Docs"}},
        {OpenOrCreateFolder, VVS_PathNotFound, {L"Docs\\missing\\deeper"}},
        {OPEN_EXISTING, VVS_Success, {L"Docs\\new", L"Docs"}},
        {CreateNewFolder, VVS_MountFolderNotFound, {L"Nowhere"}},
        {OPEN_EXISTING, VVS_MountFolderNotFound, {L""}},
    };
    for (const auto& [disposition, status, paths] : rows)
        for (const std::wstring& path : paths)
            EXPECT_EQ(status, TryOpen(path, GENERIC_READ, disposition)) << Narrow(path) << ", disposition " << disposition;
    EXPECT_EQ((Names{L"README", L"a.txt", L"new", L"zip", L"zip.zip"}), List(L"Docs\\*"));
    EXPECT_EQ("a document", Get(L"Docs\\a.txt"));
}

TEST_F(WorkingWithFolders, HaveARecordAndNoContent) {
    void* const hFile = OpenFolder(L"Docs\\new", CreateNewFolder);
    VirtFindData findData = InfoOf(hFile);
    EXPECT_EQ(VIT_Folder, findData.itemType);
    EXPECT_TRUE(findData.fileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_STREQ(L"new", findData.fileName);
    EXPECT_EQ("<VSS_NotImplemented>", Read(hFile));
    EXPECT_EQ(VSS_NotImplemented, Write(hFile, "x"));
    EXPECT_EQ(VSS_NotImplemented, SetSize(hFile, 0));
    // Its times can be set, and it is deleted when it is empty.
    findData.lastWriteTime -= 36'000'000'000;
    for (const bool isSpared : {true, false}) {
        void* const hAgain = OpenFolder(L"Docs\\new");
        EXPECT_OK(volume()->SetFileInfo(hAgain, 0xFFFFFFFF, &findData));
        EXPECT_EQ(findData.lastWriteTime, Record(L"Docs\\new").lastWriteTime);
        EXPECT_OK(volume()->Delete(hAgain, nullptr));
        if (isSpared)
            EXPECT_OK(volume()->Undelete(hAgain, nullptr));
        Close(hAgain);
        Close(isSpared ? hFile : nullptr);
        EXPECT_EQ(isSpared, Exists(NativePath(L"Docs\\new")));
    }
    MakeTree(L"Docs\\tree");
    EXPECT_NE(VVS_Success, Delete(L"Docs\\tree"));
    ExpectTree(L"Docs\\tree");
}

TEST_F(WorkingWithFolders, AreRenamedAndMovedWithAllTheyHold) {
    MakeTree(L"Docs\\tree");
    MakeFolder(L"Docs\\sub");
    const Snapshot before = Disk();
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] {
                  void* const hFile = OpenFolder(L"Docs\\tree");
                  EXPECT_OK(Rename(hFile, L"Docs\\renamed"));
                  EXPECT_STREQ(L"renamed", InfoOf(hFile).fileName) << "the handle is at the new path";
                  EXPECT_OK(Rename(hFile, L"Docs\\sub\\again"));
                  Close(hFile);
                  ExpectTree(L"Docs\\sub\\again");
                  EXPECT_EACH(VVS_Success, Move(L"Docs\\sub\\again", L"Docs\\tree"), Move(L"Docs\\tree", L"Docs\\tree"),
                              Rename(L"Docs\\tree", L"Docs\\tree"));
              }));
    EXPECT_TRUE(before == Disk()) << "the containers' bytes are as they were";
    EXPECT_EACH(VVS_Success, Move(L"Docs\\tree", L"Docs\\Tree"), Rename(L"Docs\\tree", L"Docs\\TREE"));
    ExpectTree(L"Docs\\tree");

    // An edit that waits below it goes along, and its tracking file says where. A copy would be without it.
    LeaveUnsavedEdit(L"Docs\\tree\\a.txt", "edit");
    EXPECT_EQ(VVS_AccessDenied, Copy(L"Docs\\tree", L"Docs\\copy"));
    EXPECT_FALSE(Exists(NativePath(L"Docs\\copy")));
    EXPECT_OK(Move(L"Docs\\tree", L"Docs\\moved"));
    ASSERT_EQ(1u, TrackedEdits().size());
    const std::string told = ReadRaw(TrackedEdits()[0] + L".hvf");
    EXPECT_NE(told.npos, told.find("<srcfile>\r\n<name><![CDATA[" + Narrow(ContainerPath(L"Docs\\moved\\a.txt")) + "]]>")) << told;
    void* const hEdited = MustOpen(L"Docs\\moved\\a.txt");
    EXPECT_EQ("edit", Read(hEdited)) << "shown, and saved at the close";
    EXPECT_EQ(VVS_AccessDenied, Copy(L"Docs\\moved", L"Docs\\copy")) << "an opener has it, but it is not stored";
    Close(hEdited);
    EXPECT_EQ("edit", Stored(L"Docs\\moved\\a.txt"));
}

// Containers are moved unchanged, so they must not get into a folder of another key, nor plain files into a folder with one. When the
// companion library fails, unknown keys and owners must not compare equal, and no file may become unencrypted.
TEST_F(WorkingWithFolders, StayWithTheirKeyAndOwner) {
    MakeTree(L"Docs\\tree");
    MakeFolder(L"Plain\\p");
    MakePlain(L"Plain\\p\\x.txt", "clear text");
    const Snapshot before = Disk();
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {
        {L"Docs\\tree", L"Other\\tree", false},   // another key
        {L"Docs\\tree", L"Theirs\\tree", false},  // another owner
        {L"Docs\\tree", L"Plain\\tree", false},       {L"Plain\\p", L"Docs\\p", false},
        {L"Docs\\tree\\a.txt", L"Docs\\b.txt", true}, {L"Docs\\tree\\a.txt", L"Other\\b.txt", true},
        {L"Plain\\p\\x.txt", L"Docs\\b.txt", true},
    };
    const std::pair<const char*, Fault> failures[] = {
        {"nothing", Fault::None},
        {"Quelcrypt_GetHalvaneBoxConfig", Fault::Null},
        {"Quelcrypt_GetHalvaneBoxConfig", Fault::Error},
        {"IHalvaneBoxConfig::GetPolicy", Fault::Error},
        {"IHalvaneBoxConfig::GetTargetKeyId", Fault::NoText},
        {"IHalvaneBoxConfig::GetOwnerId", Fault::NoText},
    };
    for (const auto& [failing, fault] : failures)
        for (const auto& [from, to, isFile] : rows) {
            const bool tellsNoPolicy = failing == std::string_view("Quelcrypt_GetHalvaneBoxConfig");
            if (isFile && !tellsNoPolicy)
                continue;
            SCOPED_TRACE(Narrow(from) + " to " + Narrow(to) + " without " + failing);
            Companion().FailNth(failing, 1, fault, true);
            for (const Status status : {Move(from, to), Copy(from, to), Rename(from, to)})
                EXPECT_TRUE(status == VSS_EncryptError || (status == VVS_GeneralError && !tellsNoPolicy)) << StatusName(status);
            Companion().FailNth();
            EXPECT_TRUE(before == Disk());
            EXPECT_FALSE(Exists(NativePath(to)));
        }
    // Two empty keys match only if both folders have a policy or neither has.
    Configure(R"({"folders": [{"name": "Docs", "path": "Docs", "type": "general", "policy": "encrypt"},
        {"name": "Other", "path": "Other", "type": "general", "policy": "encrypt"}, {"name": "Plain", "path": "Plain", "type": "general"}]})");
    for (const auto& [from, to] : {std::pair(L"Docs\\tree", L"Plain\\tree"), std::pair(L"Plain\\p", L"Docs\\p")})
        EXPECT_EQ(VVS_GeneralError, Copy(from, to)) << Narrow(to);
    EXPECT_EACH(VVS_Success, Copy(L"Docs\\tree", L"Other\\tree"), Move(L"Plain\\p", L"Plain\\q"));
}

TEST_F(WorkingWithFolders, TakeNobodysPlace) {
    MakeTree(L"Docs\\tree");
    MakeFolder(L"Docs\\empty");
    MakeTree(L"Docs\\full");
    const Snapshot before = Disk();
    const std::tuple<Status, bool, Names> rows[] = {
        {VVS_PathAlreadyExists, true, {L"Docs\\empty", L"Docs\\full", L"Other"}},  // a copy goes into it
        {VVS_PathAlreadyExists, false, {L"Docs\\full\\a.txt", L"Docs\\full\\README"}},
        {VVS_PathNotFound, false, {L"Docs\\missing\\tree"}},
    };
    for (const auto& [expected, isFolder, places] : rows)
        for (const std::wstring& to : places)
            EXPECT_EACH(expected, Move(L"Docs\\tree", to), Rename(L"Docs\\tree", to), isFolder ? expected : Copy(L"Docs\\tree", to))
                << Narrow(to);
    for (const std::wstring& inside :
         {std::wstring(L"Docs\\tree\\deep\\inside"), std::wstring(L"Docs\\tree\\inside"), NativePath(L"Plain\\..\\Docs\\tree\\inside")}) {
        for (const Status status : {Move(L"Docs\\tree", inside), Rename(L"Docs\\tree", inside)})
            EXPECT_NE(VVS_Success, status) << Narrow(inside);
        EXPECT_EQ(VVS_InvalidParameter, Copy(L"Docs\\tree", inside)) << Narrow(inside);
    }
    EXPECT_TRUE(before == Disk());
    EXPECT_TRUE(Exists(NativePath(L"Docs\\empty")));
}

TEST_F(WorkingWithFolders, AreCopiedWhole) {
    MakeTree(L"Docs\\tree");
    const Snapshot before = Disk();
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] { EXPECT_OK(Copy(L"Docs\\tree", L"Docs\\copy")); }));
    ExpectTree(L"Docs\\copy");
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\tree", L"Docs\\tree"));
    // Into a folder that is there, whose own files stay; those of the same name are replaced.
    EXPECT_OK(Move(L"Docs\\copy\\README", L"Docs\\copy\\own"));
    Put(L"Docs\\copy\\a.txt", "changed");
    EXPECT_OK(Copy(L"Docs\\tree", L"Docs\\copy"));
    EXPECT_EQ("plain", Get(L"Docs\\copy\\own"));
    EXPECT_EQ("encrypted a", Get(L"Docs\\copy\\a.txt"));
    fs::remove_all(NativePath(L"Docs\\copy"));

    // A copy that fails leaves nothing behind: one of the files cannot be read.
    {
        const Held held(NativePath(L"Docs\\tree\\deep\\b.txt.zip"));
        EXPECT_EQ(VSS_SharingViolation, Copy(L"Docs\\tree", L"Docs\\copy"));
        EXPECT_FALSE(Exists(NativePath(L"Docs\\copy")));
    }
    windows_rules::Mark(L"deep", IO_REPARSE_TAG_MOUNT_POINT);  // it may lead anywhere
    EXPECT_EQ(VSS_NotImplemented, Copy(L"Docs\\tree", L"Docs\\copy"));
    EXPECT_FALSE(Exists(NativePath(L"Docs\\copy")));
    EXPECT_TRUE(before == Disk());
}

// What others store in the destination during the copy stays. A copy that fails deletes only what it created itself.
TEST_F(WorkingWithFolders, AreCopiedOverNothingThatIsStoredMeanwhile) {
    TryAgainAtOnce();
    static std::function<void(const std::wstring&)> s_beforeCopyOf;
    REPLACE_IN_VOLUME(CopyFileW, [](auto from, auto to, auto isNew) {
        s_beforeCopyOf(from);
        return CopyFileW(from, to, isNew);
    });
    MakeTree(L"Docs\\tree");
    void* hFile = nullptr;
    const auto fails = [&](const std::wstring& at, const std::function<void()>& act) {
        s_beforeCopyOf = [&](const std::wstring& from) { from.ends_with(at) ? act() : void(); };
        EXPECT_EQ(VSS_SharingViolation, Copy(L"Docs\\tree", L"Docs\\copy"));
    };
    fails(L"b.txt.zip", [&] {
        SaverElsewhere(L"Docs\\copy\\a.txt", "theirs")();
        MakePlain(L"Docs\\copy\\README", "theirs too");
    });
    EXPECT_EQ((Names{L"README", L"a.txt"}), List(L"Docs\\copy\\*"));
    EXPECT_EQ("theirs too", Get(L"Docs\\copy\\README"));
    fails(L"a.txt.zip", SaverElsewhere(L"Docs\\copy\\a.txt", "theirs again"));
    EXPECT_EQ("theirs again", Stored(L"Docs\\copy\\a.txt"));
    fs::remove_all(NativePath(L"Docs\\copy"));
    const Held held(NativePath(L"Docs\\tree\\README"));
    fails(L"b.txt.zip", [&] { std::thread([&] { hFile = OpenEdited(L"Docs\\copy\\a.txt", "ENCRYPTED"); }).join(); });
    Close(hFile);
    EXPECT_EQ("ENCRYPTED a", Stored(L"Docs\\copy\\a.txt")) << "what is open keeps its folder";
}

// Mount folders must not be moved, nor folders with something open or locked in them, which is saved under its old path.
TEST_F(WorkingWithFolders, StayWhileTheyAreNeeded) {
    MakeTree(L"Docs\\tree");
    const auto stays = [&](const std::wstring& path) {
        SCOPED_TRACE(Narrow(path));
        EXPECT_EACH(VVS_AccessDenied, Move(path, L"Plain\\moved"), Move(path, L"Docs\\moved"), Rename(path, L"Plain\\named"), Delete(path));
    };
    for (const std::wstring& path : {std::wstring(L"Docs"), std::wstring(L"Plain"), NativePath(L"Docs"), NativePath(L"Docs\\"), root()})
        stays(path);
    void* const hFile = OpenEdited(L"Docs\\tree\\deep\\b.txt", "ENCRYPTED");
    for (const std::wstring& path : {std::wstring(L"Docs\\tree"), NativePath(L"Docs\\tree\\"), NativePath(L"Docs//tree/")})
        stays(path);
    Close(hFile);
    const std::wstring token = Lock(L"Docs\\tree\\a.txt");
    stays(L"Docs\\tree");
    Unlock(L"Docs\\tree\\a.txt", token);
    EXPECT_OK(Rename(L"Docs\\tree", L"Docs\\moved")) << "its own handle is no obstacle";
    EXPECT_EQ("ENCRYPTED b", Get(L"Docs\\moved\\deep\\b.txt"));
    // Nor is an empty one deleted while the edit of a new document waits for it.
    MakeFolder(L"Docs\\empty");
    Failing("Quelcrypt_FileWriterFactory", Fault::Error, [&] { Put(L"Docs\\empty\\new.txt", "edit"); });
    EXPECT_EQ(VVS_AccessDenied, Delete(L"Docs\\empty"));
    EXPECT_EQ("edit", Get(L"Docs\\empty\\new.txt")) << "shown, and saved at the close";
    EXPECT_EQ("edit", Stored(L"Docs\\empty\\new.txt"));
}
