// Nothing is written with a password that does not open what is there, wherever the password comes from.
#include "CompanionFixture.h"
#include "companion/PasswordProof.h"
#include "companion/Problem.h"
#include "companion/ProtectedText.h"

#include <tuple>

namespace {

class ProvingThePassword : public CompanionTest {
protected:
    // The home key's password is what the source says; "team" is that of a folder in the folder.
    void UseSource(const std::string& source) {
        Configure(R"({"folders": [{"name": "Docs", "path": "docs", "policy": "all", "targetKey": "home"},
                                  {"path": "docs/Team", "targetKey": "team"}],
                      "passwords": {"team": "of the team", "home": )" +
                  source + "}}");
    }
    void UseVariable(const wchar_t* password) {
        SetEnvironmentVariableW(L"QUELVOL_TEST_PASSWORD", password);
        UseSource(R"({"environment": "QUELVOL_TEST_PASSWORD"})");
    }
    std::wstring ErrorOfWriting(const char* name) const {
        return ErrorOf([&] { Writer(InDocs(name)); });
    }
    Path CheckContainer() const { return InDocs(".HalvaneCloud"); }
    void TearDown() override {
        std::filesystem::remove_all(CheckContainer());
        CompanionTest::TearDown();
    }
    const std::wstring refused = L"This is not the password of Docs";
};

TEST_F(ProvingThePassword, TakesItFromWhereTheConfigurationSays) {
    SetEnvironmentVariableW(L"QUELVOL_TEST_PASSWORD", L"first secret");
    const std::string sources[] = {R"("first secret")", R"({"environment": "QUELVOL_TEST_PASSWORD"})",
                                   R"({"command": "cmd /c echo first secret"})",
                                   R"({"protected": ")" + companion::Protect(companion::Secret("first secret")) + "\"}"};
    Encrypt(InDocs("a.zip"), "old");
    for (const std::string& source : sources) {
        SCOPED_TRACE(source);
        UseSource(source);
        EXPECT_EQ(Decrypt(InDocs("a.zip")), "old");
        Encrypt(InDocs("b.zip"), "new");
    }
    const std::tuple<const char*, const wchar_t*> failing[] = {
        {R"({"environment": "QUELVOL_TEST_NONE"})", L"the environment variable QUELVOL_TEST_NONE is not set"},
        {R"({"command": "cmd /c exit 3"})", L"its command \"cmd /c exit 3\" ended with 3"},
        {R"({"protected": "AAAA"})", L"Only the user who stored it"}};
    for (const auto& [source, error] : failing) {
        UseSource(source);
        EXPECT_FALSE(Writer(InDocs("b.zip"))) << source;
        EXPECT_NE(companion::LastProblem().find(error), std::wstring::npos) << source << " said otherwise";
    }
}

TEST_F(ProvingThePassword, RefusesOneThatOpensNothing) {
    for (const char* folder : {"Sub", "Team"})
        std::filesystem::create_directories(InDocs(folder));
    Encrypt(InDocs("Sub/a.zip"), "old");
    const std::string before = ReadRaw(InDocs("Sub/a.zip"));
    UseSource("\"first sekret\"");
    for (const char* name : {"Sub/a.zip", "new.zip"})
        EXPECT_EQ(ErrorOfWriting(name), refused);
    EXPECT_EQ(ReadRaw(InDocs("Sub/a.zip")), before);

    // A folder with its own password, copies under another known one and what is broken prove nothing against it.
    std::filesystem::rename(InDocs("Sub/a.zip"), InDocs("Team/a.zip"));
    Encrypt(InDocs("Sub/b.zip"), "new");
    std::filesystem::remove(InDocs("Sub/b.zip"));
    UseVariable(L"another");
    WriteRaw(InDocs("broken.zip"), before.substr(0, before.size() - 30));
    Encrypt(InDocs("c.zip"), "new");
    EXPECT_TRUE(std::filesystem::exists(CheckContainer() / "password.zip")) << "from now on it is known without a search";
}

TEST_F(ProvingThePassword, KnowsTheFirstOneThatWasUsed) {
    UseVariable(L"first");
    Encrypt(InDocs("a.zip"), "content");
    std::filesystem::remove(InDocs("a.zip"));
    UseVariable(L"second");
    EXPECT_EQ(ErrorOfWriting("a.zip"), refused);
    UseVariable(L"first");
    Encrypt(InDocs("a.zip"), "content");

    // Another process, as it seems to this one, changes the folder's password, also while a save is under way.
    const auto begun = Writer(InDocs("late.zip"));
    companion::ReplaceCheckContainer({InDocs({}).parent_path().wstring(), "home", L"Docs"}, companion::Secret("third"));
    EXPECT_EQ(ErrorOfWriting("a.zip"), refused);
    UseVariable(L"third");
    EXPECT_EQ(ErrorOf([&] { begun->Finish(true); }), L"The password of its folder was changed meanwhile; save it again");
    UseVariable(L"first");
    EXPECT_EQ(Decrypt(InDocs("a.zip")), "content");
}

}  // namespace
