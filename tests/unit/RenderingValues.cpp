// How values show in trace lines.
#include "diagnostics/Formatters.h"

#include <algorithm>
#include <iterator>

#include <gtest/gtest.h>

namespace {

std::string Narrow(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t unit : text)
        narrow += unit < 0x80 ? static_cast<char>(unit) : '?';
    return narrow;
}

constexpr std::uint64_t kSomeTime = 133'500'000'001'230'000;  // 2024-01-17 21:20:00.123

}  // namespace

TEST(RenderingValues, FlagsNameTheBroadestAndWhatIsLeftOver) {
    const struct {
        std::wstring (*render)(std::uint32_t);
        std::uint32_t value;
        const char* text;
    } rows[] = {
        {FormatShareModeStr, 0, "(0x0)"},
        {FormatShareModeStr, 3, "FILE_SHARE_READ|FILE_SHARE_WRITE(0x3)"},
        {FormatShareModeStr, 0x18, "(0x18 [Unknown bits:0x18])"},
        {FormatShareModeStr, 0x80000004, "FILE_SHARE_DELETE(0x80000004 [Unknown bits:0x80000000])"},
        {FormatAccessMaskStr, 0, "(0x0)"},
        {FormatAccessMaskStr, GENERIC_READ | GENERIC_WRITE | DELETE, "GENERIC_READ|GENERIC_WRITE|DELETE(0xc0010000)"},
        {FormatAccessMaskStr, FILE_GENERIC_READ, "FILE_GENERIC_EXECUTE|FILE_GENERIC_READ(0x120089)"},
        {FormatAccessMaskStr, FILE_READ_DATA, "FILE_GENERIC_READ(0x1)"},
        {FormatAccessMaskStr, FILE_DELETE_CHILD | DELETE, "FILE_DELETE_CHILD|DELETE(0x10040)"},
        {FormatAccessMaskStr, GENERIC_ALL, "(0x10000000 [Unknown bits:0x10000000])"},
        {FormatFileAttributesStr, 0x30, "FILE_ATTRIBUTE_DIRECTORY|FILE_ATTRIBUTE_ARCHIVE(0x30)"},
        {FormatFileAttributesStr, 0x11007, "FILE_ATTRIBUTE_READONLY|FILE_ATTRIBUTE_HIDDEN|FILE_ATTRIBUTE_SYSTEM|FILE_ATTRIBUTE_OFFLINE|"
                                           "FILE_ATTRIBUTE_VIRTUAL(0x11007)"},
        {FormatFileAttributesStr, 0x20000, "(0x20000 [Unknown bits:0x20000])"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.text, Narrow(row.render(row.value))) << std::hex << row.value;
}

TEST(RenderingValues, NumbersHaveNames) {
    const struct {
        std::wstring (*render)(std::uint32_t);
        std::uint32_t value;
        const char* text;
    } rows[] = {
        {FormatCreationDispositionStr, 0, "<Unknown>"}, {FormatCreationDispositionStr, 1, "CREATE_NEW"},
        {FormatCreationDispositionStr, 5, "TRUNCATE_EXISTING"}, {FormatCreationDispositionStr, 10, "<Unknown>"},
        {FormatItemTypeStr, 0, "VIT_Root"},       {FormatItemTypeStr, 5, "VIT_EncryptedFileInConflict"},
        {FormatItemTypeStr, 6, ""},               {FormatFolderTypeStr, 0, "PFT_Root"},
        {FormatFolderTypeStr, 1, "PFT_Dropbox"},  {FormatFolderTypeStr, 2, ""},
        {FormatFolderTypeStr, 5, ""},             {FormatFolderTypeStr, 6, "PFT_General"},
        {FormatFolderTypeStr, 7, ""},             {FormatFolderTypeStr, 10, "PFT_Invalid"},
        {FormatLockScopeStr, 0, "Shared"},        {FormatLockScopeStr, 1, "Exclusive"},
        {FormatLockScopeStr, 2, "<Invalid>"},     {FormatLockTypeStr, 0, "Write"},
        {FormatLockTypeStr, 1, "<Invalid>"},      {FormatStatusStr, 0, "VVS_Success"},
        {FormatStatusStr, 14, "VVS_InvalidParameter"}, {FormatStatusStr, 15, "VSS_FileExists"},
        {FormatStatusStr, 20, "VSS_DecryptError"}, {FormatStatusStr, 21, "VSS_EncryptError"},
        {FormatStatusStr, 22, "VVS_GeneralError"}, {FormatStatusStr, 23, "<Unknown:23>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.text, Narrow(row.render(row.value))) << row.value;
    EXPECT_EQ("E_ACCESSDENIED", Narrow(FormatHResultStr(static_cast<HRESULT>(0x80070005))));
    EXPECT_EQ("S_OK", Narrow(FormatHResultStr(S_OK)));
    EXPECT_EQ("0x0000000080070020", Narrow(FormatHResultStr(static_cast<HRESULT>(0x80070020))));
    EXPECT_EQ("0x00000000000000ff", Narrow(FormatHexStr(255, true, true)));
    EXPECT_EQ("00000000000000ff", Narrow(FormatHexStr(255, true, false)));
    EXPECT_EQ("0xff", Narrow(FormatHexStr(0x1'0000'00FF, false, true))) << "the short form shows the low half";
    EXPECT_EQ("ff", Narrow(FormatHexStr(255, false, false)));
    EXPECT_EQ("-9223372036854775808", Narrow(FormatInt64Str(INT64_MIN)));
    EXPECT_EQ("true false", Narrow(FormatBoolStr(true) + L" " + FormatBoolStr(false)));
    EXPECT_EQ("{00000001-0002-0003-0405-060708090A0B}",
              Narrow(FormatGuidStr({1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}})));
}

TEST(RenderingValues, TimesShowTheirShortForms) {
    const SYSTEMTIME time{2024, 5, 3, 1, 9, 8, 7, 6};
    EXPECT_EQ("05/01/24 09:08:07", Narrow(FormatSystemTimeStr(time)));
    EXPECT_EQ("05/01 09:08:07", Narrow(FormatSystemTimeStr(time, false)));
    EXPECT_EQ("05/01/24 09:08:07.6", Narrow(FormatSystemTimeStr(time, true, true)));
    EXPECT_EQ("09:07", Narrow(FormatTimeStr(time, L"%H:%S")));
    const std::string zero = Narrow(FormatSystemTimeStr(SYSTEMTIME{}));
    EXPECT_EQ(17u, zero.size());
    EXPECT_EQ("00:00:00", zero.substr(9));
    EXPECT_EQ("01/17/24 21:20:00", Narrow(FormatFileTimeStr(kSomeTime)));
    // Whatever a host puts into a record: no time is too late or none.
    EXPECT_EQ(zero, Narrow(FormatFileTimeStr(0xFFFF'FFFF'FFFF'FFFF)));
    EXPECT_EQ("09/14/99 02:48:05", Narrow(FormatFileTimeStr(0x7FFF'FFFF'FFFF'FFFF))) << "in the year 30828";
    EXPECT_EQ("01/01/01 00:00:00", Narrow(FormatFileTimeStr(94'670'208'000'000'000))) << "1901 is a time";
}

TEST(RenderingValues, RecordsShowWhatTheyHoldAndNoMore) {
    VirtFindData findData{FILE_ATTRIBUTE_ARCHIVE, kSomeTime, kSomeTime, 0, -1, VIT_EncryptedFile, L"a%s.txt"};
    const std::wstring zero = FormatFileTimeStr(0);
    EXPECT_EQ(L"Name:a%s.txt, Virtual:VIT_EncryptedFile, Size:-1, Attr:FILE_ATTRIBUTE_ARCHIVE(0x20), Create:01/17/24 21:20:00, Write:" +
                  zero + L", Access:01/17/24 21:20:00",
              FormatFindDataStr(&findData));
    std::fill(std::begin(findData.fileName), std::end(findData.fileName), L'x');
    EXPECT_EQ(0u, FormatFindDataStr(&findData).find(L"Name:" + std::wstring(260, L'x') + L", Virtual:"));
    WIN32_FIND_DATAW raw{};
    raw.nFileSizeHigh = 1;
    EXPECT_EQ(0u, FormatRawFindDataStr(&raw).find(L"Name:, Size:4294967296, Attr:(0x0), Create:"));

    LockInfo lockInfo{7, LockScope_Exclusive, LockType_Write, 0, L"", L""};
    EXPECT_EQ(L"Token:Invalid Token, Owner:Invalid Owner, Scope:Exclusive, Type:Write, Timeout:7", FormatLockInfoStr(&lockInfo));
    std::fill(std::begin(lockInfo.owner), std::end(lockInfo.owner), L'o');
    std::fill(std::begin(lockInfo.token), std::end(lockInfo.token), L't');
    EXPECT_EQ(L"Token:" + std::wstring(64, L't') + L", Owner:" + std::wstring(64, L'o') + L", Scope:Exclusive, Type:Write, Timeout:7",
              FormatLockInfoStr(&lockInfo));
    EXPECT_EQ(L"Type:PFT_General, Name:Docs, Path:C:\\d", FormatMountInfoStr(PFT_General, L"Docs", L"C:\\d"));
    EXPECT_EQ(L"<NULL><NULL><NULL>", FormatFindDataStr(nullptr) + FormatRawFindDataStr(nullptr) + FormatLockInfoStr(nullptr));
    EXPECT_EQ(L"<NULL>|text|\x65E5|7", FormatStr(L"%s|%s|%s|%d", static_cast<const wchar_t*>(nullptr), L"text", std::wstring(L"\x65E5"), 7));
    EXPECT_EQ(100'000u, FormatStr(L"%s", std::wstring(100'000, L'x')).size());
}
