// The development companion library's own code, with a thin layer in place of its exports: see Control.h.
#include "Control.h"

#include <new>
#include <string_view>

#include "companion/Boundary.h"
#include "companion/Library.h"

namespace {

TestCompanion& g_state = *new TestCompanion;
void (*g_raise)() = nullptr;

// What it does with the state nobody else does meanwhile.
template <class Use>
auto WithState(Use use) {
    const std::lock_guard guard(g_state.mutex);
    return use(g_state);
}

// Counts a call and answers whether, and how, it is to fail.
Fault Count(TestCompanion& state, std::string_view name) {
    const bool isAny = !name.starts_with("IFileLogger");  // when that is called depends on the time
    ++state.calls[std::string(name)];
    state.allCalls += isAny;
    const bool isMeant = name.find(state.failName) != name.npos && (isAny || state.failName.starts_with("IFileLogger"));
    if (state.fault == Fault::None || !isMeant || (state.failIn > 0 && --state.failIn > 0) || (state.wasHit && !state.repeat))
        return Fault::None;
    state.wasHit = true;
    return state.fault;
}

// The same, and calls the hook; exceptions are thrown here.
Fault Enter(const char* name) {
    std::function<void()> hook;
    const Fault fault = WithState([&](TestCompanion& state) {
        if (state.hookName == name)
            hook = state.hook;
        return Count(state, name);
    });
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

// What work answers, unless the call fails.
template <class Work>
auto Do(const char* name, Work work) {
    return Enter(name) == Fault::None ? work() : decltype(work())();
}

// One handed-out object around the companion library's own.
template <class Interface>
class Counted : public companion::Handed<Interface> {
protected:
    explicit Counted(Interface* inner) : m_inner(inner) {
        WithState([](TestCompanion& state) { return ++state.liveObjects; });
    }
    ~Counted() override {
        m_inner->Release();
        WithState([](TestCompanion& state) { return --state.liveObjects; });
    }
    Interface* m_inner;
};

template <class Object, class Interface>
Interface* Counting(Interface* object) {
    return object ? new Object(object) : nullptr;
}

struct CountedString final : Counted<IHvcStringW> {
    explicit CountedString(IHvcStringW* inner) : Counted(inner) {}
    const wchar_t* GetString() override { return m_inner->GetString(); }
};

struct CountedConfig final : Counted<IQuelcryptConfig> {
    explicit CountedConfig(IQuelcryptConfig* inner) : Counted(inner) {}
    bool IsExcluded(const char* name, std::int32_t zero) override {
        return Do("IQuelcryptConfig::IsExcluded", [&] { return m_inner->IsExcluded(name, zero); });
    }
};

struct CountedBox final : Counted<IHalvaneBoxConfig> {
    explicit CountedBox(IHalvaneBoxConfig* inner) : Counted(inner) {}
    void Reserved2() override {}
    void Reserved4() override {}
    void Reserved6() override {}
    std::uint32_t GetTargetKeyId(char* buffer, std::uint32_t capacity) override {
        return Answer("IHalvaneBoxConfig::GetTargetKeyId", m_inner->GetTargetKeyId(buffer, capacity), buffer, capacity);
    }
    std::uint32_t GetOwnerId(char* buffer, std::uint32_t capacity) override {
        return Answer("IHalvaneBoxConfig::GetOwnerId", m_inner->GetOwnerId(buffer, capacity), buffer, capacity);
    }
    std::uint32_t GetPolicy(char* buffer, std::uint32_t capacity) override {
        return Answer("IHalvaneBoxConfig::GetPolicy", m_inner->GetPolicy(buffer, capacity), buffer, capacity);
    }

private:
    static std::uint32_t Answer(const char* name, std::uint32_t length, char* buffer, std::uint32_t capacity) {
        switch (Enter(name)) {
            case Fault::Null: return 0;
            case Fault::OverLong: return capacity + 1000;
            case Fault::NoText: buffer[0] = '\xFF'; return length;
            default: return length;
        }
    }
};

struct CountedText final : Counted<IQuelcryptText> {
    explicit CountedText(IQuelcryptText* inner) : Counted(inner) {}
    bool HasText(std::int32_t zero) override {
        return Do("IQuelcryptText::HasText", [&] { return m_inner->HasText(zero); });
    }
    const char* GetText(std::int32_t zero) override {
        return Do("IQuelcryptText::GetText", [&] { return m_inner->GetText(zero); });
    }
};

struct CountedFolder final : Counted<IProtectedFolder> {
    explicit CountedFolder(IProtectedFolder* inner) : Counted(inner) {}
    void Reserved2() override {}
    void Reserved4() override {}
    void GetRecord(ProtectedFolderRecord* record) override {
        Enter("IProtectedFolder::GetRecord");
        m_inner->GetRecord(record);
    }
    bool GetName(IQuelcryptText** text) override {
        return Do("IProtectedFolder::GetName", [&] { return m_inner->GetName(text) && (*text = Counting<CountedText>(*text)); });
    }
    bool GetPath(IQuelcryptText** text) override {
        return Do("IProtectedFolder::GetPath", [&] { return m_inner->GetPath(text) && (*text = Counting<CountedText>(*text)); });
    }
};

struct CountedFolderEnum final : Counted<IProtectedFolderEnum> {
    explicit CountedFolderEnum(IProtectedFolderEnum* inner) : Counted(inner) {}
    std::int32_t Next(IProtectedFolder** folder) override {
        return Do("IProtectedFolderEnum::Next", [&] {
            const std::int32_t result = m_inner->Next(folder);
            if (result)
                *folder = Counting<CountedFolder>(*folder);
            return result;
        });
    }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override {
        return Do("IProtectedFolderEnum::GetChangeCounter", [&] { return m_inner->GetChangeCounter(); });
    }
};

struct CountedReader final : Counted<IFileReader> {
    explicit CountedReader(IFileReader* inner) : Counted(inner) {}
    std::uint32_t Advance() override {
        return Do("IFileReader::Advance", [&] { return m_inner->Advance(); });
    }
    const void* GetData() override {
        return Do("IFileReader::GetData", [&] { return m_inner->GetData(); });
    }
    std::uint32_t GetDataLength() override {
        return Do("IFileReader::GetDataLength", [&] { return m_inner->GetDataLength(); });
    }
};

struct CountedWriter final : Counted<IFileWriter> {
    explicit CountedWriter(IFileWriter* inner) : Counted(inner) {}
    bool Write(const void* data, std::uint32_t length) override {
        return Do("IFileWriter::Write", [&] { return m_inner->Write(data, length); });
    }
    bool Finish(bool commit) override {
        return Do("IFileWriter::Finish", [&] { return m_inner->Finish(commit); });
    }
};

class CapturingLogger final : public IFileLogger {
public:
    void Write(std::uint32_t, std::uint32_t level, const wchar_t* text, void*) override {
        Enter("IFileLogger::Write");
        WithState([&](TestCompanion& state) { state.lines.push_back({level, GetCurrentThreadId(), text}); });
        SetLastError(ERROR_DISK_FULL);  // which is to change nothing of what anybody is told
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
    return Do("Quelcrypt_GetHalvaneBoxConfig", [&] {
        const std::int32_t result = companion::MakeHalvaneBoxConfig(folderPathUtf8, config);
        if (result)
            *config = Counting<CountedBox>(*config);
        return result;
    });
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) {
    return Do("Quelcrypt_GetProtectedFolderEnum", [&] {
        const std::int32_t result = companion::MakeProtectedFolderEnum(folders);
        if (result)
            *folders = Counting<CountedFolderEnum>(*folders);
        return result;
    });
}

std::int32_t Quelcrypt_GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                          const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess,
                                          SYSTEMTIME* creation, void*) {
    return Do("Quelcrypt_GetFileInformation", [&] {
        const std::int32_t result =
            companion::GetFileInformation(containerPathUtf8, storedName, plainSize, rawEntry, lastWrite, lastAccess, creation);
        if (result == 1)
            *storedName = Counting<CountedString>(*storedName);
        return result;
    });
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) {
    return Do("Quelcrypt_FileReaderFactory", [&] { return Counting<CountedReader>(companion::MakeReader(containerPath)); });
}

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                                         std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                                         const SYSTEMTIME* creation, std::int32_t, std::uint32_t, void*) {
    return Do("Quelcrypt_FileWriterFactory", [&] {
        return Counting<CountedWriter>(
            companion::MakeWriter(containerPath, virtualFileSpec, sourcePath, sourceAttributes, lastWrite, lastAccess, creation));
    });
}

__declspec(dllexport) TestCompanion& Companion() { return g_state; }
}
