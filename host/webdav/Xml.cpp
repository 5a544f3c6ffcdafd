#include "webdav/Xml.h"

#include <memory>

#include <expat.h>

#include "webdav/Http.h"

namespace webdav {

namespace {

constexpr XML_Char c_separator = '\x1f';  // no namespace name has it
constexpr std::size_t c_maxDepth = 64;
constexpr std::string_view c_xmlSpace = "http://www.w3.org/XML/1998/namespace";

struct Building {
    XML_Parser parser;
    XmlNode document;
    std::vector<XmlNode*> open{&document};  // only the last one gets new children, so these stay where they are
    bool refused = false;
};

XmlName SplitName(const XML_Char* name) {
    const std::string_view text(name);
    const std::size_t separator = text.find(c_separator);
    if (separator == std::string_view::npos)
        return {"", std::string(text)};
    return {std::string(text.substr(0, separator)), std::string(text.substr(separator + 1))};
}

void Refuse(Building& building) {
    building.refused = true;
    XML_StopParser(building.parser, XML_FALSE);
}

void OnStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    Building& building = *static_cast<Building*>(data);
    if (building.open.size() > c_maxDepth)
        return Refuse(building);
    XmlNode& node = building.open.back()->children.emplace_back();
    node.name = SplitName(name);
    for (; *attributes; attributes += 2)
        node.attributes.emplace_back(SplitName(attributes[0]), attributes[1]);
    building.open.push_back(&node);
}

void OnEnd(void* data, const XML_Char*) {
    static_cast<Building*>(data)->open.pop_back();
}

void OnText(void* data, const XML_Char* text, int length) {
    std::vector<XmlNode>& children = static_cast<Building*>(data)->open.back()->children;
    if (children.empty() || !children.back().IsText())
        children.emplace_back();
    children.back().text.append(text, static_cast<std::size_t>(length));
}

// A prefix bound to nothing is well-formed to the parser, but forbidden.
void OnNamespace(void* data, const XML_Char* prefix, const XML_Char* space) {
    if (prefix && (!space || !*space))
        Refuse(*static_cast<Building*>(data));
}

void OnDocumentType(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
    Refuse(*static_cast<Building*>(data));
}

std::string AttributesText(const XmlNode& node) {
    std::string text;
    int count = 0;
    for (const auto& [name, value] : node.attributes) {
        if (name.space.empty()) {
            text += ' ' + name.local;
        } else if (name.space == c_xmlSpace) {
            text += " xml:" + name.local;
        } else {
            const std::string prefix = "a" + std::to_string(++count);
            text += " xmlns:" + prefix + "=\"" + Escaped(name.space) + "\" " + prefix + ':' + name.local;
        }
        text += "=\"" + Escaped(value) + '"';
    }
    return text;
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
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreateNS(nullptr, c_separator),
                                                                              XML_ParserFree);
    if (!parser)
        throw std::bad_alloc();
    Building building{parser.get(), {}, {}, false};
    building.open = {&building.document};
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
    for (const char unit : text) {
        switch (unit) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        case '\t': escaped += "&#9;"; break;  // these three would be read back as blanks in an attribute
        case '\n': escaped += "&#10;"; break;
        case '\r': escaped += "&#13;"; break;
        default: escaped += unit;
        }
    }
    return escaped;
}

std::string OpenName(const XmlName& name) {
    return name.space == c_dav ? "D:" + name.local : name.local + " xmlns=\"" + Escaped(name.space) + '"';
}

std::string CloseName(const XmlName& name) {
    return name.space == c_dav ? "D:" + name.local : name.local;
}

std::string Serialized(const XmlNode& node) {
    if (node.IsText())
        return Escaped(node.text);
    const std::string start = '<' + OpenName(node.name) + AttributesText(node);
    if (node.children.empty())
        return start + "/>";
    return start + '>' + SerializedChildren(node) + "</" + CloseName(node.name) + '>';
}

std::string SerializedChildren(const XmlNode& node) {
    std::string text;
    for (const XmlNode& child : node.children)
        text += Serialized(child);
    return text;
}

}  // namespace webdav
