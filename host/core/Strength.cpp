#include "core/Strength.h"

#include <algorithm>
#include <cmath>
#include <cwctype>
#include <limits>
#include <map>
#include <set>
#include <vector>

#include <windows.h>

#include <bcrypt.h>

#include "core/CommonPasswords.h"
#include "core/HostError.h"

namespace {

constexpr double kWordBits = 13;       // one of eight thousand words
constexpr double kSentenceBits = 1.3;  // of a letter, as of English text
constexpr double kYearBits = 7;
constexpr std::size_t kShortestWord = 4, kLongestWord = 12, kShortest = 3, kMostRead = 128;

// The commonest words, and the bits of the place that each has among them.
const std::map<std::wstring_view, double>& CommonWords() {
    static const auto words = [] {
        std::map<std::wstring_view, double> made;
        for (std::wstring_view rest = kCommonWords; !rest.empty();) {
            const std::size_t end = std::min(rest.find(L' '), rest.size());
            made.emplace(rest.substr(0, end), std::log2(made.size() + 2));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return made;
    }();
    return words;
}

bool IsBetweenWords(wchar_t unit) { return std::wstring_view(L" -_.").find(unit) != std::wstring_view::npos; }

// Is this the word, also written like "P@ss-w0rd"?
bool Means(std::wstring_view small, std::wstring_view word) {
    constexpr std::wstring_view written = L"@4301!57$+", meant = L"aaeoiissst";
    static_assert(written.size() == meant.size());
    std::size_t count = 0;
    for (const wchar_t unit : small) {
        const std::size_t at = written.find(unit);
        if (IsBetweenWords(unit))
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

bool AreLetters(std::wstring_view part) {
    return std::all_of(part.begin(), part.end(), [](wchar_t unit) { return std::iswalpha(unit); });
}

// Letters, with no capitals but the first or all.
bool IsWrittenLikeWord(std::wstring_view part) {
    const auto isUpper = [](wchar_t unit) { return std::iswupper(unit) != 0; };
    return AreLetters(part) && (std::none_of(part.begin() + 1, part.end(), isUpper) || std::all_of(part.begin(), part.end(), isUpper));
}

// Letters drawn by lot have many pairs that the common words lack.
bool CanBeWord(std::wstring_view part, std::wstring_view small) {
    static const auto pairs = [] {
        std::set<std::wstring_view> made;
        for (std::size_t at = 0; at + 1 < kCommonWords.size(); ++at)
            made.insert(kCommonWords.substr(at, 2));
        return made;
    }();
    if (part.size() < kShortestWord || part.size() > kLongestWord || !IsWrittenLikeWord(part))
        return false;
    std::size_t strange = 0;
    for (std::size_t at = 0; at + 1 < small.size(); ++at)
        strange += small[at] > 0x7F || small[at + 1] > 0x7F || pairs.contains(small.substr(at, 2)) ? 0 : 1;
    return strange <= small.size() / 5;
}

bool IsYear(std::wstring_view part) {
    return part.size() == 4 && (part.starts_with(L"19") || part.starts_with(L"20")) && std::iswdigit(part[2]) && std::iswdigit(part[3]);
}

// What any one sign of the password says, if they were drawn by lot from the kinds of signs that are in it.
double SignBits(std::wstring_view password) {
    const auto has = [&](auto is) { return std::any_of(password.begin(), password.end(), is); };
    const auto isLower = [](wchar_t unit) { return std::iswlower(unit) != 0; };
    const auto isUpper = [](wchar_t unit) { return std::iswupper(unit) != 0; };
    const auto isDigit = [](wchar_t unit) { return std::iswdigit(unit) != 0; };
    const auto isOther = [&](wchar_t unit) { return !isLower(unit) && !isUpper(unit) && !isDigit(unit); };
    return std::log2(26 * has(isLower) + 26 * has(isUpper) + 10 * has(isDigit) + 33 * has(isOther));
}

// Four words or more, one of them such a word.
bool IsSentence(std::wstring small) {
    std::replace_if(small.begin(), small.end(), IsBetweenWords, L' ');
    small.insert(0, 1, L' ').append(1, L' ');
    const bool isOne = std::count(small.begin(), small.end(), L' ') > 4 &&
                       std::any_of(std::begin(kSentenceWords), std::end(kSentenceWords),
                                   [&](std::wstring_view word) { return small.find(L' ' + std::wstring(word) + L' ') != small.npos; });
    companion::Wipe(small);
    return isOne;
}

// What a guesser needs for one part in the cheapest way. small: the part in small letters; before: what stands before it, likewise.
double PartBits(std::wstring_view part, std::wstring_view small, std::wstring_view before, double signBits) {
    const bool isRepeated = before.find(small) != before.npos;
    if (part.size() == 1)
        return isRepeated && IsBetweenWords(part[0]) ? 0 : signBits;
    if (isRepeated && part.size() >= kShortest)
        return 1;
    double bits = CanBeWord(part, small) ? kWordBits : IsYear(part) ? kYearBits : std::numeric_limits<double>::infinity();
    if (const auto word = CommonWords().find(small); word != CommonWords().end() && IsWrittenLikeWord(part))
        bits = std::min(bits, word->second);
    if (part.size() >= kShortest && IsInRow(small))
        bits = std::min(bits, 4.7 + 0.5 * static_cast<double>(part.size() - 1));
    const auto common =
        std::find_if(std::begin(kCommonPasswords), std::end(kCommonPasswords), [&](std::wstring_view word) { return Means(small, word); });
    return common == std::end(kCommonPasswords) ? bits : std::min(bits, std::log2(common - std::begin(kCommonPasswords) + 2));
}

}  // namespace

// The sum over the parts, for the division into parts that makes it least.
double StrengthBits(std::wstring_view password) {
    password = password.substr(0, kMostRead);
    std::wstring small(password);
    std::transform(small.begin(), small.end(), small.begin(), [](wchar_t unit) { return static_cast<wchar_t>(std::towlower(unit)); });
    const std::wstring_view all = small;
    const double signBits = SignBits(password);
    const bool isSentence = IsSentence(small);
    std::vector<double> bits(all.size() + 1, std::numeric_limits<double>::infinity());  // of so many units at the beginning
    bits[0] = 0;
    for (std::size_t begin = 0; begin < all.size(); ++begin)
        for (std::size_t end = begin + 1; end <= all.size(); ++end) {
            const std::wstring_view part = all.substr(begin, end - begin);
            double ofPart = PartBits(password.substr(begin, end - begin), part, all.substr(0, begin), signBits);
            if (isSentence && AreLetters(part))
                ofPart = std::min(ofPart, kSentenceBits * static_cast<double>(part.size()));
            bits[end] = std::min(bits[end], bits[begin] + ofPart);
        }
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
