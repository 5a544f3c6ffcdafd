// What a host reads from an encrypted file, and how often the file is decrypted for that.
#include "harness/VolumeFixture.h"

#include <filesystem>
#include <optional>

namespace {

constexpr const char* kReader = "Quelcrypt_FileReaderFactory";

// Text in which every place is recognisable.
std::string Numbers(std::size_t size) {
    std::string text;
    for (int number = 0; text.size() < size; ++number)
        text += std::to_string(number) + ' ';
    text.resize(size);
    return text;
}

}  // namespace

class ReadingAnEncryptedFile : public VolumeFixture {
protected:
    std::uint32_t ReaderCallsDuring(const std::function<void()>& action) { return CallsDuring(kReader, action); }
    std::size_t TempFolders() const {
        std::error_code error;
        std::filesystem::directory_iterator folders(temp() + L"\\HalvaneCloud", error);
        return error ? 0 : static_cast<std::size_t>(std::distance(folders, {}));
    }
    // In place, as some sync clients write.
    static void Overwrite(const std::wstring& path, const std::string& bytes) {
        WriteRaw(path, bytes);
        Touch(path);
    }
};

TEST_F(ReadingAnEncryptedFile, DecryptsOnceAtTheFirstAccessToTheContent) {
    const std::string content = Numbers(100'000);
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", content);
    void* hFile = nullptr;
    VirtFindData record{};
    EXPECT_EQ(0u, ReaderCallsDuring([&] {
                  hFile = MustOpen(L"Docs\\a.txt");
                  EXPECT_TRUE(volume()->GetFileInfo(hFile, &record));
              }))
        << "opening is not an access to the content";
    EXPECT_EQ(100'000, record.fileSize);
    EXPECT_EQ(0u, TempFolders());
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_EQ(content.substr(50'000, 10), Read(hFile, 50'000, 10)); }));
    EXPECT_EQ(0u, ReaderCallsDuring([&] {
                  EXPECT_EQ(content, Read(hFile));
                  EXPECT_OK(volume()->SetFileSize(hFile, 99'999, nullptr));
                  EXPECT_EQ(content.substr(0, 99'999), Read(hFile));
              }));
    EXPECT_EQ(1u, TempFolders());
    Close(hFile);

    // What is written into the middle stands in the old content, and what is cut off is cut off it.
    MakeContainer(ContainerPath(L"Docs\\written.txt"), L"written.txt", "0123456789");
    hFile = MustOpen(L"Docs\\written.txt");
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_OK(Write(hFile, "abc", 3)); }));
    EXPECT_EQ("012abc6789", Read(hFile));
    Close(hFile);
    MakeContainer(ContainerPath(L"Docs\\cut.txt"), L"cut.txt", "0123456789");
    hFile = MustOpen(L"Docs\\cut.txt");
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_OK(volume()->SetFileSize(hFile, 4, nullptr)); }));
    EXPECT_EQ("0123", Read(hFile));
    Close(hFile);
    EXPECT_EQ("012abc6789", ContainerContent(ContainerPath(L"Docs\\written.txt")));
    EXPECT_EQ("0123", ContainerContent(ContainerPath(L"Docs\\cut.txt")));
}

// One body for both kinds of file, the plain one being the measure.
TEST_F(ReadingAnEncryptedFile, ReadsAtEveryPositionAsAPlainFileDoes) {
    const std::string content = Numbers(70'000);
    WriteRaw(NativePath(L"Plain\\a.txt"), content);
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", content);
    for (const wchar_t* path : {L"Plain\\a.txt", L"Docs\\a.txt"}) {
        SCOPED_TRACE(Narrow(path));
        void* const hFile = MustOpen(path, GENERIC_READ);
        constexpr std::uint64_t current = 0xFFFFFFFF;
        EXPECT_EQ(content.substr(0, 10), Read(hFile, current, 10));
        EXPECT_EQ(content.substr(10, 40'000), Read(hFile, current, 40'000));
        EXPECT_EQ(content.substr(69'990), Read(hFile, 69'990, 100)) << "as much as there is";
        EXPECT_EQ("", Read(hFile, 70'000, 100)) << "at the end";
        EXPECT_EQ("", Read(hFile, 1ull << 40, 100)) << "far behind it";
        EXPECT_EQ("", Read(hFile, 0x1FFFFFFFF, 100)) << "a place, not the current one";
        EXPECT_EQ("", Read(hFile, 0, 0));
        std::uint32_t count = 99;
        EXPECT_EQ(VVS_InvalidParameter, volume()->ReadFile(hFile, 0, nullptr, 10, &count, nullptr));
        EXPECT_EQ(0u, count);
        EXPECT_OK(volume()->ReadFile(hFile, 0, &count, 1, nullptr, nullptr)) << "the count may be left out";
        Close(hFile);
        EXPECT_EQ(VVS_InvalidParameter, volume()->ReadFile(hFile, 0, &count, 1, nullptr, nullptr)) << "a closed handle is none";
    }
}

TEST_F(ReadingAnEncryptedFile, ReusesTheCopyOfAClosedFile) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "content");
    MakeContainer(ContainerPath(L"Other\\a.txt"), L"a.txt", "another");
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
    const std::vector<std::wstring> copies = RetainedCopies();
    ASSERT_EQ(1u, copies.size());
    EXPECT_TRUE(copies[0].ends_with(L"\\a.txt")) << "applications show this name";
    EXPECT_EQ(0u, ReaderCallsDuring([&] {
                  EXPECT_EQ("content", Get(L"Docs\\a.txt"));
                  EXPECT_EQ("content", Get(L"DOCS\\A.TXT"));
                  EXPECT_EQ("content", Get(L"Docs\\a.txt.zip"));
              }));
    EXPECT_EQ(copies, RetainedCopies());

    // A file of the same name in another folder has a folder of its own.
    EXPECT_EQ("another", Get(L"Other\\a.txt"));
    EXPECT_EQ(2u, RetainedCopies().size());
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));

    // What was saved is kept as well.
    Put(L"Docs\\a.txt", "changed");
    EXPECT_EQ(0u, ReaderCallsDuring([&] { EXPECT_EQ("changed", Get(L"Docs\\a.txt")); }));
    EXPECT_EQ(2u, RetainedCopies().size());

    // A copy that vanished is made anew.
    for (const std::wstring& copy : RetainedCopies())
        EXPECT_TRUE(DeleteFileW(copy.c_str()));
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_EQ("changed", Get(L"Docs\\a.txt")); }));
    EXPECT_EQ("another", Get(L"Other\\a.txt"));
}

TEST_F(ReadingAnEncryptedFile, GivesEachOpenerACopyOfItsOwn) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "content");
    EXPECT_EQ("content", Get(L"Docs\\a.txt"));
    void* const first = MustOpen(L"Docs\\a.txt");
    void* const second = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ(0u, ReaderCallsDuring([&] { EXPECT_EQ("content", Read(first)); })) << "the kept copy goes to the first";
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_EQ("content", Read(second)); })) << "and to nobody else";
    EXPECT_EQ(2u, TempFolders());
    EXPECT_OK(Write(first, "FIRST"));
    EXPECT_EQ("content", Read(second));
    EXPECT_EQ("FIRSTnt", Read(first));
    Close(second);
    EXPECT_EQ("FIRSTnt", Read(first));
    Close(first);
    EXPECT_EQ("FIRSTnt", Get(L"Docs\\a.txt"));
    EXPECT_EQ(1u, TempFolders()) << "one copy is kept";
}

TEST_F(ReadingAnEncryptedFile, DecryptsAgainWhenTheContainerIsAnother) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", "first");
    EXPECT_EQ("first", Get(L"Docs\\a.txt"));
    const std::vector<std::wstring> copies = RetainedCopies();
    MakeContainer(container, L"a.txt", "longer than before");
    EXPECT_EQ("longer than before", Get(L"Docs\\a.txt")) << "another size";
    MakeContainer(container, L"a.txt", "as long as before.");
    Touch(container);
    EXPECT_EQ("as long as before.", Get(L"Docs\\a.txt")) << "another time";
    EXPECT_EQ(1u, TempFolders()) << "outdated copies are deleted";
    EXPECT_NE(copies, RetainedCopies());

    // Exchanged between the opening and the first access.
    void* const hFile = MustOpen(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", "newer");
    Touch(container);
    EXPECT_EQ("newer", Read(hFile));
    Close(hFile);
    EXPECT_EQ("newer", Get(L"Docs\\a.txt"));
}

TEST_F(ReadingAnEncryptedFile, DecryptsAgainWhenTheContainerChangesMeanwhile) {
    struct Exchange {
        std::wstring path;
        std::vector<std::string> versions;  // taken from the back; with none left nothing changes any more
        static void Hook(void* context) {
            auto& exchange = *static_cast<Exchange*>(context);
            if (exchange.versions.empty())
                return;
            Overwrite(exchange.path, exchange.versions.back());
            exchange.versions.pop_back();
        }
    };
    const auto containerBytes = [&](const std::string& content) {
        const std::wstring made = NativePath(L"Docs\\made.zip");
        MakeContainer(made, L"a.txt", content);
        const std::string bytes = ReadRaw(made);
        EXPECT_TRUE(DeleteFileW(made.c_str()));
        return bytes;
    };
    const std::string newer = Numbers(300'000);
    const std::string newerBytes = containerBytes(newer);
    struct {
        const char* call;
        const char* when;
    } const moments[] = {{kReader, "before the first byte is read"}, {"IFileReader::Advance", "before a block is read"}};
    int row = 0;
    for (const auto& moment : moments) {
        SCOPED_TRACE(moment.when);
        const std::wstring name = L"a" + std::to_wstring(row++) + L".txt";
        Exchange exchange{ContainerPath(L"Docs\\" + name), {newerBytes}};
        MakeContainer(exchange.path, name, "old content");
        void* const hFile = MustOpen(L"Docs\\" + name);
        TestCompanion_SetHook(moment.call, &Exchange::Hook, &exchange);
        EXPECT_EQ(2u, ReaderCallsDuring([&] { EXPECT_EQ(newer, Read(hFile)); }));
        TestCompanion_SetHook(nullptr, nullptr, nullptr);
        EXPECT_OK(Write(hFile, "edit"));
        Close(hFile);
        EXPECT_EQ("edit" + newer.substr(4), ContainerContent(exchange.path)) << "what was read is what the edit is based on";
    }
    EXPECT_EQ(2u, List(L"Docs\\*").size()) << "so there is no conflict";

    // One that never comes to rest cannot be read; nothing is left behind, and it can be read when it does.
    Exchange restless{ContainerPath(L"Docs\\restless.txt"), std::vector<std::string>(100, newerBytes)};
    for (std::size_t index = 0; index < restless.versions.size(); index += 2)
        restless.versions[index] += ' ';
    MakeContainer(restless.path, L"restless.txt", "old content");
    void* const hFile = MustOpen(L"Docs\\restless.txt");
    const std::size_t folders = TempFolders();
    TestCompanion_SetHook(kReader, &Exchange::Hook, &restless);
    EXPECT_EQ("<VSS_SharingViolation>", Read(hFile));
    EXPECT_EQ(folders, TempFolders());
    TestCompanion_SetHook(nullptr, nullptr, nullptr);
    Overwrite(restless.path, newerBytes);
    EXPECT_EQ(newer, Read(hFile));
    Close(hFile);

    // One that is deleted meanwhile is not found.
    MakeContainer(ContainerPath(L"Docs\\gone.txt"), L"gone.txt", "content");
    void* const gone = MustOpen(L"Docs\\gone.txt");
    EXPECT_TRUE(DeleteFileW(ContainerPath(L"Docs\\gone.txt").c_str()));
    EXPECT_EQ("<VVS_FileNotFound>", Read(gone));
    Close(gone);
    EXPECT_FALSE(Exists(ContainerPath(L"Docs\\gone.txt"))) << "closing what was only read writes nothing";
}

TEST_F(ReadingAnEncryptedFile, SaysWhyItCannotBeDecryptedAndLeavesNothingBehind) {
    struct {
        const char* call;
        Fault fault;
        std::uint32_t nth;
    } const rows[] = {
        {kReader, Fault::Null, 1},
        {kReader, Fault::Raise, 1},
        {kReader, Fault::Error, 1},
        {kReader, Fault::WrongPassword, 1},
        {kReader, Fault::OutOfMemory, 1},
        {"IFileReader::Advance", Fault::Raise, 1},
        {"IFileReader::Advance", Fault::Error, 2},
        {"IFileReader::Advance", Fault::WrongPassword, 1},
        {"IFileReader::Advance", Fault::OutOfMemory, 2},
        {"IFileReader::GetData", Fault::NoData, 1},
        {"IFileReader::GetData", Fault::NoData, 2},
        {"IFileReader::GetData", Fault::Error, 2},
        {"IFileReader::GetDataLength", Fault::Raise, 1},
    };
    const std::string content = Numbers(600'000);
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", content);
    const std::string container = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.call) + " fails in way " + std::to_string(static_cast<int>(row.fault)));
        Touch(ContainerPath(L"Docs\\a.txt"));  // no kept copy fits any more
        void* const hFile = MustOpen(L"Docs\\a.txt");
        TestCompanion_FailNth(row.call, row.nth, row.fault, false);
        char buffer[10];
        std::uint32_t count = 99;
        const auto lines = LinesDuring([&] { EXPECT_EQ(VSS_DecryptError, volume()->ReadFile(hFile, 0, buffer, 10, &count, nullptr)); });
        EXPECT_TRUE(TestCompanion_FaultWasHit());
        EXPECT_EQ(0u, count);
        EXPECT_TRUE(HasLine(lines, L"hFile->Read(fileOffset, data, requestedSize, outActualSize) =>VSS_DecryptError"));
        EXPECT_EQ(row.fault == Fault::WrongPassword, HasLine(lines, L"Exception[Cannot recover password]"));
        EXPECT_EQ(0, TestCompanion_LiveObjects());
        EXPECT_EQ(0u, TempFolders());
        EXPECT_EQ(content, Read(hFile)) << "the same handle may try again";
        Close(hFile);
        EXPECT_EQ(container, ReadRaw(ContainerPath(L"Docs\\a.txt")));
    }
}

TEST_F(ReadingAnEncryptedFile, TellsForeignBrokenAndDamagedContainersApart) {
    const std::string content = Numbers(100'000);

    // Without the right password it is listed, and cannot be read.
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", content);
    std::string configuration = DefaultConfiguration();
    configuration.replace(configuration.find("first secret"), 12, "wrong secret");
    Configure(configuration);
    EXPECT_EQ(std::vector<std::wstring>{L"a.txt"}, List(L"Docs\\*"));
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_TRUE(HasLine(LinesDuring([&] { EXPECT_EQ("<VSS_DecryptError>", Read(hFile)); }), L"Exception[Cannot recover password], srcFilePath["));
    EXPECT_EQ(0u, TempFolders());
    EXPECT_EQ(VSS_DecryptError, Write(hFile, "an edit of what cannot be read"));
    Close(hFile);
    Configure(DefaultConfiguration());
    EXPECT_EQ(content, Get(L"Docs\\a.txt"));

    // One bit in the middle is noticed.
    std::string damaged = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    damaged[damaged.size() / 2] ^= 1;
    Overwrite(ContainerPath(L"Docs\\a.txt"), damaged);
    EXPECT_EQ(std::vector<std::wstring>{L"a.txt"}, List(L"Docs\\*"));
    void* const hDamaged = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("<VSS_DecryptError>", Read(hDamaged));
    EXPECT_EQ(VSS_DecryptError, volume()->SetFileSize(hDamaged, 0, nullptr));
    Close(hDamaged);
    EXPECT_EQ(damaged, ReadRaw(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ(0u, TempFolders());

    // What is no container at all is a plain file under the name it has.
    Overwrite(ContainerPath(L"Docs\\a.txt"), damaged.substr(0, 50'000));
    EXPECT_EQ(std::vector<std::wstring>{L"a.txt.zip"}, List(L"Docs\\*"));
    EXPECT_EQ("<VVS_FileNotFound>", Get(L"Docs\\a.txt"));
    EXPECT_EQ(damaged.substr(0, 50'000), Get(L"Docs\\a.txt.zip"));
}

TEST_F(ReadingAnEncryptedFile, KeepsAtMost522Copies) {
    constexpr int limit = 522;
    MakeContainer(NativePath(L"Docs\\0.zip"), L"0", "content");
    const auto name = [](int number) { return std::to_wstring(number) + L".zip"; };
    for (int number = 1; number <= limit; ++number)
        ASSERT_TRUE(CopyFileW(NativePath(L"Docs\\0.zip").c_str(), NativePath(L"Docs\\" + name(number)).c_str(), TRUE));
    TestCompanion_SetLevel(0);
    for (int number = 0; number < limit; ++number)
        ASSERT_EQ("content", Get(L"Docs\\" + name(number)));
    EXPECT_EQ(static_cast<std::size_t>(limit), TempFolders());
    TestCompanion_SetLevel(4);
    Sleep(3100);  // the volume asks for the level again after three seconds
    // Using the oldest makes it the newest.
    EXPECT_EQ(0u, ReaderCallsDuring([&] { EXPECT_EQ("content", Get(L"Docs\\0.zip")); }));
    EXPECT_TRUE(HasLine(LinesDuring([&] { EXPECT_EQ("content", Get(L"Docs\\" + name(limit))); }),
                        L"Maximum entry count is reached. Oldest entry will be removed"));
    EXPECT_EQ(static_cast<std::size_t>(limit), TempFolders()) << "the oldest left, with its folder";
    EXPECT_EQ(0u, ReaderCallsDuring([&] { EXPECT_EQ("content", Get(L"Docs\\0.zip")); }));
    EXPECT_EQ(0u, ReaderCallsDuring([&] { EXPECT_EQ("content", Get(L"Docs\\2.zip")); }));
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_EQ("content", Get(L"Docs\\1.zip")); })) << "it was the oldest";
}

TEST_F(ReadingAnEncryptedFile, ReadsALockedContainerThroughItsLock) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    const std::string content = Numbers(100'000);
    MakeContainer(container, L"a.txt", content);
    const std::string bytes = ReadRaw(container);
    const std::wstring token = Lock(L"Docs\\a.txt");
    EXPECT_FALSE(OpensUnshared(container));
    EXPECT_EQ(1u, ReaderCallsDuring([&] { EXPECT_EQ(content, Get(L"Docs\\a.txt")); }));
    EXPECT_EQ(1u, TempFolders()) << "the copy of the container went";
    EXPECT_EQ(0u, ReaderCallsDuring([&] {
                  void* const hFile = MustOpen(L"Docs\\a.txt", GENERIC_READ, OPEN_EXISTING, token.c_str());
                  EXPECT_EQ(content, Read(hFile));
                  Close(hFile);
              }));
    void* hFile = nullptr;
    EXPECT_EQ(VVS_Locked, Open(&hFile, L"Docs\\a.txt", kReadWrite, OPEN_EXISTING, L"{no token of this lock}"));
    EXPECT_EQ(nullptr, hFile);

    // A failure leaves nothing behind either.
    EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", token.c_str()));
    Touch(container);
    const std::wstring second = Lock(L"Docs\\a.txt");
    TestCompanion_FailNth("IFileReader::Advance", 1, Fault::Error, false);
    EXPECT_EQ("<VSS_DecryptError>", Get(L"Docs\\a.txt"));
    EXPECT_EQ(0u, TempFolders());
    EXPECT_EQ(content, Get(L"Docs\\a.txt"));
    EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", second.c_str()));
    EXPECT_EQ(bytes, ReadRaw(container));

    // A lock on a missing name makes an empty container, which reads as an empty file while the lock lasts.
    const std::wstring third = Lock(L"Docs\\new.txt");
    EXPECT_TRUE(Exists(ContainerPath(L"Docs\\new.txt")));
    EXPECT_EQ(0u, ReaderCallsDuring([&] { EXPECT_EQ("", Get(L"Docs\\new.txt")); }));
    EXPECT_OK(volume()->Unlock(L"Docs\\new.txt", third.c_str()));
    EXPECT_EQ("<VVS_FileNotFound>", Get(L"Docs\\new.txt"));
}
