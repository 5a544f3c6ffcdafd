// Disks that are full, folders that vanish, files that others hold: what was stored stands whole, what was edited is on disk
// somewhere, and when the disk does again what it should, so does the volume.
#include "harness/ConflictsAndBackups.h"
#include "harness/HostPrograms.h"
#include "harness/MovingFixture.h"

#include <memory>
#include <optional>

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kSmallDiskBytes = 1 << 20;

std::uint64_t FreeBytes(const std::wstring& folder) {
    ULARGE_INTEGER bytes{};
    return GetDiskFreeSpaceExW(folder.c_str(), &bytes, nullptr, nullptr) ? bytes.QuadPart : 0;
}

// A file system of a megabyte, mounted at a folder by the host's mount command, which needs the rights for it.
class SmallDisk {
public:
    explicit SmallDisk(const std::wstring& folder) : m_folder(folder) {
        fs::create_directories(folder);
        const std::wstring hostPath = HostPath(folder);
        if (hostPath.empty() || !StartHostProgram(L"Z:\\bin\\mount -t tmpfs -o size=1m,mode=777 small \"" + hostPath + L"\""))
            return;
        for (int attempt = 0; attempt < 200 && !IsMounted(); ++attempt)
            Sleep(10);
    }
    ~SmallDisk() {
        if (!IsMounted())
            return;
        StartHostProgram(L"Z:\\bin\\umount -l \"" + HostPath(m_folder) + L"\"");
        for (int attempt = 0; attempt < 200 && IsMounted(); ++attempt)
            Sleep(10);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool IsMounted() const {
        ULARGE_INTEGER size{};
        return GetDiskFreeSpaceExW(m_folder.c_str(), nullptr, &size, nullptr) && size.QuadPart <= kSmallDiskBytes;
    }
    // Leaves no more than so many bytes.
    void Fill(std::uint64_t leftBytes) const {
        const HANDLE hFile = CreateFileW(Filler().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        const std::string page(4096, 'x');
        DWORD done = 1;
        while (FreeBytes(m_folder) > leftBytes &&
               WriteFile(hFile, page.data(), static_cast<DWORD>(page.size()), &done, nullptr)) {
        }
        CloseHandle(hFile);
    }
    void MakeRoom() const { DeleteFileW(Filler().c_str()); }

private:
    std::wstring Filler() const { return m_folder + L"\\filler.tmp"; }

    std::wstring m_folder;
};

// As long as it lives nobody else can open the file.
class Held {
public:
    explicit Held(const std::wstring& path)
        : m_handle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)) {
        EXPECT_NE(INVALID_HANDLE_VALUE, m_handle);
    }
    ~Held() { CloseHandle(m_handle); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

private:
    HANDLE m_handle;
};

std::string Filled(const std::string& word, std::size_t size) {
    std::string content;
    while (content.size() < size)
        content += word + " " + std::to_string(content.size() * 7919) + "\n";
    return content;
}
const std::string kOld = Filled("old", 70'000);
const std::string kNew = Filled("new", 200'000);

}  // namespace

class DisksThatRefuse : public Moving {
protected:
    void SetUp() override {
        Moving::SetUp();
        m_user = std::make_unique<PromptedUser>();
    }
    void TearDown() override {
        m_user.reset();
        if (m_small) {
            EXPECT_TRUE(FilesBelow(NativePath(L"Small")).size() < 10) << "side files were left";
            for (const std::wstring& file : FilesBelow(NativePath(L"Small")))
                EXPECT_TRUE(OpensUnshared(file)) << Narrow(file) << " is held";
        }
        SetTempFolder(temp());
        m_small.reset();
        Moving::TearDown();
    }

    // Adds the mount folder "Small" (policy, key K1, owner O1), on a small disk; false when there is none.
    bool HasSmallDisk() {
        m_small.emplace(NativePath(L"Small"));
        if (!m_small->IsMounted()) {
            m_small.reset();
            return false;
        }
        fs::create_directories(NativePath(L"Small\\data"));
        fs::create_directories(NativePath(L"Small\\temp"));
        std::string configuration = DefaultConfiguration();
        configuration.insert(
            configuration.find("    {\"name\": \"Docs\""),
            R"({"name": "Small", "path": "Small\\data", "type": "general", "owner": "O1", "policy": "encrypt", "targetKey": "K1"},
)");
        Configure(configuration);
        return true;
    }
    const SmallDisk& small() const { return *m_small; }
    std::wstring SmallPath(const wchar_t* name) const { return NativePath(L"Small\\data\\") + name; }
    static void SetTempFolder(const std::wstring& folder) {
        SetEnvironmentVariableW(L"TMP", folder.c_str());
        SetEnvironmentVariableW(L"TEMP", folder.c_str());
    }

    // Writes kNew into a file and closes it, by which it may be saved or not.
    void Edit(const std::wstring& path, const std::wstring& token = {}) {
        void* const hFile = MustOpen(path, kReadWrite, OPEN_EXISTING, token.c_str());
        EXPECT_OK(Write(hFile, kNew));
        Close(hFile);
    }
    void ExpectEditWaits(const std::string& edit = kNew) {
        ASSERT_EQ(1u, TrackedEdits().size());
        EXPECT_TRUE(edit == ReadRaw(TrackedEdits()[0]));
    }
    // Closing what was opened to be read saves what waited.
    void ExpectEditIsSavedNow(const std::wstring& path, const std::wstring& container) {
        EXPECT_TRUE(kNew == Get(path)) << "who opens it sees the edit";
        EXPECT_TRUE(kNew == ContainerContent(container));
        EXPECT_EQ(0u, TrackedEdits().size());
    }

private:
    std::unique_ptr<PromptedUser> m_user;  // cancels
    std::optional<SmallDisk> m_small;
};

#define NEEDS_SMALL_DISK() \
    if (!HasSmallDisk())   \
    GTEST_SKIP() << "no small file system can be mounted here"

TEST_F(DisksThatRefuse, AFullDiskKeepsTheOldContainer) {
    NEEDS_SMALL_DISK();
    for (const bool isLocked : {false, true}) {
        SCOPED_TRACE(isLocked ? "locked" : "not locked");
        MakeContainer(SmallPath(L"a.txt.zip"), L"a.txt", kOld);
        const std::string bytes = ReadRaw(SmallPath(L"a.txt.zip"));
        const std::wstring token = isLocked ? Lock(L"Small\\a.txt") : L"";
        small().Fill(60'000);
        Edit(L"Small\\a.txt", token);
        EXPECT_TRUE(bytes == ReadRaw(SmallPath(L"a.txt.zip"))) << "the container was touched";
        ExpectEditWaits();
        EXPECT_TRUE(kNew == Get(L"Small\\a.txt"));  // tries again, in vain
        EXPECT_TRUE(bytes == ReadRaw(SmallPath(L"a.txt.zip")));
        ExpectEditWaits();
        small().MakeRoom();
        ExpectEditIsSavedNow(L"Small\\a.txt", SmallPath(L"a.txt.zip"));
        if (isLocked) {
            EXPECT_OK(volume()->Unlock(L"Small\\a.txt", token.c_str()));
        }
        EXPECT_EQ(1u, FilesBelow(NativePath(L"Small\\data")).size());
    }

    // A new file and a conflict copy find no room either.
    small().Fill(60'000);
    void* hFile = MustOpen(L"Small\\new.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Write(hFile, kNew));
    Close(hFile);
    EXPECT_EQ(1u, FilesBelow(NativePath(L"Small\\data")).size());
    ExpectEditWaits();
    small().MakeRoom();
    ExpectEditIsSavedNow(L"Small\\new.txt", SmallPath(L"new.txt.zip"));

    hFile = MustOpen(L"Small\\a.txt");
    EXPECT_OK(Write(hFile, kOld));
    Touch(SmallPath(L"a.txt.zip"));
    small().Fill(60'000);
    Close(hFile);
    const std::string edit = kOld + kNew.substr(kOld.size());
    EXPECT_TRUE(kNew == ContainerContent(SmallPath(L"a.txt.zip")));
    EXPECT_EQ(2u, FilesBelow(NativePath(L"Small\\data")).size()) << "no beginning of a conflict copy";
    ExpectEditWaits(edit);
    small().MakeRoom();
    EXPECT_TRUE(kNew == Get(L"Small\\a.txt"));  // the close of which saves the edit beside it
    EXPECT_TRUE(edit == ContainerContent(SmallPath((ConflictName(L"a.txt") + L".zip").c_str())));
}

TEST_F(DisksThatRefuse, AFullTempDiskRefusesWhatItCannotTake) {
    NEEDS_SMALL_DISK();
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", kOld);
    const std::string bytes = ReadRaw(ContainerPath(L"Docs\\a.txt"));
    SetTempFolder(NativePath(L"Small\\temp"));
    small().Fill(30'000);
    void* hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("<VVS_GeneralError>", Read(hFile)) << "no half of it";
    EXPECT_EQ(VVS_GeneralError, Write(hFile, "edit"));
    Close(hFile);
    EXPECT_TRUE(bytes == ReadRaw(ContainerPath(L"Docs\\a.txt")));
    EXPECT_TRUE(FilesBelow(NativePath(L"Small\\temp")).empty()) << "half a copy stays";

    // Room for the copy, not for the edit: what was refused is not taken for the content.
    small().MakeRoom();
    small().Fill(150'000);
    hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_TRUE(kOld == Read(hFile));
    std::uint32_t done = 0;
    const VirtualVolumeStatus status =
        volume()->WriteFile(hFile, kOld.size(), kNew.data(), static_cast<std::uint32_t>(kNew.size()), &done, nullptr);
    EXPECT_TRUE(status != VVS_Success || done < kNew.size()) << "the disk is not so large";
    Close(hFile);
    small().MakeRoom();
    const std::string content = Get(L"Docs\\a.txt");
    EXPECT_TRUE(content == kOld || (status == VVS_Success && content == kOld + kNew.substr(0, done)));

    // A save under a lock builds the container in the temp folder.
    const std::wstring token = Lock(L"Docs\\a.txt");
    hFile = MustOpen(L"Docs\\a.txt", kReadWrite, OPEN_EXISTING, token.c_str());
    EXPECT_OK(Write(hFile, kNew));
    small().Fill(60'000);
    Close(hFile);
    EXPECT_TRUE(content == ContainerContent(ContainerPath(L"Docs\\a.txt")));
    small().MakeRoom();
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));
    EXPECT_TRUE(kNew == ContainerContent(ContainerPath(L"Docs\\a.txt")));
    EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", token.c_str()));
}

TEST_F(DisksThatRefuse, NothingIsMovedHalfOntoAFullDisk) {
    NEEDS_SMALL_DISK();
    struct {
        const wchar_t* from;
        bool isFolder;
    } const rows[] = {{L"Docs\\a.txt", false}, {L"Other\\a.txt", false}, {L"Plain\\a.txt", false}, {L"Docs\\folder", true}};
    MakeEncrypted(L"Docs\\a.txt", kNew);
    MakeEncrypted(L"Other\\a.txt", kNew);
    MakePlain(L"Plain\\a.txt", kNew);
    MakeFolder(L"Docs\\folder");
    for (const wchar_t* name : {L"1.txt", L"2.txt"})
        MakeEncrypted(std::wstring(L"Docs\\folder\\") + name, kNew);
    const auto files = [&] { return FilesBelow(NativePath(L"Small\\data")); };
    for (const auto& row : rows)
        for (const bool keep : {false, true}) {
            SCOPED_TRACE(Narrow(row.from) + (keep ? " copied" : " moved"));
            small().Fill(60'000);
            const Snapshot before = Disk();
            const std::wstring to = row.isFolder ? L"Small\\folder" : L"Small\\a.txt";
            const VirtualVolumeStatus status = keep ? Copy(row.from, to) : Move(row.from, to);
            EXPECT_TRUE(status == VVS_GeneralError || status == VSS_EncryptError) << StatusName(status);
            EXPECT_TRUE(before == Disk()) << "the source is not as it was";
            EXPECT_TRUE(files().empty() && !Exists(SmallPath(L"folder"))) << "a part came over";
            small().MakeRoom();
            const VirtualVolumeStatus again = keep ? Copy(row.from, to) : Move(row.from, to);
            if (row.isFolder && !keep) {  // a folder is renamed, which no system does from disk to disk
                EXPECT_NE(VVS_Success, again);
                EXPECT_TRUE(before == Disk());
                continue;
            }
            EXPECT_OK(again);
            EXPECT_EQ(row.isFolder ? 2u : 1u, files().size());
            for (const std::wstring& file : files())
                EXPECT_TRUE(kNew == ContainerContent(file));
            if (!keep) {
                EXPECT_EQ(before.size() - 1, Disk().size());
                EXPECT_OK(Move(to, row.from));
            }
            fs::remove_all(SmallPath(L"folder"));
            DeleteFileW(SmallPath(L"a.txt.zip").c_str());
        }
    // Into a file under a lock, which takes all of it or stays.
    MakeContainer(SmallPath(L"a.txt.zip"), L"a.txt", kOld);
    const std::string bytes = ReadRaw(SmallPath(L"a.txt.zip"));
    const std::wstring token = Lock(L"Small\\a.txt");
    small().Fill(60'000);
    EXPECT_NE(VVS_Success, Move(L"Docs\\a.txt", L"Small\\a.txt", token.c_str()));
    EXPECT_TRUE(bytes == ReadRaw(SmallPath(L"a.txt.zip")));
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));
    small().MakeRoom();
    EXPECT_OK(Move(L"Docs\\a.txt", L"Small\\a.txt", token.c_str()));
    EXPECT_OK(volume()->Unlock(L"Small\\a.txt", token.c_str()));
    EXPECT_TRUE(kNew == ContainerContent(SmallPath(L"a.txt.zip")));
}

TEST_F(DisksThatRefuse, ANameTakenByAFolderIsNotReplaced) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    // Its container went and a folder came, while it was edited.
    MakeContainer(container, L"a.txt", kOld);
    void* hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, kNew));
    EXPECT_TRUE(DeleteFileW(container.c_str()));
    fs::create_directories(container + L"\\in it");
    Close(hFile);
    EXPECT_TRUE(fs::exists(container + L"\\in it"));
    const std::wstring conflict = ContainerPath(L"Docs\\" + ConflictName(L"a.txt"));
    if (Exists(conflict)) {
        EXPECT_TRUE(kNew == ContainerContent(conflict));
        EXPECT_EQ(0u, TrackedEdits().size());
        fs::remove_all(container);
    } else {
        ExpectEditWaits();
        fs::remove_all(container);
        ExpectEditIsSavedNow(L"Docs\\a.txt", container);
    }

    // So did one of the name that a new file was given.
    hFile = MustOpen(L"Docs\\b.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Write(hFile, kNew));
    fs::create_directories(ContainerPath(L"Docs\\b.txt"));
    Close(hFile);
    EXPECT_TRUE(fs::is_directory(ContainerPath(L"Docs\\b.txt")));
    if (!Exists(ContainerPath(L"Docs\\" + ConflictName(L"b.txt")))) {
        ExpectEditWaits();
        fs::remove_all(ContainerPath(L"Docs\\b.txt"));
        ExpectEditIsSavedNow(L"Docs\\b.txt", ContainerPath(L"Docs\\b.txt"));
    }
}

TEST_F(DisksThatRefuse, AFileHeldByOthersStands) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", kOld);
    const std::string bytes = ReadRaw(container);
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, kNew));
    {
        const Held held(container);
        Close(hFile);
        ExpectEditWaits();
        for (const wchar_t* to : {L"Docs\\b.txt", L"Plain\\b.txt"}) {
            EXPECT_NE(VVS_Success, Move(L"Docs\\a.txt", to));
            EXPECT_FALSE(Exists(NativePath(to)) || Exists(ContainerPath(to))) << Narrow(to);
        }
        ExpectEditWaits();
        LockInfo lockInfo = NewLock();
        EXPECT_EQ(VVS_Locked, volume()->Lock(L"Docs\\a.txt", &lockInfo));
    }
    EXPECT_TRUE(bytes == ReadRaw(container));
    ExpectEditIsSavedNow(L"Docs\\a.txt", container);

    // Nor is it read while it is held, or half-deleted.
    Touch(container);
    {
        const Held held(container);
        const std::string read = Get(L"Docs\\a.txt");
        EXPECT_TRUE(read.starts_with("<V") || read == kNew) << read.substr(0, 60);
        void* hDelete = nullptr;
        if (Open(&hDelete, L"Docs\\a.txt", DELETE) == VVS_Success) {
            volume()->Delete(hDelete, nullptr);
            Close(hDelete);
        }
    }
    EXPECT_TRUE(kNew == ContainerContent(container));
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));

    // Plain ones neither, nor the target that a move would replace.
    MakePlain(L"Plain\\p.txt", kOld);
    MakePlain(L"Plain\\q.txt", kNew);
    {
        const Held held(NativePath(L"Plain\\p.txt"));
        EXPECT_NE(VVS_Success, Move(L"Plain\\p.txt", L"Docs\\p.txt"));
        EXPECT_NE(VVS_Success, Copy(L"Plain\\p.txt", L"Plain\\r.txt"));
        EXPECT_NE(VVS_Success, Copy(L"Plain\\q.txt", L"Plain\\p.txt"));
        EXPECT_NE(VVS_Success, Rename(L"Docs\\a.txt", L"Plain\\p.txt"));
    }
    EXPECT_TRUE(kOld == Get(L"Plain\\p.txt"));
    EXPECT_TRUE(kNew == Get(L"Plain\\q.txt"));
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));
    EXPECT_EQ(1u, FilesBelow(NativePath(L"Docs")).size());
    EXPECT_EQ(2u, FilesBelow(NativePath(L"Plain")).size());
}

TEST_F(DisksThatRefuse, ATempFolderThatVanishedIsMadeAgain) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeContainer(container, L"a.txt", kOld);
    EXPECT_TRUE(kOld == Get(L"Docs\\a.txt"));
    fs::remove_all(temp() + L"\\HalvaneCloud");
    EXPECT_TRUE(kOld == Get(L"Docs\\a.txt")) << "with the copy that was kept";
    fs::remove_all(temp());
    EXPECT_TRUE(kOld == Get(L"Docs\\a.txt")) << "with the whole temp folder";
    Edit(L"Docs\\a.txt");
    EXPECT_TRUE(kNew == ContainerContent(container));

    // While the name of the temp folder is taken by a file, content is out of reach and stays as it is.
    fs::remove_all(temp());
    WriteRaw(temp(), "a file");
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("<VVS_GeneralError>", Read(hFile));
    EXPECT_EQ(VVS_GeneralError, Write(hFile, "edit"));
    Close(hFile);
    const std::wstring token = Lock(L"Docs\\a.txt");
    EXPECT_OK(volume()->Unlock(L"Docs\\a.txt", token.c_str()));
    EXPECT_EQ(VVS_GeneralError, Move(L"Docs\\a.txt", L"Plain\\a.txt"));
    EXPECT_TRUE(kNew == ContainerContent(container));
    EXPECT_TRUE(DeleteFileW(temp().c_str()));
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));

    // An edit under way when the temp folder is emptied under it is saved all the same: its file is open.
    void* const hEdit = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hEdit, kOld));
    for (const std::wstring& file : FilesBelow(temp()))
        DeleteFileW(file.c_str());
    Close(hEdit);
    const std::string expected = kOld + kNew.substr(kOld.size());
    EXPECT_TRUE(expected == ContainerContent(container));
    EXPECT_TRUE(expected == Get(L"Docs\\a.txt"));
}

TEST_F(DisksThatRefuse, AFolderRemovedUnderAnEditMakesItWait) {
    MakeFolder(L"Docs\\sub");
    MakeEncrypted(L"Docs\\sub\\a.txt", kOld);
    void* const hFile = MustOpen(L"Docs\\sub\\a.txt");
    EXPECT_OK(Write(hFile, kNew));
    fs::remove_all(NativePath(L"Docs\\sub"));
    Close(hFile);
    EXPECT_FALSE(Exists(NativePath(L"Docs\\sub"))) << "nobody asked for it";
    ExpectEditWaits();
    EXPECT_TRUE(kNew == Get(L"Docs\\sub\\a.txt")) << "who opens it sees the edit";
    ExpectEditWaits();
    MakeFolder(L"Docs\\sub");
    ExpectEditIsSavedNow(L"Docs\\sub\\a.txt", ContainerPath(L"Docs\\sub\\a.txt"));

    // The destination of a move goes while the source is open.
    void* const hMoved = MustOpen(L"Docs\\sub\\a.txt");
    MakeFolder(L"Other\\sub");
    fs::remove_all(NativePath(L"Other\\sub"));
    EXPECT_EQ(VVS_PathNotFound, volume()->RenameFile(hMoved, nullptr, L"Other\\sub\\a.txt", nullptr));
    EXPECT_TRUE(kNew == Read(hMoved));
    Close(hMoved);
    EXPECT_TRUE(kNew == ContainerContent(ContainerPath(L"Docs\\sub\\a.txt")));
}
