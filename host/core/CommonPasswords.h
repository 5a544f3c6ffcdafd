// What guessers try first. Written by hand: the words that lists of leaked passwords begin with, in many languages much the same.
#pragma once

#include <string_view>

// In small letters, without blanks; the letters that people replace by digits and signs are letters here.
// clang-format off
inline constexpr std::wstring_view kCommonPasswords[] = {
    L"password", L"passwort", L"passw", L"letmein", L"welcome", L"login", L"admin", L"administrator", L"root",
    L"user", L"guest", L"master", L"secret", L"changeme", L"default", L"test", L"testing", L"access",
    L"iloveyou", L"love", L"princess", L"sunshine", L"flower", L"angel", L"baby", L"lovely", L"hello",
    L"dragon", L"monkey", L"tiger", L"shadow", L"qazwsx", L"ninja", L"whatever", L"football", L"baseball",
    L"soccer", L"hockey", L"freedom", L"trustnoone", L"trustno", L"hunter", L"killer", L"charlie", L"michael",
    L"jordan", L"jessica", L"ashley", L"daniel", L"summer", L"winter", L"computer", L"internet", L"cheese",
    L"chocolate", L"correcthorsebatterystaple", L"mustang", L"matrix"};
// clang-format on

// Keys that lie or are said in a row.
inline constexpr std::wstring_view kRows[] = {L"abcdefghijklmnopqrstuvwxyz",
                                              L"01234567890",
                                              L"qwertyuiop",
                                              L"asdfghjkl",
                                              L"zxcvbnm",
                                              L"qwertzuiop",
                                              L"yxcvbnm",
                                              L"azertyuiop",
                                              L"qsdfghjklm",
                                              L"wxcvbn",
                                              L"!@#$%^&*()",
                                              L"1qaz2wsx3edc4rfv5tgb6yhn7ujm"};
