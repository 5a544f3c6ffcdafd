// The pure parts that take texts apart, under any input. The program's own name says whose property is looked at. One that does not
// hold ends the program, and the fuzzer keeps the input.
#include <algorithm>
#include <cassert>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "common/CharacterSets.h"
#include "common/TrackingText.h"
#include "core/HostError.h"
#include "core/Text.h"
#include "core/VolumePath.h"
#include "webdav/Conditions.h"
#include "webdav/Http.h"
#include "webdav/Xml.h"

// Stand-ins for what asks the platform.
std::string Narrowed(std::wstring_view text, CharacterSet) { return {text.begin(), text.end()}; }
std::wstring Widened(std::string_view text, CharacterSet) {
    std::wstring wide;
    for (const char unit : text)
        wide += static_cast<unsigned char>(unit);
    return wide;
}
std::optional<std::string> NarrowedExactly(std::wstring_view text, CharacterSet to) { return Narrowed(text, to); }
std::optional<std::wstring> WidenedExactly(std::string_view text, CharacterSet from) { return Widened(text, from); }
std::string ToUtf8(std::wstring_view text) { return Narrowed(text, CharacterSet::Utf8); }
std::wstring ToUtf16(std::string_view text) { return Widened(text, CharacterSet::Utf8); }
std::wstring UniqueSuffix() { return L"1a2b3c4d"; }

namespace {

using Input = std::basic_string_view<std::uint8_t>;

// A path that is accepted names something below a mount folder and nothing else, and is accepted again as it is written.
void VolumePaths(Input input) {
    std::wstring text;  // of UTF-16 units, every value of which may come up
    for (std::size_t i = 0; i + 1 < input.size(); i += 2)
        text += static_cast<wchar_t>(input[i] | input[i + 1] << 8);
    try {
        const VolumePath path = VolumePath::Parse(text, VolumePath::Wildcards::InLastComponent);
        const std::wstring written = path.Str();
        assert(VolumePath::Parse(written, VolumePath::Wildcards::InLastComponent).Str() == written);
        assert(written.find_first_of(L":/<>|\"") == std::wstring::npos && !written.starts_with(L'\\') && !written.ends_with(L'\\'));
        VolumePath up = path;
        for (; !up.IsRoot(); up = up.Parent()) {
            const std::wstring name = up.Name();
            assert(!name.empty() && name != L"." && name != L".." && name.size() <= 255);
            assert(name.back() != L'.' && name.back() != L' ');
            assert(up.Parent().Child(name).Equals(up) && up.IsInside(up.Parent()) && !up.Parent().IsInside(up));
        }
        assert(!path.IsRoot() || path.Shown() == "/");
        if (!path.IsRoot() && written.find_first_of(L"*?") == std::wstring::npos)
            assert(path.Aside().Parent().Equals(path.Parent()) && !VolumePath::ComponentProblem(path.Aside().Name()));
    } catch (const UsageError&) {
    }
}

// A tracking file that was cut or changed is refused or read, and one that is whole is read as it was written.
void TrackingFiles(Input input) {
    const std::optional<TrackingRecord> read = ParseTrackingText({reinterpret_cast<const char*>(input.data()), input.size()});
    assert(!read || (!read->sourceName.empty() && ParseTrackingText(TrackingText(*read)) == read));
}

// The conditions of a request: If, entity tags, ranges.
void IfFields(Input input) {
    const std::string text(input.begin(), input.end());
    try {
        const webdav::IfHeader header = webdav::ParseIf(text);
        assert(!header.empty());
        std::size_t tokens = 0;
        bool onlyNegated = false;  // in one of the lists
        for (const webdav::IfList& list : header) {
            assert(!list.conditions.empty());
            onlyNegated |= std::ranges::all_of(list.conditions, &webdav::IfCondition::negated);
            tokens += std::ranges::count_if(list.conditions, [](const auto& condition) { return !condition.negated && !condition.isTag; });
        }
        assert(webdav::SubmittedTokens(header).size() <= tokens);
        // What holds for nothing holds only where a list is all "Not".
        assert(webdav::IfHolds(header, [](const std::string&, const webdav::IfCondition&) { return false; }) == onlyNegated);
    } catch (const webdav::HttpError& error) {
        assert(error.Status() == 400);
    }
    webdav::TagListMatches(text, "\"tag\"");
    webdav::TagListMatches(text, "\"tag\"", true);
    for (const std::uint64_t length : {std::uint64_t(0), std::uint64_t(1), std::uint64_t(1000), ~std::uint64_t(0)}) {
        webdav::ByteRange range;
        if (webdav::ParseRange(text, length, range) == webdav::RangeKind::Part)
            assert(range.length > 0 && range.first < length && range.length <= length - range.first);
    }
}

int Depth(const webdav::XmlNode& node) {
    int depth = 0;
    for (const webdav::XmlNode& child : node.children)
        depth = std::max(depth, Depth(child));
    return depth + 1;
}

// XML that is accepted means the same when it is written out again.
void XmlRequests(Input input) {
    webdav::XmlNode node;
    try {
        node = webdav::ParseXml({reinterpret_cast<const char*>(input.data()), input.size()});
    } catch (const webdav::HttpError& error) {
        assert(error.Status() == 400);
        return;
    }
    assert(!node.IsText() && Depth(node) <= 66);
    const std::string text = webdav::Serialized(node, SIZE_MAX).value();
    assert(!webdav::Serialized(node, text.size() - 1));
    const webdav::XmlNode again = webdav::ParseXml("<D:w xmlns:D='DAV:'>" + text + "</D:w>");
    assert(again.children.size() == 1 && again.children[0] == node);
}

const std::map<std::string, void (*)(Input)> kProperties{
    {"IfFields", IfFields}, {"TrackingFiles", TrackingFiles}, {"VolumePaths", VolumePaths}, {"XmlRequests", XmlRequests}};
void (*g_property)(Input) = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** values) {
    g_property = kProperties.at(std::filesystem::path(**values).filename());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    g_property({data, size});
    return 0;
}
