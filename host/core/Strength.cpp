#include "core/Strength.h"

#include <algorithm>
#include <cmath>
#include <cwctype>
#include <limits>
#include <vector>

#include <windows.h>

#include <bcrypt.h>

#include "core/CommonPasswords.h"
#include "core/HostError.h"

namespace {

constexpr double kWordBits = 12;  // one of some thousand words
constexpr double kCommonBits = 8;
constexpr std::size_t kWordLetters = 8, kShortest = 3, kMostRead = 128;

// Is this the word, also written like "P@ss-w0rd"?
bool Means(std::wstring_view small, std::wstring_view word) {
    constexpr std::wstring_view written = L"@4301!57$+", meant = L"aaeoiissst";
    static_assert(written.size() == meant.size());
    std::size_t count = 0;
    for (const wchar_t unit : small) {
        const std::size_t at = written.find(unit);
        if (std::wstring_view(L" -_.").find(unit) != std::wstring_view::npos)
            continue;
        if (count == word.size() || (at == written.npos ? unit : meant[at]) != word[count++])
            return false;
    }
    return count == word.size();
}

bool IsInRow(std::wstring_view small) {
    const auto isIn = [&](std::wstring_view row) {
        return row.find(small) != row.npos || std::search(row.begin(), row.end(), small.rbegin(), small.rend()) != row.end();
    };
    return small.find_first_not_of(small[0]) == small.npos || std::any_of(std::begin(kRows), std::end(kRows), isIn);
}

// The bits of a part that is all letters: a word, or a few random ones. A capital at the beginning does not count, because most people
// put it there.
double LetterBits(std::wstring_view part) {
    const bool mixes = std::any_of(part.begin() + 1, part.end(), [](wchar_t unit) { return std::iswupper(unit); }) &&
                       std::any_of(part.begin(), part.end(), [](wchar_t unit) { return std::iswlower(unit); });
    return std::min(static_cast<double>(part.size()) * (mixes ? 5.7 : 4.7), kWordBits + (mixes ? 1.5 : 0));
}

// What a guesser needs for one part in the cheapest way. small: the part in small letters; before: what stands before it, likewise.
double PartBits(std::wstring_view part, std::wstring_view small, std::wstring_view before) {
    const bool areLetters = std::all_of(part.begin(), part.end(), [](wchar_t unit) { return std::iswalpha(unit); });
    if (before.find(small) != before.npos && (part.size() >= kShortest || (part.size() == 1 && !areLetters)))
        return 1;
    double bits = areLetters && part.size() <= kWordLetters ? LetterBits(part) : std::numeric_limits<double>::infinity();
    if (part.size() == 1 && !areLetters)
        bits = std::iswdigit(part[0]) ? 3.3 : 4.5;
    if (part.size() >= kShortest && IsInRow(small))
        bits = std::min(bits, 4.7 + 0.5 * static_cast<double>(part.size() - 1));
    if (std::any_of(std::begin(kCommonPasswords), std::end(kCommonPasswords), [&](std::wstring_view word) { return Means(small, word); }))
        bits = std::min(bits, kCommonBits);
    return bits;
}

}  // namespace

// The sum over the parts, for the division into parts that makes it least.
double StrengthBits(std::wstring_view password) {
    password = password.substr(0, kMostRead);
    std::wstring small(password);
    std::transform(small.begin(), small.end(), small.begin(), [](wchar_t unit) { return static_cast<wchar_t>(std::towlower(unit)); });
    const std::wstring_view all = small;
    std::vector<double> bits(all.size() + 1, std::numeric_limits<double>::infinity());  // of so many units at the beginning
    bits[0] = 0;
    for (std::size_t begin = 0; begin < all.size(); ++begin)
        for (std::size_t end = begin + 1; end <= all.size(); ++end)
            bits[end] = std::min(bits[end], bits[begin] + PartBits(password.substr(begin, end - begin), all.substr(begin, end - begin),
                                                                   all.substr(0, begin)));
    companion::Wipe(small);
    return bits.back();
}

std::string GuessingTime(double bits) {
    const double years = std::exp2(bits - 1) / kGuessesPerSecond / (365.25 * 24 * 3600);
    if (years < 1.0 / 365)
        return years < 1.0 / (365 * 24) ? "less than an hour" : "some hours";
    if (years < 1)
        return "about " + std::to_string(static_cast<int>(std::ceil(years * 365))) + " days";
    return years < 1e6 ? "about " + std::to_string(static_cast<long>(years)) + " years" : "millions of years";
}

companion::Secret MakePassword() {
    constexpr std::string_view letters = "abcdefghjkmnpqrstuvwxyz023456789";  // 32, without i, l, o and 1
    static_assert(letters.size() == 32);
    unsigned char random[30];
    if (BCryptGenRandom(nullptr, random, sizeof(random), BCRYPT_USE_SYSTEM_PREFERRED_RNG) < 0)
        throw HostError("the system gives no random numbers for a password");
    std::string password;
    password.reserve(sizeof(random) * 2);
    for (std::size_t at = 0; at < sizeof(random); ++at) {
        if (at > 0 && at % 5 == 0)
            password += '-';
        password += letters[random[at] % letters.size()];
    }
    companion::Wipe(random, sizeof(random));
    return companion::Secret(std::move(password));
}
