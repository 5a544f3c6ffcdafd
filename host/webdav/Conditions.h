// What a request demands of the state of things before it is carried out: the If field of WebDAV, entity tags, dates and
// ranges. Pure text and numbers: what a tag or token means is asked of the caller.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace webdav {

struct IfCondition {
    bool negated = false;
    bool isTag = false;  // an entity tag, quotation marks included; else a state token without its brackets
    std::string value;
};

// One "(...)": all of its conditions must hold.
struct IfList {
    std::string resource;  // the tag before it, a URL; empty: the request's own
    std::vector<IfCondition> conditions;
};

using IfHeader = std::vector<IfList>;

// Throws HttpError 400.
IfHeader ParseIf(std::string_view text);
// One list that holds is enough. holds is asked for a resource (as in IfList) and a condition, whose negation is seen to here.
bool IfHolds(const IfHeader& header, const std::function<bool(const std::string& resource, const IfCondition&)>& holds);
// The tokens that the field names without "Not": these are submitted.
std::vector<std::string> SubmittedTokens(const IfHeader& header);

// "W/"x", "y"" and "*". Weak tags never match: the comparison is the strong one, except where weak is set.
bool TagListMatches(std::string_view list, const std::string& tag, bool weak = false);

struct ByteRange {
    std::uint64_t first = 0, length = 0;
};
enum class RangeKind { Whole, Part, Unsatisfiable };
// Several ranges, another unit and broken ones mean the whole, as the standard allows.
RangeKind ParseRange(std::string_view text, std::uint64_t size, ByteRange& range);

}  // namespace webdav
