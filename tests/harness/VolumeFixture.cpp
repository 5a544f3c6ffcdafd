#include "harness/VolumeFixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "quelcrypt/QuelcryptExceptions.h"

namespace fs = std::filesystem;

const char* StatusName(VirtualVolumeStatus status) {
    static const char* const names[] = {
        "VVS_Success",          "VVS_PathNotFound",       "VVS_PathAlreadyExists", "VVS_MountFolderNotFound", "VVS_QuelcryptException",
        "VVS_Locked",           "VVS_LockScopeViolation", "VVS_LockTokenNotFound", "VVS_FileNotLocked",       "VVS_Unauthorized",
        "VVS_BadRequest",       "VVS_PreConditionFailed", "VVS_FileNotFound",      "VVS_AccessDenied",        "VVS_InvalidParameter",
        "VSS_FileExists",       "VSS_LockViolation",      "VSS_SharingViolation",  "VSS_OutMemory",           "VSS_NotImplemented",
        "VSS_DecryptError",     "VSS_EncryptError",       "VVS_GeneralError"};
    return static_cast<std::size_t>(status) < std::size(names) ? names[status] : "?";
}

void PrintTo(VirtualVolumeStatus status, std::ostream* out) { *out << StatusName(status); }

std::string Narrow(std::wstring_view text) {
    std::string narrow(text.size() * 3, '\0');
    narrow.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                                                               static_cast<int>(narrow.size()), nullptr, nullptr)));
    return narrow;
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
    m_volume = NewVolume();
    ASSERT_NE(nullptr, m_volume);
}

void VolumeFixture::UnloadVolume() {
    m_volume->Release();
    m_volume = nullptr;
    EXPECT_TRUE(FreeLibrary(m_module));
}

IVirtualVolume* VolumeFixture::NewVolume() const {
    const auto factory = reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(GetProcAddress(m_module, "Quelcrypt_VolumeFactory")));
    return factory ? factory() : nullptr;
}

void VolumeFixture::TearDown() {
    TestCompanion_FailNth(nullptr, 0, Fault::None, false);
    TestCompanion_SetHook(nullptr, nullptr, nullptr);
    if (m_volume)
        m_volume->Release();
    EXPECT_EQ(0, TestCompanion_LiveObjects());
    for (const std::wstring& file : FilesBelow(m_root))
        EXPECT_TRUE(OpensUnshared(file)) << Narrow(file) << " is held";
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

void VolumeFixture::Configure(const std::string& json) const { WriteRaw(m_root + L"\\quelcrypt.json", json); }

VirtualVolumeStatus VolumeFixture::Open(void** hFile, const std::wstring& volumePath, std::uint32_t access, std::uint32_t disposition,
                                        const wchar_t* lockToken) {
    return volume()->OpenFile(hFile, volumePath.c_str(), access, kShareAll, disposition, lockToken, nullptr);
}

void* VolumeFixture::MustOpen(const std::wstring& volumePath, std::uint32_t access, std::uint32_t disposition, const wchar_t* lockToken) {
    void* hFile = nullptr;
    EXPECT_OK(Open(&hFile, volumePath, access, disposition, lockToken)) << Narrow(volumePath);
    return hFile;
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
    void* const hFile = MustOpen(volumePath, kReadWrite, Find(volumePath, &findData) ? OPEN_EXISTING : CREATE_NEW);
    ASSERT_NE(nullptr, hFile);
    EXPECT_OK(volume()->SetFileSize(hFile, 0, nullptr));
    EXPECT_OK(Write(hFile, content));
    Close(hFile);
}

std::string VolumeFixture::Get(const std::wstring& volumePath) {
    void* hFile = nullptr;
    const VirtualVolumeStatus status = Open(&hFile, volumePath, GENERIC_READ);
    if (status != VVS_Success)
        return std::string("<") + StatusName(status) + ">";
    std::string content;
    for (;;) {
        const std::string part = Read(hFile, content.size());
        if (part.empty() || part.front() == '<') {
            content = content.empty() ? part : content;
            break;
        }
        content += part;
    }
    Close(hFile);
    return content;
}

void VolumeFixture::Delete(const std::wstring& volumePath) {
    void* const hFile = MustOpen(volumePath, DELETE);
    EXPECT_OK(volume()->Delete(hFile, nullptr));
    Close(hFile);
}

std::vector<VirtFindData> VolumeFixture::ListRecords(const std::wstring& volumePathSpec) {
    std::vector<VirtFindData> records;
    VirtFindData findData{};
    void* const hFind = volume()->FindFirstFileW(volumePathSpec.c_str(), &findData);
    if (!hFind)
        return records;
    do
        records.push_back(findData);
    while (volume()->FindNextFileW(hFind, &findData));
    EXPECT_TRUE(volume()->FindClose(hFind));
    return records;
}

std::vector<std::wstring> VolumeFixture::List(const std::wstring& volumePathSpec) {
    std::vector<std::wstring> names;
    for (const VirtFindData& record : ListRecords(volumePathSpec))
        names.emplace_back(record.fileName);
    std::sort(names.begin(), names.end());
    return names;
}

bool VolumeFixture::Find(const std::wstring& volumePath, VirtFindData* findData) {
    return volume()->FindFile(volumePath.c_str(), findData);
}

void VolumeFixture::MakeContainer(const std::wstring& nativeContainerPath, const std::wstring& storedName, std::string_view content) {
    CHvcStringWImpl* const path = new CHvcStringWImpl(nativeContainerPath.c_str());
    CHvcStringWImpl* const name = new CHvcStringWImpl(storedName.c_str());
    CHvcStringWImpl* const source = new CHvcStringWImpl(L"");
    const SYSTEMTIME time{2024, 5, 3, 1, 12, 30, 14, 0};
    IFileWriter* const writer =
        Quelcrypt_FileWriterFactory(path, name, source, FILE_ATTRIBUTE_ARCHIVE, &time, &time, &time, 2, 32768, nullptr);
    ASSERT_NE(nullptr, writer);
    EXPECT_TRUE(content.empty() || writer->Write(content.data(), static_cast<std::uint32_t>(content.size())));
    EXPECT_TRUE(writer->Finish(true));
    writer->Release();
    path->Release();
    name->Release();
    source->Release();
}

std::string VolumeFixture::ContainerContent(const std::wstring& nativeContainerPath) {
    if (!Exists(nativeContainerPath))
        return "<none>";
    CHvcStringWImpl* const path = new CHvcStringWImpl(nativeContainerPath.c_str());
    std::string content;
    IFileReader* reader = nullptr;
    try {
        reader = Quelcrypt_FileReaderFactory(path);
        while (reader && reader->Advance())
            content.append(static_cast<const char*>(reader->GetData()), reader->GetDataLength());
        if (!reader)
            content = "<unreadable>";
    } catch (const CQuelcryptException&) {
        content = "<unreadable>";
    }
    if (reader)
        reader->Release();
    path->Release();
    return content;
}

void VolumeFixture::WriteRaw(const std::wstring& nativePath, std::string_view bytes) {
    std::ofstream(fs::path(nativePath), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Shares everything: what a lock or an item holds open is to be looked at too.
std::string VolumeFixture::ReadRaw(const std::wstring& nativePath) {
    const HANDLE hFile = CreateFileW(nativePath.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
        return "<none>";
    std::string bytes(GetFileSize(hFile, nullptr), '\0');
    DWORD done = 0;
    EXPECT_TRUE(::ReadFile(hFile, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) && done == bytes.size())
        << Narrow(nativePath);
    CloseHandle(hFile);
    return bytes;
}

bool VolumeFixture::Exists(const std::wstring& nativePath) {
    return GetFileAttributesW(nativePath.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool VolumeFixture::OpensUnshared(const std::wstring& nativePath) {
    const HANDLE hFile = CreateFileW(nativePath.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
        return false;
    CloseHandle(hFile);
    return true;
}

std::vector<std::wstring> VolumeFixture::FilesBelow(const std::wstring& nativeFolder) {
    std::vector<std::wstring> files;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(nativeFolder, error), end; entry != end; entry.increment(error))
        if (entry->is_regular_file())
            files.push_back(entry->path().wstring());
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::wstring> VolumeFixture::FilesHolding(const std::wstring& nativeFolder, std::string_view text) {
    std::vector<std::wstring> files = FilesBelow(nativeFolder);
    std::erase_if(files, [&](const std::wstring& file) { return ReadRaw(file).find(text) == std::string::npos; });
    return files;
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

std::vector<std::wstring> VolumeFixture::RetainedCopies() const {
    std::vector<std::wstring> copies = FilesBelow(temp() + L"\\HalvaneCloud");
    std::erase_if(copies, [](const std::wstring& file) { return file.ends_with(L".hvf") || Exists(file + L".hvf"); });
    return copies;
}

std::vector<std::wstring> VolumeFixture::TrackedEdits() const {
    std::vector<std::wstring> edits = FilesBelow(temp() + L"\\HalvaneCloud");
    std::erase_if(edits, [](const std::wstring& file) { return !Exists(file + L".hvf"); });
    return edits;
}

std::uint32_t VolumeFixture::CallsDuring(const char* name, const std::function<void()>& action) {
    const std::uint32_t before = TestCompanion_Calls(name);
    action();
    return TestCompanion_Calls(name) - before;
}

std::uint32_t VolumeFixture::AllCallsDuring(const std::function<void()>& action) {
    const auto calls = [] { return TestCompanion_AllCalls() - TestCompanion_Calls("IFileLogger::GetLevel"); };
    const std::uint32_t before = calls();
    action();
    return calls() - before;
}

std::vector<LogLine> VolumeFixture::LinesDuring(const std::function<void()>& action) {
    TestCompanion_ClearLines();
    action();
    std::vector<LogLine> lines;
    TestCompanion_VisitLines(
        [](void* context, std::uint32_t level, std::uint32_t threadId, const wchar_t* text) {
            static_cast<std::vector<LogLine>*>(context)->push_back({level, threadId, text});
        },
        &lines);
    return lines;
}

bool VolumeFixture::HasLine(const std::vector<LogLine>& lines, std::wstring_view part) {
    return std::any_of(lines.begin(), lines.end(), [&](const LogLine& line) { return line.text.find(part) != std::wstring::npos; });
}

LockInfo VolumeFixture::NewLock(LockScope scope) const {
    LockInfo lockInfo{};
    lockInfo.timeout = 3600;
    lockInfo.scope = scope;
    wcscpy(lockInfo.owner, L"a tester");
    return lockInfo;
}

std::wstring VolumeFixture::Lock(const std::wstring& volumePath, LockScope scope) {
    LockInfo lockInfo = NewLock(scope);
    EXPECT_OK(volume()->Lock(volumePath.c_str(), &lockInfo)) << Narrow(volumePath);
    return lockInfo.token;
}
