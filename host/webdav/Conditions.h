// The conditions of a request: the If field of WebDAV, entity tags, dates and
// ranges. Text and numbers only: the caller knows what a tag or token means.
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
    bool isTag = false;  // an entity tag with its quotation marks; else a state token without its brackets
    std::string value;
};

// One "(...)": all of its conditions must be true.
struct IfList {
    std::string resource;  // the tag before it, a URL; empty: the request's own
    std::vector<IfCondition> conditions;
};

using IfHeader = std::vector<IfList>;

// Throws HttpError 400.
IfHeader ParseIf(std::string_view text);
// True when all conditions of one list are. holds is called with a resource (as in IfList) and a condition, and ignores its negation.
bool IfHolds(const IfHeader& header, const std::function<bool(const std::string& resource, const IfCondition&)>& holds);
// The submitted tokens: those that the field names without "Not".
std::vector<std::string> SubmittedTokens(const IfHeader& header);

// list is "W/"x", "y"" or "*". Weak tags match only if weak is set.
bool TagListMatches(std::string_view list, const std::string& tag, bool weak = false);

struct ByteRange {
    std::uint64_t first = 0, length = 0;
};
enum class RangeKind { Whole, Part, Unsatisfiable };
// For several ranges, another unit or a broken range the whole is sent, as the standard allows.
RangeKind ParseRange(std::string_view text, std::uint64_t size, ByteRange& range);

}  // namespace webdav
