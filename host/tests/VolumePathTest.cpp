// What a user writes reaches the volume only in a form that cannot leave it.
#include <gtest/gtest.h>

#include "core/HostError.h"
#include "core/Text.h"
#include "core/VolumePath.h"

TEST(APathFromTheUser, IsRefusedWhenItCouldMeanSomethingElse) {
    const std::wstring longName(256, L'n');
    std::wstring longPath = L"Docs";
    while (longPath.size() < 33'000)
        longPath += L"\\" + std::wstring(250, L'n');
    const std::wstring refused[] = {
        L"/etc/passwd", L"\\Windows", L"\\\\server\\share", L"//server/share", L"\\\\?\\C:\\x", L"\\\\.\\pipe\\x",
        L"C:\\x", L"c:/x", L"C:x", L"C:",
        L"..", L"../x", L"Docs/..", L"Docs/../x", L"Docs\\..\\..\\x", L"Docs/.. /x", L"Docs/.../x",
        L"Docs/a.txt:stream", L"Docs/a.txt::$DATA", L"Docs:x",
        L"NUL", L"Docs/nul", L"Docs/NUL.txt", L"Docs/nul .txt", L"Docs/Con/a.txt", L"Docs/com1", L"Docs/LPT9.log", L"Docs/COM\u00b2",
        L"Docs/CONIN$", L"Docs/aux.tar.gz",
        L"Docs/policy.hvc", L"Docs/Sub/.HALVANECLOUD", L"Docs/.halvanebox/a.txt", L"Docs/- HalvaneCloud Readme -.htm",
        L"Docs/a.", L"Docs/a ", L"Docs/a./b", L"Docs/ ", L"Docs/a<b", L"Docs/a>b", L"Docs/a\"b", L"Docs/a|b", L"Docs/a\tb",
        std::wstring(L"Docs/a\0b", 8), L"Docs/*", L"Docs/a?", L"D*/a.txt",
        L"Docs/" + longName, longPath,
    };
    for (const std::wstring& text : refused)
        EXPECT_THROW(VolumePath::Parse(text), UsageError) << ToUtf8(text);
}

TEST(APathFromTheUser, ReachesTheVolumeWithOneKindOfSeparator) {
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"", L""},
        {L".", L""},
        {L"Docs", L"Docs"},
        {L"Docs/", L"Docs"},
        {L"Docs//Sub\\\\a.txt", L"Docs\\Sub\\a.txt"},
        {L"./Docs/./a.txt", L"Docs\\a.txt"},
        {L"Docs/..a/b..c", L"Docs\\..a\\b..c"},
        {L"Docs/.hidden", L"Docs\\.hidden"},
        {L"Docs/console.txt/com10/nullify", L"Docs\\console.txt\\com10\\nullify"},
        {L"Docs/ leading", L"Docs\\ leading"},
        {L"Docs/\u65e5\u672c \u00e9 e\u0301 100% #1 & 'x'", L"Docs\\\u65e5\u672c \u00e9 e\u0301 100% #1 & 'x'"},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_STREQ(expected, VolumePath::Parse(text).Str()) << ToUtf8(text);
}

TEST(APattern, IsTakenInTheLastNameOnly) {
    const auto parse = [](const wchar_t* text) { return VolumePath::Parse(text, VolumePath::Wildcards::InLastComponent); };
    EXPECT_STREQ(L"Docs\\*.docx", parse(L"Docs/*.docx").Str());
    EXPECT_STREQ(L"D?cs", parse(L"D?cs/").Str());
    EXPECT_THROW(parse(L"*/a.txt"), UsageError);
    EXPECT_THROW(parse(L"Docs/*:x"), UsageError);
}

TEST(APath, KnowsItsParts) {
    const VolumePath file = VolumePath::Parse(L"Docs/Sub/a.txt");
    EXPECT_EQ(L"a.txt", file.Name());
    EXPECT_STREQ(L"Docs\\Sub", file.Parent().Str());
    EXPECT_TRUE(file.Parent().Parent().IsMountFolder());
    EXPECT_TRUE(file.Parent().Parent().Parent().IsRoot());
    EXPECT_TRUE(VolumePath().Parent().IsRoot());
    EXPECT_EQ("/", VolumePath().Shown());
    EXPECT_EQ("Docs/Sub/a.txt", file.Shown());

    // Inside is a matter of whole names, without regard to letter case.
    EXPECT_TRUE(file.IsInside(VolumePath::Parse(L"docs/SUB")));
    EXPECT_TRUE(file.IsInside(VolumePath()));
    EXPECT_FALSE(VolumePath::Parse(L"Docs/Subway").IsInside(VolumePath::Parse(L"Docs/Sub")));
    EXPECT_FALSE(file.IsInside(file));
}
