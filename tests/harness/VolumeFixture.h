// What every test over the built module stands on: a temp folder and a configuration of its own, the volume as a host gets
// it, and plain words for what hosts do. Each test runs as a process of its own, so the module's tables begin empty.
#pragma once

// What the tests are written with, besides what the headers of the harness bring.
#include <ostream>
#include <set>
#include <thread>
#include <tuple>

#include "companion/Control.h"
#include "harness/Containers.h"
#include "harness/Files.h"
#include "harness/Imports.h"
#include "harness/WindowsRules.h"
#include "quelcrypt/IVirtualVolume.h"
#include "quelcrypt/QuelcryptLib.h"

using Status = VirtualVolumeStatus;
// Statuses print by name.
const char* StatusName(Status status);
void PrintTo(Status status, std::ostream* out);

// So many bytes in which every place is recognisable, the first in each line.
std::string TextOf(std::size_t bytes, const std::string& first = "");

// "a.txt" -> "a (HalvaneCloud conflicted edit 2024-05-01).txt", with " (2)" for number 2. what: "conflicted", "backup".
std::wstring ConflictName(const std::wstring& name, int number = 1, const wchar_t* what = L"conflicted");

#define EXPECT_OK(expression) EXPECT_EQ(VVS_Success, (expression))
#define ASSERT_OK(expression) ASSERT_EQ(VVS_Success, (expression))
// Of several calls, which are made in their order.
#define EXPECT_EACH(expected, ...)            \
    for (const Status status : {__VA_ARGS__}) \
    EXPECT_EQ(expected, status)

// Until the module is loaded again, it calls this in place of the platform's function.
#define REPLACE_IN_VOLUME(function, ...) EXPECT_TRUE(REPLACE(GetModuleHandleW(L"QuelcryptVol64.dll"), function, __VA_ARGS__)) << #function

namespace fs = std::filesystem;
using Names = std::vector<std::wstring>;
using Snapshot = std::map<std::wstring, std::string>;  // files and their bytes

// Mount folders: "Docs" (policy, key K1, owner O1), "Other" (policy, key K2, owner O1), "Theirs" (policy, key K1, owner O2),
// "Plain" (no policy). Names like *.tmp are excluded from encryption. The user cancels prompts (harness/Prompts.h).
class VolumeFixture : public ::testing::Test {
protected:
    static constexpr std::uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE | DELETE;
    static constexpr std::uint64_t kHere = 0xFFFFFFFF;  // the handle's own position

    // What the trace is asked to tell: everything costs more than all else.
    explicit VolumeFixture(std::uint32_t logLevel = LogLevel_Trace) { Companion().level = logLevel; }
    void SetUp() override;
    // No live companion object, every real file can be opened unshared, no temp folder that nobody owns: a retained copy
    // stands alone, an unsaved edit beside its tracking file, and of those there are as many as the test expects.
    void TearDown() override;

    IVirtualVolume* volume() const { return m_volume; }
    IVirtualVolume* NewVolume() const {
        const auto factory =
            reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(GetProcAddress(m_module, "Quelcrypt_VolumeFactory")));
        return factory ? factory() : nullptr;
    }
    void LoadVolume();
    // The module with all its tables; volume() is null until it is loaded again.
    void UnloadVolume() {
        m_volume->Release();
        m_volume = nullptr;
        windows_rules::Release();
        EXPECT_TRUE(FreeLibrary(m_module));
    }

    // Paths: root() holds the mount folders and temp(); "Docs\\a.txt" -> its native path, whether it exists or not.
    const std::wstring& root() const { return m_root; }
    std::wstring temp() const { return m_root + L"\\temp"; }
    std::wstring NativePath(const std::wstring& path) const { return m_root + L"\\" + path; }
    std::wstring ContainerPath(const std::wstring& path) const { return NativePath(path) + L".zip"; }
    void Configure(const std::string& json) const { WriteRaw(m_root + L"\\quelcrypt.json", json); }
    static const char* DefaultConfiguration();

    // As a host does it. Put creates or replaces, Get reads all; failures fail the test and Get then answers "<status>".
    void Put(const std::wstring& path, std::string_view content) {
        EXPECT_TRUE(Takes(path, content, Find(path) ? OPEN_EXISTING : CREATE_NEW)) << Narrow(path);
    }
    std::string Get(const std::wstring& path) {
        void* hFile = nullptr;
        const Status status = Open(&hFile, path, GENERIC_READ);
        const std::string content = status == VVS_Success ? Read(hFile) : std::string("<") + StatusName(status) + ">";
        Close(hFile);
        return content;
    }
    Status Open(void** hFile, const std::wstring& path, std::uint32_t access = kReadWrite, std::uint32_t how = OPEN_EXISTING,
                const wchar_t* token = nullptr) {
        return volume()->OpenFile(hFile, path.c_str(), access, kShareAll, how, token, nullptr);
    }
    // Only tries; what it opened is closed.
    Status TryOpen(const std::wstring& path, auto... how) {
        void* hFile = nullptr;
        const Status status = Open(&hFile, path, how...);
        EXPECT_EQ(status == VVS_Success, hFile != nullptr);
        Close(hFile);
        return status;
    }
    void* MustOpen(const std::wstring& path, auto... how) {
        void* hFile = nullptr;
        EXPECT_OK(Open(&hFile, path, how...)) << Narrow(path);
        return hFile;
    }
    void* OpenEdited(const std::wstring& path, std::string_view content, std::uint32_t how = OPEN_EXISTING) {
        void* const hFile = MustOpen(path, kReadWrite, how);
        EXPECT_OK(Write(hFile, content));
        return hFile;
    }
    // Whether the volume took the content; a close tells nobody what becomes of it.
    bool Takes(const std::wstring& path, std::string_view content, std::uint32_t how = OPEN_EXISTING);
    Status Write(void* hFile, std::string_view content, std::uint64_t offset = 0) {
        std::uint32_t written = 0;
        const Status status = volume()->WriteFile(hFile, offset, content.data(), std::uint32_t(content.size()), &written, nullptr);
        EXPECT_TRUE(status != VVS_Success || written == content.size());
        return status;
    }
    std::string Read(void* hFile, std::uint64_t offset = 0, std::uint32_t size = 1 << 20) {
        std::string content(size, '\0');
        std::uint32_t done = 0;
        const Status status = volume()->ReadFile(hFile, offset, content.data(), size, &done, nullptr);
        content.resize(done);
        return status == VVS_Success ? content : std::string("<") + StatusName(status) + ">";
    }
    Status SetSize(void* hFile, std::uint64_t size) { return volume()->SetFileSize(hFile, size, nullptr); }
    void Close(void* hFile) { volume()->CloseFile(hFile, nullptr); }
    Status Delete(const std::wstring& path) {
        void* hFile = nullptr;
        const Status opened = Open(&hFile, path, DELETE), status = opened == VVS_Success ? volume()->Delete(hFile, nullptr) : opened;
        Close(hFile);
        return status;
    }
    Status Move(const std::wstring& from, const std::wstring& to, const wchar_t* token = nullptr) {
        return volume()->MoveFileW(from.c_str(), to.c_str(), token);
    }
    Status Copy(const std::wstring& from, const std::wstring& to, const wchar_t* token = nullptr) {
        return volume()->CopyFileW(from.c_str(), to.c_str(), token);
    }
    Status Rename(void* hFile, const std::wstring& to, const wchar_t* token = nullptr) {
        return volume()->RenameFile(hFile, nullptr, to.c_str(), token);
    }
    Status Rename(const std::wstring& from, const std::wstring& to) {
        void* hFile = nullptr;
        const Status opened = Open(&hFile, from), status = opened == VVS_Success ? Rename(hFile, to) : opened;
        Close(hFile);
        return status;
    }
    Names List(const std::wstring& spec);  // the names that a search shows, sorted
    bool Find(const std::wstring& path, VirtFindData&& found = {}) { return volume()->FindFile(path.c_str(), &found); }
    VirtFindData Record(const std::wstring& path) {
        VirtFindData findData{};
        EXPECT_TRUE(volume()->FindFile(path.c_str(), &findData)) << Narrow(path);
        return findData;
    }
    VirtFindData InfoOf(void* hFile) {
        VirtFindData findData{};
        EXPECT_TRUE(volume()->GetFileInfo(hFile, &findData));
        return findData;
    }
    static LockInfo NewLock(LockScope scope = LockScope_Exclusive) {
        LockInfo lockInfo{};
        lockInfo.timeout = 3600;
        lockInfo.scope = scope;
        wcscpy(lockInfo.owner, L"a tester");
        return lockInfo;
    }
    Status TryLock(const std::wstring& path, LockInfo&& lockInfo = NewLock()) { return volume()->Lock(path.c_str(), &lockInfo); }
    // Takes a lock, which must succeed, and returns its token. The teardown releases what is held then.
    std::wstring Lock(const std::wstring& path, LockScope scope = LockScope_Exclusive) {
        LockInfo lockInfo = NewLock(scope);
        EXPECT_OK(volume()->Lock(path.c_str(), &lockInfo)) << Narrow(path);
        m_locks[lockInfo.token] = path;
        return lockInfo.token;
    }
    // Nothing without a token.
    void Unlock(const std::wstring& path, const std::wstring& token) {
        m_locks.erase(token);
        EXPECT_TRUE(token.empty() || volume()->Unlock(path.c_str(), token.c_str()) == VVS_Success) << Narrow(path);
    }

    // Behind the volume's back, on disk.
    void MakeFolder(const std::wstring& path) const { fs::create_directories(NativePath(path)); }
    void MakePlain(const std::wstring& path, std::string_view content) const { WriteRaw(NativePath(path), content); }
    // Made where there is a key and then put in place, which may be a folder without one.
    void MakeEncrypted(const std::wstring& path, std::string_view content, const std::wstring& place = {}) {
        const std::wstring making = NativePath(L"Docs\\making.zip");
        Encrypt(making, content, {.name = fs::path(path).filename().wstring()});
        fs::rename(making, place.empty() ? ContainerPath(path) : place);
    }
    // In the form in which a folder stores a file: plain in "Plain", encrypted elsewhere.
    static bool IsPlain(const std::wstring& path) { return path.starts_with(L"Plain"); }
    std::wstring StoredPath(const std::wstring& path) const { return IsPlain(path) ? NativePath(path) : ContainerPath(path); }
    std::string Stored(const std::wstring& path) {
        return IsPlain(path) ? ReadRaw(NativePath(path)) : ContainerContent(ContainerPath(path));
    }
    void Store(const std::wstring& path, std::string_view content) {
        IsPlain(path) ? MakePlain(path, content) : MakeEncrypted(path, content);
    }
    // Makes ready what another machine saves: another version, with another time. The sync client puts it in place, in one step, when the
    // result is called.
    std::function<void()> SaverElsewhere(const std::wstring& path, std::string_view content);
    // "<none>" when there is no container, "<unreadable>" when the companion cannot read it.
    std::string ContainerContent(const std::wstring& nativeContainerPath) {
        try {
            return Exists(nativeContainerPath) ? Decrypt(nativeContainerPath) : "<none>";
        } catch (const CQuelcryptException&) {
            return "<unreadable>";
        }
    }
    static bool Exists(const std::wstring& nativePath) { return GetFileAttributesW(nativePath.c_str()) != INVALID_FILE_ATTRIBUTES; }
    static Names FilesHolding(const std::wstring& nativeFolder, std::string_view text) {
        Names files = FilesBelow(nativeFolder);
        std::erase_if(files, [&](const std::wstring& file) { return ReadRaw(file).find(text) == std::string::npos; });
        return files;
    }
    static Names FilesBelow(const std::wstring& nativeFolder);
    // Of all mount folders.
    Snapshot Disk() const {
        Snapshot snapshot;
        for (const wchar_t* mount : {L"Docs", L"Other", L"Theirs", L"Plain"})
            for (const std::wstring& file : FilesBelow(NativePath(mount)))
                snapshot[file] = ReadRaw(file);
        return snapshot;
    }
    void EmptyFolders() const {
        for (const auto& [file, bytes] : Disk())
            fs::remove(file);
    }
    // Until the module is loaded again, it does not pause before it tries again what others make fail; scanners are done by then.
    static void TryAgainAtOnce() {
        REPLACE_IN_VOLUME(Sleep, [](DWORD) { windows_rules::Release(); });
    }
    // Moves a file's write time, so that it differs from what it was.
    static void Touch(const std::wstring& nativePath) {
        const Held file(nativePath, kShareAll, FILE_WRITE_ATTRIBUTES | FILE_READ_ATTRIBUTES);
        FILETIME time{};
        GetFileTime(file.handle, nullptr, nullptr, &time);
        time.dwLowDateTime += 70'000'000;  // seven seconds on
        EXPECT_TRUE(SetFileTime(file.handle, nullptr, nullptr, &time)) << Narrow(nativePath);
    }

    // Temp files of items: edits with a tracking file, and beside them retained copies, each in a folder.
    Names TrackedEdits() const {
        Names edits = FilesBelow(temp() + L"\\HalvaneCloud");
        std::erase_if(edits, [](const std::wstring& file) { return !Exists(file + L".hvf"); });
        return edits;
    }
    std::size_t TempFolders() const {
        std::error_code error;
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(temp() + L"\\HalvaneCloud", error), {}));
    }
    std::size_t m_expectedUnsaved = 0;
    // An edit whose save failed waits for a document; one with "base" is made when it is missing.
    void LeaveUnsavedEdit(const std::wstring& path, std::string_view edit) {
        if (!Exists(ContainerPath(path)))
            MakeEncrypted(path, "base");
        Failing("Quelcrypt_FileWriterFactory", Fault::Error, [&] { Put(path, edit); });
    }

    // The companion library's side. Null: all calls but the logger's.
    static std::uint32_t CallsDuring(const char* name, const std::function<void()>& action) {
        const std::uint32_t before = Companion().Calls(name);
        action();
        return Companion().Calls(name) - before;
    }
    static std::vector<LogLine> LinesDuring(const std::function<void()>& action) {
        Companion().lines.clear();
        action();
        return Companion().lines;
    }
    static bool HasLine(const std::vector<LogLine>& lines, std::wstring_view part) {
        return std::ranges::any_of(lines, [&](const LogLine& line) { return line.text.find(part) != std::wstring::npos; });
    }
    // Every call of the name fails during action, which must make one.
    static void Failing(const char* call, Fault fault, const std::function<void()>& action) {
        Companion().FailNth(call, 1, fault, true);
        action();
        EXPECT_TRUE(Companion().wasHit) << call;
        Companion().FailNth();
    }
    // Whatever calls the name during action, which something must, is preceded by act.
    static void Before(const char* call, std::function<void()> act, const std::function<void()>& action) {
        Companion().SetHook(call, std::move(act));
        EXPECT_LT(0u, CallsDuring(call, action)) << call;
        Companion().SetHook();
    }

private:
    std::wstring m_root;
    HMODULE m_module = nullptr;
    IVirtualVolume* m_volume = nullptr;
    std::map<std::wstring, std::wstring> m_locks;  // the paths of tokens
};
