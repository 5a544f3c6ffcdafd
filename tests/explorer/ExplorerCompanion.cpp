// The explorer's companion library, without encryption: one mount folder, "Docs", in which folders named K1 or K2 have a
// policy with that key. A container is put in place by one rename, as every companion library must do.
#include <string_view>

#include "common/Patience.h"
#include "companion/Boundary.h"
#include "companion/ContainerInformation.h"
#include "companion/ContainerReader.h"
#include "companion/ContainerWriter.h"
#include "companion/Folders.h"
#include "companion/Library.h"
#include "explorer/Container.h"

namespace {

class Name final : public companion::Handed<IHvcStringW> {
public:
    explicit Name(std::wstring text) : m_text(std::move(text)) {}
    const wchar_t* GetString() override { return m_text.c_str(); }

private:
    std::wstring m_text;
};

class Box final : public companion::Handed<IHalvaneBoxConfig> {
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

class Text final : public companion::Handed<IQuelcryptText> {
public:
    explicit Text(const char* text) : m_text(text) {}
    bool HasText(std::int32_t) override { return true; }
    const char* GetText(std::int32_t) override { return m_text; }

private:
    const char* m_text;
};

class RootFolder final : public companion::Handed<IProtectedFolder> {
public:
    void Reserved2() override {}
    void GetRecord(ProtectedFolderRecord* record) override { record->type = 6; }
    void Reserved4() override {}
    bool GetName(IQuelcryptText** text) override { return *text = new Text("Docs"), true; }
    bool GetPath(IQuelcryptText** text) override {
        static char s_path[MAX_PATH];
        return GetEnvironmentVariableA("EXPLORER_ROOT", s_path, MAX_PATH) && (*text = new Text(s_path));
    }
};

class Folders final : public companion::Handed<IProtectedFolderEnum> {
public:
    std::int32_t Next(IProtectedFolder** folder) override { return m_left-- > 0 ? *folder = new RootFolder, 1 : 0; }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override { return 1; }

private:
    int m_left = 1;
};

class Reader final : public companion::Handed<IFileReader> {
public:
    explicit Reader(std::string content) : m_content(std::move(content)) {}
    std::uint32_t Advance() override { return !m_content.empty() && m_left-- > 0; }
    const void* GetData() override { return m_content.data(); }
    std::uint32_t GetDataLength() override { return static_cast<std::uint32_t>(m_content.size()); }

private:
    std::string m_content;
    int m_left = 1;
};

class Writer final : public companion::Handed<IFileWriter> {
public:
    Writer(std::wstring path, Container container) : m_path(std::move(path)), m_container(std::move(container)) {}
    bool Write(const void* data, std::uint32_t length) override {
        m_container.content.append(static_cast<const char*>(data), length);
        return true;
    }
    bool Finish(bool commit) override {
        const std::wstring side = m_path + L".side";
        const auto replace = [&] { return MoveFileExW(side.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0; };
        if (!commit || (WriteRaw(side, BytesOf(m_container), CREATE_NEW) && RepeatForAMoment(replace)))
            return true;
        RepeatForAMoment([&] { return DeleteFileW(side.c_str()) != 0; });
        return false;
    }

private:
    std::wstring m_path;
    Container m_container;
};

}  // namespace

namespace companion {

void Initialize(void (*)()) noexcept {}
void Uninitialize() noexcept {}
std::uint32_t LoggerComponentIndex(const char*) { return 0; }
IQuelcryptConfig* MakeQuelcryptConfig() { return nullptr; }
std::int32_t MakeProtectedFolderEnum(IProtectedFolderEnum** folders) { return *folders = new Folders, 1; }

std::int32_t MakeHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config) {
    const std::string_view path = folderPathUtf8;
    const std::string_view name = path.substr(path.rfind('\\') + 1);
    *config = name == "K1" || name == "K2" ? new Box(name) : nullptr;
    return 1;
}

std::int32_t GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize, const WIN32_FIND_DATAW*,
                                SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation) {
    const std::string path = containerPathUtf8;
    const auto container = ContainerOf(ReadRaw(std::wstring(path.begin(), path.end())));
    if (!container)
        return 0;
    *storedName = new Name(container->name);
    *plainSize = container->content.size();
    *lastWrite = container->header.times[0];
    *lastAccess = container->header.times[1];
    *creation = container->header.times[2];
    return 1;
}

IFileReader* MakeReader(IHvcStringW* containerPath) {
    const auto container = ContainerOf(ReadRaw(containerPath->GetString()));
    return container ? new Reader(container->content) : nullptr;
}

IFileWriter* MakeWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW*, std::uint32_t, const SYSTEMTIME* lastWrite,
                        const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation) {
    return new Writer(containerPath->GetString(), {{.times = {*lastWrite, *lastAccess, *creation}}, virtualFileSpec->GetString(), {}});
}

}  // namespace companion
