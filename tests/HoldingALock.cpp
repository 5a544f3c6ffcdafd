// What a lock promises its holder and everybody else.
#include "harness/VolumeFixture.h"

#include <chrono>
#include <future>

// Called once, when the volume is about to open a file that may be missing, as a lock does; or about to read a file.
static std::function<void()> g_before;

class HoldingALock : public VolumeFixture {
protected:
    Status TryUnlock(const std::wstring& path, const std::wstring& token) { return volume()->Unlock(path.c_str(), token.c_str()); }
    Status TryFind(const std::wstring& path, const std::wstring& token = L"", LockInfo&& found = {}) {
        return volume()->FindLock(path.c_str(), token.c_str(), &found);
    }
};

TEST_F(HoldingALock, KeepsOthersFromWriting) {
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        Store(path, "content");
        const std::wstring file = StoredPath(path);
        const std::wstring token = Lock(path);
        EXPECT_EQ(38u, token.size());
        EXPECT_TRUE(Held(file, kShareAll, GENERIC_READ));
        EXPECT_FALSE(Held(file, kShareAll, GENERIC_WRITE));
        EXPECT_FALSE(Held(file, kShareAll, DELETE));
        // A wrong token opens nothing, none means the one that is there.
        EXPECT_EQ(VVS_Locked, TryOpen(path, GENERIC_READ, OPEN_EXISTING, L"{no such token}"));
        EXPECT_OK(TryOpen(path, kReadWrite, OPEN_EXISTING, token.c_str()));
        EXPECT_EQ(VSS_FileExists, TryOpen(path, kReadWrite, CREATE_NEW));
        Put(path, "written");
        EXPECT_FALSE(Held(file, kShareAll, GENERIC_WRITE)) << "saving keeps the lock";
        void* const hFile = MustOpen(path, kReadWrite, OPEN_EXISTING, token.c_str());
        const std::wstring otherCase = std::wstring(path, path + std::wcslen(path) - 5) + L"A.txt";
        EXPECT_EQ(VVS_Locked, Rename(hFile, otherCase, L"{no such token}"));
        EXPECT_OK(Rename(hFile, otherCase, token.c_str()));
        Close(hFile);
        Unlock(path, token);
        if (path[0] == L'D')  // a plain file's name is the platform's affair
            EXPECT_STREQ(L"A.txt", Record(path).fileName);
        EXPECT_TRUE(Held(file, kShareAll, GENERIC_WRITE));
        EXPECT_EQ("written", Stored(path));
        EXPECT_OK(TryOpen(path, kReadWrite, OPEN_EXISTING, L"{no such token}")) << "without a lock a token says nothing";
    }
}

TEST_F(HoldingALock, IsExclusiveOrShared) {
    const std::wstring path = L"Docs\\a.txt";
    MakeEncrypted(path, "content");
    const std::wstring exclusive = Lock(path);
    IVirtualVolume* const other = NewVolume();
    LockInfo lockInfo = NewLock(LockScope_Shared);
    EXPECT_EQ(VVS_LockScopeViolation, TryLock(path));
    EXPECT_EQ(VVS_LockScopeViolation, other->Lock(path.c_str(), &lockInfo)) << "whichever volume object asks";
    EXPECT_OK(other->Unlock(path.c_str(), exclusive.c_str()));
    other->Release();

    const std::wstring first = Lock(path, LockScope_Shared), second = Lock(path, LockScope_Shared);
    EXPECT_NE(first, second);
    EXPECT_EQ(VVS_LockScopeViolation, TryLock(path));
    EXPECT_OK(TryOpen(path, kReadWrite, OPEN_EXISTING, first.c_str()));
    void* const hFind = volume()->FindFirstLock(path.c_str(), &lockInfo);
    ASSERT_NE(nullptr, hFind);
    Unlock(path, first);
    EXPECT_EQ(VVS_Locked, TryOpen(path, GENERIC_READ, OPEN_EXISTING, first.c_str()));
    EXPECT_OK(TryOpen(path, kReadWrite, OPEN_EXISTING, second.c_str()));
    Unlock(path, second);
    EXPECT_EQ(VVS_FileNotLocked, TryFind(path));

    // A search goes through the locks as they were when it began.
    EXPECT_EQ(first, lockInfo.token);
    EXPECT_OK(volume()->FindNextLock(hFind, &lockInfo));
    EXPECT_EQ(second, lockInfo.token);
    EXPECT_EQ(VVS_FileNotLocked, volume()->FindNextLock(hFind, &lockInfo));
    EXPECT_TRUE(volume()->FindClose(hFind));
}

TEST_F(HoldingALock, IsFoundAndReleasedByItsToken) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    MakePlain(L"Plain\\held.txt", "content");
    LockInfo lockInfo = NewLock(LockScope_Shared), found{};
    lockInfo.timeout = 180;
    lockInfo.reserved = 7;
    std::fill(std::begin(lockInfo.owner), std::end(lockInfo.owner), L'o');  // not terminated
    ASSERT_OK(volume()->Lock(L"Docs\\a.txt", &lockInfo));
    EXPECT_EQ(7, lockInfo.reserved);
    const std::wstring token = lockInfo.token, second = Lock(L"Docs\\a.txt", LockScope_Shared);

    found.reserved = 9;
    ASSERT_OK(volume()->FindLock(L"docs\\A.TXT", nullptr, &found)) << "whatever the letter case; without a token, the oldest";
    EXPECT_EQ(token, found.token);
    EXPECT_EQ(std::wstring(63, L'o'), found.owner);
    EXPECT_EQ(std::tuple(180u, LockScope_Shared, LockType_Write, 9), std::tuple(found.timeout, found.scope, found.type, found.reserved));

    std::wstring otherCase = token;
    std::ranges::transform(token, otherCase.begin(), towlower);
    const Held held(NativePath(L"Plain\\held.txt"));
    const std::tuple<const wchar_t*, std::wstring, Status, Status, Status> rows[] = {
        {L"Docs\\a.txt", L"{no such token}", VVS_LockScopeViolation, VVS_LockTokenNotFound, VVS_LockTokenNotFound},
        {L"Docs\\a.txt", otherCase, VVS_LockScopeViolation, VVS_LockTokenNotFound, VVS_LockTokenNotFound},
        {L"Docs\\a.txt", L"", VVS_LockScopeViolation, VVS_Success, VVS_InvalidParameter},
        {L"Docs\\missing\\a.txt", token, VVS_PathNotFound, VVS_FileNotFound, VVS_FileNotLocked},
        {L"Plain\\missing\\a.txt", token, VVS_PathNotFound, VVS_FileNotFound, VVS_FileNotLocked},
        {L"Plain\\held.txt", token, VVS_Locked, VVS_FileNotLocked, VVS_FileNotLocked},
        {L"Docs", token, VVS_BadRequest, VVS_BadRequest, VVS_BadRequest},
        {L"Nowhere\\a.txt", token, VVS_MountFolderNotFound, VVS_MountFolderNotFound, VVS_MountFolderNotFound},
        {L"", token, VVS_MountFolderNotFound, VVS_MountFolderNotFound, VVS_MountFolderNotFound},
    };
    for (const auto& [path, itsToken, lock, find, unlock] : rows) {
        SCOPED_TRACE(Narrow(path) + " " + Narrow(itsToken));
        EXPECT_EQ(lock, TryLock(path));
        EXPECT_EQ(find, TryFind(path, itsToken));
        EXPECT_EQ(unlock, TryUnlock(path, itsToken));
        EXPECT_EQ(path == std::wstring(L"Docs\\a.txt"), volume()->FindClose(volume()->FindFirstLock(path, &found)));
        EXPECT_EQ(nullptr, volume()->FindFirstLock(path, nullptr));
    }
    EXPECT_EQ(VVS_InvalidParameter, volume()->FindLock(L"Docs\\a.txt", token.c_str(), nullptr));
    Unlock(L"DOCS\\a.TXT", token);
    EXPECT_EQ(VVS_LockTokenNotFound, TryUnlock(L"Docs\\a.txt", token)) << "the other one is held still";
    Unlock(L"Docs\\a.txt", second);
    EXPECT_EQ(VVS_FileNotLocked, TryUnlock(L"Docs\\a.txt", second));
    EXPECT_EQ(2u, Disk().size()) << "no lock that was refused made a file";
}

TEST_F(HoldingALock, MayBeginBeforeTheFileExists) {
    for (const std::wstring path : {L"Docs\\new.txt", L"Plain\\new.txt"}) {
        SCOPED_TRACE(Narrow(path));
        std::wstring token = Lock(path);
        for (const std::string content : {"", "written"}) {
            if (!content.empty())
                Put(path, content);
            void* hFile = MustOpen(path);
            const VirtFindData shown = Record(path), before = InfoOf(hFile);
            const std::uint32_t decryptions = CallsDuring("Quelcrypt_FileReaderFactory", [&] { EXPECT_EQ(content, Read(hFile)); });
            EXPECT_TRUE(decryptions == 0 || !content.empty());
            for (const VirtFindData& record : {shown, before, InfoOf(hFile)}) {
                EXPECT_EQ(IsPlain(path) ? VIT_PlainFile : VIT_EncryptedFile, record.itemType);
                EXPECT_STREQ(L"new.txt", record.fileName);
                EXPECT_EQ(content.size(), static_cast<std::size_t>(record.fileSize)) << "what was written";
            }
            Close(hFile);
        }
        Unlock(path, token);
        EXPECT_EQ("written", Stored(path));
        EXPECT_EQ(1u, Disk().size());
        EmptyFolders();
        token = Lock(path);
        Put(path, "");
        Unlock(path, token);
        EXPECT_EQ("", Stored(path)) << "an empty one that was meant stays";
        EmptyFolders();
        token = Lock(path);
        void* const hFile = MustOpen(path, GENERIC_READ | DELETE);
        Unlock(path, token);
        EXPECT_OK(volume()->Delete(hFile, nullptr));
        EXPECT_OK(volume()->Undelete(hFile, nullptr));
        Close(hFile);
        EXPECT_EQ(0u, Disk().size()) << "nobody wrote it";
    }
    Encrypt(ContainerPath(L"Docs\\new.txt.zip"), "another document, shown as new.txt.zip", {.name = L"new.txt.zip"});
    EXPECT_EQ(VVS_PathAlreadyExists, TryLock(L"Docs\\new.txt"));
}

TEST_F(HoldingALock, IsFoundThoughTheFormOfTheFileChanges) {
    // Taken for the container to be, while a plain file of the name appears: it is found there and released.
    const std::wstring token = Lock(L"Docs\\a.txt");
    MakePlain(L"Docs\\a.txt", "came plain");
    EXPECT_EQ(VVS_LockTokenNotFound, TryUnlock(L"Docs\\a.txt", L"{no such token}"));
    Unlock(L"Docs\\a.txt", token);
    EXPECT_EQ(1u, Disk().size());

    // Each of a plain file and its conflict copy has locks of its own.
    MakeEncrypted(L"Docs\\a.txt", "conflict copy");
    const std::wstring plain = Lock(L"Docs\\a.txt"), copy = Lock(L"Docs\\a.txt.zip");
    EXPECT_EQ("conflict copy", Get(L"Docs\\a.txt.zip"));
    EXPECT_EQ(VVS_LockTokenNotFound, TryUnlock(L"Docs\\a.txt", copy));
    EXPECT_EQ(VVS_Locked, TryOpen(L"Docs\\a.txt", GENERIC_READ, OPEN_EXISTING, copy.c_str()));
    Unlock(L"Docs\\a.txt", plain);
    Unlock(L"Docs\\a.txt.zip", copy);

    // Where nothing is encrypted, a ZIP file is just another.
    MakePlain(L"Plain\\b.txt.zip", "an ordinary ZIP file");
    Lock(L"Plain\\b.txt");
    EXPECT_TRUE(Held(NativePath(L"Plain\\b.txt.zip"), kShareAll, GENERIC_WRITE));
    EXPECT_FALSE(Held(NativePath(L"Plain\\b.txt"), kShareAll, GENERIC_WRITE));
}

TEST_F(HoldingALock, ShowsTheContainerThatItHolds) {
    // Exchanged between the look at it and the hold of it.
    MakeEncrypted(L"Docs\\a.txt", "old");
    REPLACE_IN_VOLUME(CreateFileW, [](auto path, auto access, auto share, auto who, auto how, auto... rest) {
        if (how == OPEN_ALWAYS && g_before)
            std::exchange(g_before, nullptr)();
        return CreateFileW(path, access, share, who, how, rest...);
    });
    g_before = SaverElsewhere(L"Docs\\a.txt", "newer content");
    const std::wstring token = Lock(L"Docs\\a.txt");
    EXPECT_FALSE(g_before);
    EXPECT_EQ("newer content", Get(L"Docs\\a.txt"));
    EXPECT_EQ(13, Record(L"Docs\\a.txt").fileSize);
    Unlock(L"Docs\\a.txt", token);

    // A conflict copy, and a document whose own name ends like a container's, keep name and type. What they hold is a container too: they
    // are described as such, not by what that holds.
    MakeEncrypted(L"Docs\\b.txt", "the conflict copy");
    MakePlain(L"Docs\\b.txt", "the plain one");
    MakeEncrypted(L"Docs\\x.zip", "a document");
    const std::string content = ReadRaw(ContainerPath(L"Docs\\b.txt"));
    for (const wchar_t* path : {L"Docs\\b.txt.zip", L"Docs\\x.zip"}) {
        SCOPED_TRACE(Narrow(path));
        const VirtFindData before = Record(path);
        const std::wstring held = Lock(path);
        void* const writer = OpenEdited(path, content);
        EXPECT_EQ(content.size(), static_cast<std::size_t>(InfoOf(writer).fileSize));
        Close(writer);
        for (const std::wstring& releases : {std::wstring(), held}) {
            Unlock(path, releases);
            EXPECT_STREQ(before.fileName, Record(path).fileName);
            EXPECT_EQ(before.itemType, Record(path).itemType);
            EXPECT_EQ(content.size(), static_cast<std::size_t>(Record(path).fileSize));
        }
        EXPECT_TRUE(content == Get(path));
    }
    EXPECT_EQ("the plain one", ReadRaw(NativePath(L"Docs\\b.txt")));
}

// A test cannot wait for something that must not happen, so it waits for a moment.
TEST_F(HoldingALock, IsNotWrittenWhileItIsRead) {
    MakeEncrypted(L"Docs\\a.txt", "old content");
    const std::wstring token = Lock(L"Docs\\a.txt");
    void *const reader = MustOpen(L"Docs\\a.txt", GENERIC_READ), *const writer = OpenEdited(L"Docs\\a.txt", "new content");
    std::future<void> saved;
    g_before = [&] {
        saved = std::async(std::launch::async, [&] { Close(writer); });
        EXPECT_EQ(std::future_status::timeout, saved.wait_for(std::chrono::milliseconds(200)));
    };
    REPLACE_IN_VOLUME(ReadFile, [](auto... all) {
        if (g_before)
            std::exchange(g_before, nullptr)();
        return ReadFile(all...);
    });
    const std::string read = Read(reader);
    saved.wait();
    EXPECT_TRUE(read == "old content" || read == "new content") << read;
    Close(reader);
    Unlock(L"Docs\\a.txt", token);
    EXPECT_EQ("new content", Stored(L"Docs\\a.txt"));
}
