// The file system calls of the server, the volume and its companion library, for each request but a listing the same in folders of any
// size. The budgets are what the code needs today; whoever makes a request cheaper also lowers its budget.
#include <filesystem>
#include <fstream>
#include <tuple>

#include <gtest/gtest.h>

#include "harness/CallCounts.h"
#include "webdav/Site.h"

namespace fs = std::filesystem;

namespace {

struct Body : webdav::RequestBody {
    std::string_view rest;
    bool IsExpected() const override { return !rest.empty(); }
    std::size_t Read(char* buffer, std::size_t capacity) override {
        const std::size_t count = rest.copy(buffer, capacity);
        rest.remove_prefix(count);
        return count;
    }
};

struct Answer : webdav::Response {
    int status = 0;
    void Begin(int theStatus, const webdav::Fields&, std::optional<std::uint64_t>) override { status = theStatus; }
    void Write(std::string_view) override {}
    bool HasBegun() const override { return status != 0; }
    void CloseAfterwards() override {}
    void LetIn() override {}
};

constexpr std::string_view kLock = R"(<lockinfo xmlns="DAV:"><lockscope><shared/></lockscope><locktype><write/></locktype></lockinfo>)";

}  // namespace

TEST(CallsOfRequests, StayWithinTheirBudgetsInFoldersOfAnySize) {
    const fs::path work = fs::temp_directory_path() / "calls-of-requests";
    fs::remove_all(work);
    for (const auto& [folder, files] : {std::pair("small", 10), std::pair("large", 1000)}) {
        fs::create_directories(work / "Docs" / folder);
        for (int number = 0; number < files; ++number)
            std::ofstream(work / "Docs" / folder / ("plain file " + std::to_string(number)));
    }
    std::ofstream(work / "quelcrypt.json")
        << R"({"folders": [{"name": "Docs", "path": "Docs", "owner": "me", "policy": "encrypt", "targetKey": "one"}],
                                                  "passwords": {"one": "first password"}})";
    fs::last_write_time(work / "quelcrypt.json", fs::file_time_type::clock::now() - std::chrono::hours(1));
    SetEnvironmentVariableW(L"QUELCRYPT_CONFIG", (work / "quelcrypt.json").c_str());
    {
        const Volume volume;
        webdav::Site site(volume, {}, {});
        CallCounts counts{nullptr, L"QuelcryptVol64.dll", L"QuelcryptLib64.dll"};
        const std::tuple<std::string, std::string, int> rows[] = {
            {"PUT", "new.txt", 159},   {"PUT", "new.txt", 170},     {"HEAD", "new.txt", 11},  {"GET", "new.txt", 44},
            {"GET", "missing.txt", 5}, {"PROPFIND", "new.txt", 11}, {"LOCK", "new.txt", 23},  {"COPY", "new.txt", 249},
            {"MOVE", "copy.txt", 212}, {"DELETE", "moved.txt", 45}, {"PUT", "plain", 78},     {"PUT", "plain", 80},
            {"GET", "plain", 23},      {"DELETE", "plain", 23},     {"MKCOL", "folder/", 36}, {"DELETE", "folder/", 48},
        };
        for (const std::string folder : {"small", "large"}) {
            const auto send = [&](const std::string& method, const std::string& name, const char* depth = "0") {
                const std::string target = "/Docs/" + folder + '/', to = target + (method == "COPY" ? "copy.txt" : "moved.txt");
                depth = method == "DELETE" ? "infinity" : depth;
                Body body;
                body.rest = method == "PUT" ? "content" : method == "LOCK" ? kLock : "";
                Answer answer;
                site.Answer(
                    {method, target + name, {{"Host", "localhost"}, {"Content-Length", "7"}, {"Depth", depth}, {"Destination", to}}}, body,
                    answer);
            };
            send("PUT", "first.txt");  // a process's first save looks for a container that proves the password
            send("PROPFIND", "", "1");
            send("PUT", "first.txt");  // proves the password
            for (const auto& [method, name, budget] : rows)
                counts.Hold(folder + " " + method + " " + name, budget, [&] { send(method, name); });
        }
    }
    fs::remove_all(work);
}
