// Full disks, vanished folders, ended processes: what was stored stays complete, edits are on disk somewhere, and the volume goes on.
#include "harness/VolumeFixture.h"

namespace {

const std::string kOld = TextOf(70'000, "old ");
const std::string kNew = TextOf(100'000, "new ");

// The calls of the volume and its companion library that change a disk: "w" is a write, "f" a flush, "m" a rename, "c" any other. A full
// disk refuses one of them; when the process ends, it and all later ones are not made. In both cases half of a write is done.
enum class Ending { DiskFull, ProcessEnds };
std::string g_done;
std::size_t g_failing = 0;  // the call that fails, from 1; 0: none
Ending g_ending = Ending::DiskFull;

bool Refuses(char what) {
    g_done += what;
    const bool refuses = g_failing != 0 && (g_ending == Ending::DiskFull ? g_done.size() == g_failing : g_done.size() >= g_failing);
    if (refuses)
        SetLastError(ERROR_DISK_FULL);
    return refuses;
}

#define MAY_REFUSE(what, function) REPLACE(module, function, [](auto... all) -> BOOL { return !Refuses(what) && function(all...); })

void NoteWhatIsDone() {
    for (const HMODULE module : {GetModuleHandleW(L"QuelcryptVol64.dll"), GetModuleHandleW(L"QuelcryptLib64.dll")}) {
        MAY_REFUSE('w', CopyFileW);
        MAY_REFUSE('f', FlushFileBuffers);
        MAY_REFUSE('m', MoveFileExW);
        MAY_REFUSE('c', SetEndOfFile);
        MAY_REFUSE('c', DeleteFileW);
        MAY_REFUSE('c', CreateDirectoryW);
        MAY_REFUSE('c', SetFileInformationByHandle);
        REPLACE(module, WriteFile, [](auto file, auto data, auto size, auto... rest) -> BOOL {
            if (!Refuses('w'))
                return WriteFile(file, data, size, rest...);
            if (g_done.size() == g_failing)
                WriteFile(file, data, size / 2, rest...);
            SetLastError(ERROR_DISK_FULL);
            return FALSE;
        });
        REPLACE(module, CreateFileW, [](auto path, auto access, auto share, auto security, auto how, auto... rest) {
            const bool changes = how != OPEN_EXISTING && (access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA)) != 0;
            return changes && Refuses('c') ? INVALID_HANDLE_VALUE : CreateFileW(path, access, share, security, how, rest...);
        });
        REPLACE(module, Sleep, [](auto ms) { g_failing == 0 || g_ending == Ending::DiskFull ? Sleep(ms) : void(); });
    }
}

}  // namespace

class DisksThatRefuse : public VolumeFixture {
protected:
    DisksThatRefuse() : VolumeFixture(LogLevel_Error) {}

    // The complete contents in the folders and in temp files with tracking files. Not empty files, which may only reserve a name, nor
    // unfinished side files.
    struct Found {
        bool hasOld = false, hasNew = false, hasHalf = false;
    };
    Found Look() {
        Found found;
        const auto see = [&](const std::string& content) {
            found.hasOld |= content == kOld;
            found.hasNew |= content == kNew;
            return content == kOld || content == kNew || content.empty();
        };
        for (const auto& [file, bytes] : Disk())
            if (file.find(L"\\~") == file.npos && file.find(L".HalvaneCloud") == file.npos && !bytes.empty())
                found.hasHalf |= !see(file.ends_with(L".zip") ? ContainerContent(file) : bytes);
        for (const std::wstring& edit : TrackedEdits())
            see(edit.ends_with(L".zip") ? ContainerContent(edit) : ReadRaw(edit));
        return found;
    }
    // On a document of kOld, and with "second" another one of kNew.
    struct Operation {
        const char* what;
        std::wstring folder;
        bool isLocked, hasSecond, takesNew;
        std::function<bool(const std::wstring& path, const std::wstring& name)> act;  // is it done?
    };
    std::size_t FailInTheMidst(const Operation& operation, const std::wstring& name, Ending ending, std::size_t failing);
};

// How many calls it makes to a disk.
std::size_t DisksThatRefuse::FailInTheMidst(const Operation& operation, const std::wstring& name, Ending ending, std::size_t failing) {
    const std::wstring path = operation.folder + name, second = L"Docs\\second" + name;
    Store(path, kOld);
    if (operation.hasSecond)
        Store(second, kNew);
    const std::wstring token = operation.isLocked ? Lock(path) : L"";
    g_done.clear();
    g_ending = ending;
    g_failing = failing;
    const bool isDone = operation.act(path, name);
    const std::string done = std::exchange(g_done, "");
    g_failing = 0;
    SCOPED_TRACE(std::string(operation.what) + ": of " + done + " call " + std::to_string(failing) +
                 (ending == Ending::DiskFull ? " fails" : " is not made any more"));
    const Found found = Look();
    EXPECT_TRUE(found.hasOld || (operation.takesNew && found.hasNew)) << "what was there is lost";
    EXPECT_TRUE(found.hasNew || !(operation.takesNew && isDone)) << "what was written is lost";
    // A locked file is overwritten in place: the source of the copy is complete, and stays for "quelvol recover".
    const Names waiting = TrackedEdits();
    const bool isForRecovery =
        ending == Ending::ProcessEnds || std::ranges::any_of(waiting, [](const std::wstring& file) { return file.ends_with(L".zip"); });
    EXPECT_FALSE(found.hasHalf && !(operation.isLocked && isForRecovery)) << "half a content";
    Unlock(path, token);
    // A power failure may destroy what was not flushed, but what replaced something else must have been flushed before.
    if (const std::size_t placed = operation.isLocked ? done.size() : done.rfind('m'); failing == 0 && placed != done.npos)
        EXPECT_EQ('f', done[done.find_last_of("wf", placed)]) << done;
    if (isForRecovery) {
        fs::remove_all(temp() + L"\\HalvaneCloud");
    } else if (!waiting.empty()) {
        EXPECT_TRUE(kNew == Get(operation.what == std::string_view("save a new one") ? second : path)) << "its edit waits";
    } else if (!isDone) {
        EXPECT_TRUE(kOld == Get(path)) << "what was refused is not the content";
        EXPECT_TRUE(operation.act(path, name)) << "now that the disk does what it should";
    }
    EXPECT_EQ(0u, TrackedEdits().size());
    EmptyFolders();
    return done.size();
}

// Runs each operation, and again for each call that it makes to a disk.
TEST_F(DisksThatRefuse, LoseNothingWhicheverCallFails) {
    using Text = const std::wstring&;
    const auto reads = [&](Text path, Text) { return Get(path) == kOld; };
    const auto saves = [&](std::uint32_t how) { return [=, this](Text path, Text) { return Takes(path, kNew, how); }; };
    const auto makes = [&](Text, Text name) { return Takes(L"Docs\\second" + name, kNew, CREATE_NEW); };
    const auto moves = [&](Text to) { return [=, this](Text path, Text name) { return Move(path, to + name) == VVS_Success; }; };
    const auto copies = [&](Text to) { return [=, this](Text path, Text name) { return Copy(path, to + name) == VVS_Success; }; };
    const auto takes = [&](Text path, Text name) { return Copy(L"Docs\\second" + name, path) == VVS_Success; };
    const Operation operations[] = {
        {"read", L"Docs\\", false, false, false, reads},
        {"save", L"Docs\\", false, false, true, saves(OPEN_EXISTING)},
        {"save anew", L"Docs\\", false, false, true, saves(CREATE_ALWAYS)},
        {"save a new one", L"Docs\\", false, false, true, makes},
        {"save under a lock", L"Docs\\", true, false, true, saves(OPEN_EXISTING)},
        {"rename", L"Docs\\", false, false, false, moves(L"Docs\\second")},
        {"copy", L"Docs\\", false, false, false, copies(L"Docs\\second")},
        {"copy a plain file", L"Plain\\", false, false, false, copies(L"Plain\\second")},
        {"move to another key", L"Docs\\", false, false, false, moves(L"Other\\")},
        {"decrypt", L"Docs\\", false, false, false, moves(L"Plain\\")},
        {"encrypt", L"Plain\\", false, false, false, moves(L"Docs\\")},
        {"copy into a locked document", L"Docs\\", true, true, true, takes},
        {"copy into a locked plain file", L"Plain\\", true, true, true, takes},
    };
    NoteWhatIsDone();
    int number = 0;
    for (const Operation& operation : operations)
        for (const Ending ending : {Ending::DiskFull, Ending::ProcessEnds})
            for (std::size_t failing = 0, calls = 0; failing <= calls; ++failing)
                calls = FailInTheMidst(operation, std::to_wstring(++number) + L".txt", ending, failing);
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

    // An edit is saved even if the temp folder is emptied meanwhile, because its temp file is open.
    void* const hEdit = OpenEdited(L"Docs\\a.txt", kOld);
    for (const std::wstring& file : FilesBelow(temp()))
        DeleteFileW(file.c_str());
    Close(hEdit);
    EXPECT_TRUE(kOld + kNew.substr(kOld.size()) == Stored(L"Docs\\a.txt"));
    EXPECT_TRUE(kOld + kNew.substr(kOld.size()) == Get(L"Docs\\a.txt"));
}

TEST_F(DisksThatRefuse, AFolderRemovedUnderAnEditMakesItWait) {
    MakeFolder(L"Docs\\sub");
    MakeEncrypted(L"Docs\\sub\\a.txt", kOld);
    void* const hFile = OpenEdited(L"Docs\\sub\\a.txt", kNew);
    fs::remove_all(NativePath(L"Docs\\sub"));
    Close(hFile);
    EXPECT_FALSE(Exists(NativePath(L"Docs\\sub"))) << "nobody asked for it";
    EXPECT_TRUE(kNew == Get(L"Docs\\sub\\a.txt")) << "who opens it sees the edit";
    EXPECT_EQ(1u, TrackedEdits().size());
    MakeFolder(L"Docs\\sub");
    EXPECT_TRUE(kNew == Get(L"Docs\\sub\\a.txt"));
    EXPECT_TRUE(kNew == Stored(L"Docs\\sub\\a.txt")) << "closing what was opened to be read saves what waited";
    EXPECT_EQ(0u, TrackedEdits().size());
}
