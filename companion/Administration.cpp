#include "Administration.h"

#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>

#include "Boundary.h"
#include "ContainerContent.h"
#include "ContainerReader.h"
#include "ContainerWriter.h"
#include "KeyRing.h"
#include "PasswordProof.h"
#include "Paths.h"
#include "Problem.h"
#include "SettingsStore.h"
#include "Text.h"

using namespace companion;

namespace {

void Store(const std::wstring& text, wchar_t* reason, std::uint32_t capacity) {
    if (!reason || capacity == 0)
        return;
    const std::size_t length = std::min<std::size_t>(text.size(), capacity - 1);
    std::wmemcpy(reason, text.data(), length);
    reason[length] = L'\0';
}

// The verdict already says that the container is damaged.
std::wstring WithoutDamaged(const std::wstring& reason) {
    constexpr std::wstring_view beginning = L"The container is damaged: ";
    return reason.starts_with(beginning) ? reason.substr(beginning.size()) : reason;
}

// Returns body's verdict; an exception becomes a verdict and its reason.
template <class Body>
CompanionVerdict Judged(CompanionVerdict failure, wchar_t* reason, std::uint32_t capacity, Body body) noexcept {
    try {
        Store({}, reason, capacity);
        return body();
    } catch (const CQuelcryptErrorException& error) {
        Store(WithoutDamaged(error.GetDescription()), reason, capacity);
    } catch (...) {
        Store(L"Out of memory", reason, capacity);
        return Companion_Unreadable;
    }
    return failure;
}

CompanionVerdict ReadToItsEnd(ContainerFile& file, const std::wstring& path, bool (*step)(void*, std::uint64_t), void* context,
                              wchar_t* reason, std::uint32_t capacity) {
    std::unique_ptr<ContentCipher> cipher;
    std::string key;
    const auto settings = CurrentSettings();
    const auto folder = settings->settings.KeyFolderOf(path);
    if (file.Zip()->keyBytes != 0 && !(cipher = FittingCipher(file, path, key))) {
        Store(LastProblem().empty() ? L"No configured password opens it" : LastProblem(), reason, capacity);
        return Companion_WrongKey;
    }
    const bool isOther = cipher && folder && folder->key != key;
    ContainerContent content(file, std::move(cipher));
    for (auto block = content.Next(); !block.empty(); block = content.Next())
        if (!step(context, block.size()))
            return Companion_Stopped;
    return isOther ? Companion_OtherKey : Companion_Whole;
}

}  // namespace

CompanionVerdict Companion_Examine(const wchar_t* containerPath, bool (*step)(void*, std::uint64_t), void* context, wchar_t* reason,
                                   std::uint32_t capacity) {
    ForgetProblem();
    return Judged(Companion_Damaged, reason, capacity, [&] {
        const std::wstring path = FullPath(containerPath);
        ContainerFile file(path);
        if (const DWORD error = file.OpenError() ? file.OpenError() : file.ReadError()) {
            Store(SystemErrorText(error), reason, capacity);
            return Companion_Unreadable;
        }
        if (!file.Zip() && !file.IsBroken())
            return Companion_NoContainer;
        if (!file.Zip())
            Fail(L"its records are not whole");
        return step ? ReadToItsEnd(file, path, step, context, reason, capacity) : Companion_Whole;
    });
}

CompanionVerdict Companion_CheckPassword(const wchar_t* folderPath, bool mayAsk, wchar_t* reason, std::uint32_t capacity) {
    return Judged(Companion_WrongKey, reason, capacity, [&] {
        const std::wstring path = FullPath(folderPath);
        const auto inForce = CurrentSettings();
        const Settings& settings = inForce->settings;
        const auto box = settings.BoxOf(path);
        const auto folder = settings.KeyFolderOf(path);
        if (!box || box->policy.empty())
            return Companion_Whole;
        if (!folder)
            Fail(L"No key is configured for this folder");
        const auto password = PasswordOf(settings, folder->key, mayAsk ? Asking::Allowed : Asking::Forbidden);
        if (!password)
            return Companion_NotProven;
        ProvePassword(settings, *folder, *password, {}, BeforeWriting::No);
        return Companion_Whole;
    });
}

void Companion_ForbidAsking() { ForbidAsking(); }

void Companion_LastProblem(wchar_t* reason, std::uint32_t capacity) {
    Judged(Companion_Whole, reason, capacity, [&] {
        Store(LastProblem(), reason, capacity);
        return Companion_Whole;
    });
}

IFileWriter* Companion_NewFileWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                                     std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                                     const SYSTEMTIME* creation) {
    return MakeWriter(containerPath, virtualFileSpec, sourcePath, sourceAttributes, lastWrite, lastAccess, creation, IfThere::Keep);
}
