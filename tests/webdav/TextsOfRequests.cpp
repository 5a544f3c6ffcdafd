// The texts that come with a request, taken apart as the standards say.
#include <gtest/gtest.h>

#include "webdav/Conditions.h"
#include "webdav/Http.h"
#include "webdav/Paths.h"

#include <tuple>

namespace webdav {

namespace {

template <class Operation>
int StatusOf(Operation operation) {
    try {
        operation();
        return 0;
    } catch (const HttpError& error) {
        return error.Status();
    }
}

// Tokens hold where the resource says so: "t1" is the token of /a, "t2" that of everything, and the tag is that of /a.
bool HoldsHere(const std::string& resource, const IfCondition& condition) {
    if (condition.isTag)
        return resource != "/b" && condition.value == "\"tag\"";
    return condition.value == "t2" || (condition.value == "t1" && resource != "/b");
}

}  // namespace

TEST(TextsOfRequests, IfField) {
    // clang-format off
    const std::tuple<const char*, bool> rows[] = {
        {"(<t1>)", true}, {"(<t3>)", false}, {"(Not <t3>)", true}, {"(<t1> Not <t1>)", false}, {"(<t3>) (<t2>)", true},
        {"([\"tag\"])", true}, {"([W/\"tag\"])", false}, {"(<t1> [\"tag\"])", true}, {"(<t1> [\"other\"])", false}, {"</b> (<t1>)", false},
        {"</b> (<t1>) (<t2>)", true}, {"</b> (<t1>) </a> (<t1>)", true}, {"(not<t3>[\"tag\"])", true}, {"  ( <t1>\t[\"tag\"] )  ", true},
        {"(Not <DAV:no-lock>)", true}, {"([\"a ) > quoted\"] <t1>) (<t1>)", true}};
    // clang-format on
    for (const auto& [text, holds] : rows)
        EXPECT_EQ(IfHolds(ParseIf(text), HoldsHere), holds) << text;

    for (const char* broken : {"", "()", "(<t1>", "</a> </b> (<t1>)", "(<t1>) x", "([\"tag)", "([tag])", "(Not)", "<> (<t1>)"})
        EXPECT_EQ(StatusOf([&] { ParseIf(broken); }), 400) << broken;

    // Submitted is what is named without "Not", wherever it stands.
    const std::vector<std::string> wanted{"t1", "t2"};
    EXPECT_EQ(SubmittedTokens(ParseIf("</a> (<t1> [\"tag\"]) (Not <t3>) </b> (<t2>)")), wanted);
}

TEST(TextsOfRequests, EntityTags) {
    const std::string tag = "\"a,b\"";
    const std::tuple<const char*, bool, bool> rows[] = {
        {"*", true, true},          {" * ", true, true},
        {"\"a,b\"", true, true},    {"\"x\", \"a,b\"", true, true},
        {"W/\"a,b\"", false, true}, {"\"a\"", false, false},
        {"a,b", false, false},      {"", false, false},
        {"\"a,b", false, false},    {"\"x\",W/\"y\"", false, false},
    };
    for (const auto& [list, strong, weak] : rows) {
        EXPECT_EQ(TagListMatches(list, tag), strong) << list;
        EXPECT_EQ(TagListMatches(list, tag, true), weak) << list;
    }
}

TEST(TextsOfRequests, Dates) {
    constexpr std::uint64_t time = 124'285'853'770'000'000;
    for (const char* form : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"})
        EXPECT_EQ(ParseHttpDate(form), time) << form;
    EXPECT_EQ(HttpDate(time), "Sun, 06 Nov 1994 08:49:37 GMT");
    for (const char* broken : {"", "Sun, 06 Nov 1994", "Sunday, 06-Foo-94 08:49:37 GMT", "Sun Nov 31 08:49:37 1994", "784111777"})
        EXPECT_EQ(ParseHttpDate(broken), 0u) << broken;
}

TEST(TextsOfRequests, Ranges) {
    // clang-format off
    const std::tuple<const char*, std::uint64_t, std::uint64_t, std::uint64_t> parts[] = {  // of a file of so many bytes: first, length
        {"bytes=0-0", 10, 0, 1}, {"bytes=3-", 10, 3, 7}, {"bytes=-4", 10, 6, 4}, {"bytes=-40", 10, 0, 10}, {"bytes=2-400", 10, 2, 8},
        {"bytes=4294967295-4294967296", 5'000'000'000, 4'294'967'295, 2}};
    // clang-format on
    ByteRange range;
    for (const auto& [text, size, first, length] : parts) {
        ASSERT_EQ(ParseRange(text, size, range), RangeKind::Part) << text;
        EXPECT_EQ(std::pair(range.first, range.length), std::pair(first, length)) << text;
    }
    for (const char* text : {"bytes=10-", "bytes=-0", "bytes=20-30"})
        EXPECT_EQ(ParseRange(text, 10, range), RangeKind::Unsatisfiable) << text;
    EXPECT_EQ(ParseRange("bytes=0-", 0, range), RangeKind::Unsatisfiable);
    for (const char* text : {"bytes=5-4", "bytes=0-1,3-4", "items=0-1", "bytes=-", "bytes=a-b", "bytes=0-99999999999999999999"})
        EXPECT_EQ(ParseRange(text, 10, range), RangeKind::Whole) << text;
}

TEST(TextsOfRequests, PathsStayInside) {
    for (const char* target :
         {"/Docs/a.txt", "/", "//", "http://host:8080/Docs/", "/Docs/~$a.docx", "/Docs/a%23%25%26.txt", "/Docs/%E2%80%A6"})
        EXPECT_EQ(StatusOf([&] { ParseTarget(target); }), 0) << target;
    // clang-format off
    for (const char* target : {
             "/Docs/..", "/Docs/%2E%2e/x", "/Docs/.", "/Docs/a%2fb", "/Docs/a%5Cb", "/Docs/a\\b", "/C:/x", "/Docs/a:b", "/Docs/a%3Astream",
             "/Docs/nul.txt", "/Docs/LPT9", "/Docs/a%00b", "/Docs/a%", "/Docs/a%4", "/Docs/%C3%28", "/Docs/%ED%A0%80", "/Docs/a.",
             "/Docs/a ", "/Docs/a*b", "/Docs/a#fragment", "Docs/a.txt", "", "ftp://host/a"})
        EXPECT_EQ(StatusOf([&] { ParseTarget(target); }), 400) << target;
    // clang-format on

    // What is parsed comes back as it was, whatever is in it.
    for (const char* href : {"/Docs/a%23%25%26%20%C3%BC.txt", "/Docs/it's%20(1)%20+,;=.txt"}) {
        std::string shown = Href(ParseTarget(href), false);
        EXPECT_EQ(Href(ParseTarget(shown), false), shown);
    }
    EXPECT_EQ(Href(ParseTarget("http://host/Docs//Reports/"), true), "/Docs/Reports/");
    std::string authority;
    ParseTarget("HTTP://host:8080/x", &authority);
    EXPECT_EQ(authority, "host:8080");
}

}  // namespace webdav
