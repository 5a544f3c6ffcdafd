// What is on disk after an edited file was closed: how often encrypted, in what size, under which name, with which times; waiting edits.
#include "harness/Prompts.h"
#include "harness/VolumeFixture.h"

constexpr const char* kWriter = "Quelcrypt_FileWriterFactory";
constexpr std::uint32_t kKeep = 0xFFFFFFFF;

class SavingAnEditedFile : public VolumeFixture {
protected:
    SavingAnEditedFile() : VolumeFixture(LogLevel_Error) {}

    Status SetInfo(void* hFile, std::uint32_t attributes, std::uint64_t lastAccess, std::uint64_t lastWrite) {
        VirtFindData wanted{};
        wanted.lastAccessTime = lastAccess;
        wanted.lastWriteTime = lastWrite;
        return volume()->SetFileInfo(hFile, attributes, &wanted);
    }
    // Closes a handle that edited a document, which somebody else stores anew: before, or while the edit is encrypted, which takes long.
    void CloseInConflict(const std::wstring& path, const std::string& mine, const std::string& theirs, bool isLate = false) {
        const std::function<void()> store = SaverElsewhere(path, theirs);
        void* const hFile = OpenEdited(path, mine, CREATE_ALWAYS);
        if (isLate) {
            Before("IFileWriter::Write", store, [&] { Close(hFile); });
        } else {
            store();
            EXPECT_GE(1u, CallsDuring(kWriter, [&] { Close(hFile); })) << "not encrypted for a place that it cannot have";
        }
        EXPECT_EQ(theirs, Stored(path));
    }
};

// Several pieces of what is encrypted at a time, and edges of them; under a lock the container is written where it stands.
TEST_F(SavingAnEditedFile, SavesEverySizeWhole) {
    for (const bool isLocked : {false, true}) {
        MakeEncrypted(L"Docs\\a.bin", "");
        const std::wstring token = isLocked ? Lock(L"Docs\\a.bin") : L"";
        for (const std::size_t size : {200'000, 0, 1, 32767, 32768, 32769, 1'000'000, 65536, 10}) {
            SCOPED_TRACE(std::to_string(size) + (isLocked ? ", locked" : ""));
            EXPECT_EQ(1u, CallsDuring(kWriter, [&] { Put(L"Docs\\a.bin", TextOf(size)); }));
            EXPECT_TRUE(TextOf(size) == Stored(L"Docs\\a.bin"));
            EXPECT_TRUE(TextOf(size) == Get(L"Docs\\a.bin"));
            EXPECT_EQ(static_cast<std::int64_t>(size), Record(L"Docs\\a.bin").fileSize);
            EXPECT_EQ(isLocked, !Held(ContainerPath(L"Docs\\a.bin")));
            EXPECT_EQ(1u, TempFolders());
        }
        Unlock(L"Docs\\a.bin", token);
    }
    EXPECT_EQ(1u, Disk().size());
}

TEST_F(SavingAnEditedFile, ConflictCopiesHaveTheirNames) {
    const auto conflicts = [&](const std::wstring& name, const std::wstring& conflictName) {
        for (const auto& [isNew, isLate] : {std::pair(false, false), {false, true}, {true, true}}) {
            SCOPED_TRACE(Narrow(name) + (isNew ? ", new" : "") + (isLate ? ", late" : ""));
            if (!isNew)
                MakeEncrypted(L"Docs\\" + name, "base");
            CloseInConflict(L"Docs\\" + name, "mine", "theirs of another size", isLate);
            EXPECT_EQ("mine", Stored(L"Docs\\" + conflictName));
            EXPECT_EQ("mine", Get(L"Docs\\" + conflictName)) << "it is a file like any other";
            EmptyFolders();
        }
    };
    for (const wchar_t* name : {L"two.dots.txt", L"100%s.docx", L".txt"})
        conflicts(name, ConflictName(name));
    // A stem that leaves no room is cut, between characters; the ending stays.
    const std::wstring suffix = ConflictName(L"") + L".txt";
    const std::size_t room = 255 - 4 - suffix.size();
    for (const std::size_t units : {209, 210, 230, 251}) {
        const std::wstring stem(units - 4, L'n');
        conflicts(stem + L".txt", stem.substr(0, room) + suffix);
    }
    const std::wstring split = std::wstring(room - 1, L'n') + L"\xD83D\xDE00" + std::wstring(5, L'n');
    conflicts(split + L".txt", split.substr(0, room - 1) + suffix);

    // Later ones of a day are numbered; a plain file has the second name.
    MakeEncrypted(L"Docs\\a.txt", "base");
    MakePlain(L"Docs\\" + ConflictName(L"a.txt", 2), "plain");
    for (const int number : {1, 3, 4}) {
        CloseInConflict(L"Docs\\a.txt", "mine " + std::to_string(number), "theirs " + std::to_string(number));
        EXPECT_EQ("mine " + std::to_string(number), Stored(L"Docs\\" + ConflictName(L"a.txt", number)));
    }
    EXPECT_EQ(5u, Disk().size());
}

// Encrypted files must behave like plain ones, except as the interface says: they start empty with every
// disposition but OPEN_EXISTING, and the stored content is replaced only when something was written, once, at the close.
TEST_F(SavingAnEditedFile, TakesEveryDispositionLikeAPlainFile) {
    enum Action { Nothing, WriteAt3, SetSize0 };
    constexpr Status ok = VVS_Success;
    const std::string gap = std::string(3, '\0') + "abc", old = "0123456789", part = "012abc6789", none = "<none>";
    // What is stored then, in plain and encrypted.
    using Stores = std::vector<std::tuple<Action, std::string, std::string>>;
    const std::tuple<std::uint32_t, bool, Status, Stores> rows[] = {
        {CREATE_NEW, false, ok, {{Nothing, "", none}, {WriteAt3, gap, gap}, {SetSize0, "", ""}}},
        {CREATE_NEW, true, VSS_FileExists, {{WriteAt3, old, old}}},
        {CREATE_ALWAYS, false, ok, {{Nothing, "", none}, {WriteAt3, gap, gap}}},
        {CREATE_ALWAYS, true, ok, {{Nothing, "", old}, {WriteAt3, gap, gap}, {SetSize0, "", ""}}},
        {OPEN_EXISTING, false, VVS_FileNotFound, {{Nothing, none, none}}},
        {OPEN_EXISTING, true, ok, {{Nothing, old, old}, {WriteAt3, part, part}, {SetSize0, "", ""}}},
        {OPEN_ALWAYS, false, ok, {{WriteAt3, gap, gap}}},
        {OPEN_ALWAYS, true, ok, {{Nothing, old, old}, {WriteAt3, part, gap}}},
        {TRUNCATE_EXISTING, false, VVS_FileNotFound, {{Nothing, none, none}}},
        {TRUNCATE_EXISTING, true, ok, {{Nothing, "", old}, {WriteAt3, gap, gap}}},
    };
    for (const auto& [disposition, exists, status, stores] : rows)
        for (const auto& [action, plain, encrypted] : stores)
            for (const std::wstring path : {L"Plain\\a.txt", L"Docs\\a.txt"})
                for (const bool isLocked : {false, exists}) {
                    SCOPED_TRACE(Narrow(path) + ", disposition " + std::to_string(disposition) + (exists ? ", exists" : "") + ", action " +
                                 std::to_string(action) + (isLocked ? ", locked" : ""));
                    if (exists)
                        Store(path, old);
                    if (IsPlain(path))
                        MakePlain(path + L".zip", "an ordinary file");
                    const std::wstring token = isLocked ? Lock(path) : L"";
                    void* hFile = nullptr;
                    const auto act = [&] {
                        EXPECT_EQ(status, Open(&hFile, path, kReadWrite, disposition));
                        if (hFile && IsPlain(path))
                            EXPECT_STREQ(L"a.txt", InfoOf(hFile).fileName) << "it is not taken for the file beside it";
                        if (hFile && action != Nothing)
                            EXPECT_OK(action == WriteAt3 ? Write(hFile, "abc", 3) : SetSize(hFile, 0));
                        Read(hFile);
                        volume()->Flush(hFile);
                    };
                    EXPECT_EQ(0u, CallsDuring(kWriter, act));
                    EXPECT_EQ(hFile && action != Nothing && !IsPlain(path), CallsDuring(kWriter, [&] { Close(hFile); }));
                    Unlock(path, token);
                    EXPECT_EQ(IsPlain(path) ? plain : encrypted, Stored(path));
                    EmptyFolders();
                }
}

TEST_F(SavingAnEditedFile, ADeletedFileIsNoneUntilItIsSpared) {
    for (const wchar_t* path : {L"Plain\\a.txt", L"Docs\\a.txt"})
        for (const bool isLocked : {false, true}) {
            SCOPED_TRACE(Narrow(path) + (isLocked ? ", locked" : ""));
            Store(path, "base");
            const std::wstring token = isLocked ? Lock(path) : L"";
            void* const hFile = OpenEdited(path, "edit");
            for (const char* when : {"nothing to take back", "marked"}) {
                EXPECT_OK(volume()->Undelete(hFile, nullptr)) << when;
                EXPECT_EQ("edit", Read(hFile));
                EXPECT_EACH(VVS_Success, volume()->Delete(hFile, nullptr), volume()->Delete(hFile, nullptr)) << "once or twice";
            }
            EXPECT_EQ("<VVS_GeneralError>", Read(hFile));
            EXPECT_EACH(VVS_GeneralError, Write(hFile, "x"), SetSize(hFile, 0), SetInfo(hFile, kKeep, 0, 0), Rename(hFile, L"Docs\\b.txt"),
                        volume()->Flush(hFile));
            Close(hFile);
            EXPECT_EQ("<VVS_FileNotFound>", Get(path)) << "also while the lock still holds it";
            Unlock(path, token);
        }
    EXPECT_TRUE(Disk().empty());
    EXPECT_EQ(0u, TempFolders()) << "of deleted files nothing is kept";

    // If the container cannot be deleted, the edit is not deleted either.
    MakeEncrypted(L"Docs\\a.txt", "base");
    const std::wstring token = Lock(L"Docs\\a.txt");
    void* const hFile = OpenEdited(L"Docs\\a.txt", "edit");
    SetFileAttributesW(ContainerPath(L"Docs\\a.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(VVS_AccessDenied, volume()->Delete(hFile, nullptr));
    SetFileAttributesW(ContainerPath(L"Docs\\a.txt").c_str(), FILE_ATTRIBUTE_ARCHIVE);
    Failing(kWriter, Fault::Error, [&] { Close(hFile); });
    Unlock(L"Docs\\a.txt", token);
    EXPECT_EQ("base", Get(L"Docs\\a.txt")) << "somebody else changed the container meanwhile";
    EXPECT_EQ("edit", Stored(L"Docs\\" + ConflictName(L"a.txt")));
}

TEST_F(SavingAnEditedFile, TellsAndSetsTimesAndAttributes) {
    const std::uint64_t early = 132'000'000'000'000'000, late = 133'000'000'000'000'000;
    // An encrypted file whose content was not accessed has the record of a listing, and ignores what is set.
    MakeEncrypted(L"Docs\\a.txt", "content");
    const std::string bytes = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    const VirtFindData listed = Record(L"Docs\\a.txt");
    void* hFile = MustOpen(L"Docs\\a.txt");
    VirtFindData record = InfoOf(hFile);
    EXPECT_EQ(0, memcmp(&listed, &record, sizeof(record)));
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileReaderFactory", [&] { EXPECT_OK(SetInfo(hFile, FILE_ATTRIBUTE_HIDDEN, early, late)); }));
    EXPECT_EQ("content", Read(hFile));
    EXPECT_EQ(listed.lastWriteTime, InfoOf(hFile).lastWriteTime) << "reading changes nothing";
    Close(hFile);
    EXPECT_EQ(bytes, ReadRaw(ContainerPath(L"Docs\\a.txt")));

    // From then on both kinds behave alike: times and attributes hold, also through the container.
    MakePlain(L"Plain\\a.txt", "content");
    for (const wchar_t* path : {L"Plain\\a.txt", L"Docs\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        hFile = OpenEdited(path, "changed content");
        record = InfoOf(hFile);
        EXPECT_EQ(15, record.fileSize);
        EXPECT_LT(late, record.lastWriteTime) << "the time of the change";
        EXPECT_STREQ(L"a.txt", record.fileName);
        EXPECT_OK(SetInfo(hFile, FILE_ATTRIBUTE_HIDDEN, early, late));
        EXPECT_OK(SetInfo(hFile, kKeep, 0, 0)) << "keeps all";
        for (const bool isClosed : {false, true}) {
            record = isClosed ? Record(path) : InfoOf(hFile);
            EXPECT_EQ(late, record.lastWriteTime);
            EXPECT_EQ(early, record.lastAccessTime);
            EXPECT_NE(0u, record.fileAttributes & FILE_ATTRIBUTE_HIDDEN);
            Close(hFile);
        }
        // An edit after it was set has the time of the edit.
        hFile = MustOpen(path);
        EXPECT_OK(SetInfo(hFile, kKeep, 0, late));
        EXPECT_OK(Write(hFile, "again"));
        Close(hFile);
        EXPECT_LT(late, Record(path).lastWriteTime);
    }

    // A new file is known as soon as something was written; one in conflict tells the name it is shown under.
    hFile = MustOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
    EXPECT_FALSE(volume()->GetFileInfo(hFile, &record));
    EXPECT_OK(Write(hFile, "12"));
    EXPECT_EQ(2, InfoOf(hFile).fileSize);
    EXPECT_OK(Rename(hFile, L"Docs\\d.txt"));
    EXPECT_STREQ(L"d.txt", InfoOf(hFile).fileName);
    Close(hFile);
    Encrypt(ContainerPath(L"Docs\\other.txt"), "content", {.name = L"stored.txt"});
    hFile = MustOpen(L"Docs\\other.txt.zip");
    EXPECT_STREQ(L"other.txt.HvcConflicted", InfoOf(hFile).fileName);
    EXPECT_EQ(VIT_EncryptedFileInConflict, InfoOf(hFile).itemType);
    Close(hFile);

    // A plain file keeps the time that it was given meanwhile.
    hFile = MustOpen(L"Plain\\a.txt");
    Touch(NativePath(L"Plain\\a.txt"));
    const auto touched = Record(L"Plain\\a.txt").lastWriteTime;
    EXPECT_OK(SetInfo(hFile, kKeep, 0, 0));
    Close(hFile);
    EXPECT_EQ(touched, Record(L"Plain\\a.txt").lastWriteTime);
}

TEST_F(SavingAnEditedFile, OpensAPlainFileInUseForReadingOnly) {
    TryAgainAtOnce();
    MakePlain(L"Plain\\a.txt", "content");
    {
        const Held held(NativePath(L"Plain\\a.txt"), FILE_SHARE_READ);
        for (const std::uint32_t disposition : {OPEN_EXISTING, OPEN_ALWAYS, TRUNCATE_EXISTING}) {
            SCOPED_TRACE(disposition);
            void* const hFile = MustOpen(L"Plain\\a.txt", kReadWrite, disposition);
            EXPECT_EACH(VVS_AccessDenied, Write(hFile, "edit"), volume()->Delete(hFile, nullptr));
            EXPECT_NE(VVS_Success, SetSize(hFile, 0));  // platforms differ in the error
            EXPECT_EQ("content", Read(hFile)) << "a deletion that failed is none";
            Close(hFile);
        }
        EXPECT_EQ(VSS_SharingViolation, TryOpen(L"Plain\\a.txt", kReadWrite, CREATE_ALWAYS));
        EXPECT_EQ(VSS_FileExists, TryOpen(L"Plain\\a.txt", kReadWrite, CREATE_NEW));
    }
    const Held held(NativePath(L"Plain\\a.txt"));
    EXPECT_EQ(VSS_SharingViolation, TryOpen(L"Plain\\a.txt"));
}

TEST_F(SavingAnEditedFile, TheUserMayPickAnotherPlace) {
    MakeFolder(L"Plain\\backups");
    const std::wstring backups = NativePath(L"Plain\\backups");
    prompts::Pick(backups);
    for (int number = 1; number <= 3; ++number) {
        LeaveUnsavedEdit(L"Docs\\a.txt", "edit " + std::to_string(number));
        EXPECT_EQ(number, prompts::g_count);
        EXPECT_EQ("edit " + std::to_string(number), ReadRaw(backups + L"\\" + ConflictName(L"a.txt", number, L"backup")));
        EXPECT_EQ(0u, TrackedEdits().size()) << "it is safe there";
        EXPECT_EQ("base", Get(L"Docs\\a.txt"));
    }
    EXPECT_EQ(L"Saving modified file \"a.txt\" to HalvaneCloud failed. Please select another folder for its backup", prompts::g_title);
    const HWINSTA desktop = GetProcessWindowStation();
    ASSERT_TRUE(SetProcessWindowStation(CreateWindowStationW(nullptr, 0, WINSTA_ALL_ACCESS, nullptr)));
    LeaveUnsavedEdit(L"Docs\\a.txt", "unseen");
    EXPECT_EQ(3, prompts::g_count) << "nobody would see it there";
    ASSERT_TRUE(SetProcessWindowStation(desktop));
    prompts::Pick(backups + L"\\missing");
    LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
    EXPECT_EQ(1u, TrackedEdits().size()) << "a place that refuses the backup counts as none";
    EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileReaderFactory", [&] { EXPECT_EQ("edit", Get(L"Docs\\a.txt")); }));
    EXPECT_EQ("edit", Stored(L"Docs\\a.txt"));
}

// Whatever keeps a waiting edit from being opened, saved or deleted with its document, it stays.
TEST_F(SavingAnEditedFile, AWaitingEditIsNotForgotten) {
    TryAgainAtOnce();
    LeaveUnsavedEdit(L"Docs\\a.txt", "edit");
    ASSERT_EQ(1u, TrackedEdits().size());
    {
        const Held held(TrackedEdits()[0]);
        EXPECT_EQ("<VSS_SharingViolation>", Get(L"Docs\\a.txt"));
    }
    void* hFile = nullptr;
    for (const std::string mine : {"edit", "of the handle that deletes"}) {
        hFile = mine == "edit" ? MustOpen(L"Docs\\a.txt") : OpenEdited(L"Docs\\a.txt", mine);
        EXPECT_OK(volume()->Delete(hFile, nullptr));
        {
            const Held held(ContainerPath(L"Docs\\a.txt"), FILE_SHARE_READ);
            Close(hFile);
        }
        EXPECT_EQ("base", Stored(L"Docs\\a.txt"));
        ASSERT_EQ(1u, TrackedEdits().size());
        EXPECT_EQ(mine, ReadRaw(TrackedEdits()[0]));
    }
    EXPECT_OK(Delete(L"Docs\\a.txt"));
    EXPECT_EQ(0u, TrackedEdits().size()) << "it is deleted with its document";

    LeaveUnsavedEdit(L"Docs\\b.txt", "another");
    VirtFindData opened{}, listed{};
    ASSERT_OK(volume()->OpenFile(&hFile, L"Docs\\b.txt", GENERIC_READ, kShareAll, OPEN_EXISTING, nullptr, &opened));
    volume()->FindClose(volume()->FindFirstFileW(L"Docs\\b.txt", &listed));
    for (const VirtFindData& record : {Record(L"Docs\\b.txt"), opened, listed, InfoOf(hFile)})
        EXPECT_EQ(7, record.fileSize) << "what a reader of that many bytes gets is the whole edit";
    Close(hFile);
    void* const hDeletes = MustOpen(L"Docs\\b.txt");
    void* const hWrites = MustOpen(L"Docs\\b.txt");
    EXPECT_OK(volume()->Delete(hDeletes, nullptr));
    EXPECT_OK(Write(hWrites, "written since"));
    Failing(kWriter, Fault::Null, [&] { Close(hWrites); });
    Close(hDeletes);
    ASSERT_EQ(1u, TrackedEdits().size()) << "but for what was written since";
    EXPECT_EQ("written since", Get(L"Docs\\b.txt"));

    MakeFolder(L"Docs\\sub");
    LeaveUnsavedEdit(L"Docs\\c.txt", "moved");
    EXPECT_OK(Move(L"Docs\\c.txt", L"Docs\\sub\\c.txt")) << "under its name and key the container just moves";
    EXPECT_EQ("moved", Stored(L"Docs\\sub\\c.txt"));
}
