#include "webdav/Xml.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <set>

#include <expat.h>

#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

constexpr XML_Char kSeparator = '\x1f';  // never in the name of a namespace
constexpr std::string_view kXmlSpace = "http://www.w3.org/XML/1998/namespace", kXmlnsSpace = "http://www.w3.org/2000/xmlns/";

// The memory that the parser may still take. It puts the namespace before every name, for all attributes of an element at once, which
// could be very much.
thread_local std::size_t t_parserBytesLeft = 0;
constexpr std::size_t kSizeBytes = alignof(std::max_align_t);

void* Allocate(std::size_t size) {
    char* const block = size <= t_parserBytesLeft ? static_cast<char*>(std::malloc(kSizeBytes + size)) : nullptr;
    if (!block)
        return nullptr;
    t_parserBytesLeft -= size;
    std::memcpy(block, &size, sizeof(size));
    return block + kSizeBytes;
}

std::size_t SizeOf(const void* data) {
    std::size_t size = 0;
    std::memcpy(&size, static_cast<const char*>(data) - kSizeBytes, sizeof(size));
    return size;
}

void Free(void* data) {
    if (!data)
        return;
    t_parserBytesLeft += SizeOf(data);
    std::free(static_cast<char*>(data) - kSizeBytes);
}

void* Reallocate(void* data, std::size_t size) {
    void* const moved = Allocate(size);
    if (moved && data) {
        std::memcpy(moved, data, std::min(size, SizeOf(data)));
        Free(data);
    }
    return moved;
}

constexpr XML_Memory_Handling_Suite kMemory{Allocate, Reallocate, Free};

struct Building {
    XML_Parser parser = nullptr;
    XmlNode document;
    std::vector<XmlNode*> open{&document};  // valid, because only the last node gets new children
    std::set<SharedText> texts;
    std::size_t nodes = 0;
    bool refused = false;

    SharedText Shared(std::string_view text) { return *texts.emplace(text).first; }
    // Nothing for a name that cannot be written again, or is too long.
    std::optional<XmlName> Name(std::string_view text, bool isElement) {
        const std::size_t separator = text.find(kSeparator);
        const std::string_view space = separator == text.npos ? std::string_view() : text.substr(0, separator);
        const std::string_view local = separator == text.npos ? text : text.substr(separator + 1);
        const bool isReserved = space == kXmlnsSpace || (isElement && space == kXmlSpace);
        if (isReserved || local.empty() || local.find(':') != local.npos || std::max(space.size(), local.size()) > limits::xmlNameBytes)
            return std::nullopt;
        return XmlName{Shared(space), Shared(local)};
    }
    bool HasRoom() { return ++nodes <= limits::xmlNodes; }
};

void Refuse(Building& building) {
    building.refused = true;
    XML_StopParser(building.parser, XML_FALSE);
}

void OnStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    Building& building = *static_cast<Building*>(data);
    if (building.open.size() > limits::xmlDepth || !building.HasRoom())
        return Refuse(building);
    const std::optional<XmlName> elementName = building.Name(name, true);
    if (!elementName)
        return Refuse(building);
    XmlNode& node = building.open.back()->children.emplace_back();
    node.name = *elementName;
    for (; *attributes; attributes += 2) {
        const std::optional<XmlName> attributeName = building.Name(attributes[0], false);
        if (!attributeName || !building.HasRoom())
            return Refuse(building);
        node.attributes.emplace_back(*attributeName, attributes[1]);
    }
    building.open.push_back(&node);
}

void OnEnd(void* data, const XML_Char*) { static_cast<Building*>(data)->open.pop_back(); }

void OnText(void* data, const XML_Char* text, int length) {
    Building& building = *static_cast<Building*>(data);
    std::vector<XmlNode>& children = building.open.back()->children;
    if (children.empty() || !children.back().IsText()) {
        if (!building.HasRoom())
            return Refuse(building);
        children.emplace_back();
    }
    children.back().text.append(text, static_cast<std::size_t>(length));
}

// A prefix bound to no namespace is forbidden, but the parser accepts it.
void OnNamespace(void* data, const XML_Char* prefix, const XML_Char* space) {
    if (prefix && (!space || !*space))
        Refuse(*static_cast<Building*>(data));
}

void OnDocumentType(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) { Refuse(*static_cast<Building*>(data)); }

std::string AttributesText(const XmlNode& node) {
    std::string text;
    int count = 0;
    for (const auto& [name, value] : node.attributes) {
        const std::string local(std::string_view(name.local));
        if (name.space.empty()) {
            text += ' ' + local;
        } else if (std::string_view(name.space) == kXmlSpace) {
            text += " xml:" + local;
        } else {
            const std::string prefix = "a" + std::to_string(++count);
            text += " xmlns:" + prefix + "=\"" + Escaped(name.space) + "\" " + prefix + ':' + local;
        }
        text += "=\"" + Escaped(value) + '"';
    }
    return text;
}

// The bytes of the first character of text if it is forbidden in XML; else 0.
std::size_t ForbiddenSize(std::string_view text) {
    const auto unit = static_cast<unsigned char>(text[0]);
    if (unit < 0x20)
        return unit == '\t' || unit == '\n' || unit == '\r' ? 0 : 1;
    if (text.starts_with("\xEF\xBF\xBE") || text.starts_with("\xEF\xBF\xBF"))
        return 3;
    return unit == 0xED && text.size() > 2 && static_cast<unsigned char>(text[1]) >= 0xA0 ? 3 : 0;  // half of a pair
}

bool AppendChildren(const XmlNode& node, std::size_t mostBytes, std::string& text);

bool Append(const XmlNode& node, std::size_t mostBytes, std::string& text) {
    if (node.IsText()) {
        text += Escaped(node.text);
    } else if (node.children.empty()) {
        text += '<' + OpenName(node.name) + AttributesText(node) + "/>";
    } else {
        text += '<' + OpenName(node.name) + AttributesText(node) + '>';
        if (!AppendChildren(node, mostBytes, text))
            return false;
        text += "</" + CloseName(node.name) + '>';
    }
    return text.size() <= mostBytes;
}

bool AppendChildren(const XmlNode& node, std::size_t mostBytes, std::string& text) {
    return std::all_of(node.children.begin(), node.children.end(), [&](const XmlNode& child) { return Append(child, mostBytes, text); });
}

}  // namespace

const XmlNode* XmlNode::Child(std::string_view davName) const {
    for (const XmlNode& child : children)
        if (child.name.IsDav(davName))
            return &child;
    return nullptr;
}

std::string XmlNode::Text() const {
    std::string all;
    for (const XmlNode& child : children)
        all += child.text;
    return all;
}

XmlNode ParseXml(std::string_view document) {
    t_parserBytesLeft = limits::xmlParserBytes;
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate_MM(nullptr, &kMemory, std::string(1, kSeparator).c_str()), XML_ParserFree);
    if (!parser)
        throw std::bad_alloc();
    Building building;
    building.parser = parser.get();
    XML_SetUserData(parser.get(), &building);
    XML_SetElementHandler(parser.get(), OnStart, OnEnd);
    XML_SetCharacterDataHandler(parser.get(), OnText);
    XML_SetStartNamespaceDeclHandler(parser.get(), OnNamespace);
    XML_SetStartDoctypeDeclHandler(parser.get(), OnDocumentType);
    const XML_Status status = XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE);
    if (building.refused)
        throw HttpError(400, "the XML of the request is refused");
    if (status != XML_STATUS_OK)
        throw HttpError(400, std::string("the XML of the request: ") + XML_ErrorString(XML_GetErrorCode(parser.get())));
    return std::move(building.document.children.front());
}

std::string Escaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char unit = text[i];
        if (const std::size_t size = ForbiddenSize(text.substr(i)); size > 0) {
            escaped += "\xEF\xBF\xBD";
            i += size - 1;
            continue;
        }
        switch (unit) {
            case '&': escaped += "&amp;"; break;
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '"': escaped += "&quot;"; break;
            case '\t': escaped += "&#9;"; break;  // in an attribute these three would be read back as blanks
            case '\n': escaped += "&#10;"; break;
            case '\r': escaped += "&#13;"; break;
            default: escaped += unit;
        }
    }
    return escaped;
}

std::string OpenName(const XmlName& name) {
    const std::string local(std::string_view(name.local));
    return std::string_view(name.space) == kDav ? "D:" + local : local + " xmlns=\"" + Escaped(name.space) + '"';
}

std::string CloseName(const XmlName& name) {
    return (std::string_view(name.space) == kDav ? "D:" : "") + std::string(std::string_view(name.local));
}

std::optional<std::string> Serialized(const XmlNode& node, std::size_t mostBytes) {
    std::string text;
    return Append(node, mostBytes, text) ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<std::string> SerializedChildren(const XmlNode& node, std::size_t mostBytes) {
    std::string text;
    return AppendChildren(node, mostBytes, text) ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace webdav
