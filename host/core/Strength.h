// How long it takes to guess a password. The estimate is low, because what people make up is far weaker than its length.
#pragma once

#include <string>
#include <string_view>

#include "companion/Secret.h"

// Containers derive their keys with so few rounds that one graphics card tries this many passwords a second.
constexpr double kGuessesPerSecond = 1e7;
// Fewer bits are refused. With 64 such a card needs some thirty thousand years, and a thousand cards thirty.
constexpr double kWeakBits = 64;

// In bits: a guesser needs two to the power of it. A common word counts by its place in the list of such words, any other as one of eight
// thousand, and a sentence by its letters; what repeats or is a row of keys counts almost nothing, and the commonest passwords count also
// with digits and signs for letters. All else counts as drawn by lot from the kinds of signs that are used.
double StrengthBits(std::wstring_view password);
// The time for one graphics card: "some seconds", "about 40 years".
std::string GuessingTime(double bits);
// About 150 bits from the system's random numbers, in groups that can be written down: no letter looks like a digit. Throws
// HostError.
companion::Secret MakePassword();
