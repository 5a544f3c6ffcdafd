// The file system calls of each operation, a cost that is the same on every machine ("./run bench --calls"). The budgets are what the
// code needs today; whoever makes an operation cheaper also lowers its budget.
#include <chrono>

#include "harness/CallCounts.h"
#include "harness/VolumeFixture.h"

class PlatformCalls : public VolumeFixture {
protected:
    PlatformCalls() : VolumeFixture(0) {}
};

TEST_F(PlatformCalls, StayWithinTheirBudgets) {
    // A configuration that was written a moment ago is read again for each look at it.
    fs::last_write_time(NativePath(L"quelcrypt.json"), fs::file_time_type::clock::now() - std::chrono::hours(1));
    for (int number = 0; number < 10; ++number)
        MakeEncrypted(L"Docs\\d" + std::to_wstring(number) + L".txt", "content");
    MakePlain(L"Plain\\p", "content");
    const auto readAll = [this](const wchar_t* path) { EXPECT_EQ("content", Get(path)); };
    const auto save = [this](const wchar_t* path, std::uint32_t how) { Close(OpenEdited(path, "content", how)); };
    std::wstring token;
    List(L"Docs\\*");
    readAll(L"Docs\\d0.txt");
    save(L"Other\\first.txt", CREATE_NEW);  // the first document that is stored below a folder proves its password
    const std::tuple<const char*, int, std::function<void()>> rows[] = {
        {"describe a document, again", 3, [&] { Find(L"Docs\\d1.txt"); }},
        {"describe what is not there", 2, [&] { Find(L"Docs\\missing.txt"); }},
        {"list ten documents, again", 15, [&] { List(L"Docs\\*"); }},
        {"read a document, first", 65, [&] { readAll(L"Docs\\d2.txt"); }},
        {"read a document, again", 22, [&] { readAll(L"Docs\\d2.txt"); }},
        {"save a new document", 82, [&] { save(L"Docs\\new.txt", CREATE_NEW); }},
        {"save a document that is there", 85, [&] { save(L"Docs\\new.txt", OPEN_EXISTING); }},
        {"copy a document", 71, [&] { EXPECT_OK(Copy(L"Docs\\new.txt", L"Docs\\copy.txt")); }},
        {"rename a document", 127, [&] { EXPECT_OK(Move(L"Docs\\new.txt", L"Docs\\named.txt")); }},
        {"move a document to a folder of another key", 137, [&] { EXPECT_OK(Move(L"Docs\\named.txt", L"Other\\named.txt")); }},
        {"delete a document", 31, [&] { EXPECT_OK(Delete(L"Docs\\copy.txt")); }},
        {"lock a document", 8, [&] { token = Lock(L"Docs\\d3.txt"); }},
        {"unlock it", 3, [&] { Unlock(L"Docs\\d3.txt", token); }},
        {"read a plain file", 4, [&] { readAll(L"Plain\\p"); }},
        {"save a plain file", 4, [&] { save(L"Plain\\p", OPEN_EXISTING); }},
        {"move a plain file", 21, [&] { EXPECT_OK(Move(L"Plain\\p", L"Plain\\q")); }},
        {"turn it into a document", 110, [&] { EXPECT_OK(Move(L"Plain\\q", L"Docs\\q.txt")); }},
    };
    CallCounts counts{L"QuelcryptVol64.dll", L"QuelcryptLib64.dll"};
    for (const auto& [operation, budget, action] : rows)
        counts.Hold(operation, budget, action);
}
