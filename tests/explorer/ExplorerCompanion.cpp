// The companion library of the explorer: a container is a header and the content as it is, so that words are found by reading
// files. It is put in place whole, by a rename, as every companion library must. One thread.
#include <cstring>
#include <string>
#include <string_view>

#include "explorer/Control.h"
#include "companion/Boundary.h"

namespace {

std::wstring g_root;
Failing g_failing = Failing::None;
std::int32_t g_failIn = 0;
std::int32_t g_liveObjects = 0;

// Is this call to fail?
bool Fails(Failing kind = Failing::None) {
    Failing failing = g_failing;
    if (failing == Failing::Nth || failing == Failing::NthThrows) {
        if (--g_failIn != 0)
            return false;
        g_failing = Failing::None;
    } else if (kind == Failing::None || (failing != kind && !(failing == Failing::ThrowingWriter && kind == Failing::NoWriter))) {
        return false;
    }
    if (failing == Failing::ThrowingWriter || failing == Failing::NthThrows)
        throw CQuelcryptErrorException(L"The explorer asked for it");
    return true;
}

template <class Interface>
class Counted : public companion::Handed<Interface> {
protected:
    Counted() { ++g_liveObjects; }
    ~Counted() override { --g_liveObjects; }
};

class Name final : public Counted<IHvcStringW> {
public:
    explicit Name(std::wstring text) : m_text(std::move(text)) {}
    const wchar_t* GetString() override { return m_text.c_str(); }

private:
    std::wstring m_text;
};

std::uint32_t StoreText(std::string_view text, char* buffer, std::uint32_t capacity) {
    const auto length = std::min(static_cast<std::uint32_t>(text.size()), capacity);
    std::memcpy(buffer, text.data(), length);
    return length;
}

class Box final : public Counted<IHalvaneBoxConfig> {
public:
    explicit Box(std::string key) : m_key(std::move(key)) {}
    void Reserved2() override {}
    std::uint32_t GetTargetKeyId(char* buffer, std::uint32_t capacity) override { return StoreText(m_key, buffer, capacity); }
    void Reserved4() override {}
    std::uint32_t GetOwnerId(char* buffer, std::uint32_t capacity) override { return StoreText("O1", buffer, capacity); }
    void Reserved6() override {}
    std::uint32_t GetPolicy(char* buffer, std::uint32_t capacity) override { return StoreText("encrypt", buffer, capacity); }

private:
    std::string m_key;
};

class Text final : public Counted<IQuelcryptText> {
public:
    explicit Text(std::string text) : m_text(std::move(text)) {}
    bool HasText(std::int32_t) override { return true; }
    const char* GetText(std::int32_t) override { return m_text.c_str(); }

private:
    std::string m_text;
};

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }  // the explorer's paths are ASCII
std::wstring Wide(std::string_view text) { return std::wstring(text.begin(), text.end()); }

class RootFolder final : public Counted<IProtectedFolder> {
public:
    void Reserved2() override {}
    void GetRecord(ProtectedFolderRecord* record) override { record->type = 6; }
    void Reserved4() override {}
    bool GetName(IQuelcryptText** text) override { return *text = new Text("Docs"), true; }
    bool GetPath(IQuelcryptText** text) override { return *text = new Text(Narrow(g_root)), true; }
};

class Folders final : public Counted<IProtectedFolderEnum> {
public:
    std::int32_t Next(IProtectedFolder** folder) override { return m_left-- > 0 ? *folder = new RootFolder, 1 : 0; }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override { return 1; }

private:
    int m_left = 1;
};

// The whole file; empty when it cannot be read.
std::string ReadWhole(const std::wstring& path) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 7, nullptr, OPEN_EXISTING, 0, nullptr);
    std::string bytes(4096, '\0');
    DWORD length = 0;
    if (file != INVALID_HANDLE_VALUE) {
        ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &length, nullptr);
        CloseHandle(file);
    }
    bytes.resize(length);
    return bytes;
}

// False: it is no whole container.
bool Parse(const std::string& bytes, ContainerHeader& header, std::wstring& name, std::string& content) {
    if (bytes.size() < sizeof(header))
        return false;
    std::memcpy(&header, bytes.data(), sizeof(header));
    const std::size_t nameBytes = header.nameUnits * sizeof(wchar_t);
    if (std::memcmp(header.magic, kContainerMagic, sizeof(header.magic)) != 0 || bytes.size() != sizeof(header) + nameBytes + header.size)
        return false;
    name.assign(reinterpret_cast<const wchar_t*>(bytes.data() + sizeof(header)), header.nameUnits);
    content = bytes.substr(sizeof(header) + nameBytes);
    return true;
}

class Reader final : public Counted<IFileReader> {
public:
    explicit Reader(std::string content) : m_content(std::move(content)) {}
    std::uint32_t Advance() override { return !Fails() && !m_content.empty() && m_left-- > 0; }
    const void* GetData() override { return m_content.data(); }
    std::uint32_t GetDataLength() override { return static_cast<std::uint32_t>(m_content.size()); }

private:
    std::string m_content;
    int m_left = 1;
};

class Writer final : public Counted<IFileWriter> {
public:
    Writer(std::wstring path, const ContainerHeader& header, const std::wstring& name)
        : m_path(std::move(path)), m_header(header), m_name(name) {}
    bool Write(const void* data, std::uint32_t length) override {
        if (Fails(Failing::Write))
            return false;
        m_content.append(static_cast<const char*>(data), length);
        return true;
    }
    bool Finish(bool commit) override {
        if (Fails(Failing::Finish))
            return false;
        if (!commit)
            return true;
        m_header.size = m_content.size();
        std::string bytes(reinterpret_cast<const char*>(&m_header), sizeof(m_header));
        bytes.append(reinterpret_cast<const char*>(m_name.data()), m_name.size() * sizeof(wchar_t)).append(m_content);
        const std::wstring side = m_path + L".side";
        const HANDLE file = CreateFileW(side.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
        DWORD written = 0;
        const bool isWhole = file != INVALID_HANDLE_VALUE &&
                             WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) && written == bytes.size();
        if (file != INVALID_HANDLE_VALUE)
            CloseHandle(file);
        const bool isDone = isWhole && MoveFileExW(side.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING);
        if (!isDone)
            DeleteFileW(side.c_str());
        return isDone;
    }

private:
    std::wstring m_path;
    ContainerHeader m_header;
    std::wstring m_name;
    std::string m_content;
};

}  // namespace

extern "C" {

__declspec(dllexport) void Explorer_SetRoot(const wchar_t* nativePath) { g_root = nativePath; }
__declspec(dllexport) void Explorer_Fail(Failing failing, std::int32_t nth) {
    g_failing = failing;
    g_failIn = nth;
}
__declspec(dllexport) std::int32_t Explorer_LiveObjects() { return g_liveObjects; }

void Quelcrypt_Initialize(void (*)()) {}
void Quelcrypt_Uninitialize() {}
IFileLogger* Quelcrypt_GetFileLogger(std::int32_t) { return nullptr; }
std::uint32_t Quelcrypt_GetLoggerComponentIndex(const char*) { return 0; }
IQuelcryptConfig* Quelcrypt_GetQuelcryptConfig(void*, void*) { return nullptr; }

std::int32_t Quelcrypt_GetHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config, void*, void*) {
    const std::string_view path = folderPathUtf8;
    const std::string_view name = path.substr(path.rfind('\\') + 1);
    *config = name == "K1" || name == "K2" ? new Box(std::string(name)) : nullptr;
    return 1;
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) { return *folders = new Folders, 1; }

std::int32_t Quelcrypt_GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                          const WIN32_FIND_DATAW*, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation,
                                          void*) {
    ContainerHeader header;
    std::wstring name;
    std::string content;
    if (Fails(Failing::Information) || !Parse(ReadWhole(Wide(containerPathUtf8)), header, name, content))
        return 0;
    *storedName = new Name(name);
    *plainSize = header.size;
    std::memcpy(lastWrite, header.times[0], sizeof(SYSTEMTIME));
    std::memcpy(lastAccess, header.times[1], sizeof(SYSTEMTIME));
    std::memcpy(creation, header.times[2], sizeof(SYSTEMTIME));
    return 1;
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) {
    ContainerHeader header;
    std::wstring name;
    std::string content;
    if (Fails() || !Parse(ReadWhole(containerPath->GetString()), header, name, content))
        return nullptr;
    return new Reader(content);
}

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW*, std::uint32_t,
                                         const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation,
                                         std::int32_t, std::uint32_t, void*) {
    if (Fails(Failing::NoWriter))
        return nullptr;
    ContainerHeader header{};
    std::memcpy(header.magic, kContainerMagic, sizeof(header.magic));
    std::memcpy(header.times[0], lastWrite, sizeof(SYSTEMTIME));
    std::memcpy(header.times[1], lastAccess, sizeof(SYSTEMTIME));
    std::memcpy(header.times[2], creation, sizeof(SYSTEMTIME));
    const std::wstring name = virtualFileSpec->GetString();
    header.nameUnits = static_cast<std::uint16_t>(name.size());
    return new Writer(containerPath->GetString(), header, name);
}
}
