// The pure parts that take texts apart, under any input. The program's own name says whose property is looked at. One that does not
// hold ends the program, and the fuzzer keeps the input.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/HostError.h"
#include "core/TrackingText.h"
#include "core/VolumePath.h"
#include "webdav/Conditions.h"
#include "webdav/Http.h"
#include "webdav/Xml.h"

#define MUST(condition)                                              \
    do {                                                             \
        if (!(condition)) {                                          \
            std::fprintf(stderr, "does not hold: %s\n", #condition); \
            std::abort();                                            \
        }                                                            \
    } while (false)

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
        MUST(VolumePath::Parse(written, VolumePath::Wildcards::InLastComponent).Str() == written);
        MUST(written.find_first_of(L":/<>|\"") == std::wstring::npos && !written.starts_with(L'\\') && !written.ends_with(L'\\'));
        VolumePath up = path;
        for (; !up.IsRoot(); up = up.Parent()) {
            const std::wstring name = up.Name();
            MUST(!name.empty() && name != L"." && name != L".." && name.size() <= 255);
            MUST(name.back() != L'.' && name.back() != L' ');
            MUST(up.Parent().Child(name).Equals(up) && up.IsInside(up.Parent()) && !up.Parent().IsInside(up));
        }
        MUST(!path.IsRoot() || path.Shown() == "/");
        if (!path.IsRoot() && written.find_first_of(L"*?") == std::wstring::npos)
            MUST(path.Aside().Parent().Equals(path.Parent()) && !VolumePath::ComponentProblem(path.Aside().Name()));
    } catch (const UsageError&) {
    }
}

std::wstring State(const FileState& state) {
    return L"<attributes>" + std::to_wstring(static_cast<std::int32_t>(state.attributes)) + L"</attributes>\r\n<writetime>" +
           std::to_wstring(static_cast<std::int64_t>(state.lastWriteTime)) + L"</writetime>\r\n<size>" +
           std::to_wstring(static_cast<std::int64_t>(state.size)) + L"</size>";
}

std::wstring Written(const Tracking& tracking) {
    const auto name = [](const std::wstring& text) { return L"<name><![CDATA[" + text + L"]]></name>\r\n"; };
    return L"<halvanecloud>\r\n<filetracking>\r\n<process>\r\n<name><![CDATA[]]></name>\r\n<id>0</id>\r\n</process>\r\n<srcfile>\r\n" +
           name(tracking.container) + State(tracking.containerState) + L"\r\n</srcfile>\r\n<filespec>\r\n" + name(tracking.name) +
           L"</filespec>\r\n<tempfile>\r\n" + name(tracking.copy) + State(tracking.copyState) +
           L"\r\n</tempfile>\r\n<ar>\r\n</ar>\r\n</filetracking>\r\n</halvanecloud>\r\n";
}

// A tracking file that was cut or changed is refused or read, and one that is whole is read as it was written.
void TrackingFiles(Input input) {
    const std::wstring text(input.begin(), input.end());
    const std::optional<Tracking> read = ParseTracking(text);
    if (!read)
        return;
    MUST(!read->container.empty());
    const std::optional<Tracking> again = ParseTracking(Written(*read));
    MUST(again && again->container == read->container && again->name == read->name && again->copy == read->copy);
    MUST(again->containerState == read->containerState && again->copyState == read->copyState);
}

// The conditions of a request: If, entity tags, ranges.
void IfFields(Input input) {
    const std::string text(input.begin(), input.end());
    try {
        const webdav::IfHeader header = webdav::ParseIf(text);
        MUST(!header.empty());
        std::size_t tokens = 0;
        bool onlyNegated = false;  // in one of the lists
        for (const webdav::IfList& list : header) {
            MUST(!list.conditions.empty());
            onlyNegated |= std::ranges::all_of(list.conditions, &webdav::IfCondition::negated);
            tokens += std::ranges::count_if(list.conditions, [](const auto& condition) { return !condition.negated && !condition.isTag; });
        }
        MUST(webdav::SubmittedTokens(header).size() <= tokens);
        // What holds for nothing holds only where a list is all "Not".
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
}

bool Same(const webdav::XmlNode& left, const webdav::XmlNode& right) {
    if (left.name != right.name || left.text != right.text || left.attributes != right.attributes ||
        left.children.size() != right.children.size())
        return false;
    for (std::size_t i = 0; i < left.children.size(); ++i)
        if (!Same(left.children[i], right.children[i]))
            return false;
    return true;
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
        MUST(error.Status() == 400);
        return;
    }
    MUST(!node.IsText() && Depth(node) <= 66);
    const webdav::XmlNode again = webdav::ParseXml("<D:w xmlns:D='DAV:'>" + webdav::Serialized(node) + "</D:w>");
    MUST(again.children.size() == 1 && Same(again.children[0], node));
}

struct Property {
    const char* name;
    void (*look)(Input);
} const c_properties[] = {
    {"IfFields", IfFields}, {"TrackingFiles", TrackingFiles}, {"VolumePaths", VolumePaths}, {"XmlRequests", XmlRequests}};
const Property* g_property = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** values) {
    for (const Property& property : c_properties)
        if (std::filesystem::path(**values).filename() == property.name)
            g_property = &property;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    g_property->look({data, size});
    return 0;
}
