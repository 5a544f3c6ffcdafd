// What moving, copying and renaming a file does, from and to any folder: content, form on disk, unencrypted copies.
#include "harness/VolumeFixture.h"

enum class How { Move, Copy, Rename };
using Paths = std::vector<std::pair<std::wstring, std::wstring>>;  // from, to

class MovingAFile : public VolumeFixture {
protected:
    MovingAFile() : VolumeFixture(LogLevel_Error) {}

    Status Do(How how, const std::wstring& from, const std::wstring& to, const wchar_t* token = nullptr) {
        return how == How::Move ? Move(from, to, token) : how == How::Copy ? Copy(from, to, token) : Rename(from, to);
    }
    void MoveWhole(How how, const std::wstring& from, const std::wstring& to, bool isFromLocked, bool isToLocked);
    // Two documents, and beside them what only looks like some.
    void MakeLookalikes() {
        MakeEncrypted(L"Docs\\a.txt", "kept");
        MakePlain(L"Plain\\a.txt", "kept");
        // Both forms: shown as "both.HvcConflicted" and opened as "both.txt.zip". One whose container got another name outside.
        MakeEncrypted(L"Docs\\both.txt", "the conflict copy");
        MakePlain(L"Docs\\both.txt", "the plain one");
        Encrypt(ContainerPath(L"Docs\\renamed.txt"), "renamed outside", {.name = L"stored name.txt"});
        // A ZIP file of the user is no container: nothing takes its place, and nothing deletes it as another form of a file.
        MakePlain(L"Docs\\user.txt.zip", "PK of the user");
        MakePlain(L"Plain\\user.txt.zip", "PK of the user");
    }
};

void MovingAFile::MoveWhole(How how, const std::wstring& from, const std::wstring& to, bool isFromLocked, bool isToLocked) {
    // A word that shows where it is in clear, in pieces as large as what is copied at a time, and one byte.
    const std::string before = TextOf(2 * 32768 + 1, "what is moved, at ");
    std::string content = before;
    Store(from, content);
    if (isToLocked)
        Store(to, std::string(32768, 'o'));
    else if (how != How::Move)  // it is replaced also in the form that it would not have
        to[0] == L'P' ? MakeEncrypted(to, "what was there") : MakePlain(to, "what was there");
    const std::wstring form = isFromLocked || isToLocked ? L"" : L"\\\\?\\" + root() + L"\\";
    const std::wstring fromToken = isFromLocked ? Lock(from) : L"", toToken = isToLocked ? Lock(to) : L"";
    bool wasClear = false;
    const auto look = [&] {
        for (const wchar_t* mount : {L"Docs", L"Other"})
            wasClear = wasClear || !FilesHolding(NativePath(mount), "what is moved").empty();
    };
    Companion().SetHook("IFileWriter::Finish", look);
    void* const hFile = how == How::Rename ? MustOpen(from) : nullptr;
    EXPECT_TRUE(!hFile || content.substr(0, 40'000) == Read(hFile, kHere, 40'000));
    const std::string stored = ReadRaw(StoredPath(from));
    EXPECT_OK(hFile ? Rename(hFile, to, toToken.c_str()) : Do(how, form + from, form + to, toToken.c_str()));
    if (to == L"Docs\\sub\\a.txt" && from[0] == L'D' && how != How::Copy && !isFromLocked && !isToLocked)
        EXPECT_TRUE(stored == ReadRaw(StoredPath(to))) << "under its name and key the container just moves";
    Companion().SetHook();
    look();
    EXPECT_FALSE(wasClear);
    if (hFile) {
        EXPECT_OK(Write(hFile, "changed", kHere)) << "the handle is at the new path, and where it was in the file";
        content.replace(40'000, 7, "changed");
        Close(hFile);
    }
    EXPECT_TRUE(content == Get(to));
    Unlock(to, toToken);
    Unlock(from, fromToken);
    EXPECT_TRUE(content == Stored(to));
    EXPECT_TRUE((how == How::Copy ? before : "<none>") == Stored(from));
    EXPECT_EQ(how == How::Copy ? 2u : 1u, Disk().size());
    EmptyFolders();
}

// What else may be on the way, with contents of a word: every short history of it, see explorer.*.
TEST_F(MovingAFile, TakesAllOfItToThePlacesOwnForm) {
    MakeFolder(L"Docs\\sub");
    for (const How how : {How::Move, How::Copy, How::Rename})
        for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"})
            for (const wchar_t* to : {L"Docs\\b.txt", L"Docs\\sub\\a.txt", L"Other\\a.txt", L"Plain\\b.txt"})
                for (const bool isFromLocked : {false, true})
                    for (const bool isToLocked : {false, true}) {
                        SCOPED_TRACE(std::to_string(int(how)) + ": " + Narrow(from) + (isFromLocked ? ", locked, to " : " to ") +
                                     Narrow(to) + (isToLocked ? ", locked" : ""));
                        MoveWhole(how, from, to, isFromLocked, isToLocked);
                    }
}

// Decrypting and encrypting take long. What somebody else stores meanwhile, at either end, is not taken for what was there before.
TEST_F(MovingAFile, WhatComesUpMeanwhileStays) {
    constexpr const char* kRead = "Quelcrypt_FileReaderFactory";
    constexpr const char* kWrite = "IFileWriter::Write";
    constexpr const char* kFinish = "IFileWriter::Finish";
    const std::wstring a = L"Docs\\a.txt", b = L"Docs\\b.txt", p = L"Plain\\a.txt", q = L"Plain\\b.txt", other = L"Other\\b.txt";
    const std::tuple<How, Paths, bool, const char*, Status> rows[] = {
        {How::Move, {{a, b}, {a, other}}, true, kFinish, VSS_SharingViolation},
        {How::Move, {{a, b}, {a, q}}, true, kRead, VVS_Success},  // in time: the newer one is moved
        {How::Move, {{a, b}, {a, other}, {a, q}}, false, kRead, VVS_PathAlreadyExists},
        // An empty file holds the place; one that is renamed over it is somebody else's.
        {How::Move, {{a, b}, {a, other}, {p, b}}, false, kWrite, VVS_PathAlreadyExists},
        // What a rename or a copy replaces must be what was there when it began.
        {How::Rename, {{a, b}, {p, b}}, false, kWrite, VSS_SharingViolation},
        {How::Copy, {{a, b}, {a, other}, {p, b}}, false, kWrite, VSS_SharingViolation},
        {How::Rename, {{a, q}}, false, kRead, VSS_SharingViolation},
        {How::Copy, {{a, q}}, false, kRead, VSS_SharingViolation},
    };
    for (const auto& [how, paths, isOfSource, during, expected] : rows)
        for (const auto& [from, to] : paths) {
            const std::wstring& exchanged = isOfSource ? from : to;
            SCOPED_TRACE(std::to_string(int(how)) + ": " + Narrow(from) + " to " + Narrow(to) + ", " + Narrow(exchanged) + " in " + during);
            Store(from, "mine");
            if (how != How::Move)
                Store(to, "what was there");
            Status status = VVS_GeneralError;
            Before(during, SaverElsewhere(exchanged, "somebody's newer content"), [&] { status = Do(how, from, to); });
            EXPECT_EQ(expected, status);
            const bool isMoved = status == VVS_Success;
            EXPECT_EQ("somebody's newer content", Stored(isMoved ? to : exchanged));
            EXPECT_EQ(isMoved ? "<none>" : exchanged == from ? "somebody's newer content" : "mine", Stored(from));
            EXPECT_EQ(isMoved || exchanged == from ? 1u : 2u, Disk().size()) << "nothing is left beside";
            EmptyFolders();
        }
}

TEST_F(MovingAFile, RefusesWhatCannotBe) {
    MakeLookalikes();
    const std::vector<How> all{How::Move, How::Copy, How::Rename};
    const std::wstring a = L"Docs\\a.txt", p = L"Plain\\a.txt", both = L"Docs\\both.txt", user = L"Docs\\user.txt";
    const std::wstring longName = L"Other\\" + std::wstring(245, L'n') + L".txt";
    const std::tuple<std::vector<How>, Status, Paths> rows[] = {
        {all, VVS_FileNotFound, {{L"Docs\\missing.txt", L"Docs\\b.txt"}}},
        {all, VVS_PathNotFound, {{p, L"Docs\\missing\\b.txt"}}},
        {all, VVS_InvalidParameter, {{p, L"Docs\\a|b"}, {a, L"Plain\\a*b"}}},
        {all, VVS_MountFolderNotFound, {{a, L"Nowhere\\b.txt"}, {a, L"Docs\\..\\..\\b.txt"}, {a, L""}, {a, L"Docs\\a:stream"}}},
        {{How::Move, How::Copy}, VVS_MountFolderNotFound, {{L"Nowhere\\a.txt", L"Docs\\b.txt"}}},
        {all, VVS_PathAlreadyExists, {{a, L"Plain"}, {a, both}, {a, L"Docs\\renamed.txt"}, {a, user}, {p, user}}},
        {all, VVS_PathAlreadyExists, {{p, L"Docs\\a.txt.zip"}}},  // another document's container
        {{How::Copy}, VVS_PathAlreadyExists, {{a, L"Docs\\A.txt"}, {p, L"Plain\\A.txt"}, {both + L".zip", both}}},
        {{How::Rename}, VVS_PathAlreadyExists, {{both, L"Docs\\Both.txt"}}},
        {{How::Move}, VVS_PathAlreadyExists, {{a, p}, {p, a}, {both + L".zip", both}}},
        {{How::Move, How::Rename}, VVS_Success, {{a, a}, {p, p}}},         // where it is
        {{How::Copy, How::Rename}, VVS_Locked, {{a, L"Docs\\held.txt"}}},  // in the form that it would not have
        {all, VVS_InvalidParameter, {{a, longName}}},                      // locked: no room for the name that says whose key it gets
    };
    MakePlain(L"Docs\\held.txt", "plain");
    MakeEncrypted(longName, "locked");
    const std::wstring token = Lock(L"Docs\\held.txt"), longToken = Lock(longName);
    const Snapshot before = Disk();
    for (const auto& [hows, status, paths] : rows)
        for (const auto& [from, to] : paths)
            for (const How how : hows) {
                SCOPED_TRACE(std::to_string(int(how)) + ": " + Narrow(from) + " to " + Narrow(to));
                EXPECT_EQ(status, Do(how, from, to));
                EXPECT_TRUE(before == Disk());
            }
}

TEST_F(MovingAFile, LeavesAloneWhatOnlyLooksLikeIt) {
    MakeLookalikes();
    const Snapshot before = Disk();
    for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        EXPECT_EACH(VVS_Success, Copy(from, L"Plain\\user.txt"), Rename(L"Plain\\user.txt", L"Plain\\b.txt"),
                    Move(L"Plain\\b.txt", L"Plain\\user.txt"), Delete(L"Plain\\user.txt"));
        EXPECT_TRUE(before == Disk());
    }
    // A document may have a container's name, but no document's container may then get it.
    Put(L"Docs\\n.txt.zip", "a document");
    EXPECT_EACH(VVS_PathAlreadyExists, TryOpen(L"Docs\\n.txt", kReadWrite, CREATE_NEW), Copy(L"Docs\\a.txt", L"Docs\\n.txt"));
    EXPECT_EQ("a document", Get(L"Docs\\n.txt.zip"));
    EXPECT_OK(Delete(L"Docs\\n.txt.zip"));
    EXPECT_TRUE(before == Disk());
    EXPECT_OK(Rename(L"Docs\\renamed.txt.zip", L"Docs\\c.txt"));
    EXPECT_EQ("renamed outside", Stored(L"Docs\\c.txt"));
    EXPECT_OK(Move(L"Docs\\both.txt.zip", L"Docs\\d.txt"));
    EXPECT_EQ("the conflict copy", Stored(L"Docs\\d.txt"));
    EXPECT_EQ("the plain one", ReadRaw(NativePath(L"Docs\\both.txt")));
}

// A file that was stored before its folder got a policy, or lost it, is brought into the form of the folder.
TEST_F(MovingAFile, OntoItselfTakesTheFormOfItsFolder) {
    MakePlain(L"Docs\\a.txt", "content");
    MakeEncrypted(L"Plain\\a.txt", "content");
    for (const wchar_t* path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        EXPECT_EQ(VVS_PathAlreadyExists, Copy(path, path)) << "two files of one name";
        EXPECT_OK(Move(path, path));
        EXPECT_EQ("content", Stored(path));
    }
    EXPECT_EQ(2u, Disk().size());
    EXPECT_EQ(Names{}, FilesHolding(temp(), "content")) << "nothing stays of what was clear";
}

// A host must ask for the right to delete at the open, even under a lock, whose openers share its handle and the deletion mark.
TEST_F(MovingAFile, OrDeletingItTakesTheRightTo) {
    const std::wstring path = L"Plain\\a.txt";
    for (const bool isLocked : {false, true}) {
        SCOPED_TRACE(isLocked ? "locked" : "free");
        MakePlain(path, "content");
        const std::wstring token = isLocked ? Lock(path) : L"";
        void* const hRead = MustOpen(path, GENERIC_READ, OPEN_EXISTING, token.c_str());
        void* const hDeletes = MustOpen(isLocked ? path : L"\\\\?\\" + NativePath(path), GENERIC_READ | DELETE);
        for (const bool isDeleted : {false, true}) {
            EXPECT_EACH(VVS_AccessDenied, volume()->Delete(hRead, nullptr), Rename(hRead, L"Plain\\b.txt"), Rename(hRead, L"Docs\\b.txt"));
            EXPECT_EQ("content", isDeleted ? "content" : Get(path));
            EXPECT_OK(volume()->Delete(hDeletes, nullptr));
        }
        Close(hDeletes);
        Close(hRead);
        Unlock(path, token);
        EXPECT_EQ(0u, Disk().size());
    }
}

// When a move of it failed, its first write replaces all, and what it wrote stays. When it succeeds: see explorer.*.
TEST_F(MovingAFile, LeavesAHandleThatStartsEmptyAsItWas) {
    for (const wchar_t* to : {L"Docs\\b.txt", L"Other\\b.txt"})
        for (const bool isWritten : {false, true}) {
            SCOPED_TRACE(Narrow(to) + (isWritten ? ", written" : ""));
            MakeEncrypted(L"Docs\\a.txt", "a long old content");
            void* const hFile = MustOpen(L"Docs\\a.txt", kReadWrite, CREATE_ALWAYS);
            if (isWritten)
                EXPECT_OK(Write(hFile, "written"));
            Failing("Quelcrypt_FileWriterFactory", Fault::Null, [&] { EXPECT_NE(VVS_Success, Rename(hFile, to)); });
            EXPECT_OK(Write(hFile, "new"));
            Close(hFile);
            EXPECT_EQ(isWritten ? "newtten" : "new", Stored(L"Docs\\a.txt"));
            EXPECT_EQ(1u, Disk().size());
            EmptyFolders();
        }
}

// Also after a save: the container may have been deleted since, and the open document's temp file is then the last copy.
TEST_F(MovingAFile, ThatIsRefusedLeavesTheOpenContent) {
    MakeEncrypted(L"Docs\\a.txt", "old");
    void* const hFile = OpenEdited(L"Docs\\a.txt", "new");
    EXPECT_EACH(VVS_Success, Rename(hFile, L"Plain\\a.txt"), Rename(hFile, L"Docs\\A.txt"));
    EXPECT_TRUE(DeleteFileW(ContainerPath(L"Docs\\A.txt").c_str()));
    EXPECT_EQ(VVS_FileNotFound, Rename(hFile, L"Docs\\b.txt"));
    EXPECT_EQ("new", Read(hFile));
    Close(hFile);
}

TEST_F(MovingAFile, ToAnotherDiskCopiesAndThenDeletesIt) {
    MakePlain(L"Plain\\far.log", "content");
    REPLACE_IN_VOLUME(MoveFileExW, [](const wchar_t* from, const wchar_t* to, DWORD flags) -> BOOL {
        SetLastError(ERROR_NOT_SAME_DEVICE);
        return std::wcsstr(from, L"far.log") ? FALSE : ::MoveFileExW(from, to, flags);
    });
    EXPECT_OK(Move(L"Plain\\far.log", L"Plain\\arrived.log"));
    EXPECT_EQ("content", ReadRaw(NativePath(L"Plain\\arrived.log")));
    EXPECT_FALSE(Exists(NativePath(L"Plain\\far.log")));
}

TEST_F(MovingAFile, KeepsWhatOnlyAnOpenHandleHas) {
    // Stored, then deleted by somebody else.
    void* hFile = OpenEdited(L"Docs\\a.txt", "written", CREATE_ALWAYS);
    EXPECT_OK(Rename(hFile, L"Docs\\A.txt"));
    const VirtFindData times = InfoOf(hFile);
    EXPECT_OK(volume()->SetFileInfo(hFile, 0xFFFFFFFF, &times));
    EXPECT_TRUE(DeleteFileW(ContainerPath(L"Docs\\A.txt").c_str()));
    EXPECT_OK(Rename(hFile, L"Docs\\b.txt"));
    Close(hFile);
    EXPECT_EQ("written", Get(L"Docs\\b.txt"));
    // Another opener's file was moved and is encrypted now: his deletion is not that of what is worked on since.
    MakePlain(L"Plain\\c.txt", "before");
    void* const hOther = MustOpen(L"Plain\\c.txt", GENERIC_READ | DELETE);
    hFile = MustOpen(L"Plain\\c.txt");
    EXPECT_OK(Rename(hFile, L"Docs\\c.txt"));
    volume()->Delete(hOther, nullptr);
    EXPECT_OK(Write(hFile, "after!"));
    Close(hOther);
    Close(hFile);
    EXPECT_EQ("after!", Get(L"Docs\\c.txt"));
}
