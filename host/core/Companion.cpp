#include "core/Companion.h"

#include <windows.h>

#include "companion/Administration.h"
#include "core/HostError.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr std::uint32_t kReasonCapacity = 1024;

// Null: there is no library, or it lacks this function.
template <class Function>
Function* Find(const char* name) {
    const HMODULE library = GetModuleHandleW(L"QuelcryptLib64.dll");
    return library ? reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name))) : nullptr;
}

Verdict VerdictOf(CompanionVerdict verdict, const wchar_t* reason) { return {static_cast<ContainerState>(verdict), ToUtf8(reason)}; }

bool CallStep(void* context, std::uint64_t bytes) { return (*static_cast<const std::function<bool(std::uint64_t)>*>(context))(bytes); }

template <class Object>
struct Owner {
    Object* object = nullptr;
    ~Owner() {
        if (object)
            object->Release();
    }
};

}  // namespace

std::string LastContainerProblem() {
    wchar_t reason[kReasonCapacity] = L"";
    if (const auto ask = Find<decltype(Companion_LastProblem)>("Companion_LastProblem"))
        ask(reason, kReasonCapacity);
    return ToUtf8(reason);
}

Verdict ExamineContainer(const std::wstring& path, const std::function<bool(std::uint64_t)>& step) {
    const auto examine = Find<decltype(Companion_Examine)>("Companion_Examine");
    if (!examine)
        return {};
    wchar_t reason[kReasonCapacity] = L"";
    auto* const context = const_cast<std::function<bool(std::uint64_t)>*>(&step);
    const CompanionVerdict verdict = examine(path.c_str(), step ? CallStep : nullptr, context, reason, kReasonCapacity);
    return VerdictOf(verdict, reason);
}

void ReadContainer(const std::wstring& path, const std::function<void(const char*, std::size_t)>& take) {
    const auto make = Find<decltype(Quelcrypt_FileReaderFactory)>("Quelcrypt_FileReaderFactory");
    try {
        CHvcStringWImpl name(path.c_str());
        const Owner<IFileReader> reader{make ? make(&name) : nullptr};
        if (!reader.object)
            throw HostError(ToUtf8(path) + ": " + LastContainerProblem());
        while (reader.object->Advance() != 0)
            take(static_cast<const char*>(reader.object->GetData()), reader.object->GetDataLength());
    } catch (const CQuelcryptErrorException& error) {
        const std::string problem = LastContainerProblem();
        throw HostError(ToUtf8(path) + ": " + (problem.empty() ? ToUtf8(error.GetDescription()) : problem));
    }
}

bool ContainerTimes(const std::wstring& path, SYSTEMTIME& lastWrite, SYSTEMTIME& lastAccess, SYSTEMTIME& creation) {
    const auto inform = Find<decltype(Quelcrypt_GetFileInformation)>("Quelcrypt_GetFileInformation");
    try {
        Owner<IHvcStringW> name;
        std::uint64_t size = 0;
        return inform && inform(ToUtf8(path).c_str(), &name.object, &size, nullptr, &lastWrite, &lastAccess, &creation, nullptr) == 1;
    } catch (const CQuelcryptException&) {
        return false;
    }
}

NewContainer::NewContainer(const std::wstring& path, const std::wstring& name, const std::wstring& source,
                           const BY_HANDLE_FILE_INFORMATION& of)
    : m_shown(ToUtf8(path)) {
    const auto makeNew = Find<decltype(Companion_NewFileWriter)>("Companion_NewFileWriter");
    const auto make = Find<decltype(Quelcrypt_FileWriterFactory)>("Quelcrypt_FileWriterFactory");
    const auto time = [](const FILETIME& fileTime) {
        SYSTEMTIME systemTime{};
        FileTimeToSystemTime(&fileTime, &systemTime);
        return systemTime;
    };
    const SYSTEMTIME lastWrite = time(of.ftLastWriteTime), lastAccess = time(of.ftLastAccessTime), creation = time(of.ftCreationTime);
    CHvcStringWImpl containerText(path.c_str()), nameText(name.c_str()), sourceText(source.c_str());
    Do([&] {
        constexpr std::int32_t mode = 2;
        constexpr std::uint32_t chunk = 32768;
        if (makeNew)
            m_writer = makeNew(&containerText, &nameText, &sourceText, of.dwFileAttributes, &lastWrite, &lastAccess, &creation);
        else
            m_writer = make ? make(&containerText, &nameText, &sourceText, of.dwFileAttributes, &lastWrite, &lastAccess, &creation, mode,
                                   chunk, nullptr)
                            : nullptr;
        return m_writer != nullptr;
    });
}

NewContainer::~NewContainer() {
    if (m_writer)
        m_writer->Release();
}

void NewContainer::Write(const char* data, std::size_t size) {
    Do([&] { return m_writer->Write(data, static_cast<std::uint32_t>(size)); });
}

void NewContainer::Finish() {
    Do([&] { return m_writer->Finish(true); });
}

void NewContainer::Do(const std::function<bool()>& step) {
    try {
        if (step())
            return;
    } catch (const CQuelcryptErrorException&) {
        // The library also noted the reason (LastContainerProblem).
    }
    throw HostError(m_shown + ": " + LastContainerProblem());
}

Verdict CheckFolderPassword(const std::wstring& folder, bool mayAsk) {
    const auto check = Find<decltype(Companion_CheckPassword)>("Companion_CheckPassword");
    if (!check)
        return {};
    wchar_t reason[kReasonCapacity] = L"";
    const CompanionVerdict verdict = check(folder.c_str(), mayAsk, reason, kReasonCapacity);
    return VerdictOf(verdict, reason);
}

void ForbidPasswordQuestions() {
    if (const auto forbid = Find<decltype(Companion_ForbidAsking)>("Companion_ForbidAsking"))
        forbid();
}

std::optional<bool> FolderHasPolicy(const std::wstring& folder) {
    const auto make = Find<decltype(Quelcrypt_GetHalvaneBoxConfig)>("Quelcrypt_GetHalvaneBoxConfig");
    try {
        Owner<IHalvaneBoxConfig> config;
        if (!make || make(ToUtf8(folder).c_str(), &config.object, nullptr, nullptr) == 0)
            return std::nullopt;
        char policy[128];
        return config.object && config.object->GetPolicy(policy, sizeof(policy)) > 0;
    } catch (const CQuelcryptException&) {
        return std::nullopt;
    }
}

bool IsNameExcluded(const std::wstring& name) {
    const auto make = Find<decltype(Quelcrypt_GetQuelcryptConfig)>("Quelcrypt_GetQuelcryptConfig");
    try {
        const Owner<IQuelcryptConfig> config{make ? make(nullptr, nullptr) : nullptr};
        return config.object && config.object->IsExcluded(ToUtf8(name).c_str(), 0);
    } catch (const CQuelcryptException&) {
        return false;
    }
}
