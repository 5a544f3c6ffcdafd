// How long a password would stand against guessing, judged from below: what people make up is far weaker than its length.
#pragma once

#include <string>
#include <string_view>

#include "companion/Secret.h"

// Containers derive their keys with so few rounds that one graphics card tries this many passwords a second.
constexpr double kGuessesPerSecond = 1e7;
constexpr double kWeakBits = 60;

// In bits: a guesser needs two to the power of it. A run of letters counts as words, which are guessed from lists; what repeats or
// continues the character before counts for almost nothing.
double StrengthBits(std::wstring_view password);
// "some seconds", "about 40 years", as one graphics card needs.
std::string GuessingTime(double bits);
// About 150 bits from the system's random numbers, in groups that can be written down: no letter looks like a digit. Throws
// HostError.
companion::Secret MakePassword();
