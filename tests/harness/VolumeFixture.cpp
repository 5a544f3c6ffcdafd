#include "harness/VolumeFixture.h"

#include <iterator>

#include "harness/Prompts.h"

const char* StatusName(Status status) {
    static const char* const names[] = {
        "VVS_Success",      "VVS_PathNotFound",       "VVS_PathAlreadyExists", "VVS_MountFolderNotFound", "VVS_QuelcryptException",
        "VVS_Locked",       "VVS_LockScopeViolation", "VVS_LockTokenNotFound", "VVS_FileNotLocked",       "VVS_Unauthorized",
        "VVS_BadRequest",   "VVS_PreConditionFailed", "VVS_FileNotFound",      "VVS_AccessDenied",        "VVS_InvalidParameter",
        "VSS_FileExists",   "VSS_LockViolation",      "VSS_SharingViolation",  "VSS_OutMemory",           "VSS_NotImplemented",
        "VSS_DecryptError", "VSS_EncryptError",       "VVS_GeneralError"};
    return static_cast<std::size_t>(status) < std::size(names) ? names[status] : "?";
}

void PrintTo(Status status, std::ostream* out) { *out << StatusName(status); }

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
    return R"({"folders": [
    {"name": "Docs", "path": "Docs", "type": "dropbox", "owner": "O1", "policy": "encrypt", "targetKey": "K1"},
    {"name": "Other", "path": "Other", "type": "general", "owner": "O1", "policy": "encrypt", "targetKey": "K2"},
    {"name": "Theirs", "path": "Theirs", "type": "general", "owner": "O2", "policy": "encrypt", "targetKey": "K1"},
    {"name": "Plain", "path": "Plain", "type": "general"}],
  "passwords": {"K1": "first secret", "K2": "second secret"}, "exclude": ["*.tmp", "~$*"]})";
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

void VolumeFixture::TearDown() {
    Companion().FailNth();
    Companion().SetHook();
    for (const auto& [token, path] : m_locks)
        m_volume->Unlock(path.c_str(), token.c_str());
    if (m_volume)
        UnloadVolume();
    EXPECT_EQ(0, Companion().liveObjects.load());
    for (const std::wstring& file : FilesBelow(m_root)) {
        EXPECT_TRUE(Held(file)) << Narrow(file) << " is held";
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    for (const wchar_t* folder : {L"Docs", L"Other", L"Theirs", L"Plain"})
        for (const auto& entry : fs::recursive_directory_iterator(m_root + L"\\" + folder))
            EXPECT_NE(L".HalvaneCloud", entry.path().filename().wstring()) << "a writer's side folder was left behind";
    EXPECT_EQ(m_expectedUnsaved, TrackedEdits().size());
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(temp() + L"\\HalvaneCloud", error))
        EXPECT_FALSE(entry.is_directory() && fs::is_empty(entry)) << Narrow(entry.path().wstring()) << " is owned by nobody";
    fs::remove_all(m_root, error);
}

bool VolumeFixture::Takes(const std::wstring& path, std::string_view content, std::uint32_t how) {
    void* hFile = nullptr;
    VirtFindData info{};
    const auto size = static_cast<std::int64_t>(content.size());
    const bool isWritten = Open(&hFile, path, kReadWrite, how) == VVS_Success && Write(hFile, content) == VVS_Success;
    const bool isWhole = size > 0 && (!volume()->GetFileInfo(hFile, &info) || info.fileSize <= size);
    const bool isTaken = isWritten && (isWhole || SetSize(hFile, content.size()) == VVS_Success);
    if (hFile && !isTaken && how == CREATE_NEW)
        volume()->Delete(hFile, nullptr);
    Close(hFile);
    return isTaken;
}

Names VolumeFixture::List(const std::wstring& spec) {
    Names names;
    VirtFindData findData{};
    void* const hFind = volume()->FindFirstFileW(spec.c_str(), &findData);
    for (bool isThere = hFind; isThere; isThere = volume()->FindNextFileW(hFind, &findData))
        names.emplace_back(findData.fileName);
    EXPECT_EQ(hFind != nullptr, volume()->FindClose(hFind));
    std::sort(names.begin(), names.end());
    return names;
}

std::function<void()> VolumeFixture::SaverElsewhere(const std::wstring& path, std::string_view content) {
    const std::wstring newer = NativePath(L"newer"), place = StoredPath(path);
    IsPlain(path) ? MakePlain(L"newer", content) : MakeEncrypted(path, content, newer);
    Touch(newer);
    return [=] { MoveFileExW(newer.c_str(), place.c_str(), MOVEFILE_REPLACE_EXISTING); };
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
