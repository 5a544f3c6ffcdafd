// XML as WebDAV uses it: small documents with namespaces in, text with escapes out.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace webdav {

constexpr std::string_view c_dav = "DAV:";

struct XmlName {
    std::string space, local;
    auto operator<=>(const XmlName&) const = default;
    bool IsDav(std::string_view name) const { return space == c_dav && local == name; }
};

// An element, or a piece of text when its name is empty.
struct XmlNode {
    XmlName name;
    std::vector<std::pair<XmlName, std::string>> attributes;
    std::vector<XmlNode> children;
    std::string text;

    bool IsText() const { return name.local.empty(); }
    // The first child element of this DAV name; null when there is none.
    const XmlNode* Child(std::string_view davName) const;
    std::string Text() const;  // of the direct children
};

// Throws HttpError 400 for what is no well-formed document with well-formed namespaces, has a document type, or is nested
// deeper than 64 elements.
XmlNode ParseXml(std::string_view document);

std::string Escaped(std::string_view text);
// The element with every namespace it needs declared in it, so that it can stand anywhere.
std::string Serialized(const XmlNode& node);
std::string SerializedChildren(const XmlNode& node);
// "D:name" for DAV names, "name xmlns=..." for others: the inside of a start tag; and that of the end tag.
std::string OpenName(const XmlName& name);
std::string CloseName(const XmlName& name);

}  // namespace webdav
