// Choosing a password for documents: typed twice, made, or taken from where it will come from later; weak ones are refused. And where
// it is kept.
#pragma once

#include <string>

#include "companion/Secret.h"
#include "companion/Settings.h"

struct PasswordChoice {
    bool generate = false, allowWeak = false;
    std::string environment, command;  // where it comes from, now and later
    std::string keep = "protected";    // "protected", "prompt" or "plain", when it comes from neither
};

struct NewPassword {
    companion::Secret secret;
    companion::PasswordSource source;
    bool isMade = false;  // made here, so that nobody has seen it yet
};

// whose: for the question. Throws HostError when there is nobody to ask, the password is weak, or it cannot be had.
NewPassword ChoosePassword(const PasswordChoice& choice, const std::string& whose);
// What the user has to know of where it is kept, and the password itself if it was made; ends with a line end.
std::string AboutPassword(const NewPassword& password);
