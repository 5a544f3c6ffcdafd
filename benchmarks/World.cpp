#include "World.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "Harness.h"

namespace fs = std::filesystem;

namespace {

constexpr DWORD kChunkBytes = 32768;

template <class Function>
void Get(HMODULE module, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    Must(function != nullptr, name);
}

struct Releaser {
    void operator()(IQuelcryptBase* owned) const { owned->Release(); }
};
template <class Interface>
using Owned = std::unique_ptr<Interface, Releaser>;

Owned<IHvcStringW> Text(const std::wstring& text) { return Owned<IHvcStringW>(new CHvcStringWImpl(text.c_str())); }

void WriteWhole(const fs::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Must(file.good(), "writing a file");
}

std::string ReadWhole(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

World& World::The() {
    static World world;
    return world;
}

World::World() {
    m_root = (fs::temp_directory_path() / ("quelcrypt-bench-" + std::to_string(GetCurrentProcessId()))).wstring();
    for (const wchar_t* folder : {L"Docs", L"Plain", L"temp"})
        fs::create_directories(Native(folder));
    WriteWhole(Native(L"quelcrypt.json"), R"({
        "folders": [ { "name": "Docs", "path": "Docs", "owner": "bench", "policy": "encrypt", "targetKey": "bench" },
                     { "name": "Plain", "path": "Plain" } ],
        "passwords": { "bench": "a password" } })");
    SetEnvironmentVariableW(L"QUELCRYPT_CONFIG", Native(L"quelcrypt.json").c_str());
    SetEnvironmentVariableW(L"TMP", Native(L"temp").c_str());
    SetEnvironmentVariableW(L"TEMP", Native(L"temp").c_str());
    Load();
}

World::~World() {
    Unload();
    std::error_code error;
    fs::remove_all(m_root, error);
}

void World::Load() {
    m_module = LoadLibraryW(L"QuelcryptVol64.dll");
    Must(m_module != nullptr, "loading QuelcryptVol64.dll");
    decltype(&Quelcrypt_VolumeFactory) makeVolume = nullptr;
    Get(m_module, "Quelcrypt_VolumeFactory", makeVolume);
    m_volume = makeVolume();
    Must(m_volume != nullptr, "making a volume");
    const HMODULE library = GetModuleHandleW(L"QuelcryptLib64.dll");
    Get(library, "Quelcrypt_GetFileInformation", m_companion.getFileInformation);
    Get(library, "Quelcrypt_FileReaderFactory", m_companion.makeReader);
    Get(library, "Quelcrypt_FileWriterFactory", m_companion.makeWriter);
    VirtFindData folder{};
    Must(m_volume->FindFile(L"Docs", &folder) && m_volume->FindFile(L"Plain", &folder), "finding the mount folders");
}

void World::Unload() {
    m_volume->Release();
    FreeLibrary(m_module);
    Must(!GetModuleHandleW(L"QuelcryptVol64.dll") && !GetModuleHandleW(L"QuelcryptLib64.dll"), "unloading both libraries");
}

void World::Reload() {
    Unload();
    std::error_code error;
    fs::remove_all(Native(L"temp\\HalvaneCloud"), error);
    Load();
}

std::wstring World::TempFileOf(const std::wstring& name) const {
    for (const auto& entry : fs::recursive_directory_iterator(Native(L"temp")))
        if (entry.path().filename() == name)
            return entry.path().wstring();
    Must(false, "finding a temp file");
    return {};
}

std::wstring World::FileName(int number) {
    const std::wstring digits = std::to_wstring(number);
    return L"file" + std::wstring(5 - digits.size(), L'0') + digits + L".txt";
}

std::wstring World::PlainFolder(int count) {
    const std::wstring folder = L"Plain\\" + std::to_wstring(count);
    if (fs::create_directory(Native(folder)))
        for (int i = 0; i < count; ++i)
            WriteWhole(Native(folder + L"\\" + FileName(i)), "plain");
    return folder;
}

// Names are unencrypted in containers, so the others are made from the first one by replacing the name.
std::wstring World::EncryptedFolder(int count) {
    const std::wstring folder = L"Docs\\" + std::to_wstring(count);
    if (!fs::create_directory(Native(folder)))
        return folder;
    const std::wstring plain = Native(L"temp\\pattern");
    const std::wstring pattern = Native(folder + L"\\" + FileName(0) + L".zip");
    WriteWhole(plain, "a document");
    Encrypt(plain, pattern, FileName(0));
    std::string bytes = ReadWhole(pattern);
    std::vector<std::size_t> places;
    const std::string shown = fs::path(FileName(0)).string();
    for (std::size_t at = bytes.find(shown); at != bytes.npos; at = bytes.find(shown, at + 1))
        places.push_back(at);
    for (int i = 1; i < count; ++i) {
        const std::string name = fs::path(FileName(i)).string();
        for (const std::size_t at : places)
            bytes.replace(at, name.size(), name);
        WriteWhole(Native(folder + L"\\" + FileName(i) + L".zip"), bytes);
    }
    return folder;
}

std::wstring World::File(const std::wstring& volumePath, std::uint64_t sizeBytes) {
    const bool isEncrypted = volumePath.starts_with(L"Docs");
    const std::wstring final = Native(volumePath) + (isEncrypted ? L".zip" : L"");
    if (fs::exists(final))
        return volumePath;
    const std::wstring name = fs::path(volumePath).filename().wstring();
    const std::wstring plain = isEncrypted ? Native(L"temp\\" + name) : final;
    {
        std::string block(1 << 20, '\0');
        std::ofstream file(fs::path(plain), std::ios::binary);
        for (std::uint64_t done = 0; done < sizeBytes; done += block.size()) {
            for (std::size_t i = 0; i < block.size(); i += 8)
                block[i] = static_cast<char>(done / 1048576 + i / 8);
            file.write(block.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(block.size(), sizeBytes - done)));
        }
    }
    if (isEncrypted) {
        Encrypt(plain, final, name);
        fs::remove(plain);
    }
    return volumePath;
}

void World::Encrypt(const std::wstring& plainPath, const std::wstring& containerPath, const std::wstring& storedName) const {
    const ::File plain(plainPath);
    const SYSTEMTIME time{2024, 5, 3, 1, 12, 30, 14, 0};
    const Owned<IFileWriter> writer(m_companion.makeWriter(Text(containerPath).get(), Text(storedName).get(), Text(plainPath).get(),
                                                           FILE_ATTRIBUTE_ARCHIVE, &time, &time, &time, 2, kChunkBytes, nullptr));
    Must(writer != nullptr, "making a writer");
    const auto buffer = std::make_unique<char[]>(kChunkBytes);
    for (DWORD done = 0; ::ReadFile(plain.Get(), buffer.get(), kChunkBytes, &done, nullptr) && done > 0;)
        Must(writer->Write(buffer.get(), done), "writing into a container");
    Must(writer->Finish(true), "finishing a container");
}

void World::Decrypt(const std::wstring& containerPath, const std::wstring& plainPath) const {
    const ::File plain(plainPath, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    const Owned<IFileReader> reader(m_companion.makeReader(Text(containerPath).get()));
    Must(reader != nullptr, "making a reader");
    while (reader->Advance()) {
        DWORD done = 0;
        Must(::WriteFile(plain.Get(), reader->GetData(), reader->GetDataLength(), &done, nullptr), "writing decrypted content");
    }
}

File::File(const std::wstring& path, DWORD access, DWORD disposition)
    : m_handle(::CreateFileW(path.c_str(), access, World::kShareAll, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr)) {
    Must(m_handle != INVALID_HANDLE_VALUE, "CreateFile");
}

Item::Item(const std::wstring& path, DWORD access) {
    Must(World::The().volume()->OpenFile(&m_handle, path.c_str(), access, World::kShareAll, OPEN_EXISTING, nullptr, nullptr) == VVS_Success,
         "OpenFile");
}
