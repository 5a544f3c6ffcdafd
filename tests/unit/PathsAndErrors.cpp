// Paths as text, platform errors as statuses, and the names and records of files that are saved aside.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>

#include <gtest/gtest.h>

#include "files/Deletion.h"
#include "items/TrackingFile.h"
#include "library/Disk.h"
#include "library/FileVersion.h"
#include "library/Paths.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Win32Error.h"

static std::wstring TempPath(const std::wstring& name) {
    return std::filesystem::temp_directory_path() / (name + std::to_wstring(GetCurrentProcessId()));
}

TEST(PathsAndErrors, EveryErrorHasItsStatus) {
    const std::tuple<DWORD, VirtualVolumeStatus> rows[] = {
        {2, VVS_FileNotFound},       {3, VVS_PathNotFound},        {15, VVS_PathNotFound},         {53, VVS_PathNotFound},
        {67, VVS_PathNotFound},      {161, VVS_PathNotFound},      {5, VVS_AccessDenied},          {19, VVS_AccessDenied},
        {8, VSS_OutMemory},          {14, VSS_OutMemory},          {32, VSS_SharingViolation},     {33, VSS_LockViolation},
        {50, VSS_NotImplemented},    {120, VSS_NotImplemented},    {80, VSS_FileExists},           {87, VVS_InvalidParameter},
        {123, VVS_InvalidParameter}, {183, VVS_PathAlreadyExists}, {0, VVS_GeneralError},          {1, VVS_GeneralError},
        {38, VVS_GeneralError},      {112, VVS_GeneralError},      {0xFFFFFFFF, VVS_GeneralError},
    };
    for (const auto& [error, status] : rows)
        EXPECT_EQ(status, StatusFromWin32(static_cast<Win32Error>(error))) << error;
    EXPECT_EQ(VVS_Success, StatusOfCall(Win32Error::None));
}

TEST(PathsAndErrors, JoiningNeverLeavesTheFolder) {
    // clang-format off
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"a\\b.txt", L"\\a\\b.txt"}, {L"\\a\\\\b\\", L"\\a\\b"}, {L"", L""},      {L".\\a\\.", L"\\a"},         {L"a\\..\\b", L"\\b"},
        {L"a/../b", L"\\b"},         {L"a\\..", L""},           {L" a", L"\\ a"}, {L"a. .\\b.", L"\\a\\b"}, {L"...\\. .\\b", L"\\b"},
        {L".. \\b", L"\\b"},        {L".a\\..b", L"\\.a\\..b"}, {L"com10\\console.txt\\nullify", L"\\com10\\console.txt\\nullify"},
    };
    // clang-format on
    for (const auto& [relative, joined] : rows) {
        EXPECT_EQ(std::wstring(L"C:\\m") + joined, PathJoinBelow(L"C:\\m", relative)) << ::testing::PrintToString(relative);
        EXPECT_EQ(std::wstring(L"C:") + (*joined ? joined : L"\\"), PathJoinBelow(L"C:\\", relative)) << ::testing::PrintToString(relative);
    }
    for (const wchar_t* relative : {L"..", L"a\\..\\..\\m\\b", L"NUL", L"a\\com1 .tar.gz", L"Aux. .\\b", L"LPT\u00b2.txt"})
        EXPECT_EQ(std::nullopt, PathJoinBelow(L"C:\\m", relative)) << ::testing::PrintToString(relative);
    const std::wstring longName(40'000, L'x');
    EXPECT_EQ(L"C:\\m\\" + longName, PathJoinBelow(L"C:\\m", longName));
}

TEST(PathsAndErrors, DeletingTakesOneThingByItsWholePath) {
    const std::wstring folder = TempPath(L"deleting-"), file = folder + L"\\a";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    { std::ofstream(file.c_str()) << "content"; }
    ASSERT_TRUE(SetCurrentDirectoryW(folder.c_str()));
    for (const std::wstring& path : {std::wstring(), std::wstring(L"a"), folder + L"\\*", folder + L"\\?"})
        EXPECT_EQ(DeleteResult::Failed, DeleteFileOrFolder(path)) << ::testing::PrintToString(path);
    SetCurrentDirectoryW(L"C:\\");
    EXPECT_TRUE(PathExists(file));
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(DeleteResult::Deleted, DeleteFileOrFolder(folder));
    EXPECT_FALSE(PathExists(folder));
    EXPECT_EQ(DeleteResult::Deleted, DeleteFileOrFolder(file)) << "nothing is there";
}

TEST(PathsAndErrors, TrackingFilesHaveTheirWholeShape) {
    const std::wstring path = TrackingFilePathStr(TempPath(L"tracking-"));
    EXPECT_TRUE(path.ends_with(L".hvf"));
    TrackingRecord record;
    record.sourceName = L"C:\\d\\\x65E5]]>.txt.zip";  // has no narrow form: it must not cut the text short
    record.source = {0x80000020, 133'500'000'000'000'000, 5'000'000'000};
    record.tempName = L"C:\\t\\a.txt";
    record.temp = {0x20, -1, 0};
    record.fileSpec = L"a.txt";
    ASSERT_TRUE(WriteTrackingFile(path, record));
    {
        std::ifstream file(path.c_str(), std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        EXPECT_EQ(
            "<halvanecloud>\r\n<filetracking>\r\n<process>\r\n<name><![CDATA[]]></name>\r\n<id>0</id>\r\n</process>\r\n"
            "<srcfile>\r\n<name><![CDATA[C:\\d\\?]]>.txt.zip]]></name>\r\n<attributes>-2147483616</attributes>\r\n"
            "<writetime>133500000000000000</writetime>\r\n<size>5000000000</size>\r\n</srcfile>\r\n"
            "<filespec>\r\n<name>\r\n<![CDATA[a.txt]]></name>\r\n</filespec>\r\n"
            "<tempfile>\r\n<name><![CDATA[C:\\t\\a.txt]]></name>\r\n<attributes>32</attributes>\r\n<writetime>-1</writetime>\r\n"
            "<size>0</size>\r\n</tempfile>\r\n"
            "<ar>\r\n<fid></fid>\r\n<fv></fv>\r\n<o>\r\n<id></id>\r\n<iid></iid>\r\n<fn></fn>\r\n<ofn></ofn></o>\r\n"
            "<a><id></id>\r\n<iid></iid>\r\n<ifn></ifn>\r\n<ofn></ofn></a>\r\n</ar>\r\n</filetracking>\r\n</halvanecloud>\r\n"
            "<!-- utf8: C%3A%5Cd%5C%E6%97%A5%5D%5D%3E.txt.zip | C%3A%5Ct%5Ca.txt | a.txt -->\r\n",
            text);
    }
    record.sourceName = L"C:\\d\\\x65E5].txt.zip";
    EXPECT_EQ(record, ParseTrackingText(TrackingText(record)));
    EXPECT_TRUE(DeleteFileW(path.c_str()));
    EXPECT_FALSE(WriteTrackingFile(L"C:\\no such folder\\a.hvf", record));
}

TEST(PathsAndErrors, LongPathsGoToThePlatformInItsLongForm) {
    const std::wstring name(240, L'n'), at = L"C:\\" + name, atLong = L"\\\\?\\" + at, share = L"server\\share\\" + name;
    // clang-format off
    const std::tuple<std::wstring, std::wstring> rows[] = {
        {L"C:\\a\\.\\b", L"C:\\a\\.\\b"}, {at + L"\\abc", at + L"\\abc"},  // short ones are the platform's affair
        {at + L"\\abcd", atLong + L"\\abcd"}, {L"C:/" + name + L"/bb/c", atLong + L"\\bb\\c"}, {at + L"\\.\\b\\..\\c", atLong + L"\\c"},
        {at + L"\\.name\\..b", atLong + L"\\.name\\..b"}, {L"\\\\" + share, L"\\\\?\\UNC\\" + share},
        {atLong + L"\\abcd", atLong + L"\\abcd"}, {L"\\\\?\\UNC\\" + share, L"\\\\?\\UNC\\" + share},
        {L"\\\\.\\pipe\\" + name + L"\\abcd", L"\\\\.\\pipe\\" + name + L"\\abcd"}};
    // clang-format on
    for (const auto& [path, handed] : rows) {
        EXPECT_EQ(handed, PlatformPath(path).c_str()) << ::testing::PrintToString(path);
        EXPECT_EQ(handed, PlatformPath(path.c_str()).c_str());
    }
}

TEST(PathsAndErrors, WhatMakesAnotherVersion) {
    const FileVersion base{{FILE_ATTRIBUTE_ARCHIVE, 1000, 10}, 5, {1, 2}, 2000, 3};
    using Change = void (*)(FileVersion&);
    const std::tuple<const char*, Change, bool> rows[] = {
        {"nothing", [](FileVersion&) {}, false},
        {"size", [](FileVersion& v) { ++v.stamp.size; }, true},
        {"write time", [](FileVersion& v) { ++v.stamp.writeTime; }, true},
        {"read-only", [](FileVersion& v) { v.stamp.attributes |= FILE_ATTRIBUTE_READONLY; }, true},
        {"hidden", [](FileVersion& v) { v.stamp.attributes |= FILE_ATTRIBUTE_HIDDEN; }, true},
        {"archive", [](FileVersion& v) { v.stamp.attributes = FILE_ATTRIBUTE_NORMAL; }, false},
        {"sparse", [](FileVersion& v) { v.stamp.attributes |= FILE_ATTRIBUTE_SPARSE_FILE; }, false},
        {"reparse point", [](FileVersion& v) { v.stamp.attributes |= FILE_ATTRIBUTE_REPARSE_POINT; }, false},
        {"pinned", [](FileVersion& v) { v.stamp.attributes |= 0x80000; }, false},
        {"recall on data access", [](FileVersion& v) { v.stamp.attributes |= 0x400000; }, false},
        {"file id", [](FileVersion& v) { ++v.fileId[1]; }, true},
        {"volume", [](FileVersion& v) { ++v.volumeSerial; }, true},
        {"no file id", [](FileVersion& v) { v.fileId[0] = v.fileId[1] = 0; }, false},
        {"an unknown file id", [](FileVersion& v) { v.fileId[0] = v.fileId[1] = UINT64_MAX; }, false},
        {"change time", [](FileVersion& v) { ++v.changeTime; }, true},
        {"no change time", [](FileVersion& v) { v.changeTime = 0; }, false},
        {"a change time that pinning explains", [](FileVersion& v) { ++v.changeTime, v.stamp.attributes |= 0x80000; }, false},
        {"saves", [](FileVersion& v) { ++v.saves; }, true},
    };
    for (const auto& [what, change, isAnother] : rows) {
        FileVersion changed = base;
        change(changed);
        for (const bool isSame : {base == changed, changed == base, IsStillVersion(base, changed)})
            EXPECT_EQ(!isAnother, isSame) << what;
    }
    FileVersion empty = base;
    empty.stamp.size = 0;
    EXPECT_TRUE(IsStillVersion(base, std::nullopt) && IsStillVersion(std::nullopt, std::nullopt)) << "what is gone is no obstacle";
    EXPECT_TRUE(IsStillVersion(base, empty)) << "nor what was never written";
    EXPECT_FALSE(IsStillVersion(std::nullopt, base));
}
