// The development companion library with a thin layer instead of its exports: see Control.h.
#include "Control.h"

#include <new>
#include <string_view>

#include "companion/Boundary.h"
#include "companion/ContainerInformation.h"
#include "companion/ContainerReader.h"
#include "companion/ContainerWriter.h"
#include "companion/Folders.h"
#include "companion/Library.h"

namespace {

TestCompanion& g_state = *new TestCompanion;
void (*g_raise)() = nullptr;

// Counts a call and returns whether, and how, it must fail.
Fault Count(std::string_view name) {
    const bool isAny = !name.starts_with("IFileLogger");  // when that is called depends on the time
    ++g_state.calls[std::string(name)];
    g_state.allCalls += isAny;
    const bool isMeant = name.find(g_state.failName) != name.npos && (isAny || g_state.failName.starts_with("IFileLogger"));
    if (g_state.fault == Fault::None || !isMeant || (g_state.failIn > 0 && --g_state.failIn > 0) || (g_state.wasHit && !g_state.repeat))
        return Fault::None;
    g_state.wasHit = true;
    return g_state.fault;
}

// The same, and calls the hook; exceptions are thrown here.
Fault Enter(const char* name) {
    std::unique_lock lock(g_state.mutex);
    const std::function<void()> hook = g_state.hookName == name ? g_state.hook : nullptr;
    const Fault fault = Count(name);
    lock.unlock();
    if (hook)
        hook();
    switch (fault) {
        case Fault::Raise: g_raise(); break;
        case Fault::Error: throw CQuelcryptErrorException(L"The test asked for it");
        case Fault::OutOfMemory: throw std::bad_alloc();
        default: break;
    }
    return fault;
}

// Returns the result of work, unless the call fails.
template <class Work>
auto Do(const char* name, Work work) {
    return Enter(name) == Fault::None ? work() : decltype(work())();
}

template <class Object, class Interface>
Interface* Counting(Interface* object) {
    return object ? new Object(object) : nullptr;
}

// For functions that return an object: stores a counting one around the companion library's.
template <class Object, class Result, class Interface>
Result HandOut(Result result, Interface** out) {
    if (result)
        *out = Counting<Object>(*out);
    return result;
}

// A counting object around one of the companion library's.
template <class Interface>
class Counted : public companion::Handed<Interface> {
protected:
    explicit Counted(Interface* inner) : m_inner(inner) { ++g_state.liveObjects; }
    ~Counted() override {
        m_inner->Release();
        --g_state.liveObjects;
    }
    // Returns the result of the wrapped object, unless the call fails.
    template <class Result, class... Parameters>
    Result Call(const char* name, Result (Interface::*method)(Parameters...), std::type_identity_t<Parameters>... arguments) {
        return Do(name, [&] { return (m_inner->*method)(arguments...); });
    }
    Interface* m_inner;
};

struct CountedString final : Counted<IHvcStringW> {
    explicit CountedString(IHvcStringW* inner) : Counted(inner) {}
    const wchar_t* GetString() override { return m_inner->GetString(); }
};

struct CountedConfig final : Counted<IQuelcryptConfig> {
    using I = IQuelcryptConfig;
    explicit CountedConfig(I* inner) : Counted(inner) {}
    bool IsExcluded(const char* name, std::int32_t zero) override {
        return Call("IQuelcryptConfig::IsExcluded", &I::IsExcluded, name, zero);
    }
};

struct CountedBox final : Counted<IHalvaneBoxConfig> {
    using I = IHalvaneBoxConfig;
    explicit CountedBox(I* inner) : Counted(inner) {}
    void Reserved2() override {}
    void Reserved4() override {}
    void Reserved6() override {}
    std::uint32_t GetTargetKeyId(char* buffer, std::uint32_t capacity) override {
        return Fill("IHalvaneBoxConfig::GetTargetKeyId", &I::GetTargetKeyId, buffer, capacity);
    }
    std::uint32_t GetOwnerId(char* buffer, std::uint32_t capacity) override {
        return Fill("IHalvaneBoxConfig::GetOwnerId", &I::GetOwnerId, buffer, capacity);
    }
    std::uint32_t GetPolicy(char* buffer, std::uint32_t capacity) override {
        return Fill("IHalvaneBoxConfig::GetPolicy", &I::GetPolicy, buffer, capacity);
    }
    std::uint32_t Fill(const char* name, std::uint32_t (I::*method)(char*, std::uint32_t), char* buffer, std::uint32_t capacity) {
        switch (Enter(name)) {
            case Fault::Null: return 0;
            case Fault::OverLong: return capacity + 1000;
            case Fault::NoText: buffer[0] = '\xFF'; return 1;
            default: return (m_inner->*method)(buffer, capacity);
        }
    }
};

struct CountedText final : Counted<IQuelcryptText> {
    explicit CountedText(IQuelcryptText* inner) : Counted(inner) {}
    bool HasText(std::int32_t zero) override { return Call("IQuelcryptText::HasText", &IQuelcryptText::HasText, zero); }
    const char* GetText(std::int32_t zero) override { return Call("IQuelcryptText::GetText", &IQuelcryptText::GetText, zero); }
};

struct CountedFolder final : Counted<IProtectedFolder> {
    using I = IProtectedFolder;
    explicit CountedFolder(I* inner) : Counted(inner) {}
    void Reserved2() override {}
    void Reserved4() override {}
    void GetRecord(ProtectedFolderRecord* record) override {
        Enter("IProtectedFolder::GetRecord");
        m_inner->GetRecord(record);
    }
    bool GetName(IQuelcryptText** text) override {
        return HandOut<CountedText>(Call("IProtectedFolder::GetName", &I::GetName, text), text);
    }
    bool GetPath(IQuelcryptText** text) override {
        return HandOut<CountedText>(Call("IProtectedFolder::GetPath", &I::GetPath, text), text);
    }
};

struct CountedFolderEnum final : Counted<IProtectedFolderEnum> {
    using I = IProtectedFolderEnum;
    explicit CountedFolderEnum(I* inner) : Counted(inner) {}
    std::int32_t Next(IProtectedFolder** folder) override {
        return HandOut<CountedFolder>(Call("IProtectedFolderEnum::Next", &I::Next, folder), folder);
    }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override { return Call("IProtectedFolderEnum::GetChangeCounter", &I::GetChangeCounter); }
};

struct CountedReader final : Counted<IFileReader> {
    explicit CountedReader(IFileReader* inner) : Counted(inner) {}
    std::uint32_t Advance() override { return Call("IFileReader::Advance", &IFileReader::Advance); }
    const void* GetData() override { return Call("IFileReader::GetData", &IFileReader::GetData); }
    std::uint32_t GetDataLength() override { return Call("IFileReader::GetDataLength", &IFileReader::GetDataLength); }
};

struct CountedWriter final : Counted<IFileWriter> {
    explicit CountedWriter(IFileWriter* inner) : Counted(inner) {}
    bool Write(const void* data, std::uint32_t length) override { return Call("IFileWriter::Write", &IFileWriter::Write, data, length); }
    bool Finish(bool commit) override { return Call("IFileWriter::Finish", &IFileWriter::Finish, commit); }
};

class CapturingLogger final : public IFileLogger {
public:
    void Write(std::uint32_t, std::uint32_t level, const wchar_t* text, void*) override {
        Enter("IFileLogger::Write");
        const std::lock_guard guard(g_state.mutex);
        g_state.lines.push_back({level, GetCurrentThreadId(), text});
        SetLastError(ERROR_DISK_FULL);  // must not change any result
    }
    std::uint32_t GetLevel(std::uint32_t) override {
        Enter("IFileLogger::GetLevel");
        return g_state.level;
    }
};

}  // namespace

extern "C" {

void Quelcrypt_Initialize(void (*raise)()) {
    g_raise = raise;
    Enter("Quelcrypt_Initialize");
    companion::Initialize(raise);
}

void Quelcrypt_Uninitialize() {
    Enter("Quelcrypt_Uninitialize");
    companion::Uninitialize();
}

IFileLogger* Quelcrypt_GetFileLogger(std::int32_t) {
    static CapturingLogger& logger = *new CapturingLogger;
    return Do("Quelcrypt_GetFileLogger", []() -> IFileLogger* { return &logger; });
}

std::uint32_t Quelcrypt_GetLoggerComponentIndex(const char* componentName) {
    Enter("Quelcrypt_GetLoggerComponentIndex");
    return companion::LoggerComponentIndex(componentName);
}

IQuelcryptConfig* Quelcrypt_GetQuelcryptConfig(void*, void*) {
    return Do("Quelcrypt_GetQuelcryptConfig", [] { return Counting<CountedConfig>(companion::MakeQuelcryptConfig()); });
}

std::int32_t Quelcrypt_GetHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config, void*, void*) {
    const auto make = [&] { return companion::MakeHalvaneBoxConfig(folderPathUtf8, config); };
    return HandOut<CountedBox>(Do("Quelcrypt_GetHalvaneBoxConfig", make), config);
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) {
    const auto make = [&] { return companion::MakeProtectedFolderEnum(folders); };
    return HandOut<CountedFolderEnum>(Do("Quelcrypt_GetProtectedFolderEnum", make), folders);
}

std::int32_t Quelcrypt_GetFileInformation(const char* path, IHvcStringW** name, std::uint64_t* size, const WIN32_FIND_DATAW* rawEntry,
                                          SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation, void*) {
    const auto get = [&] { return companion::GetFileInformation(path, name, size, rawEntry, lastWrite, lastAccess, creation); };
    return HandOut<CountedString>(Do("Quelcrypt_GetFileInformation", get), name);
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) {
    return Counting<CountedReader>(Do("Quelcrypt_FileReaderFactory", [&] { return companion::MakeReader(containerPath); }));
}

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* path, IHvcStringW* name, IHvcStringW* source, std::uint32_t attributes,
                                         const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation,
                                         std::int32_t, std::uint32_t, void*) {
    const auto make = [&] { return companion::MakeWriter(path, name, source, attributes, lastWrite, lastAccess, creation); };
    return Counting<CountedWriter>(Do("Quelcrypt_FileWriterFactory", make));
}

__declspec(dllexport) TestCompanion& Companion() { return g_state; }
}
