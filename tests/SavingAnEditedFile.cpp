// What is on disk after a host changed a file and closed it.
#include "harness/ConflictsAndBackups.h"
#include "harness/VolumeFixture.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr const char* kWriter = "Quelcrypt_FileWriterFactory";

std::string Letters(std::size_t size, char first = 'a') {
    std::string text(size, first);
    for (std::size_t index = 0; index < size; ++index)
        text[index] = static_cast<char>(first + (index * 7 + index / 1000) % 23);
    return text;
}

std::uint64_t FileTimeAt(WORD year, WORD second) {
    const SYSTEMTIME time{year, 5, 0, 17, 9, 41, second, 0};
    FILETIME fileTime{};
    SystemTimeToFileTime(&time, &fileTime);
    return static_cast<std::uint64_t>(fileTime.dwHighDateTime) << 32 | fileTime.dwLowDateTime;
}

}  // namespace

class SavingAnEditedFile : public VolumeFixture {
protected:
    std::uint32_t WriterCallsDuring(const std::function<void()>& action) { return CallsDuring(kWriter, action); }
    // What another machine did, seen here through the sync client.
    void SaveElsewhere(const std::wstring& volumePath, const std::string& content) {
        MakeContainer(ContainerPath(volumePath), volumePath.substr(volumePath.rfind(L'\\') + 1), content);
        Touch(ContainerPath(volumePath));
    }
    std::vector<std::wstring> NamesInDocs() const {
        std::vector<std::wstring> names = FilesBelow(NativePath(L"Docs"));
        for (std::wstring& name : names)
            name.erase(0, NativePath(L"Docs\\").size());
        return names;
    }
    using Names = std::vector<std::wstring>;
};

TEST_F(SavingAnEditedFile, WritesNothingWhenNothingWasChanged) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", "content");
    Touch(container);
    WIN32_FILE_ATTRIBUTE_DATA before{};
    ASSERT_TRUE(GetFileAttributesExW(container.c_str(), GetFileExInfoStandard, &before));
    const std::string bytes = ReadRaw(container);
    EXPECT_EQ(0u, WriterCallsDuring([&] {
                  void* const hFile = MustOpen(L"Docs\\a.txt");
                  EXPECT_EQ("content", Read(hFile));
                  EXPECT_EQ(1u, TrackedEdits().size()) << "while it is open, its tracking file tells whose copy it is";
                  EXPECT_OK(volume()->Flush(hFile));
                  Close(hFile);
                  EXPECT_EQ(0u, TrackedEdits().size());
                  Close(MustOpen(L"Docs\\a.txt"));
                  Close(MustOpen(L"Docs\\a.txt", kReadWrite, CREATE_ALWAYS));
                  Close(MustOpen(L"Docs\\a.txt", kReadWrite, OPEN_ALWAYS));
                  Close(MustOpen(L"Docs\\a.txt", kReadWrite, TRUNCATE_EXISTING));
              }));
    WIN32_FILE_ATTRIBUTE_DATA after{};
    ASSERT_TRUE(GetFileAttributesExW(container.c_str(), GetFileExInfoStandard, &after));
    EXPECT_EQ(0, CompareFileTime(&before.ftLastWriteTime, &after.ftLastWriteTime));
    EXPECT_EQ(bytes, ReadRaw(container));
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
}

TEST_F(SavingAnEditedFile, WritesAChangedFileOnceWhenItIsClosed) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", "a secret that was there before");
    const std::string bytes = ReadRaw(container);
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ(0u, WriterCallsDuring([&] {
                  EXPECT_OK(Write(hFile, "the plan", 2));
                  EXPECT_OK(volume()->SetFileSize(hFile, 20, nullptr));
                  EXPECT_OK(Write(hFile, "!", 30));
                  EXPECT_OK(volume()->Flush(hFile));
                  EXPECT_EQ(bytes, ReadRaw(container));
              }));
    EXPECT_EQ(1u, WriterCallsDuring([&] { Close(hFile); }));
    const std::string saved = std::string("a the planhat was th") + std::string(10, '\0') + "!";
    EXPECT_EQ(saved, ContainerContent(container));
    EXPECT_EQ(0u, TrackedEdits().size());
    EXPECT_EQ((Names{L"a.txt.zip"}), NamesInDocs());
    EXPECT_TRUE(FilesHolding(NativePath(L"Docs"), "the plan").empty()) << "nothing in plain";
    VirtFindData record{};
    ASSERT_TRUE(Find(L"Docs\\a.txt", &record));
    EXPECT_EQ(31, record.fileSize);
    EXPECT_EQ(VIT_EncryptedFile, record.itemType);

    // A save leaves the copy as the container's: the next edit of it is no conflict.
    void* const again = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(again, "A"));
    EXPECT_EQ(1u, WriterCallsDuring([&] { Close(again); }));
    EXPECT_EQ("A" + saved.substr(1), ContainerContent(container));
    EXPECT_EQ((Names{L"a.txt.zip"}), NamesInDocs());
}

TEST_F(SavingAnEditedFile, SavesEverySizeWhole) {
    for (const std::size_t size : {0, 1, 32767, 32768, 32769, 65536, 1'000'000}) {
        SCOPED_TRACE(size);
        const std::wstring path = L"Docs\\" + std::to_wstring(size) + L".bin";
        const std::string content = Letters(size);
        Put(path, content);
        EXPECT_EQ(content, ContainerContent(ContainerPath(path)));
        EXPECT_EQ(content, Get(path));
        // Longer, then shorter again.
        Put(path, content + content + "x");
        EXPECT_EQ(content + content + "x", ContainerContent(ContainerPath(path)));
        Put(path, content);
        EXPECT_EQ(content, ContainerContent(ContainerPath(path)));
        VirtFindData record{};
        ASSERT_TRUE(Find(path, &record));
        EXPECT_EQ(static_cast<std::int64_t>(size), record.fileSize);
    }
}

TEST_F(SavingAnEditedFile, LeavesWhatSomebodyElseSavedAlone) {
    struct {
        const wchar_t* name;
        const wchar_t* how;
        std::function<void(const std::wstring&)> change;
    } const rows[] = {
        {L"size.txt", L"another size", [&](const std::wstring& path) { SaveElsewhere(path, "theirs, and longer"); }},
        {L"time.txt", L"another time", [&](const std::wstring& path) { Touch(ContainerPath(path)); }},
        {L"attributes.txt", L"other attributes",
         [&](const std::wstring& path) { SetFileAttributesW(ContainerPath(path).c_str(), FILE_ATTRIBUTE_HIDDEN); }},
        {L"two.dots.txt", L"a name with two dots", [&](const std::wstring& path) { SaveElsewhere(path, "theirs"); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.how));
        const std::wstring path = std::wstring(L"Docs\\") + row.name;
        MakeContainer(ContainerPath(path), row.name, "base");
        void* const hFile = MustOpen(path);
        EXPECT_OK(Write(hFile, "mine"));
        row.change(path);
        const std::string theirs = ReadRaw(ContainerPath(path));
        EXPECT_EQ(1u, WriterCallsDuring([&] { Close(hFile); }));
        EXPECT_EQ(theirs, ReadRaw(ContainerPath(path)));
        EXPECT_EQ("mine", ContainerContent(ContainerPath(L"Docs\\" + ConflictName(row.name))));
        EXPECT_EQ("mine", Get(L"Docs\\" + ConflictName(row.name))) << "it is a file like any other";
        EXPECT_EQ(0u, TrackedEdits().size());
    }
    // Each under its own name, none in plain.
    Names expected;
    for (const auto& row : rows)
        expected.insert(expected.end(), {row.name, ConflictName(row.name)});
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, List(L"Docs\\*"));
}

// Encrypting takes long: what others store meanwhile is found before the new container is put in place.
TEST_F(SavingAnEditedFile, LeavesWhatSomebodyElseSavesMeanwhileAlone) {
    struct Exchange {
        std::wstring newer, container;
        bool isDone;
    };
    for (const bool isNew : {false, true}) {
        SCOPED_TRACE(isNew ? "a new file" : "an edited one");
        const std::wstring name = isNew ? L"new.txt" : L"a.txt";
        Exchange exchange{NativePath(L"newer.zip"), ContainerPath(L"Docs\\" + name), false};
        MakeContainer(exchange.container, name, "theirs");
        std::filesystem::rename(exchange.container, exchange.newer);
        const std::string theirs = ReadRaw(exchange.newer);
        if (!isNew)
            MakeContainer(exchange.container, name, "base");
        void* const hFile = MustOpen(L"Docs\\" + name, kReadWrite, OPEN_ALWAYS);
        EXPECT_OK(Write(hFile, "mine"));
        TestCompanion_SetHook(
            "IFileWriter::Write",
            [](void* context) {
                auto* const todo = static_cast<Exchange*>(context);
                todo->isDone |= MoveFileExW(todo->newer.c_str(), todo->container.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
            },
            &exchange);
        Close(hFile);
        TestCompanion_SetHook(nullptr, nullptr, nullptr);
        EXPECT_TRUE(exchange.isDone);
        EXPECT_EQ(theirs, ReadRaw(exchange.container));
        EXPECT_EQ("mine", ContainerContent(ContainerPath(L"Docs\\" + ConflictName(name))));
        EXPECT_EQ("mine", Get(L"Docs\\" + ConflictName(name)));
        EXPECT_EQ(0u, TrackedEdits().size());
    }
}

TEST_F(SavingAnEditedFile, NamesLaterConflictsOfADayApart) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "base");
    // A plain file has the second name, so the second conflict goes on to the third.
    WriteRaw(NativePath(L"Docs\\" + ConflictName(L"a.txt", 2)), "plain");
    for (const auto& [mine, number] : {std::pair{"first", 1}, std::pair{"second", 3}, std::pair{"third", 4}}) {
        void* const hFile = MustOpen(L"Docs\\a.txt");
        EXPECT_OK(volume()->SetFileSize(hFile, 0, nullptr));
        EXPECT_OK(Write(hFile, mine));
        SaveElsewhere(L"Docs\\a.txt", std::string("theirs before ") + mine);
        Close(hFile);
        EXPECT_EQ(mine, ContainerContent(ContainerPath(L"Docs\\" + ConflictName(L"a.txt", number))));
        EXPECT_EQ(std::string("theirs before ") + mine, ContainerContent(ContainerPath(L"Docs\\a.txt")));
    }
    EXPECT_EQ("plain", ReadRaw(NativePath(L"Docs\\" + ConflictName(L"a.txt", 2))));
    EXPECT_EQ(5u, NamesInDocs().size());

    // A container that is gone is no conflict: the file is made again.
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, "T"));
    EXPECT_TRUE(DeleteFileW(ContainerPath(L"Docs\\a.txt").c_str()));
    Close(hFile);
    EXPECT_EQ("Theirs before third", ContainerContent(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ(5u, NamesInDocs().size());
}

TEST_F(SavingAnEditedFile, NeverOverwritesAConflictCopy) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "base");
    WriteRaw(NativePath(L"Docs\\" + ConflictName(L"a.txt") + L".zip"), "taken");
    for (int number = 2; number <= 1000; ++number)
        WriteRaw(NativePath(L"Docs\\" + ConflictName(L"a.txt", number) + L".zip"), number < 1000 ? "taken" : "");
    TestCompanion_SetLevel(1);
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, "mine"));
    SaveElsewhere(L"Docs\\a.txt", "theirs");
    Close(hFile);
    EXPECT_EQ("theirs", ContainerContent(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ("taken", ReadRaw(NativePath(L"Docs\\" + ConflictName(L"a.txt", 999) + L".zip")));
    EXPECT_EQ("", ReadRaw(NativePath(L"Docs\\" + ConflictName(L"a.txt", 1000) + L".zip"))) << "an empty one may be another's beginning";
    EXPECT_EQ(1u, TrackedEdits().size());

    // The edit waits, and is saved when there is a free name again.
    EXPECT_TRUE(DeleteFileW(NativePath(L"Docs\\" + ConflictName(L"a.txt", 500) + L".zip").c_str()));
    EXPECT_EQ("theirs", Get(L"Docs\\a.txt"));
    EXPECT_EQ("mine", ContainerContent(ContainerPath(L"Docs\\" + ConflictName(L"a.txt", 500))));
    EXPECT_EQ("theirs", Get(L"Docs\\a.txt"));
}

TEST_F(SavingAnEditedFile, SavesBothEditsWhenOneFileIsOpenTwice) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "base");
    void* const first = MustOpen(L"Docs\\a.txt");
    void* const second = MustOpen(L"Docs\\a.txt");
    void* const third = MustOpen(L"Docs\\a.txt", GENERIC_READ);
    EXPECT_OK(Write(second, "second"));
    EXPECT_OK(Write(first, "first"));
    EXPECT_EQ("base", Read(third));
    Close(first);
    Close(second);
    EXPECT_EQ("base", Read(third));
    EXPECT_EQ(0u, WriterCallsDuring([&] { Close(third); }));
    EXPECT_EQ("first", Get(L"Docs\\a.txt"));
    EXPECT_EQ("second", Get(L"Docs\\" + ConflictName(L"a.txt")));
    EXPECT_EQ(2u, NamesInDocs().size());
}

TEST_F(SavingAnEditedFile, BearsANewFileEncryptedWherePolicyAsksForIt) {
    struct {
        const wchar_t* path;
        bool encrypted;
    } const rows[] = {{L"Docs\\a.txt", true},     {L"Other\\a.txt", true},       {L"Plain\\a.txt", false}, {L"Docs\\a.tmp", false},
                      {L"Docs\\README", false},   {L"Docs\\policy.hvc", false}, {L"Docs\\b.zip", true},   {L"Docs\\\x3b1\x444.txt", true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.path));
        void* const hFile = MustOpen(row.path, kReadWrite, CREATE_NEW);
        EXPECT_OK(Write(hFile, "new content"));
        EXPECT_EQ("new content", Read(hFile));
        EXPECT_EQ(!row.encrypted, Exists(NativePath(row.path)));
        EXPECT_FALSE(Exists(ContainerPath(row.path)));
        VirtFindData record{};
        EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
        EXPECT_EQ(11, record.fileSize);
        EXPECT_EQ(row.encrypted ? VIT_EncryptedFile : VIT_PlainFile, record.itemType);
        EXPECT_EQ(std::wstring(row.path).substr(std::wstring(row.path).rfind(L'\\') + 1), record.fileName);
        Close(hFile);
        EXPECT_EQ(row.encrypted ? "new content" : "<none>", ContainerContent(ContainerPath(row.path)));
        EXPECT_EQ(row.encrypted ? "<none>" : "new content", ReadRaw(NativePath(row.path)));
        EXPECT_EQ("new content", Get(row.path));

        void* again = nullptr;
        EXPECT_EQ(VSS_FileExists, Open(&again, row.path, kReadWrite, CREATE_NEW));
        EXPECT_EQ(nullptr, again);
        EXPECT_EQ("new content", Get(row.path));
    }

    // Where nothing is written, nothing comes into being; an empty file is made by setting its size.
    for (const wchar_t* path : {L"Docs\\none.txt", L"Docs\\read.txt"}) {
        void* const hFile = MustOpen(path, kReadWrite, CREATE_NEW);
        if (path[5] == L'r') {
            EXPECT_EQ("", Read(hFile));
        }
        Close(hFile);
        EXPECT_FALSE(Exists(NativePath(path)) || Exists(ContainerPath(path))) << Narrow(path);
    }
    void* const hEmpty = MustOpen(L"Docs\\empty.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(volume()->SetFileSize(hEmpty, 0, nullptr));
    Close(hEmpty);
    EXPECT_EQ("", ContainerContent(ContainerPath(L"Docs\\empty.txt")));
    EXPECT_EQ("", Get(L"Docs\\empty.txt"));
    VirtFindData record{};
    EXPECT_TRUE(Find(L"Docs\\empty.txt", &record));
    EXPECT_EQ(0, record.fileSize);
    EXPECT_EQ(VIT_EncryptedFile, record.itemType);
}

TEST_F(SavingAnEditedFile, SavesANewFileBesideOneThatCameUpMeanwhile) {
    void* const mine = MustOpen(L"Docs\\a.txt", kReadWrite, CREATE_NEW);
    void* const other = MustOpen(L"Docs\\a.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Write(mine, "mine"));
    EXPECT_OK(Write(other, "other"));
    SaveElsewhere(L"Docs\\a.txt", "theirs");
    Close(mine);
    Close(other);
    EXPECT_EQ("theirs", Get(L"Docs\\a.txt"));
    EXPECT_EQ("mine", Get(L"Docs\\" + ConflictName(L"a.txt")));
    EXPECT_EQ("other", Get(L"Docs\\" + ConflictName(L"a.txt", 2)));
    EXPECT_EQ(3u, NamesInDocs().size());
}

// The plain file is the measure, but for what the interface says of encrypted ones: they start empty with every
// disposition but OPEN_EXISTING, and what is stored goes only when something was written.
TEST_F(SavingAnEditedFile, TakesEveryDispositionLikeAPlainFile) {
    enum Action { Nothing, WriteAt3, SetSize0 };
    constexpr VirtualVolumeStatus ok = VVS_Success;
    const std::string gap = std::string(3, '\0') + "abc";
    struct {
        std::uint32_t disposition;
        bool exists;
        Action action;
        VirtualVolumeStatus status;
        std::string plain;
        std::string encrypted;
    } const rows[] = {
        {CREATE_NEW, false, WriteAt3, ok, gap, gap},
        {CREATE_NEW, true, WriteAt3, VSS_FileExists, "0123456789", "0123456789"},
        {CREATE_ALWAYS, false, WriteAt3, ok, gap, gap},
        {CREATE_ALWAYS, true, WriteAt3, ok, gap, gap},
        {CREATE_ALWAYS, true, SetSize0, ok, "", ""},
        {CREATE_ALWAYS, true, Nothing, ok, "", "0123456789"},
        {CREATE_ALWAYS, false, Nothing, ok, "", "<none>"},
        {OPEN_EXISTING, false, Nothing, VVS_FileNotFound, "<none>", "<none>"},
        {OPEN_EXISTING, true, WriteAt3, ok, "012abc6789", "012abc6789"},
        {OPEN_EXISTING, true, SetSize0, ok, "", ""},
        {OPEN_ALWAYS, false, WriteAt3, ok, gap, gap},
        {OPEN_ALWAYS, true, WriteAt3, ok, "012abc6789", gap},
        {OPEN_ALWAYS, true, Nothing, ok, "0123456789", "0123456789"},
        {TRUNCATE_EXISTING, false, Nothing, VVS_FileNotFound, "<none>", "<none>"},
        {TRUNCATE_EXISTING, true, WriteAt3, ok, gap, gap},
        {TRUNCATE_EXISTING, true, Nothing, ok, "", "0123456789"},
        {0, true, Nothing, VVS_InvalidParameter, "0123456789", "0123456789"},
        {6, true, Nothing, VVS_InvalidParameter, "0123456789", "0123456789"},
    };
    int number = 0;
    for (const auto& row : rows) {
        ++number;
        for (const bool encrypted : {false, true}) {
            SCOPED_TRACE((encrypted ? "encrypted, row " : "plain, row ") + std::to_string(number));
            const std::wstring name = std::to_wstring(number) + L".txt";
            const std::wstring path = (encrypted ? L"Docs\\" : L"Plain\\") + name;
            if (row.exists && encrypted)
                MakeContainer(ContainerPath(path), name, "0123456789");
            else if (row.exists)
                WriteRaw(NativePath(path), "0123456789");
            void* hFile = nullptr;
            EXPECT_EQ(row.status, Open(&hFile, path, kReadWrite, row.disposition));
            EXPECT_EQ(row.status == ok, hFile != nullptr);
            if (hFile && row.action == WriteAt3) {
                EXPECT_OK(Write(hFile, "abc", 3));
            }
            if (hFile && row.action == SetSize0) {
                EXPECT_OK(volume()->SetFileSize(hFile, 0, nullptr));
            }
            Close(hFile);
            EXPECT_EQ(encrypted ? row.encrypted : row.plain, encrypted ? ContainerContent(ContainerPath(path)) : ReadRaw(NativePath(path)));
        }
    }
}

TEST_F(SavingAnEditedFile, OpensAContainerByItsOwnName) {
    // The way to a conflict copy of a sync client's making, which is shown under another name.
    const std::wstring theirs = NativePath(L"Docs\\a (their copy).txt.zip");
    MakeContainer(theirs, L"a.txt", "theirs");
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "mine");
    WriteRaw(NativePath(L"Docs\\b.txt"), "plain");
    MakeContainer(ContainerPath(L"Docs\\b.txt"), L"b.txt", "hidden by the plain one");
    struct {
        const wchar_t* path;
        const wchar_t* container;
        const char* before;
        const char* after;
    } const rows[] = {
        {L"Docs\\a (their copy).txt.zip", L"Docs\\a (their copy).txt.zip", "theirs", "THeirs"},
        {L"Docs\\a.txt.zip", L"Docs\\a.txt.zip", "mine", "THne"},
        {L"Docs\\b.txt.zip", L"Docs\\b.txt.zip", "hidden by the plain one", "THdden by the plain one"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.path));
        void* const hFile = MustOpen(row.path);
        EXPECT_EQ(row.before, Read(hFile));
        EXPECT_OK(Write(hFile, "TH"));
        Close(hFile);
        EXPECT_EQ(row.after, ContainerContent(NativePath(row.container)));
        EXPECT_EQ(row.after, Get(row.path));
    }
    EXPECT_EQ("plain", Get(L"Docs\\b.txt"));
    EXPECT_EQ((Names{L"a (their copy).txt.zip", L"a.txt.zip", L"b.txt", L"b.txt.zip"}), NamesInDocs());
}

TEST_F(SavingAnEditedFile, DeletesAndSparesAFileInEveryState) {
    enum Preparation { Untouched, IsRead, IsEdited };
    struct {
        const char* state;
        const wchar_t* folder;
        bool exists;
        bool locked;
        Preparation preparation;
        const char* spared;  // what is there after the deletion was taken back
    } const rows[] = {
        {"plain", L"Plain\\", true, false, Untouched, "base"},
        {"plain, edited", L"Plain\\", true, false, IsEdited, "edit"},
        {"plain, locked", L"Plain\\", true, true, IsEdited, "edit"},
        {"encrypted", L"Docs\\", true, false, Untouched, "base"},
        {"encrypted, read", L"Docs\\", true, false, IsRead, "base"},
        {"encrypted, edited", L"Docs\\", true, false, IsEdited, "edit"},
        {"encrypted, new", L"Docs\\", false, false, IsEdited, "edit"},
        {"encrypted, locked", L"Docs\\", true, true, Untouched, "base"},
        {"encrypted, locked, edited", L"Docs\\", true, true, IsEdited, "edit"},
    };
    int number = 0;
    for (const auto& row : rows)
        for (const bool spare : {false, true}) {
            SCOPED_TRACE(std::string(row.state) + (spare ? ", spared" : ", deleted"));
            const std::wstring name = std::to_wstring(++number) + L".txt";
            const std::wstring path = row.folder + name;
            const bool encrypted = row.folder[0] == L'D';
            if (row.exists && encrypted)
                MakeContainer(ContainerPath(path), name, "base");
            else if (row.exists)
                WriteRaw(NativePath(path), "base");
            const std::wstring token = row.locked ? Lock(path) : L"";
            void* const hFile = MustOpen(path, kReadWrite, row.exists ? OPEN_EXISTING : CREATE_NEW);
            if (row.preparation == IsRead) {
                EXPECT_EQ("base", Read(hFile));
            } else if (row.preparation == IsEdited) {
                EXPECT_OK(Write(hFile, "edit"));
            }
            EXPECT_OK(volume()->Undelete(hFile, nullptr)) << "nothing to take back";
            EXPECT_OK(volume()->Delete(hFile, nullptr));
            EXPECT_OK(volume()->Delete(hFile, nullptr)) << "it is already";
            VirtFindData record{};
            EXPECT_EQ("<VVS_GeneralError>", Read(hFile));
            EXPECT_EQ(VVS_GeneralError, Write(hFile, "x"));
            EXPECT_EQ(VVS_GeneralError, volume()->SetFileSize(hFile, 0, nullptr));
            EXPECT_EQ(VVS_GeneralError, volume()->SetFileInfo(hFile, 0xFFFFFFFF, &record));
            if (spare) {
                EXPECT_OK(volume()->Undelete(hFile, nullptr));
            }
            Close(hFile);
            if (row.locked) {
                EXPECT_OK(volume()->Unlock(path.c_str(), token.c_str()));
            }
            EXPECT_EQ(spare ? row.spared : "<VVS_FileNotFound>", Get(path));
            EXPECT_EQ(spare && encrypted, Exists(ContainerPath(path)));
            EXPECT_EQ(spare && !encrypted, Exists(NativePath(path)));
        }
    EXPECT_EQ(6u, RetainedCopies().size()) << "of deleted files nothing is kept";
}

TEST_F(SavingAnEditedFile, TellsAndSetsTimesAndAttributes) {
    const auto setTimes = [&](void* hFile, std::uint32_t attributes, std::uint64_t lastAccess, std::uint64_t lastWrite) {
        VirtFindData wanted{};
        wanted.lastAccessTime = lastAccess;
        wanted.lastWriteTime = lastWrite;
        return volume()->SetFileInfo(hFile, attributes, &wanted);
    };
    constexpr std::uint32_t keep = 0xFFFFFFFF;
    const std::uint64_t early = FileTimeAt(2019, 24);
    const std::uint64_t late = FileTimeAt(2023, 48);

    // An encrypted file whose content was not accessed tells what a listing tells, and ignores what is set.
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "content");
    const std::string bytes = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    VirtFindData listed{};
    ASSERT_TRUE(Find(L"Docs\\a.txt", &listed));
    void* hFile = MustOpen(L"Docs\\a.txt");
    VirtFindData record{};
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
    EXPECT_EQ(0, memcmp(&listed, &record, sizeof(record)));
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileReaderFactory", [&] { EXPECT_OK(setTimes(hFile, FILE_ATTRIBUTE_HIDDEN, early, late)); }));
    EXPECT_EQ("content", Read(hFile));
    record = {};
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
    EXPECT_EQ(listed.lastWriteTime, record.lastWriteTime) << "reading changes nothing";
    EXPECT_EQ(7, record.fileSize);
    Close(hFile);
    EXPECT_EQ(bytes, ReadRaw(ContainerPath(L"Docs\\a.txt")));
    EXPECT_FALSE(volume()->GetFileInfo(hFile, &record));
    EXPECT_EQ(VVS_InvalidParameter, setTimes(hFile, keep, 0, 0));

    // From then on both kinds behave alike: times and attributes hold, also through the container.
    WriteRaw(NativePath(L"Plain\\a.txt"), "content");
    for (const wchar_t* path : {L"Plain\\a.txt", L"Docs\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        hFile = MustOpen(path);
        EXPECT_OK(Write(hFile, "changed content"));
        record = {};
        EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
        EXPECT_EQ(15, record.fileSize);
        EXPECT_LT(late, record.lastWriteTime) << "the time of the change";
        EXPECT_STREQ(L"a.txt", record.fileName);
        EXPECT_EQ(VVS_InvalidParameter, volume()->SetFileInfo(hFile, keep, nullptr));
        EXPECT_OK(setTimes(hFile, FILE_ATTRIBUTE_HIDDEN, early, late));
        EXPECT_OK(setTimes(hFile, keep, 0, 0)) << "keeps all";
        record = {};
        EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
        EXPECT_EQ(late, record.lastWriteTime);
        EXPECT_EQ(early, record.lastAccessTime);
        EXPECT_NE(0u, record.fileAttributes & FILE_ATTRIBUTE_HIDDEN);
        Close(hFile);
        record = {};
        ASSERT_TRUE(Find(path, &record));
        EXPECT_EQ(late, record.lastWriteTime);
        EXPECT_EQ(early, record.lastAccessTime);
        EXPECT_NE(0u, record.fileAttributes & FILE_ATTRIBUTE_HIDDEN);

        // An edit that does not set it has the time of the edit.
        hFile = MustOpen(path);
        EXPECT_EQ("changed content", Read(hFile));
        EXPECT_OK(Write(hFile, "again"));
        Close(hFile);
        ASSERT_TRUE(Find(path, &record));
        EXPECT_LT(late, record.lastWriteTime);
        EXPECT_EQ("agained content", Get(path));
    }

    // A new file is known as soon as something was written; one in conflict tells the name it is shown under.
    hFile = MustOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
    EXPECT_FALSE(volume()->GetFileInfo(hFile, &record));
    EXPECT_OK(Write(hFile, "12"));
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
    EXPECT_EQ(2, record.fileSize);
    Close(hFile);
    MakeContainer(ContainerPath(L"Docs\\other.txt"), L"stored.txt", "content");
    hFile = MustOpen(L"Docs\\other.txt.zip");
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
    EXPECT_STREQ(L"other.txt.HvcConflicted", record.fileName);
    EXPECT_EQ(VIT_EncryptedFileInConflict, record.itemType);
    Close(hFile);
    EXPECT_FALSE(volume()->GetFileInfo(nullptr, &record));
}

TEST_F(SavingAnEditedFile, ReachesPlacesBeyondFourGibibytes) {
    constexpr std::uint64_t gibibyte = 1ull << 30;
    constexpr std::uint64_t current = 0xFFFFFFFF;
    for (const wchar_t* path : {L"Plain\\large.bin", L"Docs\\large.bin"}) {
        SCOPED_TRACE(Narrow(path));
        void* const hFile = MustOpen(path, kReadWrite, CREATE_NEW);
        EXPECT_OK(volume()->SetFileSize(hFile, 6 * gibibyte, nullptr));
        EXPECT_OK(Write(hFile, "start", current)) << "setting the size leaves the position where it was";
        EXPECT_OK(Write(hFile, "beyond", 5 * gibibyte + 7));
        EXPECT_OK(Write(hFile, "here", 0x1FFFFFFFF)) << "a place, not the current one";
        EXPECT_EQ("beyond", Read(hFile, 5 * gibibyte + 7, 6));
        EXPECT_EQ(std::string(7, '\0') + "beyond", Read(hFile, 5 * gibibyte, 13));
        EXPECT_EQ("start", Read(hFile, 0, 5));
        EXPECT_EQ("", Read(hFile, 9 * gibibyte, 5));
        VirtFindData record{};
        EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
        EXPECT_EQ(static_cast<std::int64_t>(8 * gibibyte + 3), record.fileSize);
        EXPECT_OK(volume()->SetFileSize(hFile, 5 * gibibyte + 9, nullptr));
        EXPECT_EQ("be", Read(hFile, 5 * gibibyte + 7, 6));
        EXPECT_OK(volume()->Delete(hFile, nullptr));  // storing it would take minutes
        Close(hFile);
        EXPECT_FALSE(Exists(NativePath(path)) || Exists(ContainerPath(path)));
    }
}

TEST_F(SavingAnEditedFile, OpensAPlainFileInUseForReadingOnly) {
    WriteRaw(NativePath(L"Plain\\a.txt"), "content");
    HANDLE held = CreateFileW(NativePath(L"Plain\\a.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    for (const std::uint32_t disposition : {OPEN_EXISTING, OPEN_ALWAYS, TRUNCATE_EXISTING}) {
        SCOPED_TRACE(disposition);
        void* const hFile = MustOpen(L"Plain\\a.txt", kReadWrite, disposition);
        EXPECT_EQ("content", Read(hFile));
        EXPECT_EQ(VVS_AccessDenied, Write(hFile, "edit"));
        EXPECT_NE(VVS_Success, volume()->SetFileSize(hFile, 0, nullptr));  // platforms differ in the error
        EXPECT_EQ(VVS_AccessDenied, volume()->Delete(hFile, nullptr));
        EXPECT_EQ("content", Read(hFile)) << "a deletion that failed is none";
        Close(hFile);
    }
    void* hFile = nullptr;
    EXPECT_EQ(VSS_SharingViolation, Open(&hFile, L"Plain\\a.txt", kReadWrite, CREATE_ALWAYS));
    EXPECT_EQ(VSS_FileExists, Open(&hFile, L"Plain\\a.txt", kReadWrite, CREATE_NEW));
    CloseHandle(held);
    held = CreateFileW(NativePath(L"Plain\\a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(VSS_SharingViolation, Open(&hFile, L"Plain\\a.txt"));
    CloseHandle(held);
    EXPECT_EQ("content", Get(L"Plain\\a.txt"));
}

TEST_F(SavingAnEditedFile, SavesALockedFileInPlace) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", Letters(50'000));
    const std::wstring token = Lock(L"Docs\\a.txt");
    for (const std::size_t size : {200'000, 10, 0, 70'000}) {  // it grows and shrinks
        SCOPED_TRACE(size);
        const std::string content = Letters(size, 'A');
        void* const hFile = MustOpen(L"Docs\\a.txt");
        EXPECT_OK(volume()->SetFileSize(hFile, 0, nullptr));
        EXPECT_OK(Write(hFile, content));
        EXPECT_EQ(1u, WriterCallsDuring([&] { Close(hFile); }));
        EXPECT_EQ(content, ContainerContent(container));
        EXPECT_EQ(content, Get(L"Docs\\a.txt"));
        EXPECT_FALSE(OpensUnshared(container)) << "it is locked still";
        VirtFindData record{};
        ASSERT_TRUE(Find(L"Docs\\a.txt", &record));
        EXPECT_EQ(static_cast<std::int64_t>(size), record.fileSize);
        EXPECT_EQ(VIT_EncryptedFile, record.itemType);
        EXPECT_STREQ(L"a.txt", record.fileName);
        EXPECT_EQ(1u, RetainedCopies().size());
        EXPECT_EQ(0u, TrackedEdits().size());
    }

    // Of two edits the second becomes a conflict copy, which nobody locked.
    void* const first = MustOpen(L"Docs\\a.txt", kReadWrite, OPEN_EXISTING, token.c_str());
    void* const second = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(first, "first"));
    EXPECT_OK(Write(second, "second"));
    Close(first);
    Close(second);
    EXPECT_EQ("first" + Letters(70'000, 'A').substr(5), ContainerContent(container));
    const std::wstring conflict = L"Docs\\" + ConflictName(L"a.txt");
    EXPECT_EQ("second" + Letters(70'000, 'A').substr(6), ContainerContent(ContainerPath(conflict)));
    EXPECT_TRUE(OpensUnshared(ContainerPath(conflict)));

    // A save takes a deletion back.
    void* const saver = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(volume()->SetFileSize(saver, 5, nullptr));
    Delete(L"Docs\\a.txt");
    Close(saver);
    EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", token.c_str()));
    EXPECT_EQ("first", ContainerContent(container));
    EXPECT_TRUE(OpensUnshared(container));
    EXPECT_EQ("first", Get(L"Docs\\a.txt"));
    EXPECT_EQ(2u, NamesInDocs().size());
}

TEST_F(SavingAnEditedFile, KeepsWhatWasWrittenIntoAFileThatALockMade) {
    for (const wchar_t* path : {L"Docs\\new.txt", L"Plain\\new.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const std::wstring token = Lock(path);
        void* hFile = nullptr;
        EXPECT_EQ(VSS_FileExists, Open(&hFile, path, kReadWrite, CREATE_NEW));
        hFile = MustOpen(path);
        EXPECT_EQ("", Read(hFile));
        EXPECT_OK(Write(hFile, "written under the lock"));
        Close(hFile);
        EXPECT_EQ("written under the lock", Get(path));
        hFile = MustOpen(path, kReadWrite, CREATE_ALWAYS);
        EXPECT_OK(Write(hFile, "and over"));
        Close(hFile);
        EXPECT_OK(volume()->Unlock(path, token.c_str()));
        EXPECT_EQ("and over", Get(path));
        Delete(path);
        // Without a write nothing stays.
        const std::wstring second = Lock(path);
        Close(MustOpen(path));
        EXPECT_OK(volume()->Unlock(path, second.c_str()));
        EXPECT_EQ("<VVS_FileNotFound>", Get(path));
    }
    EXPECT_TRUE(NamesInDocs().empty());
}
