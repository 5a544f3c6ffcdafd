// How values show in trace lines, and what lines cost that are not written.
#include "diagnostics/Formatters.h"
#include "diagnostics/Trace.h"

#include <gtest/gtest.h>

#include <map>

TEST(TraceLines, NumbersAndFlagsShowTheirNames) {
    const std::pair<std::wstring (*)(std::uint32_t), std::map<std::uint32_t, std::wstring>> rows[] = {
        // Flags name the broadest, and what is left over.
        {FormatShareModeStr, {{0, L"(0x0)"}, {3, L"FILE_SHARE_READ|FILE_SHARE_WRITE(0x3)"}}},
        {FormatShareModeStr, {{0x80000004, L"FILE_SHARE_DELETE(0x80000004 [Unknown bits:0x80000000])"}}},
        {FormatAccessMaskStr, {{GENERIC_READ | GENERIC_WRITE | DELETE, L"GENERIC_READ|GENERIC_WRITE|DELETE(0xc0010000)"}}},
        {FormatFileAttributesStr,
         {{0x11003, L"FILE_ATTRIBUTE_READONLY|FILE_ATTRIBUTE_HIDDEN|FILE_ATTRIBUTE_OFFLINE|FILE_ATTRIBUTE_VIRTUAL(0x11003)"}}},
        {FormatCreationDispositionStr, {{0, L"<Unknown>"}, {1, L"CREATE_NEW"}, {5, L"TRUNCATE_EXISTING"}, {10, L"<Unknown>"}}},
        {FormatItemTypeStr, {{0, L"VIT_Root"}, {5, L"VIT_EncryptedFileInConflict"}, {6, L""}}},
        {FormatFolderTypeStr, {{0, L"PFT_Root"}, {1, L"PFT_Dropbox"}, {2, L""}, {6, L"PFT_General"}, {7, L""}, {10, L"PFT_Invalid"}}},
        {FormatLockScopeStr, {{0, L"Shared"}, {1, L"Exclusive"}, {2, L"<Invalid>"}}},
        {FormatLockTypeStr, {{0, L"Write"}, {1, L"<Invalid>"}}},
        {FormatStatusStr, {{0, L"VVS_Success"}, {15, L"VSS_FileExists"}, {22, L"VVS_GeneralError"}, {23, L"<Unknown:23>"}}},
    };
    for (const auto& [render, texts] : rows)
        for (const auto& [value, text] : texts)
            EXPECT_EQ(text, render(value)) << value;
    EXPECT_EQ(L"E_ACCESSDENIED", FormatHResultStr(static_cast<HRESULT>(0x80070005)));
    EXPECT_EQ(L"0x0000000080070020", FormatHResultStr(static_cast<HRESULT>(0x80070020)));
    EXPECT_EQ(L"0x00000000000000ff", FormatHexStr(255, true, true));
    EXPECT_EQ(L"0xff", FormatHexStr(0x1'0000'00FF, false, true)) << "the short form shows the low half";
    EXPECT_EQ(L"ff", FormatHexStr(255, false, false));
    EXPECT_EQ(L"-9223372036854775808", FormatInt64Str(INT64_MIN));
    EXPECT_EQ(L"{00000001-0002-0003-0405-060708090A0B}", FormatGuidStr({1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}));
    EXPECT_EQ(L"16", FormatExecutionTimeStr(169'999, 10'000));
    EXPECT_EQ(L"!!!SLOW!!! 17", FormatExecutionTimeStr(170'000, 10'000));
    EXPECT_EQ(L"<Error>", FormatExecutionTimeStr(170'000, 0)) << "a counter of less than 1000 steps a second";
}

TEST(TraceLines, AreNotFormedWhenNobodyReadsThem) {
    const auto costly = []() -> const wchar_t* {
        ADD_FAILURE() << "formed";
        return L"";
    };
    QC_TRACE(L"Silent", L"%s", costly());
    QC_LOG(L"%s", costly());
    QC_REPORT(L"silent =>false%s,  %s", L"%s", costly());
}
