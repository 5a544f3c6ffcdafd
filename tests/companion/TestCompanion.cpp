// The development companion library's own code, with a thin layer in place of its exports: see Control.h.
#include "Control.h"

#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "companion/Boundary.h"
#include "companion/Library.h"

namespace {

struct Line {
    std::uint32_t level;
    std::uint32_t threadId;
    std::wstring text;
};

struct State {
    std::recursive_mutex mutex;
    std::map<std::string, std::uint32_t> calls;
    std::uint32_t allCalls = 0;
    std::int32_t liveObjects = 0;
    std::string failName;
    std::uint32_t failIn = 0;
    Fault fault = Fault::None;
    bool repeat = false;
    bool hit = false;
    const char* hitName = "";
    std::uint32_t level = LogLevel_Trace;
    std::vector<Line> lines;
    std::string hookName;
    void (*hook)(void*) = nullptr;
    void* hookContext = nullptr;
    void (*raise)() = nullptr;
};

State& TheState() {
    static State& state = *new State;
    return state;
}

// When it is called depends on the time.
constexpr const char* kGetLevel = "IFileLogger::GetLevel";

// Counts a call and answers whether, and how, it is to fail; exceptions are thrown here.
Fault Enter(const char* name) {
    State& state = TheState();
    Fault fault = Fault::None;
    void (*hook)(void*) = nullptr;
    void* context = nullptr;
    {
        const std::lock_guard guard(state.mutex);
        ++state.calls[name];
        ++state.allCalls;
        if (state.hook && state.hookName == name) {
            hook = state.hook;
            context = state.hookContext;
        }
        const bool isMeant = state.failName.empty() ? std::string_view(name) != kGetLevel : state.failName == name;
        if (state.fault != Fault::None && isMeant) {
            if (state.failIn > 0)
                --state.failIn;
            if (state.failIn == 0 && (!state.hit || state.repeat)) {
                state.hit = true;
                state.hitName = name;
                fault = state.fault;
            }
        }
    }
    if (hook)
        hook(context);
    switch (fault) {
        case Fault::Raise: state.raise(); break;
        case Fault::Error: throw CQuelcryptErrorException(L"The test asked for it");
        case Fault::WrongPassword: throw CQuelcryptErrorException(L"Cannot recover password");
        case Fault::OutOfMemory: throw std::bad_alloc();
        default: break;
    }
    return fault;
}

void CountObject(int difference) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.liveObjects += difference;
}

// One handed-out object around the companion library's own.
template <class Interface>
class Counted : public companion::Handed<Interface> {
protected:
    explicit Counted(Interface* inner) : m_inner(inner) { CountObject(1); }
    ~Counted() override {
        m_inner->Release();
        CountObject(-1);
    }
    Interface* m_inner;
};

template <class Object, class Interface>
void Wrap(Interface** object) {
    if (*object)
        *object = new Object(*object);
}

class CountedString final : public Counted<IHvcStringW> {
public:
    explicit CountedString(IHvcStringW* inner) : Counted(inner) {}
    const wchar_t* GetString() override { return m_inner->GetString(); }
};

class CountedConfig final : public Counted<IQuelcryptConfig> {
public:
    explicit CountedConfig(IQuelcryptConfig* inner) : Counted(inner) {}
    bool IsExcluded(const char* name, std::int32_t zero) override {
        return Enter("IQuelcryptConfig::IsExcluded") == Fault::None && m_inner->IsExcluded(name, zero);
    }
};

class CountedBox final : public Counted<IHalvaneBoxConfig> {
public:
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

class CountedText final : public Counted<IQuelcryptText> {
public:
    explicit CountedText(IQuelcryptText* inner) : Counted(inner) {}
    bool HasText(std::int32_t zero) override { return Enter("IQuelcryptText::HasText") == Fault::None && m_inner->HasText(zero); }
    const char* GetText(std::int32_t zero) override {
        return Enter("IQuelcryptText::GetText") == Fault::None ? m_inner->GetText(zero) : nullptr;
    }
};

class CountedFolder final : public Counted<IProtectedFolder> {
public:
    explicit CountedFolder(IProtectedFolder* inner) : Counted(inner) {}
    void Reserved2() override {}
    void Reserved4() override {}
    void GetRecord(ProtectedFolderRecord* record) override {
        Enter("IProtectedFolder::GetRecord");
        m_inner->GetRecord(record);
    }
    bool GetName(IQuelcryptText** text) override { return Hand("IProtectedFolder::GetName", &IProtectedFolder::GetName, text); }
    bool GetPath(IQuelcryptText** text) override { return Hand("IProtectedFolder::GetPath", &IProtectedFolder::GetPath, text); }

private:
    bool Hand(const char* name, bool (IProtectedFolder::*getter)(IQuelcryptText**), IQuelcryptText** text) {
        if (Enter(name) != Fault::None || !(m_inner->*getter)(text))
            return false;
        Wrap<CountedText>(text);
        return true;
    }
};

class CountedFolderEnum final : public Counted<IProtectedFolderEnum> {
public:
    explicit CountedFolderEnum(IProtectedFolderEnum* inner) : Counted(inner) {}
    std::int32_t Next(IProtectedFolder** folder) override {
        if (Enter("IProtectedFolderEnum::Next") != Fault::None)
            return 0;
        const std::int32_t result = m_inner->Next(folder);
        if (result)
            Wrap<CountedFolder>(folder);
        return result;
    }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override {
        return Enter("IProtectedFolderEnum::GetChangeCounter") == Fault::None ? m_inner->GetChangeCounter() : 0;
    }
};

class CountedReader final : public Counted<IFileReader> {
public:
    explicit CountedReader(IFileReader* inner) : Counted(inner) {}
    std::uint32_t Advance() override { return Enter("IFileReader::Advance") == Fault::None ? m_inner->Advance() : 0; }
    const void* GetData() override {
        return Enter("IFileReader::GetData") == Fault::None ? m_inner->GetData() : nullptr;
    }
    std::uint32_t GetDataLength() override {
        return Enter("IFileReader::GetDataLength") == Fault::None ? m_inner->GetDataLength() : 0;
    }
};

class CountedWriter final : public Counted<IFileWriter> {
public:
    explicit CountedWriter(IFileWriter* inner) : Counted(inner) {}
    bool Write(const void* data, std::uint32_t length) override {
        return Enter("IFileWriter::Write") == Fault::None && m_inner->Write(data, length);
    }
    bool Finish(bool commit) override { return Enter("IFileWriter::Finish") == Fault::None && m_inner->Finish(commit); }
};

class CapturingLogger final : public IFileLogger {
public:
    void Write(std::uint32_t, std::uint32_t level, const wchar_t* text, void*) override {
        State& state = TheState();
        const std::lock_guard guard(state.mutex);
        state.lines.push_back({level, GetCurrentThreadId(), text});
    }
    std::uint32_t GetLevel(std::uint32_t) override {
        Enter(kGetLevel);
        return TheState().level;
    }
};

template <class Object, class Interface>
Interface* Counting(Interface* object) {
    Wrap<Object>(&object);
    return object;
}

}  // namespace

extern "C" {

void Quelcrypt_Initialize(void (*raise)()) {
    TheState().raise = raise;
    Enter("Quelcrypt_Initialize");
    companion::Initialize(raise);
}

void Quelcrypt_Uninitialize() {
    Enter("Quelcrypt_Uninitialize");
    companion::Uninitialize();
}

IFileLogger* Quelcrypt_GetFileLogger(std::int32_t) {
    if (Enter("Quelcrypt_GetFileLogger") != Fault::None)
        return nullptr;
    static CapturingLogger& logger = *new CapturingLogger;
    return &logger;
}

std::uint32_t Quelcrypt_GetLoggerComponentIndex(const char* componentName) {
    Enter("Quelcrypt_GetLoggerComponentIndex");
    return companion::LoggerComponentIndex(componentName);
}

IQuelcryptConfig* Quelcrypt_GetQuelcryptConfig(void*, void*) {
    if (Enter("Quelcrypt_GetQuelcryptConfig") != Fault::None)
        return nullptr;
    return Counting<CountedConfig>(companion::MakeQuelcryptConfig());
}

std::int32_t Quelcrypt_GetHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config, void*, void*) {
    if (Enter("Quelcrypt_GetHalvaneBoxConfig") != Fault::None)
        return 0;
    const std::int32_t result = companion::MakeHalvaneBoxConfig(folderPathUtf8, config);
    if (result)
        Wrap<CountedBox>(config);
    return result;
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) {
    if (Enter("Quelcrypt_GetProtectedFolderEnum") != Fault::None)
        return 0;
    const std::int32_t result = companion::MakeProtectedFolderEnum(folders);
    if (result)
        Wrap<CountedFolderEnum>(folders);
    return result;
}

std::int32_t Quelcrypt_GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                          const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess,
                                          SYSTEMTIME* creation, void*) {
    if (Enter("Quelcrypt_GetFileInformation") != Fault::None)
        return 0;
    const std::int32_t result =
        companion::GetFileInformation(containerPathUtf8, storedName, plainSize, rawEntry, lastWrite, lastAccess, creation);
    if (result == 1)
        Wrap<CountedString>(storedName);
    return result;
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) {
    if (Enter("Quelcrypt_FileReaderFactory") != Fault::None)
        return nullptr;
    return Counting<CountedReader>(companion::MakeReader(containerPath));
}

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                                         std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite,
                                         const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation, std::int32_t, std::uint32_t, void*) {
    if (Enter("Quelcrypt_FileWriterFactory") != Fault::None)
        return nullptr;
    return Counting<CountedWriter>(
        companion::MakeWriter(containerPath, virtualFileSpec, sourcePath, sourceAttributes, lastWrite, lastAccess, creation));
}

std::uint32_t TestCompanion_Calls(const char* name) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    const auto found = state.calls.find(name);
    return found == state.calls.end() ? 0 : found->second;
}

std::uint32_t TestCompanion_AllCalls() { return TheState().allCalls; }

std::int32_t TestCompanion_LiveObjects() { return TheState().liveObjects; }

void TestCompanion_FailNth(const char* name, std::uint32_t nth, Fault fault, bool repeat) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.failName = name ? name : "";
    state.failIn = nth;
    state.fault = fault;
    state.repeat = repeat;
    state.hit = false;
    state.hitName = "";
}

bool TestCompanion_FaultWasHit() { return TheState().hit; }

const char* TestCompanion_FaultedCall() { return TheState().hitName; }

void TestCompanion_SetLevel(std::uint32_t level) { TheState().level = level; }

void TestCompanion_ClearLines() {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.lines.clear();
}

void TestCompanion_VisitLines(LineVisitor visit, void* context) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    for (const Line& line : state.lines)
        visit(context, line.level, line.threadId, line.text.c_str());
}

void TestCompanion_SetHook(const char* name, void (*hook)(void*), void* context) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.hookName = name ? name : "";
    state.hook = hook;
    state.hookContext = context;
}
}
