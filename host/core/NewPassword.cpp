#include "core/NewPassword.h"

#include <cmath>

#include "companion/KeyRing.h"
#include "companion/ProtectedText.h"
#include "companion/Terminal.h"
#include "core/HostError.h"
#include "core/Interrupt.h"
#include "core/Strength.h"
#include "core/Text.h"

using companion::PasswordSource;
using companion::Secret;
using Kind = companion::PasswordSource::Kind;

namespace {

void RefuseWeak(const Secret& secret) {
    std::wstring text = ToUtf16(secret.Text());
    const double bits = StrengthBits(text);
    companion::Wipe(text);
    if (bits < kWeakBits)
        throw HostError("the password is weak: it has about " + std::to_string(std::lround(bits)) + " bits, and needs " +
                        std::to_string(std::lround(kWeakBits)) + "; one graphics card guesses it in " + GuessingTime(bits) +
                        ". Take six random words or more, or let one be made (an empty answer, or --generate); --weak takes it anyway");
}

Secret Ask(const PasswordChoice& choice, const std::string& whose, bool& isMade) {
    if (!companion::HasTerminal())
        throw HostError(
            "there is no terminal to ask for the password at; --generate makes one, --environment and --command say where it comes from");
    const std::wstring question = ToUtf16("New password of " + whose + " (empty: one is made for you): ");
    for (;;) {
        std::optional<Secret> typed = companion::AskForPassword(question);
        StopIfInterrupted();  // some systems return what is typed after Ctrl-C
        if (!typed)
            throw HostError("no password was typed; nothing was changed", Exit_Interrupted);
        isMade = typed->IsEmpty();
        if (isMade)
            return MakePassword();
        try {
            if (!choice.allowWeak)
                RefuseWeak(*typed);
        } catch (const HostError& error) {
            companion::TellAtTerminal(ToUtf16(error.what()));
            continue;
        }
        const std::optional<Secret> again = companion::AskForPassword(L"The same once more: ");
        StopIfInterrupted();
        if (again == typed)
            return *typed;
        companion::TellAtTerminal(L"The two are not the same.");
    }
}

PasswordSource SourceOf(const PasswordChoice& choice, const Secret& secret) {
    if (choice.keep == "prompt")
        return {Kind::Prompt, {}};
    if (choice.keep == "plain")
        return {Kind::Plain, std::string(secret.Text())};
    return {Kind::Protected, companion::Protect(secret)};
}

}  // namespace

NewPassword ChoosePassword(const PasswordChoice& choice, const std::string& whose) {
    NewPassword password;
    const bool comesFromElsewhere = !choice.environment.empty() || !choice.command.empty();
    if (choice.generate + !choice.environment.empty() + !choice.command.empty() > 1)
        throw UsageError("--environment, --command and --generate each say where the password comes from; give only one of them");
    if (comesFromElsewhere && !choice.keep.empty())
        throw UsageError("--keep says how to keep a typed or made password; that of --environment or --command is kept where it is");
    if (comesFromElsewhere) {
        password.source = choice.environment.empty() ? PasswordSource{Kind::Command, choice.command}
                                                     : PasswordSource{Kind::Environment, choice.environment};
        companion::Settings settings;
        settings.passwords.emplace(whose, password.source);
        password.secret = *companion::PasswordOf(settings, whose, companion::Asking::Forbidden);
        if (!choice.allowWeak)
            RefuseWeak(password.secret);
        return password;
    }
    password.isMade = choice.generate;
    password.secret = choice.generate ? MakePassword() : Ask(choice, whose, password.isMade);
    password.source = SourceOf(choice, password.secret);
    if (password.isMade)  // before anything is protected with it
        PrintOut("The password, which is shown this once; write it down or put it in a password manager:\n\n    " +
                 std::string(password.secret.Text()) + "\n\n");
    return password;
}

std::string AboutPassword(const NewPassword& password) {
    std::string text;
    switch (password.source.kind) {
        case Kind::Plain: text += "It is readable in the configuration.\n"; break;
        case Kind::Prompt: text += "It is kept nowhere: whoever uses the folder is asked for it.\n"; break;
        case Kind::Environment: text += "It is taken from the environment variable " + password.source.value + ".\n"; break;
        case Kind::Command: text += "It is taken from what the command prints: " + password.source.value + "\n"; break;
        case Kind::Protected:
            text += companion::IsWine()
                        ? "It is kept in the configuration, hidden but not safe: under Wine whoever may read that file can find it out.\n"
                        : "It is kept in your protected store: only your own logon on this machine can use it.\n";
    }
    return text + "Without the password nobody can open the documents, and nobody can recover it. Keep a copy of it elsewhere.\n";
}
