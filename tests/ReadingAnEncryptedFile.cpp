// What a host reads from an encrypted file, and how often the file is decrypted for that.
#include "harness/VolumeFixture.h"

#include <shellapi.h>

static constexpr const char* kReader = "Quelcrypt_FileReaderFactory";

class ReadingAnEncryptedFile : public VolumeFixture {
protected:
    ReadingAnEncryptedFile() : VolumeFixture(LogLevel_Error) {}

    // In place, as some sync clients write.
    static void Overwrite(const std::wstring& path, const std::string& bytes) {
        WriteRaw(path, bytes);
        Touch(path);
    }
};

// The same test for plain and encrypted files, which must behave alike, and for a locked one; also beyond four gibibytes.
TEST_F(ReadingAnEncryptedFile, ReadsAtEveryPositionAsAPlainFileDoes) {
    constexpr std::uint64_t gibibyte = 1ull << 30;
    const std::string content = TextOf(70'000);
    for (const auto& [path, isLocked] : {std::pair(L"Plain\\a.txt", false), {L"Plain\\a.txt", true}, {L"Docs\\a.txt", false}}) {
        SCOPED_TRACE(Narrow(path) + (isLocked ? ", locked" : ""));
        Store(path, content);
        const std::wstring token = isLocked ? Lock(path) : L"";
        void *const hFile = MustOpen(path), *const other = MustOpen(path);
        EXPECT_EQ(content.substr(0, 10), Read(hFile, kHere, 10));
        EXPECT_EQ(content.substr(0, 4), Read(other, kHere, 4)) << "each handle has a position of its own";
        EXPECT_OK(SetSize(hFile, 69'999));
        EXPECT_EQ(content.substr(10, 40'000), Read(hFile, kHere, 40'000)) << "setting the size leaves the position where it was";
        EXPECT_EQ(content.substr(4, 2), Read(other, kHere, 2));
        Close(other);
        EXPECT_EQ(content.substr(69'990, 9), Read(hFile, 69'990, 100)) << "as much as there is";
        for (const std::uint64_t beyond : {std::uint64_t{69'999}, 9 * gibibyte, std::uint64_t{0x1FFFFFFFF}})
            EXPECT_EQ("", Read(hFile, beyond, 100)) << beyond;
        EXPECT_EQ("", Read(hFile, 0, 0));
        std::uint32_t count = 99;
        EXPECT_OK(volume()->ReadFile(hFile, 0, &count, 1, nullptr, nullptr)) << "the count may be left out";
        EXPECT_OK(Write(hFile, "beyond", 5 * gibibyte + 7));
        EXPECT_OK(Write(hFile, "here", 0x1FFFFFFFF)) << "a place, not the current one";
        EXPECT_EQ(std::string(7, '\0') + "beyond", Read(hFile, 5 * gibibyte, 13));
        EXPECT_EQ(static_cast<std::int64_t>(8 * gibibyte + 3), InfoOf(hFile).fileSize);
        EXPECT_OK(SetSize(hFile, 5 * gibibyte + 9));
        EXPECT_EQ("be", Read(hFile, 5 * gibibyte + 7, 6));
        EXPECT_OK(volume()->Delete(hFile, nullptr));  // storing it would take minutes
        Close(hFile);
        Unlock(path, token);
    }
    EXPECT_TRUE(Disk().empty());
}

TEST_F(ReadingAnEncryptedFile, ReusesTheCopyOfAClosedFile) {
    MakeEncrypted(L"Docs\\a.txt", "content");
    MakeEncrypted(L"Other\\a.txt", "another");
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
    const Names copies = FilesBelow(temp());
    ASSERT_EQ(1u, copies.size());
    EXPECT_TRUE(copies[0].ends_with(L"\\a.txt")) << "applications show this name";
    EXPECT_EQ(0u, CallsDuring(kReader, [&] {
                  for (const wchar_t* path : {L"Docs\\a.txt", L"DOCS\\A.TXT", L"Docs\\a.txt.zip"})
                      EXPECT_EQ("content", Get(path));
              }));
    EXPECT_EQ(copies, FilesBelow(temp()));
    EXPECT_EQ("another", Get(L"Other\\a.txt"));
    EXPECT_EQ(2u, TempFolders());

    // What was saved is kept as well; a copy that vanished, is another version's or was changed by others is made anew.
    Put(L"Docs\\a.txt", "changed");
    EXPECT_EQ(0u, CallsDuring(kReader, [&] { EXPECT_EQ("changed", Get(L"Docs\\a.txt")); }));
    for (const std::wstring& copy : FilesBelow(temp()))
        EXPECT_TRUE(DeleteFileW(copy.c_str()));
    EXPECT_EQ(1u, CallsDuring(kReader, [&] { EXPECT_EQ("changed", Get(L"Docs\\a.txt")); }));
    for (const char* newer : {"Changed", "CHANGED"}) {  // the second has the first one's times and size
        SaverElsewhere(L"Docs\\a.txt", newer)();
        EXPECT_EQ(1u, CallsDuring(kReader, [&] { EXPECT_EQ(newer, Get(L"Docs\\a.txt")); }));
    }
    for (const std::wstring& copy : FilesBelow(temp()))
        Overwrite(copy, "somebody's");
    EXPECT_EQ(1u, CallsDuring(kReader, [&] { EXPECT_EQ("CHANGED", Get(L"Docs\\a.txt")); }));
    EXPECT_EQ(2u, TempFolders()) << "outdated copies are deleted";

    // Of two openers each has a copy of its own.
    void *const first = MustOpen(L"Docs\\a.txt"), *const second = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ(0u, CallsDuring(kReader, [&] { Read(first); })) << "the kept copy goes to the first";
    EXPECT_EQ(1u, CallsDuring(kReader, [&] { Read(second); })) << "and to nobody else";
    EXPECT_EQ(3u, TempFolders());
    Close(second);
    Close(first);
    EXPECT_EQ(2u, TempFolders()) << "one copy is kept";

    // After a move none stays under the old name.
    EXPECT_EACH(VVS_Success, Move(L"Docs\\a.txt", L"Plain\\b.txt"), Move(L"Other\\a.txt", L"Plain\\a.txt"));
    EXPECT_EQ(0u, TempFolders());
}

TEST_F(ReadingAnEncryptedFile, DecryptsAgainWhenTheContainerChangesMeanwhile) {
    const std::string newer = TextOf(300'000);
    MakeEncrypted(L"Docs\\made.txt", newer);
    const std::string newerBytes = ReadRaw(ContainerPath(L"Docs\\made.txt"));
    EmptyFolders();
    int row = 0;
    for (const char* moment : {kReader, "IFileReader::Advance"}) {
        SCOPED_TRACE(moment);
        const std::wstring path = L"Docs\\a" + std::to_wstring(row++) + L".txt";
        MakeEncrypted(path, "old content");
        void* const hFile = MustOpen(path);
        bool isDone = false;
        const auto exchangeOnce = [&] {
            if (!std::exchange(isDone, true))
                Overwrite(ContainerPath(path), newerBytes);
        };
        EXPECT_EQ(2u, CallsDuring(kReader, [&] { Before(moment, exchangeOnce, [&] { EXPECT_TRUE(newer == Read(hFile)); }); }));
        EXPECT_OK(Write(hFile, "edit"));
        Close(hFile);
        EXPECT_TRUE("edit" + newer.substr(4) == Stored(path)) << "what was read is what the edit is based on";
    }
    EXPECT_EQ(2u, Disk().size()) << "so there is no conflict";

    // A container that changes at every read cannot be read; nothing is left behind, and later it can be. One that is deleted
    // meanwhile is not found, and closing what was only read writes nothing.
    const std::wstring container = ContainerPath(L"Docs\\restless.txt");
    MakeEncrypted(L"Docs\\restless.txt", "old content");
    void *const hFile = MustOpen(L"Docs\\restless.txt"), *const gone = MustOpen(L"Docs\\restless.txt");
    const std::size_t folders = TempFolders();
    int count = 0;
    const auto exchange = [&] { Overwrite(container, newerBytes + (++count % 2 ? " " : "")); };
    Before(kReader, exchange, [&] { EXPECT_EQ("<VSS_SharingViolation>", Read(hFile)); });
    EXPECT_EQ(folders, TempFolders());
    Overwrite(container, newerBytes);
    EXPECT_TRUE(newer == Read(hFile));
    Close(hFile);
    EXPECT_TRUE(DeleteFileW(container.c_str()));
    EXPECT_EQ("<VVS_FileNotFound>", Read(gone));
    Close(gone);
    EXPECT_FALSE(Exists(container));
}

TEST_F(ReadingAnEncryptedFile, TellsForeignBrokenAndDamagedContainersApart) {
    // Without the right password it is listed, and can be neither read nor written.
    const std::string content = TextOf(100'000);
    MakeEncrypted(L"Docs\\a.txt", content);
    std::string configuration = DefaultConfiguration();
    configuration.replace(configuration.find("first secret"), 12, "wrong secret");
    const auto expectUnreadable = [&](bool isForeign) {
        EXPECT_EQ(Names{L"a.txt"}, List(L"Docs\\*"));
        const std::string bytes = ReadRaw(ContainerPath(L"Docs\\a.txt"));
        void* const hFile = MustOpen(L"Docs\\a.txt");
        const auto lines = LinesDuring([&] { EXPECT_EQ("<VSS_DecryptError>", Read(hFile)); });
        EXPECT_TRUE(HasLine(lines, L"ReadFile hFile->Read(fileOffset, data, requestedSize, outActualSize) =>VSS_DecryptError"));
        EXPECT_EQ(isForeign, HasLine(lines, L"Exception[Cannot recover password], srcFilePath["));
        EXPECT_EQ(VSS_DecryptError, Write(hFile, "an edit of what cannot be read"));
        EXPECT_EQ(VSS_DecryptError, SetSize(hFile, 0));
        Close(hFile);
        EXPECT_TRUE(bytes == ReadRaw(ContainerPath(L"Docs\\a.txt")));
        EXPECT_EQ(0u, TempFolders());
    };
    Configure(configuration);
    expectUnreadable(true);
    Configure(DefaultConfiguration());
    EXPECT_EQ(content, Get(L"Docs\\a.txt"));

    // One bit in the middle is noticed.
    std::string damaged = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    damaged[damaged.size() / 2] ^= 1;
    fs::remove_all(temp() + L"\\HalvaneCloud");
    Overwrite(ContainerPath(L"Docs\\a.txt"), damaged);
    expectUnreadable(false);

    // What is no container at all is a plain file under the name it has.
    Overwrite(ContainerPath(L"Docs\\a.txt"), damaged.substr(0, 50'000));
    EXPECT_EQ(Names{L"a.txt.zip"}, List(L"Docs\\*"));
    EXPECT_EQ("<VVS_FileNotFound>", Get(L"Docs\\a.txt"));
    EXPECT_EQ(damaged.substr(0, 50'000), Get(L"Docs\\a.txt.zip"));
}

// The retained copies of a renamed folder replace those of an earlier folder at the new path; waiting edits stay.
TEST_F(ReadingAnEncryptedFile, KeepsAtMost522CopiesAndEveryUnsavedEdit) {
    constexpr int limit = 522;
    REPLACE_IN_VOLUME(SHFileOperationW, [](auto operation) {  // the shell's takes most of the time of a close
        std::error_code error;
        fs::remove_all(operation->pFrom, error);
        return error.value();
    });
    const auto name = [](int number) { return L"Docs\\" + std::to_wstring(number) + L".zip"; };
    MakeFolder(L"Docs\\old");
    MakeFolder(L"Docs\\new");
    LeaveUnsavedEdit(L"Docs\\new\\waits.txt", "edit");
    for (const std::wstring folder : {L"old", L"new"})
        for (const wchar_t* file : {L"\\1.txt", L"\\2.txt", L"\\3.txt", L"\\4.txt"}) {
            MakeEncrypted(L"Docs\\" + folder + file, Narrow(folder));
            EXPECT_EQ(Narrow(folder), Get(L"Docs\\" + folder + file));
        }
    MakeEncrypted(L"Docs\\old\\waits.txt", "stored in the old one");
    EXPECT_EQ("stored in the old one", Get(L"Docs\\old\\waits.txt"));
    fs::remove_all(NativePath(L"Docs\\new"));
    EXPECT_OK(Rename(L"Docs\\old", L"Docs\\new"));
    EXPECT_EQ(5u, TempFolders()) << "four copies and the edit";
    EXPECT_EQ(1u, TrackedEdits().size());
    EXPECT_EQ(0u, CallsDuring(kReader, [&] { EXPECT_EQ("old", Get(L"Docs\\new\\1.txt")); }));

    Encrypt(NativePath(name(0)), "content", {.name = L"0"});
    for (int number = 1; number <= limit; ++number)
        ASSERT_TRUE(CopyFileW(NativePath(name(0)).c_str(), NativePath(name(number)).c_str(), TRUE));
    for (int number = 0; number < limit - 4; ++number)
        ASSERT_EQ("content", Get(name(number)));
    EXPECT_EQ(limit + 1u, TempFolders());
    EXPECT_EQ(0u, CallsDuring(kReader, [&] { EXPECT_EQ("old", Get(L"Docs\\new\\2.txt")); })) << "nothing had to leave yet";
    EXPECT_EQ(0u, CallsDuring(kReader, [&] { EXPECT_EQ("old", Get(L"Docs\\new\\3.txt")); })) << "using the oldest makes it the newest";
    EXPECT_EQ("content", Get(name(limit)));
    EXPECT_EQ(limit + 1u, TempFolders()) << "the oldest left, with its folder";
    for (const std::wstring& kept : {std::wstring(L"Docs\\new\\3.txt"), name(0)})
        EXPECT_EQ(0u, CallsDuring(kReader, [&] { EXPECT_NE("", Get(kept)); }));
    EXPECT_EQ(1u, CallsDuring(kReader, [&] { EXPECT_EQ("old", Get(L"Docs\\new\\4.txt")); })) << "it was the oldest";

    ASSERT_EQ(1u, TrackedEdits().size());
    EXPECT_EQ("stored in the old one", Get(L"Docs\\new\\waits.txt"));
    EXPECT_EQ("edit", Stored(L"Docs\\new\\" + ConflictName(L"waits.txt"))) << "its document is another one";
}
