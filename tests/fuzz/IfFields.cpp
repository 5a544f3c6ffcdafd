// The conditions of a request: If, entity tags, ranges.
#include "Property.h"
#include "webdav/Conditions.h"
#include "webdav/Http.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    try {
        const webdav::IfHeader header = webdav::ParseIf(text);
        MUST(!header.empty());
        std::size_t tokens = 0;
        for (const webdav::IfList& list : header) {
            MUST(!list.conditions.empty());
            for (const webdav::IfCondition& condition : list.conditions)
                tokens += !condition.negated && !condition.isTag;
        }
        MUST(webdav::SubmittedTokens(header).size() <= tokens);
        // What holds for nothing holds only where a list is all "Not".
        bool onlyNegated = false;
        for (const webdav::IfList& list : header) {
            bool all = true;
            for (const webdav::IfCondition& condition : list.conditions)
                all = all && condition.negated;
            onlyNegated = onlyNegated || all;
        }
        MUST(webdav::IfHolds(header, [](const std::string&, const webdav::IfCondition&) { return false; }) == onlyNegated);
    } catch (const webdav::HttpError& error) {
        MUST(error.Status() == 400);
    }
    webdav::TagListMatches(text, "\"tag\"");
    webdav::TagListMatches(text, "\"tag\"", true);
    for (const std::uint64_t length : {std::uint64_t(0), std::uint64_t(1), std::uint64_t(1000), ~std::uint64_t(0)}) {
        webdav::ByteRange range;
        if (webdav::ParseRange(text, length, range) == webdav::RangeKind::Part)
            MUST(range.length > 0 && range.first < length && range.length <= length - range.first);
    }
    return 0;
}
