// Paths of random parts, thousands at a time. The seed is printed; QUELVOL_SEED repeats a run.
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "items/SaveNames.h"
#include "policy/FileUtils.h"

namespace {

class RandomPaths : public testing::Test {
protected:
    RandomPaths() {
        const char* const given = std::getenv("QUELVOL_SEED");
        const unsigned long seed = given ? std::strtoul(given, nullptr, 10) : std::random_device{}();
        std::printf("QUELVOL_SEED=%lu\n", seed);
        m_random.seed(static_cast<std::mt19937::result_type>(seed));
    }
    std::size_t Below(std::size_t limit) { return m_random() % limit; }
    std::wstring Path() {
        static const wchar_t* const parts[] = {L"\\", L"/", L"..", L".", L" ", L"a", L"b.txt", L".zip", L"nul", L"COM1", L":",
                                               L"C:", L"*", L"\xD800", L"\x00FC", L"\\\\?\\", L"...", L". .", L"x.~1a2b3c4d"};
        std::wstring path;
        for (std::size_t count = Below(12); count > 0; --count)
            path += parts[Below(std::size(parts))];
        return path;
    }

private:
    std::mt19937 m_random;
};

}  // namespace

TEST_F(RandomPaths, JoinedPathsNeverLeaveTheirFolder) {
    for (const std::wstring folder : {L"C:\\mount", L"C:\\mount\\", L"C:\\", L"\\\\server\\share"})
        for (int i = 0; i < 20'000; ++i) {
            const std::wstring relative = Path();
            const std::optional<std::wstring> joined = PathJoinBelow(folder, relative);
            if (!joined || *joined == folder)
                continue;
            SCOPED_TRACE(testing::PrintToString(relative) + " -> " + testing::PrintToString(*joined));
            const std::wstring base = folder.substr(0, folder.find_last_not_of(L'\\') + 1);
            ASSERT_TRUE(joined->starts_with(base + L"\\"));
            std::wstring rest = joined->substr(base.size() + 1);
            ASSERT_FALSE(rest.empty());
            for (std::size_t end = 0; end != rest.npos; rest = end == rest.npos ? L"" : rest.substr(end + 1)) {
                end = rest.find(L'\\');
                const std::wstring name = rest.substr(0, end);
                ASSERT_TRUE(!name.empty() && name.back() != L'.' && name.back() != L' ') << "the platform would take it for another";
                ASSERT_EQ(name.npos, name.find(L'/'));
            }
            // What was joined needs no more joining.
            ASSERT_EQ(joined, PathJoinBelow(folder, joined->substr(base.size() + 1)));
        }
}

TEST_F(RandomPaths, NamesOfContainersAndCopiesComeApartAsTheyWereMade) {
    for (int i = 0; i < 50'000; ++i) {
        const std::wstring folder = Path(), name = Path();
        SCOPED_TRACE(testing::PrintToString(folder) + ", " + testing::PrintToString(name));
        if (name.find_first_of(L"\\/") == name.npos) {
            const std::wstring path = PathAppendStr(folder, name);
            ASSERT_EQ(name, PathStripPathStr(path));
            ASSERT_EQ(path, PathRemoveExtensionStr(PathAddExtensionStr(path, L".zip"))) << "the name of a container";
            const std::wstring conflict = SaveNameStr(name, SaveName::ConflictedEdit, 2);
            const std::wstring stem = PathRemoveExtensionStr(name);
            ASSERT_TRUE(conflict.starts_with(stem + L" (HalvaneCloud conflicted edit "));
            ASSERT_TRUE(conflict.ends_with(L" (2)" + name.substr(stem.size())));
        }
        ASSERT_LE(PathRemoveFileSpecStr(folder).size(), folder.size());
    }
}
