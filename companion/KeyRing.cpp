#include "KeyRing.h"

#include <algorithm>
#include <map>
#include <mutex>

#include <windows.h>

#include "Boundary.h"
#include "PasswordProof.h"
#include "ProtectedText.h"
#include "Terminal.h"
#include "Text.h"
#include "common/CharacterSets.h"
#include "common/Owners.h"

namespace companion {
namespace {

using Kind = PasswordSource::Kind;

Secret FromVariable(const std::wstring& name) {
    wchar_t value[2048];
    const DWORD length = GetEnvironmentVariableW(name.c_str(), value, static_cast<DWORD>(std::size(value)));
    if (length == 0 || length >= std::size(value))
        Fail(L"the environment variable " + name + (length == 0 ? L" is not set" : L" is too long"));
    Secret secret(ToUtf8({value, length}));
    Wipe(value, sizeof(value));
    return secret;
}

// The command uses this program's standard input and error, because it may ask something itself.
Secret FromCommand(std::wstring commandLine) {
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    HANDLE ends[2];
    if (!CreatePipe(&ends[0], &ends[1], &inherited, 0))
        FailWithError(L"no pipe to its command", GetLastError());
    UniqueHandle output(ends[0]), itsOutput(ends[1]);
    SetHandleInformation(output.Get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    startup.hStdOutput = itsOutput.Get();
    PROCESS_INFORMATION process{};
    const std::wstring shown = commandLine;
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process))
        FailWithError(L"its command \"" + shown + L"\" could not be started", GetLastError());
    const UniqueHandle running(process.hProcess), thread(process.hThread);
    itsOutput.Reset();
    WipedVector<char> text;
    char part[1024];
    for (DWORD read = 0; ReadFile(output.Get(), part, sizeof(part), &read, nullptr) && read > 0;)
        text.insert(text.end(), part, part + read);
    Wipe(part, sizeof(part));
    WaitForSingleObject(running.Get(), INFINITE);
    DWORD code = 1;
    GetExitCodeProcess(running.Get(), &code);
    if (code != 0)
        Fail(L"its command \"" + shown + L"\" ended with " + std::to_wstring(code));
    return FirstLineOf({text.data(), text.size()});
}

struct Verdict {
    bool isKnown = false;   // there is a check container
    std::wstring refusing;  // the folder whose check container the password does not open, if any
};

Verdict CheckInFolders(const Settings& settings, const std::string& key, const Secret& secret) {
    Verdict verdict;
    for (const ConfiguredFolder& folder : settings.folders) {
        const auto holder = settings.KeyFolderOf(folder.path);
        const CheckResult result = holder && holder->key == key ? OpensCheckContainer(*holder, secret) : CheckResult::Missing;
        verdict.isKnown = verdict.isKnown || result != CheckResult::Missing;
        if (result == CheckResult::Refused)
            verdict.refusing = holder->name;
    }
    return verdict;
}

// The names of the key's folders, for the question.
std::wstring FoldersOf(const Settings& settings, const std::string& key) {
    std::wstring names;
    for (const KeyFolder& folder : settings.FoldersOfKey(key))
        names += (names.empty() ? L"" : L", ") + folder.name;
    return names.empty() ? L"the key " + Widened(key, CharacterSet::Utf8) : names;
}

Secret FromPerson(const Settings& settings, const std::string& key) {
    if (!HasTerminal())
        Fail(L"it must be typed, and there is no terminal");
    const std::wstring question = L"Password of " + FoldersOf(settings, key) + L": ";
    constexpr int tries = 3;
    for (int attempt = 0; attempt < tries; ++attempt) {
        const std::optional<Secret> typed = AskForPassword(question);
        if (!typed || typed->IsEmpty())
            Fail(L"none was typed");
        const Verdict verdict = CheckInFolders(settings, key, *typed);
        if (!verdict.refusing.empty())
            TellAtTerminal(L"This is not the password of " + verdict.refusing + L".");
        else if (!verdict.isKnown && AskForPassword(L"Once more, because there is nothing yet to check it against: ") != typed)
            TellAtTerminal(L"The two are not the same.");
        else
            return *typed;
    }
    Fail(L"a wrong one was typed three times");
}

Secret Fetch(const Settings& settings, const std::string& key, const PasswordSource& source) {
    switch (source.kind) {
        case Kind::Plain: return Secret(source.value);
        case Kind::Environment: return FromVariable(FromUtf8(source.value));
        case Kind::Command: return FromCommand(FromUtf8(source.value));
        case Kind::Protected: return Unprotect(source.value);
        case Kind::Prompt: break;
    }
    return FromPerson(settings, key);
}

struct Kept {
    PasswordSource source;
    Secret secret;
    std::wstring refusal;  // why there is no password; only after a prompt, which is not repeated
};

std::mutex g_mutex;
std::map<std::string, Kept> g_kept;
bool g_askingForbidden = false;

}  // namespace

std::optional<Secret> PasswordOf(const Settings& settings, const std::string& key, Asking asking) {
    const auto found = settings.passwords.find(key);
    const std::wstring whose = L"The password of the key \"" + Widened(key, CharacterSet::Utf8) + L"\": ";
    if (found == settings.passwords.end())
        Fail(whose + L"the configuration gives none; set it with 'quelvol key set'");
    const PasswordSource& source = found->second;
    if (source.kind == Kind::Plain)
        return Secret(source.value);
    const std::lock_guard guard(g_mutex);
    Kept& kept = g_kept[key];
    const bool isKnown = kept.source == source;
    if (isKnown && !kept.secret.IsEmpty() && source.kind != Kind::Environment)
        return kept.secret;
    if (source.kind == Kind::Prompt && !(isKnown && !kept.refusal.empty()) && (g_askingForbidden || asking == Asking::Forbidden))
        return std::nullopt;
    if (isKnown && !kept.refusal.empty())
        Fail(kept.refusal);
    kept = {source, {}, {}};
    try {
        kept.secret = Fetch(settings, key, source);
        if (kept.secret.IsEmpty())
            Fail(L"it is empty");
    } catch (const CQuelcryptErrorException& error) {
        const std::wstring refusal = whose + error.GetDescription();
        if (source.kind == Kind::Prompt)
            kept.refusal = refusal;
        Fail(refusal);
    }
    return kept.secret;
}

void ForbidAsking() {
    const std::lock_guard guard(g_mutex);
    g_askingForbidden = true;
}

}  // namespace companion
