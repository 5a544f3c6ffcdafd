// Moves of files that are open, edited, new or in conflict, onto themselves, and beside files that only look alike.
#include "harness/MovingFixture.h"

class MovingAnOpenFile : public Moving {
protected:
    using Names = std::vector<std::wstring>;

    void* NewFile(const std::wstring& path, std::string_view content) {
        void* const hFile = MustOpen(path, kReadWrite, CREATE_NEW);
        EXPECT_OK(Write(hFile, content));
        return hFile;
    }
    void CloseDeleted(void* hFile) {
        EXPECT_OK(volume()->Delete(hFile, nullptr));
        Close(hFile);
    }
};

TEST_F(MovingAnOpenFile, OntoItsOwnPathDoesNothing) {
    MakeEncrypted(L"Docs\\a.txt", "kept");
    MakePlain(L"Plain\\a.txt", "kept");
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        for (const bool locked : {false, true}) {
            const std::wstring token = locked ? Lock(path) : L"";
            const Snapshot before = Disk();
            EXPECT_OK(Move(path, path));
            EXPECT_EQ(VVS_PathAlreadyExists, Copy(path, path));
            void* const hFile = MustOpen(path);
            EXPECT_OK(Rename(hFile, path));
            EXPECT_EQ("kept", Read(hFile));
            Close(hFile);
            EXPECT_TRUE(before == Disk());
            if (locked) {
                EXPECT_OK(volume()->Unlock(path, token.c_str()));
            }
        }
    }
}

// Whether the disk then shows the new case is the platform's affair for a plain file; an encrypted one stores its name.
TEST_F(MovingAnOpenFile, ToAnotherLetterCaseKeepsTheContent) {
    MakeEncrypted(L"Docs\\a.txt", "encrypted");
    MakePlain(L"Plain\\a.txt", "plain");
    EXPECT_OK(Move(L"Docs\\a.txt", L"Docs\\A.txt"));
    EXPECT_EQ(Names{L"A.txt"}, List(L"Docs\\*"));
    EXPECT_OK(Rename(L"Docs\\A.txt", L"Docs\\a.TXT"));
    EXPECT_EQ(Names{L"a.TXT"}, List(L"Docs\\*"));
    EXPECT_EQ("encrypted", Get(L"Docs\\a.txt"));
    EXPECT_OK(Move(L"Plain\\a.txt", L"Plain\\A.txt"));
    EXPECT_OK(Rename(L"Plain\\a.txt", L"Plain\\a.TXT"));
    EXPECT_EQ("plain", Get(L"Plain\\A.txt"));
    EXPECT_EQ(1u, List(L"Plain\\*").size());
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\a.txt", L"Docs\\A.txt"));
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Plain\\a.txt", L"Plain\\A.txt"));

    // Under a lock too, which the file keeps.
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const std::string content = Get(path);
        const std::wstring token = Lock(path);
        std::wstring other = path;
        other[other.size() - 5] = L'A';
        EXPECT_OK(Move(path, other));
        EXPECT_EQ(content, Get(path));
        LockInfo lockInfo{};
        EXPECT_OK(volume()->FindLock(path, token.c_str(), &lockInfo));
        EXPECT_OK(volume()->Unlock(path, token.c_str()));
        EXPECT_EQ(content, Get(path));
    }
}

TEST_F(MovingAnOpenFile, TakesUnsavedEditsAlong) {
    for (const wchar_t* to : {L"Docs\\sub\\a.txt", L"Docs\\sub\\other name.txt", L"Other\\a.txt", L"Plain\\a.txt"}) {
        SCOPED_TRACE(Narrow(to));
        MakeFolder(L"Docs\\sub");
        MakeEncrypted(L"Docs\\a.txt", "as stored");
        void* const hFile = MustOpen(L"Docs\\a.txt");
        EXPECT_OK(Write(hFile, "an edit of it"));
        EXPECT_OK(Rename(hFile, to));
        EXPECT_EQ("an edit of it", Read(hFile));
        EXPECT_OK(Write(hFile, "AN", 0));
        Close(hFile);
        EXPECT_EQ("AN edit of it", Get(to));
        EXPECT_EQ("<VVS_FileNotFound>", Get(L"Docs\\a.txt"));
        EXPECT_EQ(1u, Disk().size()) << "no conflict copy, nothing left";
        Delete(to);
    }
    // An item that was edited in one handle and moved by path: what was stored moves, the edit is saved where it was made.
    MakeEncrypted(L"Docs\\a.txt", "as stored");
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, "an edit of it"));
    EXPECT_OK(Move(L"Docs\\a.txt", L"Other\\b.txt"));
    Close(hFile);
    EXPECT_EQ("an edit of it", Get(L"Docs\\a.txt"));
    EXPECT_EQ("as stored", Get(L"Other\\b.txt"));
}

TEST_F(MovingAnOpenFile, ACopyLeavesTheHandleWhereItWas) {
    MakeEncrypted(L"Docs\\a.txt", "as stored");
    MakePlain(L"Plain\\a.txt", "as stored");
    for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"})
        for (const wchar_t* to : {L"Docs\\copy.txt", L"Other\\copy.txt", L"Plain\\copy.txt"}) {
            SCOPED_TRACE(Narrow(from) + " to " + Narrow(to));
            void* const hFile = MustOpen(from);
            EXPECT_EQ("as stored", Read(hFile));
            EXPECT_OK(Copy(from, to));
            EXPECT_OK(Write(hFile, "AS", 0));
            Close(hFile);
            EXPECT_EQ("AS stored", Get(from));
            EXPECT_EQ("as stored", Get(to));
            Put(from, "as stored");
        }
}

// A host that writes piece after piece goes on where it was, whatever form the file takes meanwhile.
TEST_F(MovingAnOpenFile, KeepsThePlaceInTheFile) {
    constexpr std::uint64_t kHere = 0xFFFFFFFF;
    for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"})
        for (const wchar_t* to : {L"Docs\\b.txt", L"Other\\a.txt", L"Plain\\b.txt"})
            for (const bool locked : {false, true}) {
                SCOPED_TRACE(Narrow(from) + " to " + Narrow(to) + (locked ? ", locked" : ""));
                const std::wstring token = locked ? Lock(from) : L"";
                void* const hFile = MustOpen(from, kReadWrite, locked ? OPEN_EXISTING : CREATE_NEW);
                EXPECT_OK(Write(hFile, "first, ", kHere));
                EXPECT_OK(Write(hFile, "second, ", kHere));
                EXPECT_OK(Rename(hFile, to));
                EXPECT_OK(Write(hFile, "third", kHere));
                Close(hFile);
                EXPECT_EQ("first, second, third", Get(to));
                if (locked) {
                    EXPECT_OK(volume()->Unlock(from, token.c_str()));
                }
                Delete(to);
                EXPECT_TRUE(Disk().empty());
            }
}

TEST_F(MovingAnOpenFile, ANewFileIsStoredUnderItsNewNameAlone) {
    // Nothing written yet: the new name is where the first save goes, and without one nothing comes into being.
    void* hFile = MustOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Rename(hFile, L"Docs\\named.txt"));
    EXPECT_TRUE(Disk().empty());
    EXPECT_OK(Write(hFile, "content"));
    Close(hFile);
    EXPECT_EQ(Names{L"named.txt"}, List(L"Docs\\*"));
    EXPECT_EQ("content", Get(L"Docs\\named.txt"));

    // Written: stored at once, so that the caller learns whether it was; in place of what is there.
    for (const wchar_t* to : {L"Docs\\other.txt", L"Docs\\named.txt", L"Other\\n.txt", L"Plain\\n.txt", L"Plain\\n.txt"}) {
        SCOPED_TRACE(Narrow(to));
        hFile = NewFile(L"Docs\\new.txt", "newer content");
        EXPECT_OK(Rename(hFile, to));
        EXPECT_TRUE(Exists(NativePath(to)) || Exists(ContainerPath(to)));
        EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] { Close(hFile); })) << "stored already";
        EXPECT_EQ("newer content", Get(to));
        EXPECT_EQ("<VVS_FileNotFound>", Get(L"Docs\\new.txt"));
    }
    EXPECT_EQ(4u, Disk().size());
}

TEST_F(MovingAnOpenFile, AnEncryptionThatFailsIsToldAndChangesNothing) {
    Put(L"Docs\\old.txt", "what was there");
    MakePlain(L"Plain\\a.txt", "plain");
    const Snapshot before = Disk();
    for (const wchar_t* to : {L"Docs\\old.txt", L"Docs\\missing.txt", L"Other\\missing.txt"}) {
        SCOPED_TRACE(Narrow(to));
        void* const hFile = NewFile(L"Docs\\new.txt", "never stored");
        TestCompanion_FailNth("Quelcrypt_FileWriterFactory", 1, Fault::Null, true);
        EXPECT_EQ(VSS_EncryptError, Rename(hFile, to));
        EXPECT_EQ(VSS_EncryptError, Move(L"Plain\\a.txt", L"Docs\\b.txt"));
        EXPECT_EQ(VSS_EncryptError, Copy(L"Docs\\old.txt", L"Other\\c.txt"));
        EXPECT_EQ("never stored", Read(hFile)) << "the handle keeps its content";
        TestCompanion_FailNth(nullptr, 0, Fault::None, false);
        CloseDeleted(hFile);
        EXPECT_TRUE(before == Disk());
    }
}

TEST_F(MovingAnOpenFile, KeepsNoDecryptedCopyUnderTheOldName) {
    MakeEncrypted(L"Docs\\a.txt", "first");
    EXPECT_EQ("first", Get(L"Docs\\a.txt"));
    EXPECT_EQ(1u, RetainedCopies().size());
    MakeFolder(L"Docs\\sub");
    EXPECT_OK(Move(L"Docs\\a.txt", L"Docs\\sub\\a.txt"));
    EXPECT_EQ(0u, RetainedCopies().size());
    MakeEncrypted(L"Docs\\a.txt", "other");  // same size and times
    EXPECT_EQ("other", Get(L"Docs\\a.txt"));
    EXPECT_EQ("first", Get(L"Docs\\sub\\a.txt"));
    EXPECT_OK(Rename(L"Docs\\sub\\a.txt", L"Docs\\a.txt"));
    EXPECT_EQ("first", Get(L"Docs\\a.txt"));
    EXPECT_OK(Move(L"Docs\\a.txt", L"Plain\\a.txt"));
    EXPECT_EQ(0u, RetainedCopies().size());
}

TEST_F(MovingAnOpenFile, ASourceOpenElsewhereLosesNothing) {
    // A plain file that others read goes anywhere.
    MakePlain(L"Plain\\a.txt", "first");
    void* reader = MustOpen(L"Plain\\a.txt", GENERIC_READ);
    EXPECT_OK(Move(L"Plain\\a.txt", L"Plain\\b.txt"));
    EXPECT_OK(Move(L"Plain\\b.txt", L"Docs\\b.txt"));
    EXPECT_EQ("first", Read(reader));
    Close(reader);
    EXPECT_EQ("first", Get(L"Docs\\b.txt"));

    // One that somebody has open for writing does not become a container behind his back: what he writes would be lost.
    MakePlain(L"Plain\\a.txt", "first");
    void* const writer = MustOpen(L"Plain\\a.txt", GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(VSS_SharingViolation, Move(L"Plain\\a.txt", L"Docs\\c.txt"));
    EXPECT_OK(Write(writer, "later"));
    Close(writer);
    EXPECT_EQ("later", Get(L"Plain\\a.txt"));
    EXPECT_EQ("<VVS_FileNotFound>", Get(L"Docs\\c.txt"));
    EXPECT_OK(Move(L"Plain\\a.txt", L"Docs\\c.txt"));
    EXPECT_EQ("later", Get(L"Docs\\c.txt"));

    // Somebody outside who shares nothing stops the move, and nothing is half done.
    MakePlain(L"Plain\\a.txt", "first");
    const HANDLE outside = CreateFileW(NativePath(L"Plain\\a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, outside);
    for (const wchar_t* to : {L"Plain\\d.txt", L"Docs\\d.txt"}) {
        EXPECT_NE(VVS_Success, Move(L"Plain\\a.txt", to));
        EXPECT_EQ("<VVS_FileNotFound>", Get(to));
    }
    CloseHandle(outside);
    EXPECT_EQ("first", Get(L"Plain\\a.txt"));
}

// A container that is exchanged while it is decrypted or encrypted for a move is not deleted as if it were the old one.
TEST_F(MovingAnOpenFile, ASourceThatChangesMeanwhileIsNotDeleted) {
    struct Exchange {
        std::wstring newer, container;
        bool isDone;
    };
    const struct {
        const wchar_t* to;
        const char* during;
        VirtualVolumeStatus status;
    } rows[] = {
        {L"Docs\\b.txt", "IFileWriter::Finish", VSS_SharingViolation},
        {L"Other\\a.txt", "IFileWriter::Finish", VSS_SharingViolation},
        {L"Docs\\b.txt", "Quelcrypt_FileReaderFactory", VVS_Success},  // in time: the newer one is moved
        {L"Plain\\a.txt", "Quelcrypt_FileReaderFactory", VVS_Success},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.to) + " during " + row.during);
        MakeEncrypted(L"Docs\\a.txt", "somebody's newer content");
        Exchange exchange{NativePath(L"newer.zip"), ContainerPath(L"Docs\\a.txt"), false};
        std::filesystem::rename(exchange.container, exchange.newer);
        MakeEncrypted(L"Docs\\a.txt", "old content");
        TestCompanion_SetHook(
            row.during,
            [](void* context) {
                auto* const todo = static_cast<Exchange*>(context);
                todo->isDone |= MoveFileExW(todo->newer.c_str(), todo->container.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
            },
            &exchange);
        EXPECT_EQ(row.status, Move(L"Docs\\a.txt", row.to));
        TestCompanion_SetHook(nullptr, nullptr, nullptr);
        EXPECT_TRUE(exchange.isDone);
        EXPECT_EQ("somebody's newer content", Get(row.status == VVS_Success ? row.to : L"Docs\\a.txt"));
        for (const wchar_t* mount : {L"Docs", L"Other", L"Plain"})
            for (const std::wstring& file : FilesBelow(NativePath(mount)))
                std::filesystem::remove(file);
    }
}

// Somebody stores a file at the destination while the move decrypts or encrypts, taking care to replace nothing: of the two,
// one is told that the other was there first.
TEST_F(MovingAnOpenFile, ADestinationThatComesUpMeanwhileIsNotReplaced) {
    struct Newcomer {
        std::wstring path;
        std::string bytes;
        bool isStored;
    };
    const struct {
        const wchar_t* from;
        const wchar_t* to;
        const char* during;
    } rows[] = {
        {L"Docs\\a.txt", L"Plain\\c.txt", "Quelcrypt_FileReaderFactory"}, {L"Docs\\a.txt", L"Docs\\c.txt", "Quelcrypt_FileReaderFactory"},
        {L"Docs\\a.txt", L"Other\\c.txt", "Quelcrypt_FileReaderFactory"}, {L"Docs\\a.txt", L"Docs\\c.txt", "IFileWriter::Finish"},
        {L"Docs\\a.txt", L"Other\\c.txt", "IFileWriter::Finish"},         {L"Plain\\a.txt", L"Docs\\c.txt", "IFileWriter::Finish"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.from) + " to " + Narrow(row.to) + " during " + row.during);
        const bool toPlain = row.to[0] == L'P';
        MakeEncrypted(row.to, "theirs");
        Newcomer theirs{toPlain ? NativePath(row.to) : ContainerPath(row.to), toPlain ? "theirs" : ReadRaw(ContainerPath(row.to)), false};
        std::filesystem::remove(ContainerPath(row.to));
        row.from[0] == L'P' ? MakePlain(row.from, "mine") : MakeEncrypted(row.from, "mine");
        TestCompanion_SetHook(
            row.during,
            [](void* context) {
                auto* const todo = static_cast<Newcomer*>(context);
                const HANDLE hFile = CreateFileW(todo->path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
                if (hFile == INVALID_HANDLE_VALUE)
                    return;
                DWORD written = 0;
                todo->isStored = ::WriteFile(hFile, todo->bytes.data(), static_cast<DWORD>(todo->bytes.size()), &written, nullptr) != FALSE;
                CloseHandle(hFile);
            },
            &theirs);
        const VirtualVolumeStatus status = Move(row.from, row.to);
        TestCompanion_SetHook(nullptr, nullptr, nullptr);
        EXPECT_EQ(theirs.isStored ? VVS_PathAlreadyExists : VVS_Success, status);
        EXPECT_EQ(theirs.isStored ? "theirs" : "mine", Get(row.to));
        EXPECT_EQ(theirs.isStored ? "mine" : "<VVS_FileNotFound>", Get(row.from));
        for (const wchar_t* mount : {L"Docs", L"Other", L"Plain"})
            for (const std::wstring& file : FilesBelow(NativePath(mount)))
                std::filesystem::remove(file);
    }
}

// "a.txt" is there plain and as a container, which shows as "a.HvcConflicted" and opens as "a.txt.zip".
TEST_F(MovingAnOpenFile, AConflictCopyIsAFileOfItsOwn) {
    const auto makeBoth = [&](const std::wstring& folder) {
        MakeEncrypted(folder + L"\\a.txt", "the conflict copy");
        MakePlain(folder + L"\\a.txt", "the plain one");
    };
    makeBoth(L"Docs");
    const Snapshot before = Disk();
    EXPECT_EQ(VVS_PathAlreadyExists, Move(L"Docs\\a.txt.zip", L"Docs\\a.txt"));
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\a.txt.zip", L"Docs\\a.txt"));
    EXPECT_TRUE(before == Disk());

    EXPECT_OK(Move(L"Docs\\a.txt.zip", L"Docs\\mine.txt"));
    EXPECT_EQ("the conflict copy", Get(L"Docs\\mine.txt"));
    EXPECT_EQ("the plain one", Get(L"Docs\\a.txt"));
    Delete(L"Docs\\mine.txt");

    // Whoever replaces "a.txt" replaces the plain one, or is refused where both cannot stand.
    makeBoth(L"Docs");
    makeBoth(L"Plain");
    MakeEncrypted(L"Docs\\new.txt", "new");
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\new.txt", L"Docs\\a.txt"));
    EXPECT_EQ(VVS_PathAlreadyExists, Rename(L"Docs\\new.txt", L"Docs\\a.txt"));
    EXPECT_EQ("the plain one", Get(L"Docs\\a.txt"));
    EXPECT_EQ("the conflict copy", Get(L"Docs\\a.txt.zip"));
    EXPECT_OK(Copy(L"Docs\\new.txt", L"Plain\\a.txt"));
    EXPECT_EQ("new", Get(L"Plain\\a.txt"));
    EXPECT_EQ("the conflict copy", Get(L"Plain\\a.txt.zip"));
    EXPECT_NE(VVS_Success, Rename(L"Docs\\a.txt", L"Docs\\A.txt")) << "encrypting the plain one would overwrite the other";
    EXPECT_EQ("the plain one", Get(L"Docs\\a.txt"));
    EXPECT_EQ("the conflict copy", Get(L"Docs\\a.txt.zip"));

    // One that is in conflict because its container was given another name.
    MakeContainer(ContainerPath(L"Docs\\b.txt"), L"stored name.txt", "renamed outside");
    EXPECT_NE(VVS_Success, Copy(L"Docs\\new.txt", L"Docs\\b.txt"));
    EXPECT_EQ("renamed outside", Get(L"Docs\\b.txt.zip"));
    EXPECT_OK(Rename(L"Docs\\b.txt.zip", L"Docs\\c.txt"));
    EXPECT_EQ("renamed outside", Get(L"Docs\\c.txt"));
}

// A ZIP file of the user is no container: nothing takes its place, and nothing deletes it as another form of a file.
TEST_F(MovingAnOpenFile, AnOrdinaryZipFileIsLeftAlone) {
    MakeEncrypted(L"Docs\\new.txt", "new");
    MakePlain(L"Plain\\new.txt", "new");
    MakePlain(L"Docs\\a.txt.zip", "PK of the user");
    MakePlain(L"Plain\\a.txt.zip", "PK of the user");
    const Snapshot before = Disk();
    for (const wchar_t* from : {L"Docs\\new.txt", L"Plain\\new.txt"}) {
        SCOPED_TRACE(Narrow(from));
        EXPECT_EQ(VVS_PathAlreadyExists, Move(from, L"Docs\\a.txt"));
        EXPECT_EQ(VVS_PathAlreadyExists, Copy(from, L"Docs\\a.txt"));
        EXPECT_EQ(VVS_PathAlreadyExists, Rename(from, L"Docs\\a.txt"));
        EXPECT_TRUE(before == Disk());
        EXPECT_OK(Copy(from, L"Plain\\a.txt"));
        EXPECT_OK(Rename(L"Plain\\a.txt", L"Plain\\b.txt"));
        EXPECT_OK(Move(L"Plain\\b.txt", L"Plain\\a.txt"));
        EXPECT_EQ("new", Get(L"Plain\\a.txt"));
        EXPECT_EQ("PK of the user", Get(L"Plain\\a.txt.zip"));
        Delete(L"Plain\\a.txt");
        EXPECT_TRUE(before == Disk());
    }
    EXPECT_OK(Move(L"Plain\\a.txt.zip", L"Plain\\b.txt.zip"));
    EXPECT_EQ("PK of the user", Get(L"Plain\\b.txt.zip"));
}

TEST_F(MovingAnOpenFile, RefusesWhatCannotBe) {
    MakeEncrypted(L"Docs\\a.txt", "kept");
    const Snapshot before = Disk();
    EXPECT_EQ(VVS_FileNotFound, Move(L"Docs\\missing.txt", L"Docs\\b.txt"));
    EXPECT_EQ(VVS_MountFolderNotFound, Move(L"Nowhere\\a.txt", L"Docs\\b.txt"));
    EXPECT_EQ(VVS_MountFolderNotFound, Move(L"Docs\\a.txt", L"Nowhere\\b.txt"));
    EXPECT_EQ(VVS_MountFolderNotFound, Copy(L"Docs\\a.txt", L"Docs\\..\\..\\b.txt"));
    EXPECT_EQ(VVS_MountFolderNotFound, Rename(L"Docs\\a.txt", L"b.txt"));
    EXPECT_EQ(VVS_PathAlreadyExists, Move(L"Docs\\a.txt", L"Plain")) << "a mount folder's place";
    EXPECT_EQ(VVS_InvalidParameter, Rename(nullptr, L"Docs\\b.txt"));
    EXPECT_TRUE(before == Disk());

    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(volume()->Delete(hFile, nullptr));
    EXPECT_EQ(VVS_GeneralError, Rename(hFile, L"Docs\\b.txt")) << "a deleted file goes nowhere";
    EXPECT_OK(volume()->Undelete(hFile, nullptr));
    EXPECT_OK(Rename(hFile, L"Docs\\b.txt"));
    Close(hFile);
    EXPECT_EQ("kept", Get(L"Docs\\b.txt"));
}
