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
        case Fault::Foreign: RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr); break;  // another compiler's code of them
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
public:
    explicit Counted(Interface* inner) : m_inner(inner) { ++g_state.liveObjects; }

protected:
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

// The name of a slot and the slot.
#define SLOT(Interface, Method) #Interface "::" #Method, &Interface::Method

struct CountedString final : Counted<IHvcStringW> {
    using Counted::Counted;
    const wchar_t* GetString() override { return m_inner->GetString(); }
};

struct CountedConfig final : Counted<IQuelcryptConfig> {
    using Counted::Counted;
    bool IsExcluded(const char* name, std::int32_t zero) override { return Call(SLOT(IQuelcryptConfig, IsExcluded), name, zero); }
};

struct CountedBox final : Counted<IHalvaneBoxConfig> {
    using Counted::Counted;
    void Reserved2() override {}
    void Reserved4() override {}
    void Reserved6() override {}
    std::uint32_t GetTargetKeyId(char* text, std::uint32_t room) override {
        return Fill(SLOT(IHalvaneBoxConfig, GetTargetKeyId), text, room);
    }
    std::uint32_t GetOwnerId(char* text, std::uint32_t room) override { return Fill(SLOT(IHalvaneBoxConfig, GetOwnerId), text, room); }
    std::uint32_t GetPolicy(char* text, std::uint32_t room) override { return Fill(SLOT(IHalvaneBoxConfig, GetPolicy), text, room); }
    std::uint32_t Fill(const char* name, decltype(&IHalvaneBoxConfig::GetPolicy) method, char* text, std::uint32_t room) {
        switch (Enter(name)) {
            case Fault::Null: return 0;
            case Fault::OverLong: return room + 1000;
            case Fault::NoText: text[0] = '\xFF'; return 1;
            default: return (m_inner->*method)(text, room);
        }
    }
};

struct CountedText final : Counted<IQuelcryptText> {
    using Counted::Counted;
    bool HasText(std::int32_t zero) override { return Call(SLOT(IQuelcryptText, HasText), zero); }
    const char* GetText(std::int32_t zero) override { return Call(SLOT(IQuelcryptText, GetText), zero); }
};

struct CountedFolder final : Counted<IProtectedFolder> {
    using Counted::Counted;
    void Reserved2() override {}
    void Reserved4() override {}
    void GetRecord(ProtectedFolderRecord* record) override {
        Enter("IProtectedFolder::GetRecord");
        m_inner->GetRecord(record);
    }
    bool GetName(IQuelcryptText** text) override { return HandOut<CountedText>(Call(SLOT(IProtectedFolder, GetName), text), text); }
    bool GetPath(IQuelcryptText** text) override { return HandOut<CountedText>(Call(SLOT(IProtectedFolder, GetPath), text), text); }
};

struct CountedFolderEnum final : Counted<IProtectedFolderEnum> {
    using Counted::Counted;
    std::int32_t Next(IProtectedFolder** next) override {
        return HandOut<CountedFolder>(Call(SLOT(IProtectedFolderEnum, Next), next), next);
    }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override { return Call(SLOT(IProtectedFolderEnum, GetChangeCounter)); }
};

struct CountedReader final : Counted<IFileReader> {
    using Counted::Counted;
    std::uint32_t Advance() override { return Call(SLOT(IFileReader, Advance)); }
    const void* GetData() override { return Call(SLOT(IFileReader, GetData)); }
    std::uint32_t GetDataLength() override { return Call(SLOT(IFileReader, GetDataLength)); }
};

struct CountedWriter final : Counted<IFileWriter> {
    using Counted::Counted;
    bool Write(const void* data, std::uint32_t length) override { return Call(SLOT(IFileWriter, Write), data, length); }
    bool Finish(bool commit) override { return Call(SLOT(IFileWriter, Finish), commit); }
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
    Enter(__func__);
    companion::Initialize(raise);
}

void Quelcrypt_Uninitialize() {
    Enter(__func__);
    companion::Uninitialize();
}

IFileLogger* Quelcrypt_GetFileLogger(std::int32_t) {
    static CapturingLogger& logger = *new CapturingLogger;
    return Do(__func__, []() -> IFileLogger* { return &logger; });
}

std::uint32_t Quelcrypt_GetLoggerComponentIndex(const char* componentName) {
    Enter(__func__);
    return companion::LoggerComponentIndex(componentName);
}

IQuelcryptConfig* Quelcrypt_GetQuelcryptConfig(void*, void*) {
    return Do(__func__, [] { return Counting<CountedConfig>(companion::MakeQuelcryptConfig()); });
}

std::int32_t Quelcrypt_GetHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config, void*, void*) {
    return HandOut<CountedBox>(Do(__func__, [&] { return companion::MakeHalvaneBoxConfig(folderPathUtf8, config); }), config);
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) {
    return HandOut<CountedFolderEnum>(Do(__func__, [&] { return companion::MakeProtectedFolderEnum(folders); }), folders);
}

std::int32_t Quelcrypt_GetFileInformation(const char* path, IHvcStringW** name, std::uint64_t* size, const WIN32_FIND_DATAW* rawEntry,
                                          SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation, void*) {
    const auto get = [&] { return companion::GetFileInformation(path, name, size, rawEntry, lastWrite, lastAccess, creation); };
    return HandOut<CountedString>(Do(__func__, get), name);
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) {
    return Counting<CountedReader>(Do(__func__, [&] { return companion::MakeReader(containerPath); }));
}

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* path, IHvcStringW* name, IHvcStringW* source, std::uint32_t attributes,
                                         const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation,
                                         std::int32_t, std::uint32_t, void*) {
    const auto make = [&] {
        return companion::MakeWriter(path, name, source, attributes, lastWrite, lastAccess, creation, companion::IfThere::Replace);
    };
    return Counting<CountedWriter>(Do(__func__, make));
}

__declspec(dllexport) TestCompanion& Companion() { return g_state; }
}
