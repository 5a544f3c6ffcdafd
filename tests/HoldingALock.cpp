// What a lock promises its holder and everybody else.
#include "harness/ConflictsAndBackups.h"
#include "harness/MovingFixture.h"

class HoldingALock : public Moving {
protected:
    static constexpr std::uint32_t kRead = GENERIC_READ;

    VirtualVolumeStatus TryLock(const std::wstring& path, LockScope scope = LockScope_Exclusive) {
        LockInfo lockInfo = NewLock(scope);
        return volume()->Lock(path.c_str(), &lockInfo);
    }
    VirtualVolumeStatus Unlock(const std::wstring& path, const std::wstring& token) {
        return volume()->Unlock(path.c_str(), token.c_str());
    }
    VirtualVolumeStatus TryFind(const std::wstring& path, const std::wstring& token = L"") {
        LockInfo lockInfo{};
        return volume()->FindLock(path.c_str(), token.c_str(), &lockInfo);
    }
    VirtualVolumeStatus TryOpen(const std::wstring& path, std::uint32_t access, const wchar_t* token) {
        void* hFile = nullptr;
        const VirtualVolumeStatus status = Open(&hFile, path, access, OPEN_EXISTING, token);
        Close(hFile);
        return status;
    }
    // What somebody outside the volume may do with a file.
    static bool OpensOutside(const std::wstring& nativePath, std::uint32_t access) {
        const HANDLE hFile = CreateFileW(nativePath.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
        if (hFile == INVALID_HANDLE_VALUE)
            return false;
        CloseHandle(hFile);
        return true;
    }
    std::vector<std::wstring> TokensOf(void* hFind, const LockInfo& first) {
        std::vector<std::wstring> tokens{first.token};
        LockInfo lockInfo{};
        while (volume()->FindNextLock(hFind, &lockInfo) == VVS_Success)
            tokens.emplace_back(lockInfo.token);
        return tokens;
    }
};

TEST_F(HoldingALock, KeepsOthersFromWriting) {
    MakeEncrypted(L"Docs\\a.txt", "encrypted");
    MakePlain(L"Plain\\a.txt", "plain");
    const struct {
        const wchar_t* path;
        std::wstring file;
        const char* content;
    } rows[] = {
        {L"Docs\\a.txt", ContainerPath(L"Docs\\a.txt"), "encrypted"},
        {L"Plain\\a.txt", NativePath(L"Plain\\a.txt"), "plain"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.path));
        const std::wstring token = Lock(row.path);
        EXPECT_EQ(38u, token.size());
        EXPECT_TRUE(OpensOutside(row.file, GENERIC_READ));
        EXPECT_FALSE(OpensOutside(row.file, GENERIC_WRITE));
        EXPECT_FALSE(OpensOutside(row.file, DELETE));
        EXPECT_EQ(row.content, Get(row.path));

        // A wrong token opens nothing, none means the one that is there.
        EXPECT_EQ(VVS_Locked, TryOpen(row.path, kRead, L"{no such token}"));
        EXPECT_EQ(VVS_Locked, TryOpen(row.path, kReadWrite, L"{no such token}"));
        EXPECT_OK(TryOpen(row.path, kReadWrite, token.c_str()));
        void* const hFile = MustOpen(row.path);
        EXPECT_OK(Write(hFile, "WRITTEN"));
        Close(hFile);
        EXPECT_EQ(0u, Get(row.path).find("WRITTEN"));
        EXPECT_FALSE(OpensOutside(row.file, GENERIC_WRITE)) << "saving keeps the lock";

        EXPECT_OK(Unlock(row.path, token));
        EXPECT_TRUE(OpensOutside(row.file, GENERIC_WRITE));
        EXPECT_EQ(0u, Get(row.path).find("WRITTEN"));
        EXPECT_OK(TryOpen(row.path, kReadWrite, L"{no such token}")) << "without a lock a token says nothing";
    }
}

TEST_F(HoldingALock, IsExclusiveOrShared) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    MakePlain(L"Plain\\a.txt", "content");
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const std::wstring exclusive = Lock(path);
        EXPECT_EQ(VVS_LockScopeViolation, TryLock(path, LockScope_Exclusive));
        EXPECT_EQ(VVS_LockScopeViolation, TryLock(path, LockScope_Shared));
        EXPECT_OK(Unlock(path, exclusive));

        const std::wstring first = Lock(path, LockScope_Shared);
        const std::wstring second = Lock(path, LockScope_Shared);
        EXPECT_NE(first, second);
        EXPECT_EQ(VVS_LockScopeViolation, TryLock(path, LockScope_Exclusive));
        EXPECT_OK(TryOpen(path, kReadWrite, first.c_str()));
        EXPECT_OK(TryOpen(path, kReadWrite, second.c_str()));
        EXPECT_OK(Unlock(path, first));
        EXPECT_EQ(VVS_Locked, TryOpen(path, kRead, first.c_str()));
        EXPECT_OK(TryFind(path, second));
        EXPECT_OK(Unlock(path, second));
        EXPECT_EQ(VVS_FileNotLocked, TryFind(path));
    }
}

TEST_F(HoldingALock, IsFoundAndReleasedByItsToken) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    LockInfo lockInfo = NewLock(LockScope_Shared);
    lockInfo.timeout = 180;
    lockInfo.reserved = 7;
    std::fill(std::begin(lockInfo.owner), std::end(lockInfo.owner), L'o');  // not terminated
    ASSERT_OK(volume()->Lock(L"Docs\\a.txt", &lockInfo));
    EXPECT_EQ(7, lockInfo.reserved);
    const std::wstring token = lockInfo.token;
    Lock(L"Docs\\a.txt", LockScope_Shared);

    LockInfo found{};
    found.reserved = 9;
    ASSERT_OK(volume()->FindLock(L"docs\\A.TXT", nullptr, &found)) << "whatever the letter case; without a token, the oldest";
    EXPECT_EQ(token, found.token);
    EXPECT_EQ(std::wstring(63, L'o'), found.owner);
    EXPECT_EQ(180u, found.timeout);
    EXPECT_EQ(LockScope_Shared, found.scope);
    EXPECT_EQ(LockType_Write, found.type);
    EXPECT_EQ(9, found.reserved);

    std::wstring otherCase = token;
    for (wchar_t& unit : otherCase)
        unit = unit >= L'A' && unit <= L'F' ? static_cast<wchar_t>(unit + 32) : unit;
    const struct {
        const wchar_t* path;
        std::wstring token;
        VirtualVolumeStatus find;
        VirtualVolumeStatus unlock;
    } rows[] = {
        {L"Docs\\a.txt", L"{no such token}", VVS_LockTokenNotFound, VVS_LockTokenNotFound},
        {L"Docs\\a.txt", otherCase, VVS_LockTokenNotFound, VVS_LockTokenNotFound},
        {L"Docs\\a.txt", L"", VVS_Success, VVS_InvalidParameter},
        {L"Docs\\missing.txt", token, VVS_FileNotFound, VVS_FileNotLocked},
        {L"Plain\\missing.txt", token, VVS_FileNotFound, VVS_FileNotLocked},
        {L"Docs", token, VVS_BadRequest, VVS_BadRequest},
        {L"Nowhere\\a.txt", token, VVS_MountFolderNotFound, VVS_MountFolderNotFound},
        {L"", token, VVS_MountFolderNotFound, VVS_MountFolderNotFound},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.find, TryFind(row.path, row.token)) << Narrow(row.path) << " " << Narrow(row.token);
        EXPECT_EQ(row.unlock, Unlock(row.path, row.token)) << Narrow(row.path) << " " << Narrow(row.token);
    }
    EXPECT_EQ(VVS_InvalidParameter, volume()->FindLock(L"Docs\\a.txt", token.c_str(), nullptr));
    EXPECT_EQ(VVS_InvalidParameter, volume()->Unlock(L"Docs\\a.txt", nullptr));
    EXPECT_OK(Unlock(L"DOCS\\a.TXT", token));
    EXPECT_EQ(VVS_LockTokenNotFound, Unlock(L"Docs\\a.txt", token)) << "the other one is held still";
    ASSERT_OK(volume()->FindLock(L"Docs\\a.txt", nullptr, &found));
    EXPECT_OK(Unlock(L"Docs\\a.txt", found.token));
    EXPECT_EQ(VVS_FileNotLocked, Unlock(L"Docs\\a.txt", found.token));
}

TEST_F(HoldingALock, IsRefusedWhereItCannotBe) {
    MakePlain(L"Plain\\a.txt", "content");
    EXPECT_EQ(VVS_BadRequest, TryLock(L"Docs"));
    EXPECT_EQ(VVS_MountFolderNotFound, TryLock(L""));
    EXPECT_EQ(VVS_MountFolderNotFound, TryLock(L"Nowhere\\a.txt"));
    EXPECT_EQ(VVS_PathNotFound, TryLock(L"Docs\\missing\\a.txt"));
    EXPECT_EQ(VVS_PathNotFound, TryLock(L"Plain\\missing\\a.txt"));
    EXPECT_EQ(VVS_InvalidParameter, volume()->Lock(L"Docs\\a.txt", nullptr));
    EXPECT_FALSE(Exists(ContainerPath(L"Docs\\a.txt")));

    // Somebody holds the file.
    void* const writer = MustOpen(L"Plain\\a.txt", GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(VVS_Locked, TryLock(L"Plain\\a.txt"));
    Close(writer);
    const HANDLE outside = CreateFileW(NativePath(L"Plain\\a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(VVS_Locked, TryLock(L"Plain\\a.txt"));
    CloseHandle(outside);
    EXPECT_EQ(VVS_FileNotLocked, TryFind(L"Plain\\a.txt"));
    EXPECT_OK(Unlock(L"Plain\\a.txt", Lock(L"Plain\\a.txt")));
}

TEST_F(HoldingALock, MayBeginBeforeTheFileExists) {
    for (const wchar_t* path : {L"Docs\\new.txt", L"Plain\\new.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const bool isEncrypted = std::wstring_view(path).starts_with(L"Docs");
        // Nothing written: nothing left.
        std::wstring token = Lock(path);
        VirtFindData findData{};
        ASSERT_TRUE(Find(path, &findData));
        EXPECT_EQ(isEncrypted ? VIT_EncryptedFile : VIT_PlainFile, findData.itemType);
        EXPECT_EQ(L"new.txt", std::wstring(findData.fileName));
        EXPECT_EQ(0, findData.fileSize);
        EXPECT_EQ("", Get(path));
        EXPECT_OK(Unlock(path, token));
        EXPECT_TRUE(Disk().empty());

        // Written: kept, and what is listed meanwhile is what was written.
        token = Lock(path);
        void* const hFile = MustOpen(path, kReadWrite, OPEN_EXISTING, token.c_str());
        EXPECT_OK(Write(hFile, "written"));
        Close(hFile);
        EXPECT_OK(TryFind(path, token));
        ASSERT_TRUE(Find(path, &findData));
        EXPECT_EQ(7, findData.fileSize);
        EXPECT_EQ(L"new.txt", std::wstring(findData.fileName));
        EXPECT_EQ("written", Get(path));
        EXPECT_OK(Unlock(path, token));
        EXPECT_EQ("written", Get(path));
        EXPECT_EQ("written", isEncrypted ? ContainerContent(ContainerPath(path)) : ReadRaw(NativePath(path)));
        EXPECT_EQ(1u, Disk().size());
        Delete(path);

        // Written through a handle that outlives the lock: kept as well.
        token = Lock(path);
        void* const late = MustOpen(path, kReadWrite, OPEN_EXISTING, token.c_str());
        EXPECT_OK(Unlock(path, token));
        EXPECT_OK(Write(late, "late"));
        Close(late);
        EXPECT_EQ("late", Get(path));
        Delete(path);
        EXPECT_TRUE(Disk().empty());
    }
    // An encrypted file that is opened so and never written leaves no empty container.
    const std::wstring token = Lock(L"Docs\\new.txt");
    void* const unused = MustOpen(L"Docs\\new.txt");
    EXPECT_OK(Unlock(L"Docs\\new.txt", token));
    Close(unused);
    EXPECT_TRUE(Disk().empty());
}

TEST_F(HoldingALock, IsTheContainersAlsoWhileThatCannotBeRead) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    MakePlain(L"Plain\\b.txt.zip", "an ordinary ZIP file");
    TestCompanion_FailNth("Quelcrypt_GetFileInformation", 1, Fault::Null, true);
    const std::wstring token = Lock(L"Docs\\a.txt");
    EXPECT_FALSE(Exists(NativePath(L"Docs\\a.txt"))) << "nothing that could be written in clear";
    EXPECT_FALSE(OpensOutside(ContainerPath(L"Docs\\a.txt"), GENERIC_WRITE));
    EXPECT_OK(TryFind(L"Docs\\a.txt", token));
    TestCompanion_FailNth(nullptr, 0, Fault::None, false);
    EXPECT_OK(TryFind(L"Docs\\a.txt", token));
    void* const hFile = MustOpen(L"Docs\\a.txt", kReadWrite, OPEN_EXISTING, token.c_str());
    EXPECT_OK(Write(hFile, "CONTENT"));
    Close(hFile);
    EXPECT_OK(Unlock(L"Docs\\a.txt", token));
    EXPECT_EQ("CONTENT", Get(L"Docs\\a.txt"));

    // Where nothing is encrypted, a ZIP file of the name is just another file.
    const std::wstring plain = Lock(L"Plain\\b.txt");
    EXPECT_TRUE(OpensOutside(NativePath(L"Plain\\b.txt.zip"), GENERIC_WRITE));
    EXPECT_FALSE(OpensOutside(NativePath(L"Plain\\b.txt"), GENERIC_WRITE));
    EXPECT_OK(Unlock(L"Plain\\b.txt", plain));
    EXPECT_FALSE(Exists(NativePath(L"Plain\\b.txt")));
}

TEST_F(HoldingALock, LastsThroughChangesOfTheForm) {
    // Taken for the container to be, while a plain file of the name appears: it is found there and released.
    const std::wstring token = Lock(L"Docs\\a.txt");
    MakePlain(L"Docs\\a.txt", "came plain");
    EXPECT_EQ(VVS_LockTokenNotFound, Unlock(L"Docs\\a.txt", L"{no such token}"));
    EXPECT_OK(Unlock(L"Docs\\a.txt", token));
    EXPECT_EQ("came plain", Get(L"Docs\\a.txt"));
    EXPECT_EQ(1u, Disk().size());

    // Each of a plain file and its conflict copy has locks of its own.
    MakeEncrypted(L"Docs\\a.txt", "conflict copy");
    const std::wstring plain = Lock(L"Docs\\a.txt");
    const std::wstring copy = Lock(L"Docs\\a.txt.zip");
    EXPECT_EQ("conflict copy", Get(L"Docs\\a.txt.zip"));
    EXPECT_EQ(VVS_LockTokenNotFound, Unlock(L"Docs\\a.txt", copy));
    EXPECT_EQ(VVS_Locked, TryOpen(L"Docs\\a.txt", kRead, copy.c_str()));
    EXPECT_OK(Unlock(L"Docs\\a.txt", plain));
    EXPECT_OK(Unlock(L"Docs\\a.txt.zip", copy));
    EXPECT_EQ("conflict copy", Get(L"Docs\\a.txt.zip"));
}

TEST_F(HoldingALock, IsEnumeratedAsItWas) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    LockInfo lockInfo{};
    EXPECT_EQ(nullptr, volume()->FindFirstLock(L"Docs\\a.txt", &lockInfo));
    EXPECT_EQ(nullptr, volume()->FindFirstLock(L"Docs\\missing.txt", &lockInfo));
    EXPECT_EQ(nullptr, volume()->FindFirstLock(L"Docs", &lockInfo));
    EXPECT_EQ(nullptr, volume()->FindFirstLock(L"Nowhere\\a.txt", &lockInfo));

    const std::wstring first = Lock(L"Docs\\a.txt", LockScope_Shared);
    const std::wstring second = Lock(L"Docs\\a.txt", LockScope_Shared);
    EXPECT_EQ(nullptr, volume()->FindFirstLock(L"Docs\\a.txt", nullptr));
    void* hFind = volume()->FindFirstLock(L"Docs\\a.txt", &lockInfo);
    ASSERT_NE(nullptr, hFind);
    const std::wstring third = Lock(L"Docs\\a.txt", LockScope_Shared);
    EXPECT_OK(Unlock(L"Docs\\a.txt", second));
    EXPECT_EQ((std::vector<std::wstring>{first, second}), TokensOf(hFind, lockInfo)) << "as they were when the search began";
    EXPECT_EQ(VVS_FileNotLocked, volume()->FindNextLock(hFind, &lockInfo));
    VirtFindData findData{};
    EXPECT_FALSE(volume()->FindNextFileW(hFind, &findData)) << "another kind of search";
    EXPECT_TRUE(volume()->FindClose(hFind));
    EXPECT_FALSE(volume()->FindClose(hFind));
    EXPECT_EQ(VVS_FileNotLocked, volume()->FindNextLock(hFind, &lockInfo));

    hFind = volume()->FindFirstFileW(L"Docs\\*", &findData);
    EXPECT_EQ(VVS_FileNotLocked, volume()->FindNextLock(hFind, &lockInfo));
    EXPECT_TRUE(volume()->FindClose(hFind));
    EXPECT_OK(Unlock(L"Docs\\a.txt", first));
    EXPECT_OK(Unlock(L"Docs\\a.txt", third));
}

TEST_F(HoldingALock, CoversDeletion) {
    MakeEncrypted(L"Docs\\a.txt", "encrypted");
    MakePlain(L"Plain\\a.txt", "plain");
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const std::string content = Get(path);
        const std::wstring token = Lock(path);
        void* hFile = MustOpen(path);
        EXPECT_OK(volume()->Delete(hFile, nullptr));
        EXPECT_OK(volume()->Undelete(hFile, nullptr));
        Close(hFile);
        EXPECT_EQ(content, Get(path));
        hFile = MustOpen(path);
        EXPECT_OK(volume()->Delete(hFile, nullptr));
        Close(hFile);
        EXPECT_OK(Unlock(path, token));
        EXPECT_EQ("<VVS_FileNotFound>", Get(path));
    }
    EXPECT_TRUE(Disk().empty());
}

// Neither the lock's holder nor who had the file open before loses his edit.
TEST_F(HoldingALock, KeepsBothEditsOfTwoWriters) {
    PromptedUser nobodyIsAsked;
    MakeEncrypted(L"Docs\\a.txt", "base");
    void* const earlier = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(earlier, "by the earlier opener"));
    const std::wstring token = Lock(L"Docs\\a.txt");
    Close(earlier);
    EXPECT_EQ("base", Get(L"Docs\\a.txt"));
    EXPECT_EQ("by the earlier opener", Get(L"Docs\\" + ConflictName(L"a.txt")));

    void* const holder = MustOpen(L"Docs\\a.txt", kReadWrite, OPEN_EXISTING, token.c_str());
    void* const second = MustOpen(L"Docs\\a.txt", kReadWrite, OPEN_EXISTING, token.c_str());
    EXPECT_OK(Write(holder, "by the holder"));
    EXPECT_OK(Write(second, "by the holder's second program"));
    Close(holder);
    Close(second);
    EXPECT_EQ("by the holder", Get(L"Docs\\a.txt"));
    EXPECT_EQ("by the holder's second program", Get(L"Docs\\" + ConflictName(L"a.txt", 2)));
    EXPECT_OK(Unlock(L"Docs\\a.txt", token));
    EXPECT_EQ(3u, List(L"Docs\\*").size());
    EXPECT_EQ(0, nobodyIsAsked.Prompts());
}

TEST_F(HoldingALock, IsSharedByAllVolumeObjects) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    IVirtualVolume* const other = NewVolume();
    const std::wstring token = Lock(L"Docs\\a.txt");
    LockInfo lockInfo = NewLock();
    EXPECT_EQ(VVS_LockScopeViolation, other->Lock(L"Docs\\a.txt", &lockInfo));
    EXPECT_OK(other->FindLock(L"Docs\\a.txt", nullptr, &lockInfo));
    EXPECT_EQ(token, lockInfo.token);
    void* hFile = nullptr;
    EXPECT_EQ(VVS_Locked, other->OpenFile(&hFile, L"Docs\\a.txt", kRead, kShareAll, OPEN_EXISTING, L"{no such token}", nullptr));
    EXPECT_OK(other->Unlock(L"Docs\\a.txt", token.c_str()));
    other->Release();
    EXPECT_EQ(VVS_FileNotLocked, TryFind(L"Docs\\a.txt"));
}

// The test runs itself a second time, beside the first and over the same folders.
class HoldingALockBesideAnotherProcess : public HoldingALock {
protected:
    static constexpr const wchar_t* kRole = L"QUELCRYPT_TEST_SECOND_PROCESS";

    static bool IsSecond() { return GetEnvironmentVariableW(kRole, nullptr, 0) != 0; }
    void SetUp() override { IsSecond() ? LoadVolume() : HoldingALock::SetUp(); }
    void TearDown() override { IsSecond() ? UnloadVolume() : HoldingALock::TearDown(); }

    static DWORD RunSecond() {
        wchar_t program[MAX_PATH];
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        std::wstring command = L"\"" + std::wstring(program) + L"\" --gtest_filter=HoldingALockBesideAnotherProcess.*";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        SetEnvironmentVariableW(kRole, L"1");
        EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
        SetEnvironmentVariableW(kRole, nullptr);
        WaitForSingleObject(process.hProcess, INFINITE);
        DWORD exitCode = 1;
        GetExitCodeProcess(process.hProcess, &exitCode);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return exitCode;
    }

    void Second() {
        for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
            SCOPED_TRACE(Narrow(path));
            EXPECT_EQ(VVS_Locked, TryLock(path));
            EXPECT_EQ(VVS_FileNotLocked, TryFind(path)) << "a lock is known where it was taken";
            EXPECT_EQ("content", Get(path));
            EXPECT_NE(VVS_Success, Move(path, L"Docs\\moved.txt"));
            EXPECT_NE(VVS_Success, Move(path, L"Other\\a.txt"));
            EXPECT_NE(VVS_Success, Move(path, L"Plain\\moved.txt"));
            EXPECT_NE(VVS_Success, Copy(L"Docs\\free.txt", path));
            EXPECT_OK(Copy(path, L"Docs\\copy.txt"));
            EXPECT_EQ("content", Get(L"Docs\\copy.txt"));
            Delete(L"Docs\\copy.txt");
        }
        // A plain file opens for reading alone, and takes no writes.
        void* hFile = MustOpen(L"Plain\\a.txt", GENERIC_READ | GENERIC_WRITE);
        EXPECT_NE(VVS_Success, Write(hFile, "intruded"));
        Close(hFile);
        EXPECT_EQ("content", Get(L"Plain\\a.txt"));
        // An edit of an encrypted one is not lost: nobody picks a folder here, so it waits in its temp file.
        PromptedUser cancels;
        hFile = MustOpen(L"Docs\\a.txt");
        EXPECT_OK(Write(hFile, "waiting"));
        Close(hFile);
        EXPECT_EQ(1, cancels.Prompts());
        EXPECT_EQ("waiting", Get(L"Docs\\a.txt"));
    }
};

TEST_F(HoldingALockBesideAnotherProcess, KeepsTheFileFromIt) {
    if (IsSecond())
        return Second();
    MakeEncrypted(L"Docs\\a.txt", "content");
    MakeEncrypted(L"Docs\\free.txt", "free");
    MakePlain(L"Plain\\a.txt", "content");
    const std::wstring encrypted = Lock(L"Docs\\a.txt");
    const std::wstring plain = Lock(L"Plain\\a.txt");
    EXPECT_EQ(0u, RunSecond());
    ExpectUnsavedEdits(1);
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
    EXPECT_EQ("content", Get(L"Plain\\a.txt"));
    EXPECT_OK(Unlock(L"Docs\\a.txt", encrypted));
    EXPECT_OK(Unlock(L"Plain\\a.txt", plain));
    EXPECT_EQ(3u, Disk().size()) << "nothing was moved or half copied";
}
