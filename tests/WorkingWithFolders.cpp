// Folders of the volume: making, opening, renaming, moving, copying and deleting them, and what they refuse.
#include "harness/ConflictsAndBackups.h"
#include "harness/MovingFixture.h"

class WorkingWithFolders : public Moving {
protected:
    using Names = std::vector<std::wstring>;

    void* OpenFolder(const std::wstring& path, std::uint32_t disposition = OPEN_EXISTING) {
        return MustOpen(path, GENERIC_READ | DELETE, disposition);
    }
    VirtualVolumeStatus TryOpen(const std::wstring& path, std::uint32_t disposition) {
        void* hFile = nullptr;
        const VirtualVolumeStatus status = Open(&hFile, path, GENERIC_READ, disposition);
        EXPECT_EQ(status == VVS_Success, hFile != nullptr);
        Close(hFile);
        return status;
    }
    VirtualVolumeStatus RenameFolder(const std::wstring& from, const std::wstring& to) {
        void* const hFile = OpenFolder(from);
        const VirtualVolumeStatus status = Rename(hFile, to);
        Close(hFile);
        return status;
    }
    bool IsFolder(const std::wstring& path) const {
        const DWORD attributes = GetFileAttributesW(NativePath(path).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && attributes & FILE_ATTRIBUTE_DIRECTORY;
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
    const struct {
        const wchar_t* path;
        std::uint32_t disposition;
        VirtualVolumeStatus status;
    } rows[] = {
        {L"Docs\\new", OPEN_EXISTING, VVS_FileNotFound},
        {L"Docs\\new", CreateNewFolder, VVS_Success},
        {L"Docs\\new", CreateNewFolder, VVS_PathAlreadyExists},
        {L"Docs\\new", OpenOrCreateFolder, VVS_Success},
        {L"Docs\\new", OPEN_EXISTING, VVS_Success},
        {L"Docs\\new\\deeper", OpenOrCreateFolder, VVS_Success},
        {L"Docs\\missing\\deeper", CreateNewFolder, VVS_PathNotFound},
        {L"Docs\\missing\\deeper", OpenOrCreateFolder, VVS_PathNotFound},
        {L"Docs\\README", CreateNewFolder, VVS_PathAlreadyExists},
        {L"Docs\\README", OpenOrCreateFolder, VVS_PathAlreadyExists},
        {L"Docs\\a.txt", CreateNewFolder, VVS_PathAlreadyExists},  // the folder would hide the document
        {L"Docs\\a.txt", OpenOrCreateFolder, VVS_PathAlreadyExists},
        {L"Docs\\zip", CreateNewFolder, VVS_Success},
        {L"Docs", OPEN_EXISTING, VVS_Success},
        {L"Docs", OpenOrCreateFolder, VVS_Success},
        {L"Docs", CreateNewFolder, VVS_PathAlreadyExists},
        {L"Nowhere", CreateNewFolder, VVS_MountFolderNotFound},
        {L"", OPEN_EXISTING, VVS_MountFolderNotFound},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.status, TryOpen(row.path, row.disposition)) << Narrow(row.path) << ", disposition " << row.disposition;
    EXPECT_EQ((Names{L"README", L"a.txt", L"new", L"zip", L"zip.zip"}), List(L"Docs\\*"));
    EXPECT_EQ("a document", Get(L"Docs\\a.txt"));
    EXPECT_FALSE(Exists(NativePath(L"Docs\\missing")));
}

TEST_F(WorkingWithFolders, HaveARecordAndNoContent) {
    void* const hFile = OpenFolder(L"Docs\\new", CreateNewFolder);
    VirtFindData findData{};
    ASSERT_TRUE(volume()->GetFileInfo(hFile, &findData));
    EXPECT_EQ(VIT_Folder, findData.itemType);
    EXPECT_TRUE(findData.fileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(L"new", std::wstring(findData.fileName));
    char byte = 0;
    std::uint32_t done = 7;
    EXPECT_EQ(VSS_NotImplemented, volume()->ReadFile(hFile, 0, &byte, 1, &done, nullptr));
    EXPECT_EQ(0u, done);
    EXPECT_EQ(VSS_NotImplemented, volume()->WriteFile(hFile, 0, &byte, 1, &done, nullptr));
    EXPECT_EQ(VSS_NotImplemented, volume()->SetFileSize(hFile, 0, nullptr));

    // Its times can be set through a handle that may.
    Close(hFile);
    void* const hTimes = MustOpen(L"Docs\\new", GENERIC_READ);
    findData.lastWriteTime -= 36'000'000'000;
    EXPECT_OK(volume()->SetFileInfo(hTimes, 0xFFFFFFFF, &findData));
    VirtFindData now{};
    ASSERT_TRUE(volume()->GetFileInfo(hTimes, &now));
    EXPECT_EQ(findData.lastWriteTime, now.lastWriteTime);
    Close(hTimes);
}

TEST_F(WorkingWithFolders, AreRenamedAndMovedWithAllTheyHold) {
    MakeTree(L"Docs\\tree");
    MakeFolder(L"Docs\\sub");
    const Snapshot before = DiskBelow(L"Docs\\tree");
    void* const hFile = OpenFolder(L"Docs\\tree");
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] { EXPECT_OK(Rename(hFile, L"Docs\\renamed")); }));
    VirtFindData findData{};
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &findData));
    EXPECT_EQ(L"renamed", std::wstring(findData.fileName)) << "the handle is at the new path";
    EXPECT_OK(Rename(hFile, L"Docs\\sub\\again"));
    Close(hFile);
    ExpectTree(L"Docs\\sub\\again");
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] { EXPECT_OK(Move(L"Docs\\sub\\again", L"Docs\\tree")); }));
    EXPECT_TRUE(before == DiskBelow(L"Docs\\tree")) << "the containers' bytes are as they were";
    ExpectTree(L"Docs\\tree");
    EXPECT_FALSE(Exists(NativePath(L"Docs\\renamed")) || Exists(NativePath(L"Docs\\sub\\again")));

    // Onto itself, and to another letter case.
    EXPECT_OK(Move(L"Docs\\tree", L"Docs\\tree"));
    EXPECT_OK(RenameFolder(L"Docs\\tree", L"Docs\\tree"));
    EXPECT_OK(Move(L"Docs\\tree", L"Docs\\Tree"));
    EXPECT_OK(RenameFolder(L"Docs\\tree", L"Docs\\TREE"));
    ExpectTree(L"Docs\\tree");

    // Plain folders without keys and owners match each other.
    MakeFolder(L"Plain\\p\\deep");
    MakePlain(L"Plain\\p\\deep\\x.txt", "x");
    EXPECT_OK(Move(L"Plain\\p", L"Plain\\q"));
    EXPECT_EQ("x", Get(L"Plain\\q\\deep\\x.txt"));
}

// Containers move as they are, so they must not get under another key; and nothing plain under any.
TEST_F(WorkingWithFolders, StayWithTheirKeyAndOwner) {
    MakeTree(L"Docs\\tree");
    MakeFolder(L"Plain\\p");
    MakePlain(L"Plain\\p\\x.txt", "clear text");
    const Snapshot before = Disk();
    const struct {
        const wchar_t* from;
        const wchar_t* to;
    } rows[] = {
        {L"Docs\\tree", L"Other\\tree"},   // another key
        {L"Docs\\tree", L"Theirs\\tree"},  // another owner
        {L"Docs\\tree", L"Plain\\tree"},
        {L"Plain\\p", L"Docs\\p"},
    };
    // While the companion cannot answer, keys and owners are not two that are missing, and so alike.
    const std::pair<const char*, Fault> failures[] = {
        {"nothing", Fault::None},
        {"Quelcrypt_GetHalvaneBoxConfig", Fault::Error},
        {"IHalvaneBoxConfig::GetPolicy", Fault::Error},
        {"IHalvaneBoxConfig::GetTargetKeyId", Fault::NoText},
        {"IHalvaneBoxConfig::GetOwnerId", Fault::NoText},
    };
    for (const auto& [failing, fault] : failures)
        for (const auto& row : rows) {
            SCOPED_TRACE(Narrow(row.from) + std::string(" to ") + Narrow(row.to) + " without " + failing);
            TestCompanion_FailNth(failing, 1, fault, true);
            for (const VirtualVolumeStatus status : {Move(row.from, row.to), Copy(row.from, row.to), RenameFolder(row.from, row.to)})
                EXPECT_TRUE(status == VVS_GeneralError || (status == VSS_EncryptError && fault != Fault::None)) << StatusName(status);
            TestCompanion_FailNth(nullptr, 0, Fault::None, false);
            EXPECT_TRUE(before == Disk());
            EXPECT_FALSE(Exists(NativePath(row.to)));
        }
}

TEST_F(WorkingWithFolders, TakeNobodysPlace) {
    MakeTree(L"Docs\\tree");
    MakeFolder(L"Docs\\empty");
    MakeEncrypted(L"Docs\\file.txt", "a document");
    MakePlain(L"Docs\\README", "plain");
    MakeFolder(L"Docs\\full");
    MakeEncrypted(L"Docs\\full\\a.txt", "another a");
    const Snapshot before = Disk();
    for (const wchar_t* to : {L"Docs\\empty", L"Docs\\full", L"Docs\\file.txt", L"Docs\\README", L"Other"}) {
        SCOPED_TRACE(Narrow(to));
        EXPECT_EQ(VVS_PathAlreadyExists, Move(L"Docs\\tree", to));
        EXPECT_EQ(VVS_PathAlreadyExists, RenameFolder(L"Docs\\tree", to));
        EXPECT_TRUE(before == Disk());
    }
    for (const wchar_t* to : {L"Docs\\file.txt", L"Docs\\README"}) {
        EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\tree", to)) << Narrow(to);
    }
    for (const wchar_t* to : {L"Docs\\tree\\deep\\inside", L"Docs\\tree\\inside"}) {
        SCOPED_TRACE(Narrow(to) + " lies in the folder itself");
        EXPECT_NE(VVS_Success, Move(L"Docs\\tree", to));
        EXPECT_NE(VVS_Success, RenameFolder(L"Docs\\tree", to));
        EXPECT_NE(VVS_Success, Copy(L"Docs\\tree", to));
    }
    EXPECT_EQ(VVS_PathNotFound, Move(L"Docs\\tree", L"Docs\\missing\\tree"));
    EXPECT_EQ(VVS_PathNotFound, RenameFolder(L"Docs\\tree", L"Docs\\missing\\tree"));
    EXPECT_EQ(VVS_PathNotFound, Copy(L"Docs\\tree", L"Docs\\missing\\tree"));
    EXPECT_TRUE(before == Disk());
    EXPECT_TRUE(IsFolder(L"Docs\\empty"));
}

TEST_F(WorkingWithFolders, AreCopiedWhole) {
    MakeTree(L"Docs\\tree");
    const Snapshot before = Disk();
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] { EXPECT_OK(Copy(L"Docs\\tree", L"Docs\\copy")); }));
    ExpectTree(L"Docs\\copy");
    ExpectTree(L"Docs\\tree");
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\tree", L"Docs\\tree"));
    // Into a folder that is there, whose own files stay; those of the same name are replaced.
    EXPECT_OK(volume()->MoveFileW(L"Docs\\copy\\README", L"Docs\\copy\\own", nullptr));
    Put(L"Docs\\copy\\a.txt", "changed");
    EXPECT_OK(Copy(L"Docs\\tree", L"Docs\\copy"));
    EXPECT_EQ("plain", Get(L"Docs\\copy\\own"));
    EXPECT_EQ("encrypted a", Get(L"Docs\\copy\\a.txt"));
    std::filesystem::remove_all(NativePath(L"Docs\\copy"));

    // A copy that fails leaves nothing behind: one of the files cannot be read.
    const HANDLE held = CreateFileW(NativePath(L"Docs\\tree\\deep\\b.txt.zip").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    EXPECT_EQ(VSS_SharingViolation, Copy(L"Docs\\tree", L"Docs\\copy"));
    EXPECT_FALSE(Exists(NativePath(L"Docs\\copy")));
    CloseHandle(held);
    EXPECT_TRUE(before == Disk());
}

TEST_F(WorkingWithFolders, AreDeletedWhenEmpty) {
    void* hFile = OpenFolder(L"Docs\\empty", CreateNewFolder);
    EXPECT_OK(volume()->Delete(hFile, nullptr));
    EXPECT_OK(volume()->Delete(hFile, nullptr)) << "a second time changes nothing";
    EXPECT_OK(volume()->Undelete(hFile, nullptr));
    EXPECT_OK(volume()->Undelete(hFile, nullptr));
    Close(hFile);
    EXPECT_TRUE(IsFolder(L"Docs\\empty"));
    hFile = OpenFolder(L"Docs\\empty");
    EXPECT_OK(volume()->Delete(hFile, nullptr));
    Close(hFile);
    EXPECT_FALSE(Exists(NativePath(L"Docs\\empty")));

    MakeTree(L"Docs\\tree");
    hFile = OpenFolder(L"Docs\\tree");
    EXPECT_NE(VVS_Success, volume()->Delete(hFile, nullptr));
    Close(hFile);
    ExpectTree(L"Docs\\tree");
}

// The volume stands on its mount folders: none of them goes from under it, nor a folder that holds one.
TEST_F(WorkingWithFolders, MountFoldersStay) {
    MakeEncrypted(L"Docs\\a.txt", "kept");
    const std::wstring holder = root();
    for (const std::wstring& path : {std::wstring(L"Docs"), std::wstring(L"Plain"), NativePath(L"Docs"), holder}) {
        SCOPED_TRACE(Narrow(path));
        EXPECT_EQ(VVS_AccessDenied, Move(path, L"Plain\\moved"));
        EXPECT_EQ(VVS_AccessDenied, Move(path, L"Docs\\inside"));
        void* const hFile = MustOpen(path, GENERIC_READ | DELETE);
        EXPECT_EQ(VVS_AccessDenied, Rename(hFile, L"Plain\\renamed"));
        EXPECT_EQ(VVS_AccessDenied, volume()->Delete(hFile, nullptr));
        Close(hFile);
    }
    EXPECT_EQ("kept", Get(L"Docs\\a.txt"));
}

// What is open in a folder is saved where it was opened, so the folder stays meanwhile.
TEST_F(WorkingWithFolders, StayWhileSomethingInThemIsOpen) {
    MakeTree(L"Docs\\tree");
    void* const hFile = MustOpen(L"Docs\\tree\\deep\\b.txt");
    EXPECT_OK(Write(hFile, "ENCRYPTED"));
    EXPECT_EQ(VVS_AccessDenied, Move(L"Docs\\tree", L"Docs\\moved"));
    EXPECT_EQ(VVS_AccessDenied, RenameFolder(L"Docs\\tree", L"Docs\\moved"));
    Close(hFile);
    EXPECT_EQ("ENCRYPTED b", Get(L"Docs\\tree\\deep\\b.txt"));

    const std::wstring token = Lock(L"Docs\\tree\\a.txt");
    EXPECT_EQ(VVS_AccessDenied, Move(L"Docs\\tree", L"Docs\\moved"));
    EXPECT_EQ(VVS_AccessDenied, RenameFolder(L"Docs\\tree", L"Docs\\moved"));
    EXPECT_OK(volume()->Unlock(L"Docs\\tree\\a.txt", token.c_str()));

    void* const hFolder = OpenFolder(L"Docs\\tree");
    EXPECT_OK(Rename(hFolder, L"Docs\\moved")) << "its own handle is no obstacle";
    Close(hFolder);
    EXPECT_EQ("ENCRYPTED b", Get(L"Docs\\moved\\deep\\b.txt"));
    EXPECT_EQ("encrypted a", Get(L"Docs\\moved\\a.txt"));
}

TEST_F(WorkingWithFolders, TakeUnsavedEditsAlong) {
    MakeTree(L"Docs\\tree");
    void* const hFile = MustOpen(L"Docs\\tree\\a.txt");
    EXPECT_OK(Write(hFile, "AN EDIT OF"));
    {
        PromptedUser cancels;
        TestCompanion_FailNth("Quelcrypt_FileWriterFactory", 1, Fault::Null, true);
        Close(hFile);
        TestCompanion_FailNth(nullptr, 0, Fault::None, false);
    }
    ASSERT_EQ(1u, TrackedEdits().size());
    EXPECT_OK(Move(L"Docs\\tree", L"Docs\\moved"));
    EXPECT_EQ("AN EDIT OFa", Get(L"Docs\\moved\\a.txt")) << "shown, and saved at the close";
    EXPECT_EQ("AN EDIT OFa", ContainerContent(ContainerPath(L"Docs\\moved\\a.txt")));
    EXPECT_EQ(0u, TrackedEdits().size());
}
