// Texts from outside: a path that a user writes reaches the volume only in a form that cannot leave it, and a tracking file names a
// document only when it is certain which. And that a folder stays where it was looked at.
#include <gtest/gtest.h>

#include "common/CharacterSets.h"
#include "common/TrackingText.h"
#include "core/HostError.h"
#include "core/OnDisk.h"
#include "core/Text.h"
#include "core/VolumePath.h"

TEST(APathFromTheUser, IsRefusedWhenItCouldMeanSomethingElse) {
    std::wstring longPath = L"Docs", deepPath = L"Docs";
    while (longPath.size() < 33'000)
        longPath += L"\\" + std::wstring(250, L'n');
    for (std::size_t i = 1; i < kMaxPathComponents; ++i)
        deepPath += L"\\d";
    EXPECT_EQ(VolumePath::Parse(deepPath).Depth(), kMaxPathComponents);
    // clang-format off
    const std::wstring refused[] = {
        L"/etc/passwd", L"\\Windows", L"\\\\server\\share", L"//server/share", L"\\\\?\\C:\\x", L"\\\\.\\pipe\\x", L"C:\\x", L"c:/x",
        L"C:x", L"C:", L"..", L"../x", L"Docs/..", L"Docs/../x", L"Docs\\..\\..\\x", L"Docs/.. /x", L"Docs/.../x", L"Docs/a.txt:stream",
        L"Docs/a.txt::$DATA", L"Docs:x", L"NUL", L"Docs/nul", L"Docs/NUL.txt", L"Docs/nul .txt", L"Docs/Con/a.txt", L"Docs/com1",
        L"Docs/LPT9.log", L"Docs/COM\u00b2", L"Docs/CONIN$", L"Docs/aux.tar.gz", L"Docs/policy.hvc", L"Docs/Sub/.HALVANECLOUD",
        L"Docs/.halvanebox/a.txt", L"Docs/- HalvaneCloud Readme -.htm", L"Docs/a.", L"Docs/a ", L"Docs/a./b", L"Docs/ ", L"Docs/a<b",
        L"Docs/a>b", L"Docs/a\"b", L"Docs/a|b", L"Docs/a\tb", std::wstring(L"Docs/a\0b", 8), L"Docs/*", L"Docs/a?", L"D*/a.txt",
        L"Docs/" + std::wstring(256, L'n'), longPath, deepPath + L"\\d"};
    // clang-format on
    for (const std::wstring& text : refused)
        EXPECT_THROW(VolumePath::Parse(text), UsageError) << ToUtf8(text);
}

TEST(APathFromTheUser, ReachesTheVolumeWithOneKindOfSeparator) {
    // clang-format off
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"", L""}, {L".", L""}, {L"Docs", L"Docs"}, {L"Docs/", L"Docs"}, {L"Docs//Sub\\\\a.txt", L"Docs\\Sub\\a.txt"},
        {L"./Docs/./a.txt", L"Docs\\a.txt"}, {L"Docs/..a/b..c", L"Docs\\..a\\b..c"}, {L"Docs/.hidden", L"Docs\\.hidden"},
        {L"Docs/console.txt/com10/nullify", L"Docs\\console.txt\\com10\\nullify"}, {L"Docs/ leading", L"Docs\\ leading"},
        {L"Docs/\u65e5\u672c \u00e9 e\u0301 100% #1 & 'x'", L"Docs\\\u65e5\u672c \u00e9 e\u0301 100% #1 & 'x'"}};
    // clang-format on
    for (const auto& [text, expected] : rows)
        EXPECT_STREQ(expected, VolumePath::Parse(text).Str()) << ToUtf8(text);
    // A pattern is taken in the last name only.
    const auto parse = [](const wchar_t* text) { return VolumePath::Parse(text, VolumePath::Wildcards::InLastComponent); };
    EXPECT_STREQ(L"Docs\\*.docx", parse(L"Docs/*.docx").Str());
    EXPECT_STREQ(L"D?cs", parse(L"D?cs/").Str());
    EXPECT_THROW(parse(L"*/a.txt"), UsageError);
    EXPECT_THROW(parse(L"Docs/*:x"), UsageError);
}

TEST(ATrackingFile, NamesItsDocumentInItsLastLineOrNotForCertain) {
    const std::wstring start =
        L"<halvanecloud><filetracking><srcfile><name><![CDATA[C:\\?ir\\??.txt.zip]]></name><attributes>32</attributes>"
        L"<writetime>1</writetime><size>2</size></srcfile><filespec><name><![CDATA[??.txt]]></name></filespec>"
        L"<tempfile><name><![CDATA[T:\\??.txt]]></name><attributes>32</attributes><writetime>1</writetime><size>2</size>"
        L"</tempfile></filetracking></halvanecloud>\r\n";
    const std::wstring full = L"C%3A%5C%EF%BC%A4ir%5C%E6%97%A5%E6%9C%AC.txt.zip", copy = L"T%3A%5C%E6%97%A5%E6%9C%AC.txt",
                       name = L"%E6%97%A5%E6%9C%AC.txt";
    const auto line = [](std::wstring a, std::wstring b, std::wstring c) { return L"<!-- utf8: " + a + L" | " + b + L" | " + c + L" -->"; };
    // The first two are right, the others are as none.
    // clang-format off
    const std::wstring rows[] = {
        line(full, copy, name), line(full, copy, name) + L"\r\n", L"", line(full, copy, L"b.txt"), line(full, copy, name + L"%"),
        line(full, copy, L"%e6%97%a5%e6%9c%ac.txt"), line(L"C%3A%5Cother.zip", copy, name),
        line(L"C%3A%5C%FF%FFir%5C%FF.txt.zip", copy, name), line(L"C:\\\uff24ir\\\u65e5\u672c.txt.zip", copy, name),
        L"<!-- utf8: " + full + L" | " + copy + L" -->", line(full, copy, name).substr(0, 40), L"x" + line(full, copy, name)};
    // clang-format on
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::optional<TrackingRecord> read = ParseTrackingText(Narrowed(start + rows[i], CharacterSet::System));
        ASSERT_TRUE(read) << i;
        EXPECT_EQ(read->IsSourceKnown(), i < 2) << i;
        EXPECT_EQ(read->sourceName, i < 2 ? L"C:\\\uff24ir\\\u65e5\u672c.txt.zip" : L"C:\\?ir\\??.txt.zip") << i;
        EXPECT_EQ(read->tempName, i < 2 ? L"T:\\\u65e5\u672c.txt" : L"T:\\??.txt") << i;
    }
}

TEST(AHeldFolder, CanBeUsedButNotExchanged) {
    const std::filesystem::path top = std::filesystem::path(RealPath(std::filesystem::temp_directory_path().native())) / UniqueSuffix();
    std::filesystem::create_directories(top / L"folder");
    UniqueHandle held = HoldFolder((top / L"folder").native());
    ASSERT_TRUE(held);
    EXPECT_TRUE(CreateDirectoryW((top / L"folder" / L"new").c_str(), nullptr));
    EXPECT_TRUE(MoveFileW((top / L"folder" / L"new").c_str(), (top / L"folder" / L"renamed").c_str()));
    EXPECT_FALSE(MoveFileW((top / L"folder").c_str(), (top / L"away").c_str()));
    EXPECT_FALSE(RemoveItself(top.native()));
    held.Reset();
    EXPECT_TRUE(MoveFileW((top / L"folder").c_str(), (top / L"away").c_str()));
    EXPECT_TRUE(RemoveItself(top.native()));
}
