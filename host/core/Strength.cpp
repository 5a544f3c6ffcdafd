#include "core/Strength.h"

#include <algorithm>
#include <cmath>
#include <cwctype>

#include <windows.h>

#include <bcrypt.h>

#include "core/HostError.h"

namespace {

constexpr double kWordBits = 12;  // one of some thousand words
constexpr std::size_t kWordLetters = 8;

// The bits of count letters in a row: random ones, or words.
double LetterBits(std::size_t count, bool mixesCases) {
    const double random = static_cast<double>(count) * (mixesCases ? 5.7 : 4.7);
    const std::size_t words = (count + kWordLetters - 1) / kWordLetters;
    return std::min(random, static_cast<double>(words) * (kWordBits + (mixesCases ? 1.5 : 0)));
}

bool Continues(wchar_t before, wchar_t unit) { return std::abs(static_cast<int>(unit) - static_cast<int>(before)) <= 1; }

}  // namespace

double StrengthBits(std::wstring_view password) {
    double bits = 0;
    for (std::size_t at = 0; at < password.size();) {
        std::size_t end = at;
        bool lower = false;
        for (; end < password.size() && std::iswalpha(password[end]); ++end)
            lower = lower || std::iswlower(password[end]);
        if (end > at) {
            const std::wstring_view run = password.substr(at, end - at);
            const bool isRepeated = run.size() > 2 && password.substr(0, at).find(run) != password.npos;
            // A capital at the beginning does not count, because most people put it there.
            const bool mixes = lower && std::any_of(run.begin() + 1, run.end(), [](wchar_t unit) { return std::iswupper(unit); });
            bits += isRepeated ? 1 : LetterBits(run.size(), mixes);
            at = end;
            continue;
        }
        bits += at > 0 && Continues(password[at - 1], password[at]) ? 0.5 : std::iswdigit(password[at]) ? 3.3 : 4.5;
        ++at;
    }
    return bits;
}

std::string GuessingTime(double bits) {
    const double years = std::exp2(bits - 1) / kGuessesPerSecond / (365.25 * 24 * 3600);
    if (years < 1.0 / 365)
        return years < 1.0 / (365 * 24) ? "less than an hour" : "some hours";
    if (years < 1)
        return "about " + std::to_string(static_cast<int>(std::ceil(years * 365))) + " days";
    return years < 1e6 ? "about " + std::to_string(static_cast<long>(years)) + " years" : "millions of years";
}

std::string MakePassword() {
    constexpr std::string_view letters = "abcdefghjkmnpqrstuvwxyz023456789";  // 32, without i, l, o and 1
    static_assert(letters.size() == 32);
    unsigned char random[30];
    if (BCryptGenRandom(nullptr, random, sizeof(random), BCRYPT_USE_SYSTEM_PREFERRED_RNG) < 0)
        throw HostError("the system gives no random numbers for a password");
    std::string password;
    for (std::size_t at = 0; at < sizeof(random); ++at) {
        if (at > 0 && at % 5 == 0)
            password += '-';
        password += letters[random[at] % letters.size()];
    }
    return password;
}
