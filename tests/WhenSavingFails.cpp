// Whatever fails while an edit is saved: the container that stood before stands, and the edit is on disk.
#include "harness/ConflictsAndBackups.h"
#include "harness/VolumeFixture.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>

#include <expat.h>

namespace {

constexpr const char* kWriter = "Quelcrypt_FileWriterFactory";
constexpr const char* kWrite = "IFileWriter::Write";
constexpr const char* kFinish = "IFileWriter::Finish";

// An XML document as its elements' texts by path, e.g. "halvanecloud/filetracking/srcfile/size".
struct Document {
    explicit Document(const std::string& bytes) {
        const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate("ISO-8859-1"), &XML_ParserFree);
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(parser.get(), &Document::Start, &Document::End);
        XML_SetCharacterDataHandler(parser.get(), &Document::Text);
        isWellFormed = XML_Parse(parser.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE) == XML_STATUS_OK;
    }
    static void Start(void* self, const XML_Char* name, const XML_Char**) {
        auto& document = *static_cast<Document*>(self);
        document.path += (document.path.empty() ? "" : "/") + std::string(name);
        document.texts[document.path];
    }
    static void End(void* self, const XML_Char*) {
        std::string& path = static_cast<Document*>(self)->path;
        path.resize(path.find('/') == std::string::npos ? 0 : path.rfind('/'));
    }
    static void Text(void* self, const XML_Char* text, int length) {
        auto& document = *static_cast<Document*>(self);
        document.texts[document.path].append(text, static_cast<std::size_t>(length));
    }
    std::string At(const std::string& place) const {
        const auto found = texts.find("halvanecloud/filetracking/" + place);
        return found == texts.end() ? "<none>" : found->second;
    }
    bool isWellFormed = false;
    std::string path;
    std::map<std::string, std::string> texts;
};

}  // namespace

class WhenSavingFails : public VolumeFixture {
protected:
    void SetUp() override {
        VolumeFixture::SetUp();
        m_user = std::make_unique<PromptedUser>();
    }
    void TearDown() override {
        m_user.reset();
        VolumeFixture::TearDown();
    }
    PromptedUser& user() { return *m_user; }

    // Makes a.txt with "base", edits it so that saving fails and the prompt is cancelled, and leaves it closed.
    void LeaveUnsavedEdit(const std::wstring& volumePath, const std::string& edit) {
        if (!Exists(ContainerPath(volumePath)))
            MakeContainer(ContainerPath(volumePath), volumePath.substr(volumePath.rfind(L'\\') + 1), "base");
        void* const hFile = MustOpen(volumePath);
        EXPECT_OK(volume()->SetFileSize(hFile, 0, nullptr));
        EXPECT_OK(Write(hFile, edit));
        FailingDuring(kWriter, [&] { Close(hFile); });
    }
    static void FailingDuring(const char* call, const std::function<void()>& action, Fault fault = Fault::Error) {
        TestCompanion_FailNth(call, 1, fault, true);
        action();
        EXPECT_TRUE(TestCompanion_FaultWasHit());
        TestCompanion_FailNth(nullptr, 0, Fault::None, false);
    }
    void SaveElsewhere(const std::wstring& volumePath, const std::string& content) {
        MakeContainer(ContainerPath(volumePath), volumePath.substr(volumePath.rfind(L'\\') + 1), content);
        Touch(ContainerPath(volumePath));
    }
    std::vector<std::wstring> InDocs() const { return FilesBelow(NativePath(L"Docs")); }

private:
    std::unique_ptr<PromptedUser> m_user;
};

TEST_F(WhenSavingFails, TheContainerStandsAndTheEditWaits) {
    const std::string base(100'000, 'b');
    const std::string edit(150'000, 'e');
    struct {
        const char* call;
        std::uint32_t nth;
        Fault fault;
    } const rows[] = {
        {kWriter, 1, Fault::Null},    {kWriter, 1, Fault::Raise}, {kWriter, 1, Fault::Error}, {kWriter, 1, Fault::OutOfMemory},
        {kWrite, 1, Fault::Null},     {kWrite, 3, Fault::Null},   {kWrite, 2, Fault::Raise},  {kWrite, 1, Fault::Error},
        {kWrite, 4, Fault::OutOfMemory}, {kFinish, 1, Fault::Null},  {kFinish, 1, Fault::Raise}, {kFinish, 1, Fault::Error},
        {kFinish, 1, Fault::OutOfMemory},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.call) + ", call " + std::to_string(row.nth) + ", way " + std::to_string(static_cast<int>(row.fault)));
        const std::wstring path = L"Docs\\" + std::to_wstring(++number) + L".txt";
        MakeContainer(ContainerPath(path), path.substr(5), base);
        const std::string bytes = ReadRaw(ContainerPath(path));
        void* const hFile = MustOpen(path);
        EXPECT_OK(Write(hFile, edit));
        TestCompanion_FailNth(row.call, row.nth, row.fault, false);
        const auto lines = LinesDuring([&] { Close(hFile); });
        EXPECT_TRUE(TestCompanion_FaultWasHit());
        EXPECT_TRUE(HasLine(lines, L"EncryptChangedTempFile() =>VVS_GeneralError"));
        EXPECT_EQ(number, user().Prompts()) << "the user is asked for another place first";
        EXPECT_EQ(bytes, ReadRaw(ContainerPath(path)));
        EXPECT_EQ(static_cast<std::size_t>(number), InDocs().size()) << "nothing beside it";
        EXPECT_EQ(0, TestCompanion_LiveObjects());
        const auto edits = TrackedEdits();
        ASSERT_EQ(1u, edits.size());
        EXPECT_EQ(edit, ReadRaw(edits[0]));
        EXPECT_TRUE(OpensUnshared(edits[0]));

        // The next opener sees the edit, and closing saves it, though nothing more was changed.
        EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileReaderFactory", [&] { EXPECT_EQ(edit, Get(path)); }));
        EXPECT_EQ(edit, ContainerContent(ContainerPath(path)));
        EXPECT_EQ(0u, TrackedEdits().size());
        EXPECT_EQ(edit, Get(path));
    }
    EXPECT_TRUE(user().LastPrompt().find(L"Saving modified file \"13.txt\" to HalvaneCloud failed. Please select another folder for its "
                                         L"backup|") != std::wstring::npos)
        << Narrow(user().LastPrompt());
}

TEST_F(WhenSavingFails, TheEditWaitsUntilSavingSucceeds) {
    LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
    const auto waiting = TrackedEdits();
    ASSERT_EQ(1u, waiting.size());
    // It fails again, whether more was changed or not.
    FailingDuring(kFinish, [&] { EXPECT_EQ("edit", Get(L"Docs\\a.txt")); }, Fault::Null);
    EXPECT_EQ(waiting, TrackedEdits());
    void* hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("edit", Read(hFile));
    VirtFindData record{};
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
    EXPECT_EQ(4, record.fileSize) << "of the edit, not of the container";
    EXPECT_OK(Write(hFile, " more", 4));
    FailingDuring(kWriter, [&] { Close(hFile); });
    EXPECT_EQ(waiting, TrackedEdits());
    EXPECT_EQ("edit more", ReadRaw(waiting[0]));

    // An opener that comes while another has the edit sees what is stored, and makes nobody forget the edit.
    hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("edit more", Read(hFile));
    void* const other = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("base", Read(other));
    FailingDuring(kWriter, [&] { Close(hFile); });
    Close(other);
    EXPECT_EQ(waiting, TrackedEdits());

    // Nor does an open that fails, here because somebody else has the temp file.
    const HANDLE held = CreateFileW(waiting[0].c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("<VSS_SharingViolation>", Read(hFile));
    Close(hFile);
    CloseHandle(held);
    EXPECT_EQ("edit more", ReadRaw(waiting[0]));
    EXPECT_EQ("base", ContainerContent(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ("edit more", Get(L"Docs\\a.txt"));
    EXPECT_EQ("edit more", ContainerContent(ContainerPath(L"Docs\\a.txt")));
}

TEST_F(WhenSavingFails, TheTrackingFileTellsWhoseEditItIs) {
    struct {
        const wchar_t* name;
        const char* shown;  // in the system's narrow character set
    } const rows[] = {
        {L"a.txt", "a.txt"}, {L"r\xe9sum\xe9.docx", "r\xe9sum\xe9.docx"}, {L"Q&A ]].txt", "Q&A ]].txt"}, {L"\x4e2d\x6587.txt", "??.txt"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.name));
        const std::wstring name = row.name;
        const std::wstring path = L"Docs\\" + name;
        MakeContainer(ContainerPath(path), name, "base");
        WIN32_FILE_ATTRIBUTE_DATA source{};
        ASSERT_TRUE(GetFileAttributesExW(ContainerPath(path).c_str(), GetFileExInfoStandard, &source));
        LeaveUnsavedEdit(path, "edit");
        const auto edits = TrackedEdits();
        ASSERT_EQ(1u, edits.size());
        const std::string bytes = ReadRaw(edits[0] + L".hvf");
        const Document document(bytes);
        EXPECT_TRUE(document.isWellFormed) << bytes;
        EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\n'), std::count(bytes.begin(), bytes.end(), '\r'));
        const auto utf8 = [](const std::string& latin) {  // what the parser makes of it
            std::string text;
            for (const char c : latin)
                static_cast<unsigned char>(c) < 0x80 ? text += c : (text += static_cast<char>(0xC3), text += static_cast<char>(c & 0xBF));
            return text;
        };
        const std::string shown = utf8(row.shown);
        EXPECT_EQ("\n" + shown, document.At("filespec/name"));
        EXPECT_EQ(Narrow(NativePath(L"Docs\\")) + shown + ".zip", document.At("srcfile/name"));
        const std::uint64_t writeTime =
            static_cast<std::uint64_t>(source.ftLastWriteTime.dwHighDateTime) << 32 | source.ftLastWriteTime.dwLowDateTime;
        EXPECT_EQ(std::to_string(source.dwFileAttributes), document.At("srcfile/attributes"));
        EXPECT_EQ(std::to_string(writeTime), document.At("srcfile/writetime"));
        EXPECT_EQ(std::to_string(source.nFileSizeLow), document.At("srcfile/size"));
        const std::wstring folder = edits[0].substr(0, edits[0].rfind(L'\\') + 1);
        EXPECT_EQ(Narrow(folder) + shown, document.At("tempfile/name"));
        EXPECT_EQ("4", document.At("tempfile/size"));
        EXPECT_EQ("", document.At("process/name"));
        EXPECT_EQ("0", document.At("process/id"));
        for (const char* empty : {"ar/fid", "ar/fv", "ar/o/id", "ar/o/iid", "ar/o/fn", "ar/o/ofn", "ar/a/id", "ar/a/iid", "ar/a/ifn", "ar/a/ofn"})
            EXPECT_EQ("", document.At(empty)) << empty;
        EXPECT_EQ("edit", Get(path));
    }
}

// Switched off: driving the dialog did not pick the folder in every Wine prefix.
TEST_F(WhenSavingFails, TheUserMayPickAnotherPlace) {
    const std::wstring backups = NativePath(L"Plain\\backups");
    std::filesystem::create_directories(backups);
    user().Picks(backups);
    for (int number = 1; number <= 3; ++number) {
        const std::string edit = "edit " + std::to_string(number);
        LeaveUnsavedEdit(L"Docs\\a.txt", edit);
        EXPECT_EQ(number, user().Prompts());
        EXPECT_EQ(edit, ReadRaw(backups + L"\\" + BackupName(L"a.txt", number)));
        EXPECT_EQ("base", ContainerContent(ContainerPath(L"Docs\\a.txt")));
        EXPECT_EQ(0u, TrackedEdits().size()) << "it is safe there";
        EXPECT_EQ("base", Get(L"Docs\\a.txt"));
    }
    EXPECT_EQ("edit 1", ReadRaw(backups + L"\\" + BackupName(L"a.txt"))) << "an earlier one is never overwritten";

    // A place that refuses the backup counts as none.
    user().Picks(NativePath(L"Plain\\backups"));
    WriteRaw(backups + L"\\in the way", "");
    LeaveUnsavedEdit(L"Docs\\b.txt", "edit");
    EXPECT_EQ("edit", ReadRaw(backups + L"\\" + BackupName(L"b.txt")));
    user().Picks(L"");
    LeaveUnsavedEdit(L"Docs\\b.txt", "second edit");
    EXPECT_EQ(1u, TrackedEdits().size());
    ExpectUnsavedEdits(1);
}

TEST_F(WhenSavingFails, AConflictKeepsAllThreeContents) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "base");
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, "mine"));
    SaveElsewhere(L"Docs\\a.txt", "theirs");
    const std::string theirs = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    const std::wstring conflict = L"Docs\\" + ConflictName(L"a.txt");
    FailingDuring(kFinish, [&] { Close(hFile); });
    EXPECT_EQ(theirs, ReadRaw(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ(1u, InDocs().size()) << "no beginning of a conflict copy";
    EXPECT_EQ(1u, TrackedEdits().size());

    // The file is theirs; the edit becomes a conflict copy at its next close, now that it can be saved.
    EXPECT_EQ("theirs", Get(L"Docs\\a.txt"));
    EXPECT_EQ(theirs, ReadRaw(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ("mine", ContainerContent(ContainerPath(conflict)));
    EXPECT_EQ("theirs", Get(L"Docs\\a.txt"));
    EXPECT_EQ("mine", Get(conflict));
    EXPECT_EQ(2u, InDocs().size());

    // The same when somebody else saves only after the failure.
    LeaveUnsavedEdit(L"Docs\\a.txt", "mine again");
    SaveElsewhere(L"Docs\\a.txt", "theirs again");
    EXPECT_EQ("theirs again", Get(L"Docs\\a.txt"));
    EXPECT_EQ("mine again", Get(L"Docs\\" + ConflictName(L"a.txt", 2)));

    // With a backup picked, no half of a conflict copy stays either.
    user().Picks(NativePath(L"Plain"));
    void* const third = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(third, "MINE"));
    SaveElsewhere(L"Docs\\a.txt", "theirs at last");
    FailingDuring(kWrite, [&] { Close(third); }, Fault::Null);
    EXPECT_EQ(3u, InDocs().size());
    EXPECT_EQ("theirs at last", Get(L"Docs\\a.txt"));
}

TEST_F(WhenSavingFails, NoNumberOfOtherFilesPushesTheEditOut) {
    LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
    MakeContainer(NativePath(L"Docs\\0.zip"), L"0", "content");
    TestCompanion_SetLevel(0);
    for (int number = 0; number <= 522; ++number) {
        const std::wstring name = L"Docs\\" + std::to_wstring(number) + L".zip";
        CopyFileW(NativePath(L"Docs\\0.zip").c_str(), NativePath(name).c_str(), TRUE);
        ASSERT_EQ("content", Get(name));
    }
    TestCompanion_SetLevel(4);
    EXPECT_EQ(522u, RetainedCopies().size());
    ASSERT_EQ(1u, TrackedEdits().size());
    EXPECT_EQ("edit", Get(L"Docs\\a.txt"));
    EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Docs\\a.txt")));
}

TEST_F(WhenSavingFails, ANewFileIsNotLostEither) {
    void* const hFile = MustOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Write(hFile, "the only copy"));
    FailingDuring(kWriter, [&] { Close(hFile); }, Fault::Null);
    EXPECT_TRUE(InDocs().empty());
    ASSERT_EQ(1u, TrackedEdits().size());
    EXPECT_EQ("the only copy", ReadRaw(TrackedEdits()[0]));
    EXPECT_EQ("the only copy", Get(L"Docs\\new.txt"));
    EXPECT_EQ("the only copy", ContainerContent(ContainerPath(L"Docs\\new.txt")));
    EXPECT_EQ(std::vector<std::wstring>{L"new.txt"}, List(L"Docs\\*"));

    // Nor is the file that a lock makes for it taken for somebody else's.
    void* const hLater = MustOpen(L"Docs\\later.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Write(hLater, "first"));
    FailingDuring(kWriter, [&] { Close(hLater); }, Fault::Null);
    const std::wstring token = Lock(L"Docs\\later.txt");
    void* const hLocked = MustOpen(L"Docs\\later.txt", kReadWrite, OPEN_EXISTING, token.c_str());
    EXPECT_OK(Write(hLocked, "FI"));
    Close(hLocked);
    EXPECT_OK(volume()->Unlock(L"Docs\\later.txt", token.c_str()));
    EXPECT_EQ("FIrst", ContainerContent(ContainerPath(L"Docs\\later.txt")));
    EXPECT_EQ(2u, List(L"Docs\\*").size());
}

TEST_F(WhenSavingFails, AHeldOrReadOnlyContainerStands) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "base");
    const std::string bytes = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    const HANDLE held = CreateFileW(ContainerPath(L"Docs\\a.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    void* hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, "edit"));
    Close(hFile);
    CloseHandle(held);
    EXPECT_EQ(bytes, ReadRaw(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ(1u, user().Prompts());
    EXPECT_EQ("edit", Get(L"Docs\\a.txt"));
    EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Docs\\a.txt")));

    SetFileAttributesW(ContainerPath(L"Docs\\a.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, "EDIT"));
    Close(hFile);
    EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Docs\\a.txt")));
    ASSERT_EQ(1u, TrackedEdits().size());
    EXPECT_EQ("EDIT", ReadRaw(TrackedEdits()[0]));
    SetFileAttributesW(ContainerPath(L"Docs\\a.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ("edit", Get(L"Docs\\a.txt")) << "with another attribute it is another version";
    EXPECT_EQ("EDIT", Get(L"Docs\\" + ConflictName(L"a.txt")));
    EXPECT_EQ(0u, TrackedEdits().size());
}

TEST_F(WhenSavingFails, TheEditStaysWhenItsDocumentCannotBeDeleted) {
    LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
    const HANDLE held = CreateFileW(ContainerPath(L"Docs\\a.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    Delete(L"Docs\\a.txt");
    CloseHandle(held);
    EXPECT_EQ("base", ContainerContent(ContainerPath(L"Docs\\a.txt")));
    ASSERT_EQ(1u, TrackedEdits().size());
    EXPECT_EQ("edit", Get(L"Docs\\a.txt"));
    EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Docs\\a.txt")));

    LeaveUnsavedEdit(L"Docs\\a.txt", "another");
    Delete(L"Docs\\a.txt");
    EXPECT_TRUE(InDocs().empty());
    EXPECT_EQ(0u, TrackedEdits().size()) << "it goes with its document";
}

TEST_F(WhenSavingFails, ALockedContainerStands) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    struct {
        const char* call;
        Fault fault;
    } const rows[] = {{kWriter, Fault::Null}, {kWrite, Fault::Error}, {kFinish, Fault::Null}, {kFinish, Fault::OutOfMemory}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        MakeContainer(container, L"a.txt", "base");
        const std::string bytes = ReadRaw(container);
        const std::wstring token = Lock(L"Docs\\a.txt");
        void* const hFile = MustOpen(L"Docs\\a.txt");
        EXPECT_OK(Write(hFile, "an edit"));
        FailingDuring(row.call, [&] { Close(hFile); }, row.fault);
        EXPECT_EQ("base", ContainerContent(container));
        ASSERT_EQ(1u, TrackedEdits().size());
        EXPECT_EQ("an edit", ReadRaw(TrackedEdits()[0]));
        EXPECT_EQ("an edit", Get(L"Docs\\a.txt"));
        EXPECT_EQ("an edit", ContainerContent(container));
        EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", token.c_str()));
        EXPECT_NE(bytes, ReadRaw(container));
        EXPECT_EQ(0u, TrackedEdits().size());
    }
    EXPECT_EQ(0, user().Prompts());
    EXPECT_EQ(1u, InDocs().size());
}

// An edit also waits while its file is moved, copied or deleted.
TEST_F(WhenSavingFails, TheEditGoesWhereItsFileGoes) {
    for (const std::uint32_t disposition : {OPEN_EXISTING, OPEN_ALWAYS}) {
        SCOPED_TRACE(disposition);
        LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
        void* const hFile = MustOpen(L"Docs\\a.txt", kReadWrite, disposition);
        EXPECT_OK(volume()->RenameFile(hFile, nullptr, L"Docs\\b.txt", nullptr));
        Close(hFile);
        EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Docs\\b.txt")));
        EXPECT_EQ("edit", Get(L"Docs\\b.txt"));
        EXPECT_EQ(1u, InDocs().size());
        EXPECT_EQ(0u, TrackedEdits().size());
        Delete(L"Docs\\b.txt");
    }
    LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
    EXPECT_OK(volume()->CopyFileW(L"Docs\\a.txt", L"Other\\c.txt", nullptr));
    EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Other\\c.txt")));
    EXPECT_EQ("edit", ContainerContent(ContainerPath(L"Docs\\a.txt"))) << "closing the source saved it";
    LeaveUnsavedEdit(L"Docs\\a.txt", "another");
    EXPECT_OK(volume()->MoveFileW(L"Docs\\a.txt", L"Plain\\d.txt", nullptr));
    EXPECT_EQ("another", Get(L"Plain\\d.txt"));
    EXPECT_TRUE(InDocs().empty());
    LeaveUnsavedEdit(L"Docs\\a.txt", "deleted with its file");
    Delete(L"Docs\\a.txt");
    EXPECT_TRUE(InDocs().empty());
    EXPECT_EQ(0u, TrackedEdits().size());
}
