#include "webdav/Conditions.h"

#include <algorithm>
#include <set>

#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

class Scanner {
public:
    explicit Scanner(std::string_view text) : m_text(text) { Skip(); }

    bool AtEnd() const { return m_text.empty(); }
    bool Take(char unit) {
        if (m_text.empty() || m_text[0] != unit)
            return false;
        m_text.remove_prefix(1);
        Skip();
        return true;
    }
    bool TakeWord(std::string_view word) {
        if (m_text.size() < word.size() || !EqualToken(m_text.substr(0, word.size()), word))
            return false;
        m_text.remove_prefix(word.size());
        Skip();
        return true;
    }
    // The text before the closing unit; removes both.
    std::string TakeUpTo(char closing) {
        const std::size_t end = m_text.find(closing);
        if (end == std::string_view::npos)
            throw HttpError(400, "the If field is cut short");
        std::string taken(m_text.substr(0, end));
        m_text.remove_prefix(end + 1);
        Skip();
        return taken;
    }

private:
    void Skip() { m_text.remove_prefix(std::min(m_text.find_first_not_of(" \t\r\n"), m_text.size())); }

    std::string_view m_text;
};

IfCondition ParseCondition(Scanner& scanner) {
    IfCondition condition;
    condition.negated = scanner.TakeWord("Not");
    if (scanner.Take('<')) {
        condition.value = scanner.TakeUpTo('>');
        return condition;
    }
    if (!scanner.Take('['))
        throw HttpError(400, "the If field has something that is neither a token nor a tag");
    condition.isTag = true;
    const bool weak = scanner.TakeWord("W/");
    if (!scanner.Take('"'))
        throw HttpError(400, "the If field has a tag without quotation marks");
    condition.value = (weak ? "W/\"" : "\"") + scanner.TakeUpTo('"') + '"';
    if (!scanner.Take(']'))
        throw HttpError(400, "the If field has a tag that is not closed");
    return condition;
}

}  // namespace

IfHeader ParseIf(std::string_view text) {
    IfHeader header;
    Scanner scanner(text);
    std::string resource;
    bool tagIsUsed = true;
    std::size_t conditions = 0;
    std::set<std::string> resources;
    while (!scanner.AtEnd()) {
        if (scanner.Take('<')) {
            resource = scanner.TakeUpTo('>');
            if (!std::exchange(tagIsUsed, false) || resource.empty())
                throw HttpError(400, "the If field has a resource without a list");
            if (resources.insert(resource).second && resources.size() > limits::ifResources)
                throw HttpError(400, "the If field names too many resources");
            continue;
        }
        if (!scanner.Take('('))
            throw HttpError(400, "the If field is not made of lists");
        IfList list{resource, {}};
        while (!scanner.Take(')'))
            if (++conditions <= limits::ifConditions)
                list.conditions.push_back(ParseCondition(scanner));
            else
                throw HttpError(400, "the If field has too many conditions");
        if (list.conditions.empty())
            throw HttpError(400, "the If field has an empty list");
        header.push_back(std::move(list));
        tagIsUsed = true;
    }
    if (header.empty() || !tagIsUsed)
        throw HttpError(400, "the If field is cut short");
    return header;
}

bool IfHolds(const IfHeader& header, const std::function<bool(const std::string&, const IfCondition&)>& holds) {
    return std::any_of(header.begin(), header.end(), [&](const IfList& list) {
        return std::all_of(list.conditions.begin(), list.conditions.end(),
                           [&](const IfCondition& condition) { return holds(list.resource, condition) != condition.negated; });
    });
}

std::vector<std::string> SubmittedTokens(const IfHeader& header) {
    std::vector<std::string> tokens;
    for (const IfList& list : header)
        for (const IfCondition& condition : list.conditions)
            if (!condition.isTag && !condition.negated)
                tokens.push_back(condition.value);
    return tokens;
}

bool TagListMatches(std::string_view list, const std::string& tag, bool weak) {
    if (Trimmed(list) == "*")
        return true;
    while (true) {
        const std::size_t open = list.find('"');
        const std::size_t close = open == std::string_view::npos ? open : list.find('"', open + 1);
        if (close == std::string_view::npos)
            return false;
        const bool isWeak = open >= 2 && list.substr(open - 2, 2) == "W/";
        if ((weak || !isWeak) && list.substr(open, close - open + 1) == tag)
            return true;
        list.remove_prefix(close + 1);
    }
}

RangeKind ParseRange(std::string_view text, std::uint64_t size, ByteRange& range) {
    constexpr std::string_view unit = "bytes=";
    if (!text.starts_with(unit))
        return RangeKind::Whole;
    text = Trimmed(text.substr(unit.size()));
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos)
        return RangeKind::Whole;
    const std::optional<std::uint64_t> first = ParseNumber(text.substr(0, dash)), last = ParseNumber(text.substr(dash + 1));
    if ((dash > 0 && !first) || (dash + 1 < text.size() && !last) || (!first && !last) || (first && last && *last < *first))
        return RangeKind::Whole;
    if (!first) {
        range.length = std::min(*last, size);
        range.first = size - range.length;
        return range.length > 0 ? RangeKind::Part : RangeKind::Unsatisfiable;
    }
    if (*first >= size)
        return RangeKind::Unsatisfiable;
    range.first = *first;
    range.length = last ? std::min(*last, size - 1) - *first + 1 : size - *first;
    return RangeKind::Part;
}

}  // namespace webdav
