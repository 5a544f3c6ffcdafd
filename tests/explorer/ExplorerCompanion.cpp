// The companion library of the explorer. A container is put in place whole, by a rename, as every companion library must. One thread.
#include <string_view>

#include "companion/Boundary.h"
#include "explorer/Container.h"
#include "explorer/Control.h"

namespace {

std::wstring g_root;
Failing g_failing = Failing::None;
std::int32_t g_failIn = 0;
std::int32_t g_liveObjects = 0;

// Is this call to fail?
bool Fails(Failing kind = Failing::None) {
    const Failing failing = g_failing;
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

class Box final : public Counted<IHalvaneBoxConfig> {
public:
    explicit Box(std::string_view key) : m_key(key) {}
    void Reserved2() override {}
    std::uint32_t GetTargetKeyId(char* buffer, std::uint32_t) override { return Store(m_key, buffer); }
    void Reserved4() override {}
    std::uint32_t GetOwnerId(char* buffer, std::uint32_t) override { return Store("O1", buffer); }
    void Reserved6() override {}
    std::uint32_t GetPolicy(char* buffer, std::uint32_t) override { return Store("encrypt", buffer); }

private:
    static std::uint32_t Store(std::string_view text, char* buffer) { return static_cast<std::uint32_t>(text.copy(buffer, text.size())); }

    std::string m_key;
};

class Text final : public Counted<IQuelcryptText> {
public:
    explicit Text(const std::wstring& ascii) : m_text(ascii.begin(), ascii.end()) {}
    bool HasText(std::int32_t) override { return true; }
    const char* GetText(std::int32_t) override { return m_text.c_str(); }

private:
    std::string m_text;
};

class RootFolder final : public Counted<IProtectedFolder> {
public:
    void Reserved2() override {}
    void GetRecord(ProtectedFolderRecord* record) override { record->type = 6; }
    void Reserved4() override {}
    bool GetName(IQuelcryptText** text) override { return *text = new Text(L"Docs"), true; }
    bool GetPath(IQuelcryptText** text) override { return *text = new Text(g_root), true; }
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
    Writer(std::wstring path, Container container) : m_path(std::move(path)), m_container(std::move(container)) {}
    bool Write(const void* data, std::uint32_t length) override {
        if (Fails(Failing::Write))
            return false;
        m_container.content.append(static_cast<const char*>(data), length);
        return true;
    }
    bool Finish(bool commit) override {
        if (Fails(Failing::Finish))
            return false;
        const std::wstring side = m_path + L".side";
        if (!commit || (WriteWhole(side, CREATE_NEW, BytesOf(m_container)) && MoveFileExW(side.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING)))
            return true;
        DeleteFileW(side.c_str());
        return false;
    }

private:
    std::wstring m_path;
    Container m_container;
};

}  // namespace

extern "C" {

__declspec(dllexport) void Explorer_SetRoot(const wchar_t* nativePath) { g_root = nativePath; }
__declspec(dllexport) bool Explorer_Fail(Failing failing, std::int32_t nth) {
    const bool wasReached = g_failing == Failing::None;
    g_failing = failing;
    g_failIn = nth;
    return wasReached;
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
    *config = name == "K1" || name == "K2" ? new Box(name) : nullptr;
    return 1;
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) { return *folders = new Folders, 1; }

std::int32_t Quelcrypt_GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                          const WIN32_FIND_DATAW*, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation,
                                          void*) {
    const std::string path = containerPathUtf8;
    const auto container = ContainerOf(ReadWhole(std::wstring(path.begin(), path.end())).value_or(""));
    if (Fails(Failing::Information) || !container)
        return 0;
    *storedName = new Name(container->name);
    *plainSize = container->content.size();
    *lastWrite = container->header.times[0];
    *lastAccess = container->header.times[1];
    *creation = container->header.times[2];
    return 1;
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) {
    const auto container = ContainerOf(ReadWhole(containerPath->GetString()).value_or(""));
    return Fails() || !container ? nullptr : new Reader(container->content);
}

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW*, std::uint32_t,
                                         const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation,
                                         std::int32_t, std::uint32_t, void*) {
    if (Fails(Failing::NoWriter))
        return nullptr;
    Container container{{}, virtualFileSpec->GetString(), {}};
    container.header.times[0] = *lastWrite;
    container.header.times[1] = *lastAccess;
    container.header.times[2] = *creation;
    return new Writer(containerPath->GetString(), std::move(container));
}
}
