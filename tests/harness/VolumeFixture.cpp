#include "harness/VolumeFixture.h"

#include <fstream>
#include <iterator>

#include "harness/Imports.h"
#include "harness/Prompts.h"
#include "harness/WindowsRules.h"

const char* StatusName(VirtualVolumeStatus status) {
    static const char* const names[] = {
        "VVS_Success",      "VVS_PathNotFound",       "VVS_PathAlreadyExists", "VVS_MountFolderNotFound", "VVS_QuelcryptException",
        "VVS_Locked",       "VVS_LockScopeViolation", "VVS_LockTokenNotFound", "VVS_FileNotLocked",       "VVS_Unauthorized",
        "VVS_BadRequest",   "VVS_PreConditionFailed", "VVS_FileNotFound",      "VVS_AccessDenied",        "VVS_InvalidParameter",
        "VSS_FileExists",   "VSS_LockViolation",      "VSS_SharingViolation",  "VSS_OutMemory",           "VSS_NotImplemented",
        "VSS_DecryptError", "VSS_EncryptError",       "VVS_GeneralError"};
    return static_cast<std::size_t>(status) < std::size(names) ? names[status] : "?";
}

void PrintTo(VirtualVolumeStatus status, std::ostream* out) { *out << StatusName(status); }

std::string TextOf(std::size_t bytes, const std::string& first) {
    std::string text;
    while (text.size() < bytes)
        text += first + std::to_string(text.size() * 7919) + "\n";
    return text.substr(0, bytes);
}

std::wstring ConflictName(const std::wstring& name, int number, const wchar_t* what) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    wchar_t suffix[80];
    swprintf(suffix, std::size(suffix), L" (HalvaneCloud %ls edit %04d-%02d-%02d)", what, now.wYear, now.wMonth, now.wDay);
    const std::size_t dot = std::min(name.rfind(L'.'), name.size());
    return name.substr(0, dot) + suffix + (number > 1 ? L" (" + std::to_wstring(number) + L")" : L"") + name.substr(dot);
}

const char* VolumeFixture::DefaultConfiguration() {
    return R"({
  "folders": [
    {"name": "Docs", "path": "Docs", "type": "dropbox", "owner": "O1", "policy": "encrypt", "targetKey": "K1"},
    {"name": "Other", "path": "Other", "type": "general", "owner": "O1", "policy": "encrypt", "targetKey": "K2"},
    {"name": "Theirs", "path": "Theirs", "type": "general", "owner": "O2", "policy": "encrypt", "targetKey": "K1"},
    {"name": "Plain", "path": "Plain", "type": "general"}
  ],
  "passwords": {"K1": "first secret", "K2": "second secret"},
  "exclude": ["*.tmp", "~$*"]
})";
}

void VolumeFixture::SetUp() {
    // Asked once: each test then sets a temp folder of its own.
    static const std::wstring tempPath = fs::temp_directory_path().wstring();
    m_root = tempPath + L"quelcrypt-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount());
    for (const wchar_t* folder : {L"temp", L"Docs", L"Other", L"Theirs", L"Plain"})
        fs::create_directories(m_root + L"\\" + folder);
    SetEnvironmentVariableW(L"TMP", temp().c_str());
    SetEnvironmentVariableW(L"TEMP", temp().c_str());
    SetEnvironmentVariableW(L"QUELCRYPT_CONFIG", (m_root + L"\\quelcrypt.json").c_str());
    Configure(DefaultConfiguration());
    LoadVolume();
}

void VolumeFixture::LoadVolume() {
    m_module = LoadLibraryW(L"QuelcryptVol64.dll");
    ASSERT_NE(nullptr, m_module);
    ASSERT_TRUE(prompts::TakeOver(m_module));
    windows_rules::TakeOver();
    prompts::g_count = 0;
    prompts::Pick({});
    m_volume = NewVolume();
    ASSERT_NE(nullptr, m_volume);
}

void VolumeFixture::UnloadVolume() {
    m_volume->Release();
    m_volume = nullptr;
    windows_rules::Release();
    EXPECT_TRUE(FreeLibrary(m_module));
}

IVirtualVolume* VolumeFixture::NewVolume() const {
    const auto factory =
        reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(GetProcAddress(m_module, "Quelcrypt_VolumeFactory")));
    return factory ? factory() : nullptr;
}

void VolumeFixture::TearDown() {
    Companion().FailNth();
    Companion().SetHook();
    for (const auto& [token, path] : m_locks)
        m_volume->Unlock(path.c_str(), token.c_str());
    if (m_volume)
        UnloadVolume();
    EXPECT_EQ(0, Companion().liveObjects.load());
    for (const std::wstring& file : FilesBelow(m_root))
        EXPECT_TRUE(Held(file)) << Narrow(file) << " is held";
    for (const wchar_t* folder : {L"Docs", L"Other", L"Theirs", L"Plain"})
        for (const auto& entry : fs::recursive_directory_iterator(m_root + L"\\" + folder))
            EXPECT_NE(L".HalvaneCloud", entry.path().filename().wstring()) << "a writer's side folder was left behind";
    EXPECT_EQ(m_expectedUnsaved, TrackedEdits().size());
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(temp() + L"\\HalvaneCloud", error))
        EXPECT_FALSE(entry.is_directory() && fs::is_empty(entry)) << Narrow(entry.path().wstring()) << " is owned by nobody";
    for (const std::wstring& file : FilesBelow(m_root))
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
    fs::remove_all(m_root, error);
}

VirtualVolumeStatus VolumeFixture::Open(void** hFile, const std::wstring& volumePath, std::uint32_t access, std::uint32_t disposition,
                                        const wchar_t* lockToken) {
    return volume()->OpenFile(hFile, volumePath.c_str(), access, kShareAll, disposition, lockToken, nullptr);
}

VirtualVolumeStatus VolumeFixture::TryOpen(const std::wstring& volumePath, std::uint32_t access, std::uint32_t disposition,
                                           const wchar_t* lockToken) {
    void* hFile = nullptr;
    const VirtualVolumeStatus status = Open(&hFile, volumePath, access, disposition, lockToken);
    EXPECT_EQ(status == VVS_Success, hFile != nullptr);
    Close(hFile);
    return status;
}

void* VolumeFixture::MustOpen(const std::wstring& volumePath, std::uint32_t access, std::uint32_t disposition, const wchar_t* lockToken) {
    void* hFile = nullptr;
    EXPECT_OK(Open(&hFile, volumePath, access, disposition, lockToken)) << Narrow(volumePath);
    return hFile;
}

void* VolumeFixture::OpenEdited(const std::wstring& volumePath, std::string_view content, std::uint32_t disposition) {
    void* const hFile = MustOpen(volumePath, kReadWrite, disposition);
    EXPECT_OK(Write(hFile, content));
    return hFile;
}

bool VolumeFixture::Takes(const std::wstring& volumePath, std::string_view content, std::uint32_t disposition) {
    void* hFile = nullptr;
    VirtFindData info{};
    const auto size = static_cast<std::int64_t>(content.size());
    const bool isWritten = Open(&hFile, volumePath, kReadWrite, disposition) == VVS_Success && Write(hFile, content) == VVS_Success;
    const bool isWhole = size > 0 && (!volume()->GetFileInfo(hFile, &info) || info.fileSize <= size);
    const bool isTaken = isWritten && (isWhole || SetSize(hFile, content.size()) == VVS_Success);
    if (hFile && !isTaken && disposition == CREATE_NEW)
        volume()->Delete(hFile, nullptr);
    Close(hFile);
    return isTaken;
}

VirtualVolumeStatus VolumeFixture::Write(void* hFile, std::string_view content, std::uint64_t offset) {
    std::uint32_t written = 0;
    const VirtualVolumeStatus status =
        volume()->WriteFile(hFile, offset, content.data(), static_cast<std::uint32_t>(content.size()), &written, nullptr);
    EXPECT_TRUE(status != VVS_Success || written == content.size());
    return status;
}

std::string VolumeFixture::Read(void* hFile, std::uint64_t offset, std::uint32_t size) {
    std::string content(size, '\0');
    std::uint32_t done = 0;
    const VirtualVolumeStatus status = volume()->ReadFile(hFile, offset, content.data(), size, &done, nullptr);
    if (status != VVS_Success)
        return std::string("<") + StatusName(status) + ">";
    content.resize(done);
    return content;
}

void VolumeFixture::Put(const std::wstring& volumePath, std::string_view content) {
    VirtFindData findData{};
    EXPECT_TRUE(Takes(volumePath, content, Find(volumePath, &findData) ? OPEN_EXISTING : CREATE_NEW)) << Narrow(volumePath);
}

std::string VolumeFixture::Get(const std::wstring& volumePath) {
    void* hFile = nullptr;
    const VirtualVolumeStatus status = Open(&hFile, volumePath, GENERIC_READ);
    if (status != VVS_Success)
        return std::string("<") + StatusName(status) + ">";
    const std::string content = Read(hFile);
    Close(hFile);
    return content;
}

VirtualVolumeStatus VolumeFixture::Delete(const std::wstring& volumePath) {
    void* hFile = nullptr;
    const VirtualVolumeStatus opened = Open(&hFile, volumePath, DELETE);
    const VirtualVolumeStatus status = opened == VVS_Success ? volume()->Delete(hFile, nullptr) : opened;
    Close(hFile);
    return status;
}

VirtualVolumeStatus VolumeFixture::Rename(const std::wstring& from, const std::wstring& to) {
    void* hFile = nullptr;
    const VirtualVolumeStatus opened = Open(&hFile, from), status = opened == VVS_Success ? Rename(hFile, to) : opened;
    Close(hFile);
    return status;
}

Names VolumeFixture::List(const std::wstring& volumePathSpec) {
    Names names;
    VirtFindData findData{};
    void* const hFind = volume()->FindFirstFileW(volumePathSpec.c_str(), &findData);
    for (bool isThere = hFind; isThere; isThere = volume()->FindNextFileW(hFind, &findData))
        names.emplace_back(findData.fileName);
    EXPECT_EQ(hFind != nullptr, volume()->FindClose(hFind));
    std::sort(names.begin(), names.end());
    return names;
}

VirtFindData VolumeFixture::Record(const std::wstring& volumePath) {
    VirtFindData findData{};
    EXPECT_TRUE(Find(volumePath, &findData)) << Narrow(volumePath);
    return findData;
}

VirtFindData VolumeFixture::InfoOf(void* hFile) {
    VirtFindData findData{};
    EXPECT_TRUE(volume()->GetFileInfo(hFile, &findData));
    return findData;
}

void VolumeFixture::MakeEncrypted(const std::wstring& volumePath, std::string_view content) {
    const std::wstring making = NativePath(L"Docs\\making.zip");
    Encrypt(making, content, {.name = fs::path(volumePath).filename().wstring()});
    fs::rename(making, ContainerPath(volumePath));
}

void VolumeFixture::SaveElsewhere(const std::wstring& volumePath, std::string_view content) {
    Store(volumePath, content);
    Touch(StoredPath(volumePath));
}

std::function<void()> VolumeFixture::SaverElsewhere(const std::wstring& volumePath, std::string_view content) {
    const std::wstring newer = NativePath(L"newer"), place = StoredPath(volumePath), aside = NativePath(L"aside");
    const bool isThere = Exists(place);
    if (isThere)
        fs::rename(place, aside);
    SaveElsewhere(volumePath, content);
    fs::rename(place, newer);
    if (isThere)
        fs::rename(aside, place);
    return [=] { MoveFileExW(newer.c_str(), place.c_str(), MOVEFILE_REPLACE_EXISTING); };
}

std::string VolumeFixture::ContainerContent(const std::wstring& nativeContainerPath) {
    try {
        return Exists(nativeContainerPath) ? Decrypt(nativeContainerPath) : "<none>";
    } catch (const CQuelcryptException&) {
        return "<unreadable>";
    }
}

Names VolumeFixture::FilesBelow(const std::wstring& nativeFolder) {
    Names files;
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(nativeFolder, error))
        if (entry.is_regular_file())
            files.push_back(entry.path().wstring());
    std::sort(files.begin(), files.end());
    return files;
}

Names VolumeFixture::FilesHolding(const std::wstring& nativeFolder, std::string_view text) {
    Names files = FilesBelow(nativeFolder);
    std::erase_if(files, [&](const std::wstring& file) { return ReadRaw(file).find(text) == std::string::npos; });
    return files;
}

Snapshot VolumeFixture::Disk() const {
    Snapshot snapshot;
    for (const wchar_t* mount : {L"Docs", L"Other", L"Theirs", L"Plain"})
        for (const std::wstring& file : FilesBelow(NativePath(mount)))
            snapshot[file] = ReadRaw(file);
    return snapshot;
}

void VolumeFixture::EmptyFolders() const {
    for (const auto& [file, bytes] : Disk())
        fs::remove(file);
}

void VolumeFixture::TryAgainAtOnce() {
    ReplaceImport(GetModuleHandleW(L"QuelcryptVol64.dll"), "Sleep", reinterpret_cast<void*>(+[](DWORD) { windows_rules::Release(); }));
}

void VolumeFixture::Touch(const std::wstring& nativePath) {
    const HANDLE hFile = CreateFileW(nativePath.c_str(), FILE_WRITE_ATTRIBUTES | FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, hFile) << Narrow(nativePath);
    FILETIME time{};
    GetFileTime(hFile, nullptr, nullptr, &time);
    time.dwLowDateTime += 70'000'000;  // seven seconds on
    EXPECT_TRUE(SetFileTime(hFile, nullptr, nullptr, &time));
    CloseHandle(hFile);
}

Names VolumeFixture::TrackedEdits() const {
    Names edits = FilesBelow(temp() + L"\\HalvaneCloud");
    std::erase_if(edits, [](const std::wstring& file) { return !Exists(file + L".hvf"); });
    return edits;
}

std::size_t VolumeFixture::TempFolders() const {
    std::error_code error;
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(temp() + L"\\HalvaneCloud", error), {}));
}

void VolumeFixture::LeaveUnsavedEdit(const std::wstring& volumePath, std::string_view edit) {
    if (!Exists(ContainerPath(volumePath)))
        MakeEncrypted(volumePath, "base");
    Failing("Quelcrypt_FileWriterFactory", Fault::Error, [&] { Put(volumePath, edit); });
}

std::uint32_t VolumeFixture::CallsDuring(const char* name, const std::function<void()>& action) {
    const std::uint32_t before = Companion().Calls(name);
    action();
    return Companion().Calls(name) - before;
}

std::vector<LogLine> VolumeFixture::LinesDuring(const std::function<void()>& action) {
    Companion().lines.clear();
    action();
    return Companion().lines;
}

void VolumeFixture::Failing(const char* call, Fault fault, const std::function<void()>& action) {
    Companion().FailNth(call, 1, fault, true);
    action();
    EXPECT_TRUE(Companion().wasHit) << call;
    Companion().FailNth();
}

void VolumeFixture::Before(const char* call, std::function<void()> act, const std::function<void()>& action) {
    Companion().SetHook(call, std::move(act));
    EXPECT_LT(0u, CallsDuring(call, action)) << call;
    Companion().SetHook();
}

LockInfo VolumeFixture::NewLock(LockScope scope) const {
    LockInfo lockInfo{};
    lockInfo.timeout = 3600;
    lockInfo.scope = scope;
    wcscpy(lockInfo.owner, L"a tester");
    return lockInfo;
}

VirtualVolumeStatus VolumeFixture::TryLock(const std::wstring& volumePath, LockScope scope) {
    LockInfo lockInfo = NewLock(scope);
    return volume()->Lock(volumePath.c_str(), &lockInfo);
}

std::wstring VolumeFixture::Lock(const std::wstring& volumePath, LockScope scope) {
    LockInfo lockInfo = NewLock(scope);
    EXPECT_OK(volume()->Lock(volumePath.c_str(), &lockInfo)) << Narrow(volumePath);
    m_locks[lockInfo.token] = volumePath;
    return lockInfo.token;
}

void VolumeFixture::Unlock(const std::wstring& volumePath, const std::wstring& token) {
    m_locks.erase(token);
    EXPECT_TRUE(token.empty() || volume()->Unlock(volumePath.c_str(), token.c_str()) == VVS_Success) << Narrow(volumePath);
}
