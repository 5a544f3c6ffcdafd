// Deleting, copying and replacing files and trees, and owning what the platform hands out.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "library/Owners.h"
#include "policy/FileUtils.h"
#include "policy/HvcUtils.h"

namespace fs = std::filesystem;

namespace {

class HandlingFiles : public ::testing::Test {
protected:
    void SetUp() override {
        wchar_t folder[MAX_PATH + 1];
        ASSERT_NE(0u, GetTempPathW(MAX_PATH, folder));
        m_root = folder + (L"quelcrypt-unit-" + std::to_wstring(GetCurrentProcessId())) + L"-" + std::to_wstring(GetTickCount());
        fs::create_directories(m_root);
    }
    void TearDown() override {
        SetFileAttributesW(In(L"tree\\sub\\read-only").c_str(), FILE_ATTRIBUTE_NORMAL);
        std::error_code error;
        fs::remove_all(m_root, error);
    }
    std::wstring In(const std::wstring& name) const { return m_root + L"\\" + name; }
    static void Write(const std::wstring& path, std::string_view text) { std::ofstream(fs::path(path), std::ios::binary) << text; }
    static std::string Read(const std::wstring& path) {
        std::ifstream file(fs::path(path), std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "<none>";
    }
    static UniqueHandle Open(const std::wstring& path, DWORD access, DWORD share) {
        const HANDLE handle = CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr);
        return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
    }
    void MakeTree() const {
        fs::create_directories(In(L"tree\\sub\\empty"));
        Write(In(L"tree\\a"), "a");
        Write(In(L"tree\\sub\\read-only"), "r");
        SetFileAttributesW(In(L"tree\\sub\\read-only").c_str(), FILE_ATTRIBUTE_READONLY);
    }
    std::wstring m_root;
};

int s_closed = 0;
struct CountingPolicy {
    using Resource = int;
    static int Empty() { return 0; }
    static void Close(int resource) {
        s_closed = s_closed * 10 + resource;
        SetLastError(ERROR_INVALID_HANDLE);
    }
};

}  // namespace

TEST_F(HandlingFiles, OwnersCloseOnceAndKeepTheLastError) {
    s_closed = 0;
    SetLastError(ERROR_FILE_NOT_FOUND);
    {
        Owner<CountingPolicy> first(1);
        Owner<CountingPolicy> second(2);
        first = std::move(second);
        EXPECT_EQ(1, s_closed);
        EXPECT_FALSE(second);
        EXPECT_EQ(2, first.Get());
        first.Reset(2);
        EXPECT_EQ(1, s_closed) << "it is the same one";
        *second.GetAddr() = 3;
        second.GetAddr();
        EXPECT_EQ(13, s_closed);
        Owner<CountingPolicy> third(std::move(first));
        EXPECT_EQ(2, third.Detach());
        Owner<CountingPolicy> fourth(4);
    }
    EXPECT_EQ(134, s_closed);
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
}

TEST_F(HandlingFiles, TheDeletionMarkCanBeTakenBack) {
    Write(In(L"a"), "content");
    {
        const UniqueHandle hFile = Open(In(L"a"), DELETE, 7);
        EXPECT_EQ(Win32Error::None, DeleteUndeleteFile(hFile.Get(), true));
        EXPECT_EQ(Win32Error::None, DeleteUndeleteFile(hFile.Get(), false));
    }
    EXPECT_EQ("content", Read(In(L"a")));
    EXPECT_EQ(Win32Error::None, DeleteUndeleteFile(Open(In(L"a"), DELETE, 7).Get(), true));
    EXPECT_FALSE(PathExists(In(L"a")));
    Write(In(L"a"), "content");
    EXPECT_EQ(static_cast<Win32Error>(ERROR_ACCESS_DENIED), DeleteUndeleteFile(Open(In(L"a"), GENERIC_READ, 7).Get(), true));
    EXPECT_EQ(static_cast<Win32Error>(ERROR_INVALID_HANDLE), DeleteUndeleteFile(reinterpret_cast<HANDLE>(0x7FFF4), true));
    EXPECT_EQ("content", Read(In(L"a")));
}

TEST_F(HandlingFiles, PositionsArePutBack) {
    Write(In(L"a"), "content");
    const UniqueHandle hFile = Open(In(L"a"), GENERIC_READ, 7);
    const auto position = [&] { return SetFilePointer(hFile.Get(), 0, nullptr, FILE_CURRENT); };
    SetFilePointer(hFile.Get(), 3, nullptr, FILE_BEGIN);
    {
        FilePointer filePointer(hFile.Get(), 5);
        EXPECT_TRUE(filePointer.PointerWasSet());
        EXPECT_EQ(3, filePointer.OriginalPosition());
        EXPECT_EQ(5u, position());
        filePointer.Restore();
        EXPECT_EQ(3u, position());
        SetFilePointer(hFile.Get(), 4, nullptr, FILE_BEGIN);
    }
    EXPECT_EQ(4u, position()) << "it was restored already";
    { const FilePointer filePointer(hFile.Get(), 6); }
    EXPECT_EQ(4u, position());
    EXPECT_FALSE(FilePointer(hFile.Get(), -1).PointerWasSet());
    EXPECT_EQ(4u, position());
    EXPECT_FALSE(FilePointer(nullptr, 0).PointerWasSet());
}

TEST_F(HandlingFiles, DeletingTakesATreeAndNothingElse) {
    MakeTree();
    Write(In(L"beside"), "content");
    EXPECT_EQ(DeleteResult::Deleted, DeleteFileOrFolder(In(L"tree")));
    EXPECT_FALSE(PathExists(In(L"tree")));
    EXPECT_EQ(DeleteResult::Deleted, DeleteFileOrFolder(In(L"tree"))) << "nothing is there";
    EXPECT_EQ(DeleteResult::Deleted, DeleteFileOrFolder(In(L"no folder\\a")));
    ASSERT_TRUE(SetCurrentDirectoryW(m_root.c_str()));
    for (const std::wstring& path : {std::wstring(), std::wstring(L"beside"), In(L"*"), In(L"b?side")})
        EXPECT_EQ(DeleteResult::Failed, DeleteFileOrFolder(path)) << ::testing::PrintToString(path);
    SetCurrentDirectoryW(L"C:\\");
    EXPECT_EQ(22, static_cast<int>(DeleteResult::Failed));
    {
        const UniqueHandle hFile = Open(In(L"beside"), GENERIC_READ, FILE_SHARE_READ);
        EXPECT_EQ(DeleteResult::Failed, DeleteFileOrFolder(In(L"beside")));
    }
    EXPECT_EQ("content", Read(In(L"beside")));
    EXPECT_EQ(DeleteResult::Deleted, DeleteFileOrFolder(In(L"beside")));
}

TEST_F(HandlingFiles, CopiesAreWholeOrNotThere) {
    MakeTree();
    EXPECT_EQ(Win32Error::None, qcCopyFileOrFolder(In(L"tree"), In(L"copy"), true));
    EXPECT_EQ("a", Read(In(L"copy\\a")));
    EXPECT_EQ("r", Read(In(L"copy\\sub\\read-only")));
    EXPECT_TRUE(IsExistingFolder(In(L"copy\\sub\\empty")));
    EXPECT_NE(Win32Error::None, qcCopyFileOrFolder(In(L"tree"), In(L"copy"), true));
    Write(In(L"copy\\a"), "older");
    EXPECT_EQ(Win32Error::None, qcCopyFileOrFolder(In(L"tree\\a"), In(L"copy\\a"), false));
    EXPECT_EQ("a", Read(In(L"copy\\a")));

    EXPECT_EQ(static_cast<Win32Error>(ERROR_INVALID_PARAMETER), qcCopyFileOrFolder(In(L"tree"), In(L"TREE\\sub\\again"), true));
    EXPECT_EQ(static_cast<Win32Error>(ERROR_FILE_NOT_FOUND), qcCopyFileOrFolder(In(L"missing"), In(L"b"), false));
    {
        const UniqueHandle hFile = Open(In(L"tree\\sub\\read-only"), GENERIC_READ, 0);
        EXPECT_EQ(static_cast<Win32Error>(ERROR_SHARING_VIOLATION), qcCopyFileOrFolder(In(L"tree"), In(L"part"), true));
        EXPECT_FALSE(PathExists(In(L"part"))) << "half a copy is none";
    }
    SetFileAttributesW(In(L"copy\\sub\\read-only").c_str(), FILE_ATTRIBUTE_NORMAL);
    for (const auto& entry : fs::recursive_directory_iterator(m_root))
        EXPECT_NE(L".tmp", entry.path().extension().wstring()) << "a file built aside was left";
}

TEST_F(HandlingFiles, WhatWasBuiltAsideReplacesInOneStep) {
    Write(In(L"a"), "old");
    const auto build = [&](std::string_view text) {
        std::wstring path = SidePathStr(In(L"a"));
        EXPECT_EQ(m_root, PathRemoveFileSpecStr(path));
        Write(path, text);
        return path;
    };
    const std::wstring refused = build("new");
    EXPECT_NE(Win32Error::None, PutInPlace(refused, In(L"a"), true));
    EXPECT_EQ("old", Read(In(L"a")));
    EXPECT_FALSE(PathExists(refused));
    EXPECT_EQ(Win32Error::None, PutInPlace(build("new"), In(L"a")));
    EXPECT_EQ("new", Read(In(L"a")));
    {
        const UniqueHandle hFile = Open(In(L"a"), GENERIC_READ, FILE_SHARE_READ);
        const std::wstring held = build("newer");
        EXPECT_NE(Win32Error::None, PutInPlace(held, In(L"a")));
        EXPECT_FALSE(PathExists(held));
    }
    EXPECT_EQ("new", Read(In(L"a")));
    EXPECT_TRUE(AreSameFile(In(L"a"), In(L".\\A")));
    Write(In(L"b"), "new");
    EXPECT_FALSE(AreSameFile(In(L"a"), In(L"b")));
    EXPECT_FALSE(AreSameFile(In(L"a"), In(L"missing")));
}
