// Choosing a password for documents, and where it is kept. It is typed twice, made, or taken from a variable or command; weak ones
// are refused.
#pragma once

#include <string>

#include "companion/Secret.h"
#include "companion/Settings.h"

struct PasswordChoice {
    bool generate = false, allowWeak = false;
    std::string environment, command;  // the variable or command that it comes from, if any, now and later
    std::string keep;                  // otherwise "protected" (also if empty), "prompt" or "plain"
};

struct NewPassword {
    companion::Secret secret;
    companion::PasswordSource source;
    bool isMade = false;  // made by this program, so the user has not seen it yet
};

// whose: for the question. Throws UsageError for choices that contradict each other, and HostError when nobody can be asked, the password
// is weak, or the variable or command gives none.
NewPassword ChoosePassword(const PasswordChoice& choice, const std::string& whose);
// Tells the user where the password is kept, and the password itself if it was made; ends with a line end.
std::string AboutPassword(const NewPassword& password);
