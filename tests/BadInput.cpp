// Invalid paths, handles, sizes and outputs: each gets a status, and nothing changes.

#include "harness/VolumeFixture.h"

using BadInput = VolumeFixture;
static const std::wstring kOverLong = L"Docs\\" + std::wstring(40'000, L'x');

TEST_F(BadInput, PathsThatAreNoneChangeNothing) {
    Put(L"Docs\\a.txt", "content");
    const Snapshot before = Disk();
    LockInfo lockInfo = NewLock();
    VirtFindData findData{};
    VirtMountInfo mountInfo{};
    for (const wchar_t* path :
         {static_cast<const wchar_t*>(nullptr), L"", L"x", L"Nowhere\\a.txt", L"Docs\\..\\..\\a", L"a\\b.txt", kOverLong.c_str(),
          L"Docs\\a|b", L"Docs\\<>\"?*", L"Docs\\a:stream", L"Docs\\\xD800.txt", L"Docs\\%s%n%x"}) {
        SCOPED_TRACE(path ? Narrow(path).substr(0, 40) : "<null>");
        void* hFile = this;
        EXPECT_NE(VVS_Success, volume()->OpenFile(&hFile, path, kReadWrite, kShareAll, OPEN_EXISTING, nullptr, &findData));
        EXPECT_EQ(nullptr, hFile);
        for (const Status status : {volume()->MoveFileW(path, L"Docs\\z.txt", nullptr), volume()->CopyFileW(path, L"Docs\\z.txt", nullptr),
                                    volume()->Unlock(path, L"{no token}"), volume()->FindLock(path, nullptr, &lockInfo)})
            EXPECT_NE(VVS_Success, status);
        EXPECT_EQ(nullptr, volume()->FindFirstLock(path, &lockInfo));
        volume()->GetMountInfoByVolumePath(path, &mountInfo);
        volume()->GetMountInfoByNativePath(path, &mountInfo);
        volume()->FindFile(path, &findData);
        volume()->FindClose(volume()->FindFirstFileW(path, &findData));
        volume()->FindClose(volume()->FindFirstMountFolder(path));
    }
    for (const wchar_t* to : {static_cast<const wchar_t*>(nullptr), kOverLong.c_str()})
        EXPECT_NE(VVS_Success, volume()->MoveFileW(L"Docs\\a.txt", to, nullptr));
    EXPECT_TRUE(before == Disk());
}

// A container is made at the close, which cannot report a failure, so an impossible one is refused at the open.
TEST_F(BadInput, FilesThatCouldNeverBeStoredAreNotOpened) {
    const Names paths{L"Docs\\" + std::wstring(248, L'n') + L".txt",  // its container has 256 units
                      L"Docs\\a." + std::wstring(199, L'x'),          // an ending that leaves no room for a conflict name
                      kOverLong + L".txt",
                      L"Docs\\\xD800.txt",
                      L"Docs\\a\xDC00\xD800.txt",
                      L"Docs\\NUL.txt",
                      L"Docs\\com1",
                      L"Plain\\AUX.log"};
    for (const std::uint32_t disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS}) {
        EXPECT_EQ(VVS_PathNotFound, TryOpen(L"Docs\\no folder\\a.txt", kReadWrite, disposition));
        for (const std::wstring& path : paths)
            EXPECT_EQ(VVS_InvalidParameter, TryOpen(path, kReadWrite, disposition)) << Narrow(path).substr(0, 40);
    }
    EXPECT_TRUE(Disk().empty());
    const std::wstring longest = L"Docs\\" + std::wstring(247, L'n') + L".txt";
    Put(longest, "content");
    EXPECT_EQ("content", Stored(longest));
}

TEST_F(BadInput, NothingTakesThePlaceOfAMissingMountFolder) {
    Encrypt(ContainerPath(L"Other\\Docs"), "another", {.name = L"Docs"});
    ASSERT_TRUE(MoveFileW(ContainerPath(L"Other\\Docs").c_str(), (root() + L"\\Docs.zip").c_str()));
    Put(L"Other\\a.txt", "content");
    ASSERT_TRUE(RemoveDirectoryW(NativePath(L"Docs").c_str()));
    for (const std::uint32_t disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_EXISTING, OPEN_ALWAYS})
        EXPECT_EQ(VVS_MountFolderNotFound, TryOpen(L"Docs", kReadWrite, disposition));
    EXPECT_EACH(VVS_MountFolderNotFound, TryLock(L"Docs"), Move(L"Other\\a.txt", L"Docs"), Rename(L"Other\\a.txt", L"Docs"));
    EXPECT_FALSE(Find(L"Docs")) << "what is beside it is no mount folder";
    EXPECT_EQ((Names{L"Other", L"Plain", L"Theirs"}), List(L"*"));
    EXPECT_FALSE(Exists(NativePath(L"Docs")));
    EXPECT_FALSE(HasLine(LinesDuring([&] { Find(L""); }), L"Virtual volume is empty!"));
    MakeFolder(L"Docs");
}

TEST_F(BadInput, SizesAndOffsetsOutOfReachChangeNothing) {
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        Put(path, "content");
        void* const hFile = MustOpen(path);
        char data[16];
        std::uint32_t done = 7;
        EXPECT_OK(volume()->ReadFile(hFile, 0, nullptr, 0, &done, nullptr));
        EXPECT_EQ(0u, done);
        EXPECT_OK(volume()->WriteFile(hFile, 0, nullptr, 0, &done, nullptr));
        for (const std::uint64_t beyond : {1ull << 63, 0xFFFF'FFFF'FFFF'FFFEull}) {
            done = 7;
            EXPECT_NE(VVS_Success, volume()->ReadFile(hFile, beyond, data, 16, &done, nullptr)) << beyond;
            EXPECT_EQ(0u, done);
            EXPECT_NE(VVS_Success, volume()->WriteFile(hFile, beyond, data, 16, &done, nullptr)) << beyond;
            EXPECT_NE(VVS_Success, SetSize(hFile, beyond)) << beyond;
        }
        VirtFindData findData = InfoOf(hFile);
        EXPECT_EQ(7, findData.fileSize);
        findData.lastWriteTime = 1ull << 63;
        EXPECT_NE(VVS_Success, volume()->SetFileInfo(hFile, 0xFFFFFFFF, &findData)) << "a time before all time";
        Close(hFile);
        EXPECT_EQ("content", Stored(path));
    }
}

TEST_F(BadInput, MissingOutputsAndUnknownDispositionsAreRefused) {
    Put(L"Docs\\a.txt", "content");
    EXPECT_EQ(VVS_InvalidParameter, volume()->OpenFile(nullptr, L"Docs\\a.txt", kReadWrite, kShareAll, OPEN_EXISTING, nullptr, nullptr));
    for (const std::uint32_t disposition : {0u, 6u, 9u, 12u, 0xFFFFFFFFu})
        for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\b"})
            EXPECT_EQ(VVS_InvalidParameter, TryOpen(path, kReadWrite, disposition)) << disposition;
    EXPECT_FALSE(volume()->FindFile(L"Docs", nullptr) || volume()->FindFile(L"Docs\\missing.txt", nullptr));
    EXPECT_EQ(nullptr, volume()->FindFirstFileW(L"Docs\\*", nullptr));
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EACH(VVS_InvalidParameter, volume()->Lock(L"Docs\\a.txt", nullptr), volume()->Unlock(L"Docs\\a.txt", nullptr),
                volume()->ReadFile(hFile, 0, nullptr, 10, nullptr, nullptr), volume()->WriteFile(hFile, 0, nullptr, 10, nullptr, nullptr),
                volume()->SetFileInfo(hFile, 0, nullptr));
    EXPECT_FALSE(volume()->GetFileInfo(hFile, nullptr));
    // A record full of what was there before, at whose end readable memory ends.
    constexpr std::size_t kPage = 4096;
    auto* const pages = static_cast<char*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    DWORD before = 0;
    ASSERT_TRUE(VirtualProtect(pages + kPage, kPage, PAGE_NOACCESS, &before));
    std::memset(pages, 'x', kPage);
    auto* const record = reinterpret_cast<VirtFindData*>(pages + kPage - sizeof(VirtFindData));
    EXPECT_EACH(VVS_Success, volume()->Delete(hFile, record), volume()->Undelete(hFile, record));
    EXPECT_EQ(VVS_InvalidParameter, volume()->SetFileInfo(nullptr, 0, record));
    EXPECT_TRUE(volume()->GetFileInfo(hFile, record));
    Close(hFile);
    std::memset(pages, 'x', kPage);
    auto* const lockInfo = reinterpret_cast<LockInfo*>(pages + kPage - sizeof(LockInfo));
    EXPECT_NE(VVS_Success, volume()->Lock(L"Nowhere\\a.txt", lockInfo));
    lockInfo->scope = LockScope_Exclusive;
    lockInfo->type = LockType_Write;
    EXPECT_OK(volume()->Lock(L"Docs\\a.txt", lockInfo));
    Unlock(L"Docs\\a.txt", lockInfo->token);
    VirtualFree(pages, 0, MEM_RELEASE);
    EXPECT_EQ("content", Stored(L"Docs\\a.txt"));
}

TEST_F(BadInput, StaleAndForeignFileHandlesAreRefused) {
    Put(L"Docs\\a.txt", "content");
    void* const stale = MustOpen(L"Docs\\a.txt");
    Close(stale);
    VirtFindData findData{};
    VirtMountInfo mountInfo{};
    LockInfo lockInfo{};
    const std::wstring token = Lock(L"Docs\\a.txt");
    void *const hFiles = volume()->FindFirstFileW(L"Docs\\*", &findData), *const hMounts = volume()->FindFirstMountFolder(L"*"),
                *const hLocks = volume()->FindFirstLock(L"Docs\\a.txt", &lockInfo);
    for (const auto& [search, mark] : {std::pair(hFiles, 0x4D464646u), {hMounts, 0x4D4D4646u}, {hLocks, 0x4D4C4646u}})
        ASSERT_EQ(mark, *static_cast<std::uint32_t*>(search));
    std::uint32_t none[16] = {0x12345678};
    for (void* handle : {static_cast<void*>(nullptr), stale, static_cast<void*>(none), reinterpret_cast<void*>(std::uintptr_t{0x10}),
                         hFiles, hMounts, hLocks}) {
        EXPECT_EQ("<VVS_InvalidParameter>", Read(handle));
        EXPECT_EACH(VVS_InvalidParameter, Write(handle, "x"), SetSize(handle, 0), volume()->Flush(handle),
                    volume()->Delete(handle, nullptr), volume()->Undelete(handle, nullptr), volume()->SetFileInfo(handle, 0, &findData),
                    Rename(handle, L"Docs\\b.txt"));
        EXPECT_FALSE(volume()->GetFileInfo(handle, &findData));
        Close(handle);
        EXPECT_FALSE(handle != hFiles && handle != hMounts && volume()->FindNextFileW(handle, &findData));
        EXPECT_FALSE(handle != hMounts && volume()->FindNextMountFolder(handle, &mountInfo));
        EXPECT_EQ(VVS_FileNotLocked, volume()->FindNextLock(handle, &lockInfo)) << "it held one lock";
        EXPECT_EQ(handle == hFiles || handle == hMounts || handle == hLocks, volume()->FindClose(handle));
        EXPECT_FALSE(volume()->FindClose(handle)) << "it is none any more";
    }
    Unlock(L"Docs\\a.txt", token);
    EXPECT_EQ("content", Stored(L"Docs\\a.txt"));

    // A closed handle is not reused soon. Without log lines, which could take the freed memory.
    UnloadVolume();
    Companion().level = 0;
    LoadVolume();
    std::set<void*> closed;
    for (int round = 0; round < 4; ++round) {
        std::vector<void*> handles(200);
        for (void*& hFile : handles)
            hFile = MustOpen(L"Docs\\a.txt", GENERIC_READ);
        for (void* const hFile : handles) {
            EXPECT_TRUE(closed.insert(hFile).second) << "round " << round;
            Close(hFile);
        }
    }
}
