#include <algorithm>
#include <iterator>
#include <set>

#include "harness/VolumeFixture.h"

class BadInput : public VolumeFixture {};

namespace {

const std::wstring kOverLong = L"Docs\\" + std::wstring(40'000, L'x');
const wchar_t* const kBadPaths[] = {nullptr,          L"",          L"x",           L"Nowhere\\a.txt", L"Docs\\..\\..\\a",
                                    kOverLong.c_str(), L"Docs\\a|b",  L"Docs\\<>\"?*", L"Docs\\a:stream", L"a\\b.txt",        L"Docs\\\xD800.txt",
                                    L"Docs\\%s%n%x"};

}  // namespace

TEST_F(BadInput, PathsThatAreNoneGetAStatus) {
    const std::vector<std::wstring> before = FilesBelow(root());
    LockInfo lockInfo = NewLock();
    VirtFindData findData{};
    VirtMountInfo mountInfo{};
    for (const wchar_t* path : kBadPaths) {
        const std::string shown = path ? Narrow(std::wstring_view(path).substr(0, 40)) : "<null>";
        void* hFile = this;
        EXPECT_NE(VVS_Success, volume()->OpenFile(&hFile, path, kReadWrite, kShareAll, OPEN_EXISTING, nullptr, &findData)) << shown;
        EXPECT_EQ(nullptr, hFile) << shown;
        EXPECT_NE(VVS_Success, volume()->MoveFileW(path, L"Docs\\z.txt", nullptr)) << shown;
        EXPECT_NE(VVS_Success, volume()->CopyFileW(path, L"Docs\\z.txt", nullptr)) << shown;
        EXPECT_NE(VVS_Success, volume()->Unlock(path, L"{no token}")) << shown;
        EXPECT_NE(VVS_Success, volume()->FindLock(path, nullptr, &lockInfo)) << shown;
        EXPECT_EQ(nullptr, volume()->FindFirstLock(path, &lockInfo)) << shown;
        volume()->GetMountInfoByVolumePath(path, &mountInfo);
        volume()->GetMountInfoByNativePath(path, &mountInfo);
        volume()->FindFile(path, &findData);
        if (void* const hFind = volume()->FindFirstFileW(path, &findData))
            volume()->FindClose(hFind);
        if (void* const hFind = volume()->FindFirstMountFolder(path))
            volume()->FindClose(hFind);
    }
    EXPECT_EQ(before, FilesBelow(root())) << "nothing was made or removed";
    EXPECT_EQ(VVS_MountFolderNotFound, volume()->MoveFileW(L"Nowhere\\a", L"Docs\\b", nullptr));
    EXPECT_EQ(VVS_MountFolderNotFound, volume()->Lock(L"Nowhere\\a", &lockInfo));
}

// A container is made at the close, where nobody can be told: what cannot be made is refused when it is opened.
TEST_F(BadInput, FilesThatCouldNeverBeStoredAreNotOpened) {
    const std::vector<std::wstring> before = FilesBelow(root());
    const struct {
        std::wstring path;
        VirtualVolumeStatus status;
    } rows[] = {
        {L"Docs\\no folder\\a.txt", VVS_PathNotFound},
        {L"Docs\\" + std::wstring(248, L'n') + L".txt", VVS_InvalidParameter},  // its container has 256 units
        {kOverLong + L".txt", VVS_InvalidParameter},
        {L"Docs\\a." + std::wstring(199, L'x'), VVS_InvalidParameter},  // an ending that leaves no room for a conflict name
        {L"Docs\\\xD800.txt", VVS_InvalidParameter},                   // half a character
        {L"Docs\\a\xDC00\xD800.txt", VVS_InvalidParameter},
        {L"Docs\\NUL.txt", VVS_MountFolderNotFound},
        {L"Docs\\com1", VVS_MountFolderNotFound},
        {L"Plain\\AUX.log", VVS_MountFolderNotFound},
    };
    for (const auto& row : rows)
        for (const std::uint32_t disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS}) {
            void* hFile = nullptr;
            EXPECT_EQ(row.status, Open(&hFile, row.path, kReadWrite, disposition)) << Narrow(row.path.substr(0, 40));
            EXPECT_EQ(nullptr, hFile);
        }
    EXPECT_EQ(before, FilesBelow(root()));
    const std::wstring longest = L"Docs\\" + std::wstring(247, L'n') + L".txt";
    Put(longest, "content");
    EXPECT_EQ("content", Get(longest));
}

TEST_F(BadInput, DestinationsThatAreNoneLeaveTheSourceWhole) {
    Put(L"Docs\\a.txt", "content");
    Put(L"Plain\\p", "content");
    const auto files = [&] {
        std::vector<std::wstring> all = FilesBelow(root());
        std::erase_if(all, [&](const std::wstring& file) { return file.starts_with(temp()); });  // retained copies
        return all;
    };
    const std::vector<std::wstring> before = files();
    const wchar_t* const destinations[] = {nullptr,          L"",         L"x",       L"Nowhere\\a.txt", L"Docs\\..\\..\\a", L"Docs",
                                           kOverLong.c_str(), L"Docs\\a|b", L"Docs\\<>\"?*", L"Docs\\a:stream", L"Docs\\no folder\\a.txt",
                                           L"Plain\\a*b",    L"Plain",    L"Plain\\no folder\\a"};
    for (const wchar_t* destination : destinations)
        for (const wchar_t* source : {L"Docs\\a.txt", L"Plain\\p"}) {
            SCOPED_TRACE(Narrow(source) + " -> " + (destination ? Narrow(std::wstring_view(destination).substr(0, 40)) : "<null>"));
            EXPECT_NE(VVS_Success, volume()->MoveFileW(source, destination, nullptr));
            EXPECT_NE(VVS_Success, volume()->CopyFileW(source, destination, nullptr));
            void* const hFile = MustOpen(source);
            EXPECT_NE(VVS_Success, volume()->RenameFile(hFile, nullptr, destination, nullptr));
            EXPECT_EQ("content", Read(hFile)) << "the handle stays usable";
            Close(hFile);
            EXPECT_EQ("content", Get(source));
            LockInfo lockInfo = NewLock();
            EXPECT_NE(VVS_Success, volume()->Lock(destination, &lockInfo));
            void* hNew = nullptr;
            EXPECT_NE(VVS_Success, volume()->OpenFile(&hNew, destination, kReadWrite, kShareAll, CreateNewFolder, nullptr, nullptr));
            EXPECT_EQ(nullptr, hNew);
        }
    EXPECT_EQ(before, files());
}

TEST_F(BadInput, SizesAndOffsetsOutOfReachChangeNothing) {
    Put(L"Docs\\a.txt", "content");
    Put(L"Plain\\a.txt", "content");
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        void* const hFile = MustOpen(path);
        char data[16];
        std::uint32_t done = 7;
        EXPECT_OK(volume()->ReadFile(hFile, 0, nullptr, 0, &done, nullptr));
        EXPECT_EQ(0u, done);
        EXPECT_OK(volume()->ReadFile(hFile, 7, data, 16, &done, nullptr)) << "at the end";
        EXPECT_OK(volume()->ReadFile(hFile, 1ull << 40, data, 16, &done, nullptr)) << "past it";
        EXPECT_EQ(0u, done);
        EXPECT_OK(volume()->WriteFile(hFile, 0, nullptr, 0, &done, nullptr));
        for (const std::uint64_t beyond : {1ull << 63, 0xFFFF'FFFF'FFFF'FFFEull}) {
            done = 7;
            EXPECT_NE(VVS_Success, volume()->ReadFile(hFile, beyond, data, 16, &done, nullptr)) << beyond;
            EXPECT_EQ(0u, done);
            EXPECT_NE(VVS_Success, volume()->WriteFile(hFile, beyond, data, 16, &done, nullptr)) << beyond;
            EXPECT_NE(VVS_Success, volume()->SetFileSize(hFile, beyond, nullptr)) << beyond;
        }
        EXPECT_EQ("content", Read(hFile));
        VirtFindData findData{};
        ASSERT_TRUE(volume()->GetFileInfo(hFile, &findData));
        EXPECT_EQ(7, findData.fileSize);
        findData.lastWriteTime = 1ull << 63;
        EXPECT_NE(VVS_Success, volume()->SetFileInfo(hFile, 0xFFFFFFFF, &findData)) << "a time before all time";
        Close(hFile);
        EXPECT_EQ("content", Get(path));
    }
}

TEST_F(BadInput, MissingOutputsAndUnknownDispositionsAreRefused) {
    Put(L"Docs\\a.txt", "content");
    EXPECT_EQ(VVS_InvalidParameter, volume()->OpenFile(nullptr, L"Docs\\a.txt", kReadWrite, kShareAll, OPEN_EXISTING, nullptr, nullptr));
    for (const std::uint32_t disposition : {0u, 6u, 9u, 12u, 0xFFFFFFFFu}) {
        void* hFile = nullptr;
        EXPECT_EQ(VVS_InvalidParameter, Open(&hFile, L"Docs\\a.txt", kReadWrite, disposition)) << disposition;
        EXPECT_EQ(VVS_InvalidParameter, Open(&hFile, L"Plain\\b", kReadWrite, disposition)) << disposition;
    }
    EXPECT_FALSE(volume()->FindFile(L"Docs", nullptr));
    EXPECT_EQ(nullptr, volume()->FindFirstFileW(L"Docs\\*", nullptr));
    EXPECT_EQ(VVS_InvalidParameter, volume()->Lock(L"Docs\\a.txt", nullptr));
    EXPECT_NE(VVS_Success, volume()->Unlock(L"Docs\\a.txt", nullptr));

    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ(VVS_InvalidParameter, volume()->ReadFile(hFile, 0, nullptr, 10, nullptr, nullptr));
    EXPECT_EQ(VVS_InvalidParameter, volume()->WriteFile(hFile, 0, nullptr, 10, nullptr, nullptr));
    EXPECT_EQ(VVS_InvalidParameter, volume()->SetFileInfo(hFile, 0, nullptr));
    EXPECT_FALSE(volume()->GetFileInfo(hFile, nullptr));
    VirtFindData unterminated{};
    std::fill(std::begin(unterminated.fileName), std::end(unterminated.fileName), L'x');
    EXPECT_OK(volume()->Delete(hFile, &unterminated));
    EXPECT_OK(volume()->Undelete(hFile, &unterminated));
    Close(hFile);
    LockInfo lockInfo = NewLock();
    std::fill(std::begin(lockInfo.owner), std::end(lockInfo.owner), L'o');
    std::fill(std::begin(lockInfo.token), std::end(lockInfo.token), L't');
    ASSERT_OK(volume()->Lock(L"Docs\\a.txt", &lockInfo));
    const std::wstring token = lockInfo.token;
    EXPECT_OK(volume()->FindLock(L"Docs\\a.txt", nullptr, &lockInfo));
    EXPECT_EQ(std::wstring(63, L'o'), lockInfo.owner);
    EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", token.c_str()));
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
}

TEST_F(BadInput, StaleAndForeignFileHandlesAreRefused) {
    Put(L"Docs\\a.txt", "content");
    void* const stale = MustOpen(L"Docs\\a.txt");
    Close(stale);
    VirtFindData findData{};
    void* const hFind = volume()->FindFirstFileW(L"Docs\\*", &findData);
    char data[4];
    for (void* handle : {static_cast<void*>(nullptr), stale, hFind, reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x10))}) {
        EXPECT_EQ(VVS_InvalidParameter, volume()->ReadFile(handle, 0, data, 4, nullptr, nullptr));
        EXPECT_EQ(VVS_InvalidParameter, volume()->WriteFile(handle, 0, data, 4, nullptr, nullptr));
        EXPECT_EQ(VVS_InvalidParameter, volume()->SetFileSize(handle, 0, nullptr));
        EXPECT_EQ(VVS_InvalidParameter, volume()->Flush(handle));
        EXPECT_EQ(VVS_InvalidParameter, volume()->Delete(handle, nullptr));
        EXPECT_EQ(VVS_InvalidParameter, volume()->Undelete(handle, nullptr));
        EXPECT_EQ(VVS_InvalidParameter, volume()->SetFileInfo(handle, 0, &findData));
        EXPECT_EQ(VVS_InvalidParameter, volume()->RenameFile(handle, nullptr, L"Docs\\b.txt", nullptr));
        EXPECT_FALSE(volume()->GetFileInfo(handle, &findData));
        volume()->CloseFile(handle, nullptr);
        if (handle == hFind)
            continue;
        VirtMountInfo mountInfo{};
        LockInfo lockInfo{};
        EXPECT_FALSE(volume()->FindNextFileW(handle, &findData));
        EXPECT_FALSE(volume()->FindNextMountFolder(handle, &mountInfo));
        EXPECT_EQ(VVS_FileNotLocked, volume()->FindNextLock(handle, &lockInfo));
        EXPECT_FALSE(volume()->FindClose(handle));
    }
    EXPECT_TRUE(volume()->FindClose(hFind));
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
}

TEST_F(BadInput, AClosedHandleDoesNotSoonStandForAnotherFile) {
    Put(L"Docs\\a.txt", "content");
    Put(L"Plain\\p", "content");
    const auto openMany = [&] {
        std::vector<void*> handles;
        for (int count = 0; count < 200; ++count)
            handles.push_back(MustOpen(count % 2 ? L"Docs\\a.txt" : L"Plain\\p", GENERIC_READ));
        return handles;
    };
    std::set<void*> closed;
    for (int round = 0; round < 4; ++round) {
        const std::vector<void*> handles = openMany();
        for (void* const hFile : handles) {
            EXPECT_EQ(0u, closed.count(hFile)) << "round " << round;
            Close(hFile);
        }
        closed.insert(handles.begin(), handles.end());
    }
}
