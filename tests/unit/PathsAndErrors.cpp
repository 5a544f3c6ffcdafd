// Paths as text, platform errors as statuses, and the names and records of files that are saved aside.
#include <ctime>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "items/SaveNames.h"
#include "items/TrackingFile.h"
#include "library/Text.h"
#include "policy/FileUtils.h"
#include "quelcrypt/QuelcryptExceptions.h"

TEST(PathsAndErrors, EveryErrorHasItsStatus) {
    const struct {
        DWORD error;
        VirtualVolumeStatus status;
    } rows[] = {
        {2, VVS_FileNotFound},      {3, VVS_PathNotFound},     {15, VVS_PathNotFound},     {53, VVS_PathNotFound},
        {67, VVS_PathNotFound},     {161, VVS_PathNotFound},   {5, VVS_AccessDenied},      {19, VVS_AccessDenied},
        {8, VSS_OutMemory},         {14, VSS_OutMemory},       {32, VSS_SharingViolation}, {33, VSS_LockViolation},
        {50, VSS_NotImplemented},   {120, VSS_NotImplemented}, {80, VSS_FileExists},       {87, VVS_InvalidParameter},
        {123, VVS_InvalidParameter}, {183, VVS_PathAlreadyExists}, {0, VVS_GeneralError},  {1, VVS_GeneralError},
        {38, VVS_GeneralError},     {112, VVS_GeneralError},   {0xFFFFFFFF, VVS_GeneralError},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.status, StatusFromWin32(static_cast<Win32Error>(row.error))) << row.error;
    EXPECT_EQ(VVS_Success, StatusOfCall(Win32Error::None));
}

TEST(PathsAndErrors, PathsComeApart) {
    const struct {
        const wchar_t* path;
        const wchar_t* name;
        const wchar_t* folder;
        const wchar_t* withoutExtension;
    } rows[] = {
        {L"C:\\a\\b.txt.zip", L"b.txt.zip", L"C:\\a", L"C:\\a\\b.txt"},
        {L"C:\\a", L"a", L"C:\\", L"C:\\a"},
        {L"C:/a/b.c", L"b.c", L"C:/a", L"C:/a/b"},
        {L"C:\\a.b\\c", L"c", L"C:\\a.b", L"C:\\a.b\\c"},
        {L"\\a", L"a", L"\\", L"\\a"},
        {L"\\\\server\\share\\a.b", L"a.b", L"\\\\server\\share", L"\\\\server\\share\\a"},
        {L"a.b", L"a.b", L"", L"a"},
        {L"a\\", L"", L"a", L"a\\"},
        {L"", L"", L"", L""},
        {L".zip", L".zip", L"", L""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.name, PathStripPathStr(row.path));
        EXPECT_EQ(row.folder, PathRemoveFileSpecStr(row.path));
        EXPECT_EQ(row.withoutExtension, PathRemoveExtensionStr(row.path));
    }
    EXPECT_EQ(L"a.txt.zip", PathAddExtensionStr(L"a.txt", L".zip"));
    EXPECT_EQ(L"C:\\a", PathAppendStr(L"C:\\", L"a"));
    EXPECT_EQ(L"C:\\b\\a", PathAppendStr(L"C:\\b", L"a"));
}

TEST(PathsAndErrors, JoiningNeverLeavesTheFolder) {
    const struct {
        const wchar_t* folder;
        const wchar_t* relative;
        std::optional<std::wstring> joined;
    } rows[] = {
        {L"C:\\m", L"a\\b.txt", L"C:\\m\\a\\b.txt"},
        {L"C:\\m\\", L"\\a\\\\b\\", L"C:\\m\\a\\b"},
        {L"C:\\", L"a", L"C:\\a"},
        {L"C:\\m", L"", L"C:\\m"},
        {L"C:\\", L"", L"C:\\"},
        {L"C:\\m", L".\\a\\.", L"C:\\m\\a"},
        {L"C:\\m", L"a\\..\\b", L"C:\\m\\b"},
        {L"C:\\m", L"a/../b", L"C:\\m\\b"},
        {L"C:\\m", L"a\\..", L"C:\\m"},
        {L"C:\\m", L"..", std::nullopt},
        {L"C:\\m", L"a\\..\\..\\m\\b", std::nullopt},
        {L"C:\\m", L"a. .\\b.", L"C:\\m\\a\\b"},
        {L"C:\\m", L"...\\. .\\b", L"C:\\m\\b"},
        {L"C:\\m", L".. \\b", L"C:\\m\\b"},
        {L"C:\\m", L".a\\..b", L"C:\\m\\.a\\..b"},
        {L"C:\\m", L" a", L"C:\\m\\ a"},
        {L"C:\\m", L"NUL", std::nullopt},
        {L"C:\\m", L"a\\com1 .tar.gz", std::nullopt},
        {L"C:\\m", L"Aux. .\\b", std::nullopt},
        {L"C:\\m", L"LPT\u00b2.txt", std::nullopt},
        {L"C:\\m", L"com10\\console.txt\\nullify", L"C:\\m\\com10\\console.txt\\nullify"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.joined, PathJoinBelow(row.folder, row.relative)) << ::testing::PrintToString(row.relative);
    const std::wstring longName(40'000, L'x');
    EXPECT_EQ(L"C:\\m\\" + longName, PathJoinBelow(L"C:\\m", longName));
}

TEST(PathsAndErrors, TextCrossesWholeOrNotAtAll) {
    const std::wstring text = L"\xDC" L"berblick \x65E5\xD83D\xDE00";
    const std::string utf8 = Utf8EncodeStr(text.c_str(), static_cast<DWORD>(text.size()));
    EXPECT_EQ("\xC3\x9C" "berblick \xE6\x97\xA5\xF0\x9F\x98\x80", utf8);
    EXPECT_EQ(text, Utf8DecodeStr(utf8));
    EXPECT_EQ("", Utf8EncodeStr(nullptr, 0));
    EXPECT_THROW(Utf8EncodeStr(L"\xD800", 1), CQuelcryptErrorException);
    EXPECT_THROW(Utf8DecodeStr("\xFF"), CQuelcryptErrorException);
    EXPECT_EQ(L"Error code: 4000000", SystemErrorStr(4'000'000)) << "no system text";
    const std::wstring known = SystemErrorStr(ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(known.ends_with(L" Error code: 2")) << ::testing::PrintToString(known);
    EXPECT_LT(14u, known.size());
    EXPECT_EQ(std::wstring::npos, known.find_first_of(L"\r\n"));
    EXPECT_TRUE(EqualNoCase(L"\u00E4Bc", L"\u00C4bC"));
    EXPECT_FALSE(EqualNoCase(L"a", L"ab"));
    EXPECT_EQ(NoCaseHash()(L"\u00E4Bc"), NoCaseHash()(L"\u00C4bC"));
    EXPECT_EQ(static_cast<std::size_t>((L'A' * 33 + L'B') * 33 + L'1'), NoCaseHash()(L"aB1"));
    EXPECT_EQ(L"", std::wstring(CHvcStringWImpl(nullptr).GetString() ? L"?" : L""));
    EXPECT_STREQ(L"Out of memory", CQuelcryptOutOfMemoryException().GetDescription());
    EXPECT_STREQ(L"Invalid argument", CQuelcryptErrorException(CQuelcryptInvalidArgumentException()).GetDescription());
}

TEST(PathsAndErrors, EditsSavedAsideNameTheirDay) {
    SYSTEMTIME before{};
    std::wstring conflicted, backup, third, bare;
    SYSTEMTIME after{};
    do {  // not across midnight
        GetLocalTime(&before);
        conflicted = SaveNameStr(L"re.port.docx", SaveName::ConflictedEdit);
        backup = SaveNameStr(L"report", SaveName::BackupEdit);
        third = SaveNameStr(L"100%s.docx", SaveName::ConflictedEdit, 3);
        bare = SaveNameStr(L".txt", SaveName::ConflictedEdit, 2);
        GetLocalTime(&after);
    } while (before.wDay != after.wDay);
    wchar_t day[16];
    ASSERT_EQ(10, _snwprintf(day, std::size(day), L"%04d-%02d-%02d", before.wYear, before.wMonth, before.wDay));
    EXPECT_EQ(std::wstring(L"re.port (HalvaneCloud conflicted edit ") + day + L").docx", conflicted);
    EXPECT_EQ(std::wstring(L"report (HalvaneCloud backup edit ") + day + L")", backup);
    EXPECT_EQ(std::wstring(L"100%s (HalvaneCloud conflicted edit ") + day + L") (3).docx", third);
    EXPECT_EQ(std::wstring(L" (HalvaneCloud conflicted edit ") + day + L") (2).txt", bare);
}

TEST(PathsAndErrors, TrackingFilesHaveTheirWholeShape) {
    wchar_t folder[MAX_PATH + 1];
    ASSERT_NE(0u, GetTempPathW(MAX_PATH, folder));
    const std::wstring path = TrackingFilePathStr(folder + (L"tracking-" + std::to_wstring(GetCurrentProcessId())));
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
        EXPECT_EQ("<halvanecloud>\r\n<filetracking>\r\n<process>\r\n<name><![CDATA[]]></name>\r\n<id>0</id>\r\n</process>\r\n"
                  "<srcfile>\r\n<name><![CDATA[C:\\d\\?]]>.txt.zip]]></name>\r\n<attributes>-2147483616</attributes>\r\n"
                  "<writetime>133500000000000000</writetime>\r\n<size>5000000000</size>\r\n</srcfile>\r\n"
                  "<filespec>\r\n<name>\r\n<![CDATA[a.txt]]></name>\r\n</filespec>\r\n"
                  "<tempfile>\r\n<name><![CDATA[C:\\t\\a.txt]]></name>\r\n<attributes>32</attributes>\r\n<writetime>-1</writetime>\r\n"
                  "<size>0</size>\r\n</tempfile>\r\n"
                  "<ar>\r\n<fid></fid>\r\n<fv></fv>\r\n<o>\r\n<id></id>\r\n<iid></iid>\r\n<fn></fn>\r\n<ofn></ofn></o>\r\n"
                  "<a><id></id>\r\n<iid></iid>\r\n<ifn></ifn>\r\n<ofn></ofn></a>\r\n</ar>\r\n</filetracking>\r\n</halvanecloud>\r\n"
                  "<!-- utf8: C%3A%5Cd%5C%E6%97%A5%5D%5D%3E.txt.zip | C%3A%5Ct%5Ca.txt | a.txt -->\r\n",
                  std::string(std::istreambuf_iterator<char>(file), {}));
    }
    EXPECT_TRUE(DeleteFileW(path.c_str()));
    EXPECT_FALSE(WriteTrackingFile(L"C:\\no such folder\\a.hvf", record));
}
