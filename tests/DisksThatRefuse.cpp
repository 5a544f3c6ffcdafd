// Disks that are full, folders that vanish, files that others hold: what was stored stands whole, what was edited is on disk
// somewhere, and when the disk does again what it should, so does the volume.
#include "harness/HostPrograms.h"
#include "harness/Imports.h"
#include "harness/VolumeFixture.h"

#include <filesystem>
#include <optional>

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kSmallDiskBytes = 1 << 20;

// A file system of a megabyte, mounted at a folder by the host's mount command, which needs the rights for it.
class SmallDisk {
public:
    explicit SmallDisk(const std::wstring& folder) : m_folder(folder) {
        fs::create_directories(folder);
        const std::wstring hostPath = HostPath(folder);
        if (!hostPath.empty() && StartHostProgram(L"Z:\\bin\\mount -t tmpfs -o size=1m,mode=777 small \"" + hostPath + L"\""))
            Await(true);
    }
    ~SmallDisk() {
        if (IsMounted() && StartHostProgram(L"Z:\\bin\\umount -l \"" + HostPath(m_folder) + L"\""))
            Await(false);
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
        ULARGE_INTEGER free{};
        for (DWORD done = 1; GetDiskFreeSpaceExW(m_folder.c_str(), &free, nullptr, nullptr) && free.QuadPart > leftBytes && done;)
            if (!WriteFile(hFile, page.data(), static_cast<DWORD>(page.size()), &done, nullptr))
                break;
        CloseHandle(hFile);
    }
    void MakeRoom() const { DeleteFileW(Filler().c_str()); }

private:
    void Await(bool isMounted) const {
        for (int attempt = 0; attempt < 200 && IsMounted() != isMounted; ++attempt)
            Sleep(10);
    }
    std::wstring Filler() const { return m_folder + L"\\filler.tmp"; }

    std::wstring m_folder;
};

std::string Filled(const std::string& word, std::size_t size) {
    std::string content;
    while (content.size() < size)
        content += word + " " + std::to_string(content.size() * 7919) + "\n";
    return content;
}
const std::string kOld = Filled("old", 70'000);
const std::string kNew = Filled("new", 200'000);

// What the volume and its companion library do to disks: "w" is a write, "f" a flush, "m" a rename.
std::string g_done;
int g_failingWrite = 0;  // which of the next writes fails half-way, from 1; 0: none

void NoteWhatIsDone() {
    const auto replace = [](const char* name, auto* function) {
        for (const wchar_t* module : {L"QuelcryptVol64.dll", L"QuelcryptLib64.dll"})
            ReplaceImport(GetModuleHandleW(module), name, reinterpret_cast<void*>(function));
    };
    replace("WriteFile", +[](HANDLE file, LPCVOID data, DWORD size, LPDWORD done, LPOVERLAPPED place) {
        g_done += 'w';
        if (g_failingWrite == 0 || --g_failingWrite > 0)
            return WriteFile(file, data, size, done, place);
        WriteFile(file, data, size / 2, done, place);
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    });
    replace("CopyFileW", +[](LPCWSTR from, LPCWSTR to, BOOL isNew) {
        g_done += 'w';
        return CopyFileW(from, to, isNew);
    });
    replace("FlushFileBuffers", +[](HANDLE file) {
        g_done += 'f';
        return FlushFileBuffers(file);
    });
    replace("MoveFileExW", +[](LPCWSTR from, LPCWSTR to, DWORD flags) {
        g_done += 'm';
        return MoveFileExW(from, to, flags);
    });
}

}  // namespace

class DisksThatRefuse : public VolumeFixture {
protected:
    DisksThatRefuse() : VolumeFixture(LogLevel_Error) {}

    void TearDown() override {
        for (const std::wstring& file : FilesBelow(NativePath(L"Small")))
            EXPECT_TRUE(OpensUnshared(file)) << Narrow(file) << " is held";
        SetTempFolder(temp());
        m_small.reset();
        VolumeFixture::TearDown();
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
    std::wstring SmallPath(const std::wstring& name) const { return NativePath(L"Small\\data\\") + name; }
    Names SmallFiles() const { return FilesBelow(NativePath(L"Small\\data")); }
    static void SetTempFolder(const std::wstring& folder) {
        SetEnvironmentVariableW(L"TMP", folder.c_str());
        SetEnvironmentVariableW(L"TEMP", folder.c_str());
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
    std::optional<SmallDisk> m_small;
};

#define NEEDS_SMALL_DISK() \
    if (!HasSmallDisk())   \
    GTEST_SKIP() << "no small file system can be mounted here"

TEST_F(DisksThatRefuse, AFullDiskKeepsTheOldContainer) {
    NEEDS_SMALL_DISK();
    for (const std::wstring how : {L"not locked", L"locked", L"new"}) {
        SCOPED_TRACE(Narrow(how));
        const std::wstring name = how + L".txt", path = L"Small\\" + name, container = SmallPath(name + L".zip");
        if (how != L"new")
            MakeContainer(container, name, kOld);
        const std::string bytes = ReadRaw(container);
        const std::wstring token = how == L"locked" ? Lock(path) : L"";
        small().Fill(60'000);
        Put(path, kNew, token.c_str());
        EXPECT_TRUE(bytes == ReadRaw(container)) << "the container was touched";
        ExpectEditWaits();
        EXPECT_TRUE(kNew == Get(path));  // tries again, in vain
        EXPECT_TRUE(bytes == ReadRaw(container));
        ExpectEditWaits();
        small().MakeRoom();
        ExpectEditIsSavedNow(path, container);
        if (!token.empty())
            Unlock(path, token);
        EXPECT_EQ(1u, SmallFiles().size());
        DeleteFileW(container.c_str());
    }

    // A conflict copy finds no room either.
    MakeContainer(SmallPath(L"a.txt.zip"), L"a.txt", kOld);
    void* const hFile = MustOpen(L"Small\\a.txt");
    EXPECT_OK(Write(hFile, kNew));
    Touch(SmallPath(L"a.txt.zip"));
    small().Fill(60'000);
    Close(hFile);
    EXPECT_EQ(1u, SmallFiles().size()) << "no beginning of a conflict copy";
    ExpectEditWaits();
    small().MakeRoom();
    EXPECT_TRUE(kOld == Get(L"Small\\a.txt"));  // the close of which saves the edit beside it
    EXPECT_TRUE(kNew == ContainerContent(SmallPath(ConflictName(L"a.txt") + L".zip")));
}

TEST_F(DisksThatRefuse, AFullTempDiskRefusesWhatItCannotTake) {
    NEEDS_SMALL_DISK();
    MakeEncrypted(L"Docs\\a.txt", kOld);
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
    EXPECT_TRUE(content == Stored(L"Docs\\a.txt"));
    small().MakeRoom();
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));
    EXPECT_TRUE(kNew == Stored(L"Docs\\a.txt"));
    Unlock(L"Docs\\a.txt", token);
}

TEST_F(DisksThatRefuse, NothingIsMovedHalfOntoAFullDisk) {
    NEEDS_SMALL_DISK();
    for (const wchar_t* path : {L"Docs\\a.txt", L"Other\\a.txt", L"Plain\\a.txt"})
        Store(path, kNew);
    MakeFolder(L"Docs\\folder");
    for (const wchar_t* path : {L"Docs\\folder\\1.txt", L"Docs\\folder\\2.txt"})
        Store(path, kNew);
    for (const std::wstring from : {L"Docs\\a.txt", L"Other\\a.txt", L"Plain\\a.txt", L"Docs\\folder"})
        for (const bool keep : {false, true}) {
            SCOPED_TRACE(Narrow(from) + (keep ? " copied" : " moved"));
            const bool isFolder = from == L"Docs\\folder";
            const std::wstring to = isFolder ? L"Small\\folder" : L"Small\\a.txt";
            const auto act = [&] { return keep ? Copy(from, to) : Move(from, to); };
            const Snapshot before = Disk();
            small().Fill(60'000);
            const VirtualVolumeStatus status = act();
            EXPECT_TRUE(status == VVS_GeneralError || status == VSS_EncryptError) << StatusName(status);
            EXPECT_TRUE(before == Disk()) << "the source is not as it was";
            EXPECT_TRUE(SmallFiles().empty() && !Exists(SmallPath(L"folder"))) << "a part came over";
            small().MakeRoom();
            if (isFolder && !keep) {  // a folder is renamed, which no system does from disk to disk
                EXPECT_NE(VVS_Success, act());
                EXPECT_TRUE(before == Disk());
                continue;
            }
            EXPECT_OK(act());
            EXPECT_EQ(isFolder ? 2u : 1u, SmallFiles().size());
            for (const std::wstring& file : SmallFiles())
                EXPECT_TRUE(kNew == ContainerContent(file));
            if (!keep) {
                EXPECT_EQ(before.size() - 1, Disk().size());
                EXPECT_OK(Move(to, from));
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
    Unlock(L"Small\\a.txt", token);
    EXPECT_TRUE(kNew == ContainerContent(SmallPath(L"a.txt.zip")));
}

// The plain file cannot become the decrypted copy by a rename there: it is deleted all the same.
TEST_F(DisksThatRefuse, ATempFolderOnAnotherDiskKeepsNoPlainSource) {
    NEEDS_SMALL_DISK();
    SetTempFolder(NativePath(L"Small\\temp"));
    MakePlain(L"Plain\\a.txt", kNew);
    EXPECT_OK(Move(L"Plain\\a.txt", L"Docs\\b.txt"));
    EXPECT_EQ(Names{ContainerPath(L"Docs\\b.txt")}, FilesBelow(NativePath(L"Docs")));
    EXPECT_FALSE(Exists(NativePath(L"Plain\\a.txt")));
    EXPECT_TRUE(kNew == Stored(L"Docs\\b.txt"));
    EXPECT_TRUE(kNew == Get(L"Docs\\b.txt"));
}

// While it was edited its container went, or there was none yet, and a folder came.
TEST_F(DisksThatRefuse, ANameTakenByAFolderIsNotReplaced) {
    for (const std::wstring path : {L"Docs\\a.txt", L"Docs\\new.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const std::wstring container = ContainerPath(path), conflict = ContainerPath(L"Docs\\" + ConflictName(path.substr(5)));
        if (path == L"Docs\\a.txt")
            MakeEncrypted(path, kOld);
        void* const hFile = MustOpen(path, kReadWrite, OPEN_ALWAYS);
        EXPECT_OK(Write(hFile, kNew));
        DeleteFileW(container.c_str());
        fs::create_directories(container + L"\\in it");
        Close(hFile);
        EXPECT_TRUE(fs::exists(container + L"\\in it"));
        fs::remove_all(container);
        if (!Exists(conflict))
            ExpectEditIsSavedNow(path, container);
        EXPECT_TRUE(kNew == ContainerContent(Exists(conflict) ? conflict : container));
        EXPECT_EQ(0u, TrackedEdits().size());
    }
}

TEST_F(DisksThatRefuse, AFileHeldByOthersStands) {
    const std::wstring container = ContainerPath(L"Docs\\a.txt");
    MakeEncrypted(L"Docs\\a.txt", kOld);
    MakePlain(L"Plain\\p.txt", kOld);
    MakePlain(L"Plain\\q.txt", kNew);
    const Snapshot before = Disk();
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hFile, kNew));
    {
        const Held held(container), heldToo(NativePath(L"Plain\\p.txt"));
        Close(hFile);
        ExpectEditWaits();
        for (const wchar_t* to : {L"Docs\\b.txt", L"Plain\\b.txt"})
            EXPECT_NE(VVS_Success, Move(L"Docs\\a.txt", to));
        EXPECT_EQ(VVS_Locked, TryLock(L"Docs\\a.txt"));
        EXPECT_NE(VVS_Success, Move(L"Plain\\p.txt", L"Plain\\r.txt"));
        EXPECT_NE(VVS_Success, Move(L"Plain\\p.txt", L"Docs\\p.txt"));
        EXPECT_NE(VVS_Success, Copy(L"Plain\\p.txt", L"Plain\\r.txt"));
        EXPECT_NE(VVS_Success, Copy(L"Plain\\q.txt", L"Plain\\p.txt"));
        EXPECT_NE(VVS_Success, Rename(L"Docs\\a.txt", L"Plain\\p.txt"));
        ExpectEditWaits();
    }
    EXPECT_TRUE(before == Disk());
    ExpectEditIsSavedNow(L"Docs\\a.txt", container);

    // Nor is it read while it is held, or half-deleted.
    Touch(container);
    {
        const Held held(container);
        const std::string read = Get(L"Docs\\a.txt");
        EXPECT_TRUE(read.starts_with("<V") || read == kNew) << read.substr(0, 60);
        void* hDelete = nullptr;
        if (Open(&hDelete, L"Docs\\a.txt", DELETE) == VVS_Success)
            volume()->Delete(hDelete, nullptr);
        Close(hDelete);
    }
    EXPECT_TRUE(kNew == Stored(L"Docs\\a.txt"));
    EXPECT_TRUE(kNew == Get(L"Docs\\a.txt"));
}

TEST_F(DisksThatRefuse, ATempFolderThatVanishedIsMadeAgain) {
    MakeEncrypted(L"Docs\\a.txt", kOld);
    EXPECT_TRUE(kOld == Get(L"Docs\\a.txt"));
    for (const std::wstring& vanished : {temp() + L"\\HalvaneCloud", temp()}) {
        fs::remove_all(vanished);
        EXPECT_TRUE(kOld == Get(L"Docs\\a.txt")) << Narrow(vanished);
    }
    Put(L"Docs\\a.txt", kNew);
    EXPECT_TRUE(kNew == Stored(L"Docs\\a.txt"));

    // While the name of the temp folder is taken by a file, content is out of reach and stays as it is.
    fs::remove_all(temp());
    WriteRaw(temp(), "a file");
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("<VVS_GeneralError>", Read(hFile));
    EXPECT_EQ(VVS_GeneralError, Write(hFile, "edit"));
    Close(hFile);
    Unlock(L"Docs\\a.txt", Lock(L"Docs\\a.txt"));
    EXPECT_EQ(VVS_GeneralError, Move(L"Docs\\a.txt", L"Plain\\a.txt"));
    EXPECT_TRUE(kNew == Stored(L"Docs\\a.txt"));
    EXPECT_TRUE(DeleteFileW(temp().c_str()));

    // An edit under way when the temp folder is emptied under it is saved all the same: its file is open.
    void* const hEdit = MustOpen(L"Docs\\a.txt");
    EXPECT_OK(Write(hEdit, kOld));
    for (const std::wstring& file : FilesBelow(temp()))
        DeleteFileW(file.c_str());
    Close(hEdit);
    EXPECT_TRUE(kOld + kNew.substr(kOld.size()) == Stored(L"Docs\\a.txt"));
    EXPECT_TRUE(kOld + kNew.substr(kOld.size()) == Get(L"Docs\\a.txt"));
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
}

// A power failure may take what the disk has not written yet, but not what something else has given way to.
TEST_F(DisksThatRefuse, WhatTakesAPlaceIsOnTheDiskBefore) {
    MakeEncrypted(L"Docs\\a.txt", kOld);
    NoteWhatIsDone();
    std::wstring token;
    const std::function<void()> actions[] = {
        [&] { Put(L"Docs\\a.txt", kNew); },
        [&] { EXPECT_OK(Copy(L"Docs\\a.txt", L"Plain\\b.txt")); },
        [&] { EXPECT_OK(Copy(L"Plain\\b.txt", L"Plain\\c.txt")); },
        [&] { token = Lock(L"Docs\\a.txt"), Put(L"Docs\\a.txt", kOld); },  // the last write is that into the locked file
    };
    for (const auto& action : actions) {
        g_done.clear();
        action();
        const std::size_t placed = token.empty() ? g_done.rfind('m') : g_done.size();
        ASSERT_NE(g_done.npos, g_done.find('m')) << g_done;
        EXPECT_EQ('f', g_done[g_done.find_last_of("wf", placed)]) << g_done;
    }
    Unlock(L"Docs\\a.txt", token);
}

// Whichever write is the one that fails, also in the middle of what was there.
TEST_F(DisksThatRefuse, ALockedFileTakesTheNewContentOrKeepsTheOldOne) {
    NoteWhatIsDone();
    for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"})
        for (const std::string& old : {kOld, kNew + kNew}) {
            SCOPED_TRACE(Narrow(from) + " into " + std::to_string(old.size()));
            Store(from, kNew);
            const std::wstring token = Lock(L"Plain\\b.txt");
            int writes = 0;
            do {
                Put(L"Plain\\b.txt", old);
                g_failingWrite = ++writes;
                if (Copy(from, L"Plain\\b.txt", token.c_str()) != VVS_Success)
                    EXPECT_TRUE(old == Stored(L"Plain\\b.txt")) << "after write " << writes;
            } while (g_failingWrite == 0);
            g_failingWrite = 0;
            EXPECT_LT(7, writes) << "none was reached in the file itself";
            Unlock(L"Plain\\b.txt", token);
            EXPECT_TRUE(kNew == Stored(L"Plain\\b.txt"));
        }
}

TEST_F(DisksThatRefuse, WhatFailedHalfWayIsNobodysContent) {
    MakeEncrypted(L"Docs\\a.txt", kOld);
    NoteWhatIsDone();
    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_TRUE(kOld == Read(hFile));
    g_failingWrite = 1;
    EXPECT_EQ(VVS_GeneralError, Write(hFile, kNew));
    Close(hFile);
    EXPECT_TRUE(kOld == Get(L"Docs\\a.txt"));
    EXPECT_TRUE(kOld == Stored(L"Docs\\a.txt"));
}
