// What appears at a document's path, or where it is moved: a folder, a link, another name, somebody else's file. It is not a version of
// the document, and is neither replaced nor deleted.
#include "harness/VolumeFixture.h"

using WhatTakesTheirPlace = VolumeFixture;

TEST_F(WhatTakesTheirPlace, AFolderIsNotDeletedWithTheDocument) {
    for (const bool isWaiting : {false, true}) {
        const std::wstring path = isWaiting ? L"Docs\\waiting.txt" : L"Docs\\a.txt";
        if (isWaiting) {
            LeaveUnsavedEdit(path, "edit");
            DeleteFileW(ContainerPath(path).c_str());
        }
        void* const hFile = MustOpen(path, kReadWrite, isWaiting ? OPEN_EXISTING : CREATE_NEW);
        if (!isWaiting)
            EXPECT_OK(volume()->Delete(hFile, nullptr));
        MakeFolder(path + L".zip");
        MakePlain(path + L".zip\\other.log", "somebody else's");
        if (isWaiting)
            EXPECT_OK(volume()->Delete(hFile, nullptr));
        Close(hFile);
        EXPECT_EQ("somebody else's", ReadRaw(ContainerPath(path) + L"\\other.log"));
    }
    m_expectedUnsaved = 1;  // the one that waits is of a version that is not there any more
}

TEST_F(WhatTakesTheirPlace, AFolderSendsTheEditToAConflictName) {
    for (const auto& [name, disposition] : {std::pair(std::wstring(L"new.txt"), CREATE_NEW), {L"edited.txt", OPEN_EXISTING}}) {
        const std::wstring path = L"Docs\\" + name;
        if (disposition == OPEN_EXISTING)
            MakeEncrypted(path, "base");
        void* const hFile = OpenEdited(path, "edit", disposition);
        DeleteFileW(ContainerPath(path).c_str());
        MakeFolder(path + L".zip\\in it");
        Close(hFile);
        EXPECT_EQ("edit", Get(L"Docs\\" + ConflictName(name))) << Narrow(name);
        EXPECT_TRUE(Exists(ContainerPath(path) + L"\\in it"));
    }
}

// An archive "a.txt.zip" is another document than a.txt, whose container would get its name.
TEST_F(WhatTakesTheirPlace, AnArchiveSendsTheEditToAConflictName) {
    void* const hFile = OpenEdited(L"Docs\\a.txt", "words", CREATE_NEW);
    Put(L"Docs\\a.txt.zip", "archive");
    Close(hFile);
    EXPECT_EQ("archive", Get(L"Docs\\a.txt.zip"));
    EXPECT_EQ("words", Get(L"Docs\\" + ConflictName(L"a.txt")));
}

TEST_F(WhatTakesTheirPlace, ALinkDoesNotTakeThatOfItsTarget) {
    MakePlain(L"Plain\\target.log", "content");
    ASSERT_TRUE(CreateHardLinkW(NativePath(L"Plain\\link.log").c_str(), NativePath(L"Plain\\target.log").c_str(), nullptr));
    windows_rules::Mark(L"link.log", IO_REPARSE_TAG_SYMLINK);  // for the volume the one is a link to the other
    EXPECT_EQ(VVS_PathAlreadyExists, Rename(L"Plain\\link.log", L"Plain\\target.log"));
    EXPECT_EQ(VVS_PathAlreadyExists, Move(L"Plain\\link.log", L"Plain\\target.log"));
    EXPECT_EQ("content", ReadRaw(NativePath(L"Plain\\target.log")));
}

TEST_F(WhatTakesTheirPlace, AFileStoredAnewIsNotMovedAway) {
    MakePlain(L"Plain\\a.txt", "older");
    const auto storeAnew = [&] {
        fs::rename(NativePath(L"Plain\\a.txt"), NativePath(L"Plain\\a.bak"));
        MakePlain(L"Plain\\a.txt", "newer words");
    };
    const Held other(NativePath(L"Plain\\a.txt"), kShareAll, DELETE);  // else it is held against that
    Before("IFileWriter::Write", storeAnew, [&] { EXPECT_EQ(VSS_SharingViolation, Move(L"Plain\\a.txt", L"Docs\\a.txt")); });
    EXPECT_EQ("newer words", ReadRaw(NativePath(L"Plain\\a.txt")));
    EXPECT_EQ("older", ReadRaw(NativePath(L"Plain\\a.bak")));
    EXPECT_FALSE(Exists(ContainerPath(L"Docs\\a.txt")));
}

// Not even after a rename that was refused because of it.
TEST_F(WhatTakesTheirPlace, AFileStoredAnewIsNotWrittenByWhoOpenedTheOneBefore) {
    for (const wchar_t* to : {L"Docs\\a.txt", L"Plain\\c"}) {
        MakePlain(L"Plain\\a.txt", "older");
        void* const hFile = MustOpen(L"Plain\\a.txt");
        EXPECT_OK(Move(L"Plain\\a.txt", L"Plain\\b.txt"));
        MakePlain(L"Plain\\a.txt", "newer words");
        EXPECT_EQ(VSS_SharingViolation, Rename(hFile, to));
        EXPECT_OK(SetSize(hFile, 0));
        Close(hFile);
        EXPECT_EQ("newer words", ReadRaw(NativePath(L"Plain\\a.txt")));
        EXPECT_EQ("", ReadRaw(NativePath(L"Plain\\b.txt")));
        EmptyFolders();
    }
}

TEST_F(WhatTakesTheirPlace, AShortNameIsNotStoredAsTheDocuments) {
    const std::wstring path = L"Docs\\report with a long name.docx";
    MakeEncrypted(path, "content");
    wchar_t shortPath[MAX_PATH] = L"";
    GetShortPathNameW(ContainerPath(path).c_str(), shortPath, MAX_PATH);
    Close(OpenEdited(L"Docs\\" + fs::path(shortPath).filename().wstring(), "CON"));
    EXPECT_EQ((Names{L"report with a long name.docx"}), List(L"Docs\\*"));
    EXPECT_EQ("CONtent", Get(path));
}

// The companion library could not read it for a moment.
TEST_F(WhatTakesTheirPlace, AConflictCopyIsNotWrittenAsAnOrdinaryFile) {
    MakeEncrypted(L"Docs\\both.txt", "content");
    MakePlain(L"Docs\\both.txt", "plain");
    Companion().FailNth("Quelcrypt_GetFileInformation", 1, Fault::Null);
    Close(OpenEdited(L"Docs\\both.txt.zip", "CON"));
    EXPECT_TRUE(Companion().wasHit);
    EXPECT_EQ("CONtent", ContainerContent(ContainerPath(L"Docs\\both.txt")));
}

TEST_F(WhatTakesTheirPlace, AHandleThatStartsEmptyReadsNothingWhereItIsMovedTo) {
    Put(L"Docs\\a.txt", "old words");
    void* const hFile = MustOpen(L"Docs\\a.txt", kReadWrite, CREATE_ALWAYS);
    for (const std::wstring folder : {L"Other\\", L"Plain\\", L"Docs\\"}) {
        EXPECT_OK(Rename(hFile, folder + L"a.txt"));
        EXPECT_EQ("", Read(hFile)) << Narrow(folder);
        EXPECT_EQ(0, InfoOf(hFile).fileSize) << Narrow(folder);
    }
    Close(hFile);
    EXPECT_EQ("old words", Get(L"Docs\\a.txt"));
}

TEST_F(WhatTakesTheirPlace, AFileStoredWhileTheOldOneIsDeletedStays) {
    static std::wstring s_path;
    REPLACE(GetModuleHandleW(L"QuelcryptVol64.dll"), CloseHandle, [](HANDLE handle) -> BOOL {
        const bool wasThere = Exists(s_path);
        const BOOL isClosed = CloseHandle(handle);
        if (wasThere && !Exists(s_path))
            WriteRaw(s_path, "somebody else's");
        return isClosed;
    });
    for (const bool isMoved : {false, true}) {
        MakeEncrypted(L"Docs\\a.txt", "content");
        s_path = ContainerPath(L"Docs\\a.txt");
        EXPECT_OK(isMoved ? Move(L"Docs\\a.txt", L"Plain\\b.txt") : Delete(L"Docs\\a.txt"));
        EXPECT_EQ("somebody else's", ReadRaw(std::exchange(s_path, {})));
        DeleteFileW(ContainerPath(L"Docs\\a.txt").c_str());
    }
}
