// What stands in the configuration file holds from the next request on, and a mistake in it is named with its place.
#include <tuple>
#include <vector>

#include "CompanionFixture.h"
#include "companion/SettingsFile.h"

namespace {

using OneFileConfiguresTheCompanion = CompanionTest;

std::string TextOf(bool (IProtectedFolder::*get)(IQuelcryptText**), IProtectedFolder& folder) {
    IQuelcryptText* text = nullptr;
    EXPECT_TRUE((folder.*get)(&text));
    const Owned<IQuelcryptText> owned(text);
    return owned->HasText(0) ? owned->GetText(0) : "";
}

// "name|path|type" of each.
std::vector<std::string> Folders(std::uint32_t* changeCounter = nullptr) {
    IProtectedFolderEnum* folders = nullptr;
    EXPECT_NE(companion::MakeProtectedFolderEnum(&folders), 0);
    const Owned<IProtectedFolderEnum> owned(folders);
    if (changeCounter)
        *changeCounter = owned->GetChangeCounter();
    std::vector<std::string> listed;
    for (IProtectedFolder* folder = nullptr; owned->Next(&folder);) {
        const Owned<IProtectedFolder> ownedFolder(folder);
        ProtectedFolderRecord record = {};
        folder->GetRecord(&record);
        const char* const type = record.type == PFT_General ? "general" : record.type == PFT_Dropbox ? "dropbox" : "?";
        listed.push_back(TextOf(&IProtectedFolder::GetName, *folder) + "|" + TextOf(&IProtectedFolder::GetPath, *folder) + "|" + type);
    }
    return listed;
}

// "owner|policy|key", or "none" when no configuration holds for the folder.
std::string BoxOf(const std::filesystem::path& folder, std::uint32_t capacity = 120) {
    IHalvaneBoxConfig* config = nullptr;
    EXPECT_NE(companion::MakeHalvaneBoxConfig(Narrow(folder).c_str(), &config), 0);
    if (!config)
        return "none";
    const Owned<IHalvaneBoxConfig> owned(config);
    std::string buffer(capacity + 1, '#');
    const auto taken = [&](std::uint32_t length) {
        EXPECT_LE(length, capacity);
        EXPECT_EQ(buffer[capacity], '#') << "written beyond the buffer";
        return buffer.substr(0, length);
    };
    const std::string owner = taken(owned->GetOwnerId(buffer.data(), capacity));
    const std::string policy = taken(owned->GetPolicy(buffer.data(), capacity));
    return owner + "|" + policy + "|" + taken(owned->GetTargetKeyId(buffer.data(), capacity));
}

TEST_F(OneFileConfiguresTheCompanion, NamesTheProtectedFolders) {
    using Listed = std::vector<std::string>;
    const std::string drive = Narrow(m_folder).substr(0, 2);
    std::uint32_t before = 0, counter = 0;
    EXPECT_EQ(Folders(&before), Listed{"Docs|" + Narrow(m_folder / "docs") + "|general"});
    EXPECT_NE(before, 0u);
    Folders(&counter);
    EXPECT_EQ(counter, before);
    // Other folders of the same number and length, at once: within one step of the clock, as it seems.
    const auto now = std::filesystem::last_write_time(m_folder / "quelcrypt.json") + std::chrono::hours(1);
    for (const auto& [letter, shown] : {std::pair("\\u00e9", "\xC3\xA9"), std::pair("\\u00e8", "\xC3\xA8")}) {
        Configure(R"({"folders": [{"name": "Dox)" + std::string(letter) + R"(", "path": "C:\\a\\.\\b\\..\\", "type": "dropbox"},
                      {"path": "elsewhere"}, {"name": "Root", "path": "C:/"}, {"name": "Rooted", "path": "/x/y"}]})");
        std::filesystem::last_write_time(m_folder / "quelcrypt.json", now);
        EXPECT_EQ(Folders(&counter),
                  (Listed{"Dox" + std::string(shown) + "|C:\\a|dropbox", "Root|C:\\|general", "Rooted|" + drive + "\\x\\y|general"}));
        EXPECT_NE(counter, before);
        before = counter;
    }
}

TEST_F(OneFileConfiguresTheCompanion, GivesEachFolderWhatTheNearestOneSays) {
    Configure(R"({"folders": [
        {"path": "docs/team/inner", "targetKey": "inner"},
        {"name": "Docs", "path": "docs", "owner": "anna", "policy": "all", "targetKey": "home"},
        {"path": "docs/team", "owner": "b\u00f6b"},
        {"path": "docs/open", "policy": ""},
        {"path": "long", "owner": "0123456789\u20ac"}]})");
    // clang-format off
    const std::tuple<const char*, const char*> rows[] = {
        {".", "none"}, {"docs2", "none"}, {"docs", "anna|all|home"}, {"DOCS\\Sub\\", "anna|all|home"}, {"docs\\teamwork", "anna|all|home"},
        {"docs\\open\\x", "anna||home"}, {"docs\\team", "böb|all|home"}, {"docs\\team\\x\\..\\inner\\y", "böb|all|inner"}};
    // clang-format on
    for (const auto& [folder, expected] : rows)
        EXPECT_EQ(BoxOf(m_folder / folder), expected) << folder;

    // A buffer that is too small is filled up to a character's end, never beyond its own.
    EXPECT_EQ(BoxOf(m_folder / "long", 13), "0123456789\xE2\x82\xAC||");
    EXPECT_EQ(BoxOf(m_folder / "long", 12), "0123456789||");
    EXPECT_EQ(BoxOf(m_folder / "long", 0), "||");
}

TEST_F(OneFileConfiguresTheCompanion, IsRefusedWithPlaceAndReason) {
    const std::tuple<const char*, const char*> rows[] = {
        {"", "(1,1): syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
        {"{\n  \"folders\": [\n    {\"path\": \"a\",}\n]}",
         "(3,18): syntax error while parsing object key - unexpected '}'; expected string literal"},
        {"[]", "(1,1): an object is expected here"},
        {R"({"folder": []})", "(1,9): folder: \"folder\" is not known here"},
        {"{\"folders\": [{\"path\": \"a\"},\n {\"path\": 7}]}", "(2,8): folders[1].path: a text is expected here"},
        {R"({"folders": [{"path": "a", "name": "n"}]})",
         "(1,33): folders[0].name: a name must have at least two characters: one alone would be taken for a drive"},
        {R"({"folders": [{"path": "a"}, {"path": "A/"}]})", "(1,35): folders[1].path: this path has an entry already"},
        {R"({"folders": [{"path": "a", "name": "b/c"}]})", R"((1,33): folders[0].name: a name cannot contain any of \ / : * ? " < > |)"},
        {R"({"folders": [{"path": "a", "name": "nn"}, {"path": "b", "name": "NN"}]})",
         "(1,62): folders[1].name: another folder has this name"},
        {R"({"folders": [{"path": "a", "type": "usb"}]})", R"((1,33): folders[0].type: the type is "general" or "dropbox")"},
        {R"({"passwords": {"k": ""}})", "(1,18): passwords.k: the password is empty"},
        {R"({"passwords": {"k": {"prompt": 1}}})", "(1,29): passwords.k.prompt: only true is expected here"},
        {R"({"passwords": {"k": {}}})",
         R"((1,18): passwords.k: one of "prompt", "environment", "command" and "protected" is expected here)"},
        {R"({"defaultKey": "k"})", "(1,13): defaultKey: no password is given for this key"},
        {R"({"passwords": {"k": "p"}, "formerKeys": {"k": "o"}})", "(1,44): formerKeys.k: no password is given for this key"},
        {R"({"log": {"level": "trace"}})", R"((1,6): log: a log must have a file; "-" is standard error)"},
        {R"({"log": {"file": "-", "level": "loud"}})",
         R"((1,29): log.level: the level is "off", "error", "warning", "information" or "trace")"},
        {"{\"exclude\": [],\n\"exclude\": []}", "(2,9): \"exclude\" is given twice"},
    };
    for (const auto& [text, problem] : rows) {
        SCOPED_TRACE(text);
        try {
            companion::ParseSettings(text, L"C:\\base");
            ADD_FAILURE() << "accepted";
        } catch (const companion::SettingsError& error) {
            EXPECT_STREQ(error.what(), problem);
        }
    }
}

TEST_F(OneFileConfiguresTheCompanion, StaysInForceWhileTheNextIsBroken) {
    const std::string log = R"("log": {"file": "quelcrypt.log", "level": "error"})";
    Configure(R"({"folders": [{"name": "Docs", "path": "docs"}], )" + log + "}");
    std::uint32_t before = 0, during = 0, after = 0;
    ASSERT_EQ(Folders(&before).size(), 1u);

    Configure(R"({"folders": [{"name": "Docs", "pa)");
    EXPECT_EQ(Folders(&during).size(), 1u);
    EXPECT_EQ(Folders().size(), 1u);
    EXPECT_EQ(during, before);
    const std::string logged = ReadRaw(m_folder / "quelcrypt.log");
    const std::string place = "quelcrypt.json(1,34): syntax error";
    EXPECT_NE(logged.find(place), std::string::npos) << logged;
    EXPECT_EQ(logged.find(place), logged.rfind(place)) << "reported once";

    {
        // Somebody has the file to himself, and lets go of it without another change.
        Configure("{" + log + "}");
        const Held held(m_folder / "quelcrypt.json");
        EXPECT_EQ(Folders().size(), 1u);
        Sleep(150);
        EXPECT_EQ(Folders().size(), 1u);
    }
    EXPECT_TRUE(Folders(&after).empty());
    EXPECT_NE(after, before);

    std::filesystem::remove(m_folder / "quelcrypt.json");
    EXPECT_EQ(Folders(&during).size(), 0u);
    EXPECT_EQ(during, after);
}

TEST_F(OneFileConfiguresTheCompanion, IsChangedByOneAtATime) {
    using companion::SettingsFile;
    using Kind = companion::PasswordSource::Kind;
    const std::wstring path = companion::SettingsPath();
    WriteRaw(path + L".new", "what a crash left");
    const auto add = [](SettingsFile& file) { file.SetPassword("added", {Kind::Plain, "p"}); };
    SettingsFile::Change(path, [&](SettingsFile& file) {
        file.BeginRekey("home", file.Get().passwords.at("home"), {Kind::Plain, "new"}, {Kind::Prompt, {}});
        EXPECT_NE(ErrorOf([&] { SettingsFile::Change(path, add); }), L"");
    });
    EXPECT_THROW(SettingsFile::Change(path, [&](SettingsFile& file) { add(file), throw 0; }), int);
    {
        const UniqueHandle held = companion::HoldSettings();
        EXPECT_NE(ErrorOf([&] { SettingsFile::Change(path, add); }), L"");
    }
    EXPECT_EQ(SettingsFile(path).Get().passwords.size(), 2u);
    SettingsFile::Change(path, add);
    SettingsFile::Change(path, [](SettingsFile& file) { file.EndRekey("home"); });
    EXPECT_EQ(SettingsFile(path).Get().passwords.size(), 2u);
    EXPECT_EQ(SettingsFile(path).Get().passwords.at("home").kind, Kind::Prompt);
    EXPECT_FALSE(std::filesystem::exists(path + L".new"));
}

TEST_F(OneFileConfiguresTheCompanion, ChoosesTheLog) {
    Configure(R"({"log": {"file": "quelcrypt.log", "level": "information"}})");
    Folders();
    IFileLogger* const logger = companion::FileLogger();
    const std::uint32_t component = companion::LoggerComponentIndex("QuelcryptVol");
    EXPECT_EQ(companion::LoggerComponentIndex("QuelcryptVol"), component);
    EXPECT_NE(companion::LoggerComponentIndex("Other"), component);
    EXPECT_EQ(logger->GetLevel(component), static_cast<std::uint32_t>(LogLevel_Information));

    logger->Write(component, LogLevel_Error, L"caf\u00E9 %s\nsecond\r\n", nullptr);
    logger->Write(component, LogLevel_Trace, L"not at this level", nullptr);
    EXPECT_EQ(ReadRaw(m_folder / "quelcrypt.log"), "caf\xC3\xA9 %s second\r\n");

    // Without one nothing is asked for.
    Configure("{}");
    Folders();
    EXPECT_EQ(logger->GetLevel(component), 0u);
}

}  // namespace
