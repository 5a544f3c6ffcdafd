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
    const std::tuple<const char*, bool> rows[] = {
        {"(<t1>)", true},
        {"(<t3>)", false},
        {"(Not <t3>)", true},
        {"(<t1> Not <t1>)", false},
        {"(<t3>) (<t2>)", true},
        {"([\"tag\"])", true},
        {"([W/\"tag\"])", false},
        {"(<t1> [\"tag\"])", true},
        {"(<t1> [\"other\"])", false},
        {"</b> (<t1>)", false},
        {"</b> (<t1>) (<t2>)", true},
        {"</b> (<t1>) </a> (<t1>)", true},
        {"(not<t3>[\"tag\"])", true},
        {"  ( <t1>\t[\"tag\"] )  ", true},
        {"(Not <DAV:no-lock>)", true},
        {"([\"a ) > quoted\"] <t1>) (<t1>)", true},
    };
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
    const std::tuple<const char*, std::uint64_t, RangeKind, std::uint64_t, std::uint64_t> rows[] = {
        {"bytes=0-0", 10, RangeKind::Part, 0, 1},
        {"bytes=3-", 10, RangeKind::Part, 3, 7},
        {"bytes=-4", 10, RangeKind::Part, 6, 4},
        {"bytes=-40", 10, RangeKind::Part, 0, 10},
        {"bytes=2-400", 10, RangeKind::Part, 2, 8},
        {"bytes=10-", 10, RangeKind::Unsatisfiable, 0, 0},
        {"bytes=-0", 10, RangeKind::Unsatisfiable, 0, 0},
        {"bytes=0-", 0, RangeKind::Unsatisfiable, 0, 0},
        {"bytes=5-4", 10, RangeKind::Whole, 0, 0},
        {"bytes=0-1,3-4", 10, RangeKind::Whole, 0, 0},
        {"items=0-1", 10, RangeKind::Whole, 0, 0},
        {"bytes=-", 10, RangeKind::Whole, 0, 0},
        {"bytes=a-b", 10, RangeKind::Whole, 0, 0},
        {"bytes=0-99999999999999999999", 10, RangeKind::Whole, 0, 0},
        {"bytes=4294967295-4294967296", 5'000'000'000, RangeKind::Part, 4'294'967'295, 2},
    };
    for (const auto& [text, size, kind, first, length] : rows) {
        ByteRange range;
        ASSERT_EQ(ParseRange(text, size, range), kind) << text;
        if (kind == RangeKind::Part) {
            EXPECT_EQ(range.first, first) << text;
            EXPECT_EQ(range.length, length) << text;
        }
    }
}

TEST(TextsOfRequests, PathsStayInside) {
    const std::tuple<const char*, int> rows[] = {
        {"/Docs/a.txt", 0},
        {"/", 0},
        {"//", 0},
        {"http://host:8080/Docs/", 0},
        {"/Docs/~$a.docx", 0},
        {"/Docs/a%23%25%26.txt", 0},
        {"/Docs/..", 400},
        {"/Docs/%2E%2e/x", 400},
        {"/Docs/.", 400},
        {"/Docs/a%2fb", 400},
        {"/Docs/a%5Cb", 400},
        {"/Docs/a\\b", 400},
        {"/C:/x", 400},
        {"/Docs/a:b", 400},
        {"/Docs/a%3Astream", 400},
        {"/Docs/nul.txt", 400},
        {"/Docs/LPT9", 400},
        {"/Docs/a%00b", 400},
        {"/Docs/a%", 400},
        {"/Docs/a%4", 400},
        {"/Docs/%C3%28", 400},
        {"/Docs/%ED%A0%80", 400},
        {"/Docs/a.", 400},
        {"/Docs/a ", 400},
        {"/Docs/a*b", 400},
        {"/Docs/a#fragment", 400},
        {"Docs/a.txt", 400},
        {"", 400},
        {"ftp://host/a", 400},
        {"/Docs/%E2%80%A6", 0},
    };
    for (const auto& [target, status] : rows)
        EXPECT_EQ(StatusOf([&] { ParseTarget(target); }), status) << target;

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
