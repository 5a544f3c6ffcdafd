// XML for WebDAV: parses small documents with namespaces, and writes escaped text.
#pragma once

#include <compare>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace webdav {

constexpr std::string_view kDav = "DAV:";

// The text of a name or namespace. Shared, because a namespace may be long and that of every element.
class SharedText {
public:
    SharedText() = default;
    SharedText(std::string_view text) : m_text(text.empty() ? nullptr : std::make_shared<const std::string>(text)) {}
    SharedText(const char* text) : SharedText(std::string_view(text)) {}
    operator std::string_view() const { return m_text ? std::string_view(*m_text) : std::string_view(); }
    std::size_t size() const { return m_text ? m_text->size() : 0; }
    bool empty() const { return !m_text; }
    friend bool operator==(const SharedText& left, const SharedText& right) {
        return left.m_text == right.m_text || left.View() == right.View();
    }
    friend auto operator<=>(const SharedText& left, const SharedText& right) { return left.View() <=> right.View(); }

private:
    std::string_view View() const { return *this; }
    std::shared_ptr<const std::string> m_text;
};

struct XmlName {
    SharedText space, local;
    auto operator<=>(const XmlName&) const = default;
    bool operator==(const XmlName&) const = default;
    bool IsDav(std::string_view name) const { return std::string_view(space) == kDav && std::string_view(local) == name; }
};

// An element, or a piece of text when its name is empty.
struct XmlNode {
    XmlName name;
    std::vector<std::pair<XmlName, std::string>> attributes;
    std::vector<XmlNode> children;
    std::string text;

    bool operator==(const XmlNode&) const = default;
    bool IsText() const { return name.local.empty(); }
    // The first child element of this DAV name; null when there is none.
    const XmlNode* Child(std::string_view davName) const;
    std::string Text() const;  // of the direct children
};

// Throws HttpError 400 for a document that is not well-formed, including its namespaces, has a document type, is nested too
// deeply or has too many nodes (see Limits.h).
XmlNode ParseXml(std::string_view document);

// Escapes text for XML. Characters that are forbidden in XML become U+FFFD.
std::string Escaped(std::string_view text);
// The element as text with all its namespaces declared in it, so that it can be put anywhere. These may make it much longer than it was
// in its document: nothing if the text would have more than mostBytes.
std::optional<std::string> Serialized(const XmlNode& node, std::size_t mostBytes);
std::optional<std::string> SerializedChildren(const XmlNode& node, std::size_t mostBytes);
// The content of a start tag: "D:name" for DAV names, "name xmlns=..." for others; and that of the end tag.
std::string OpenName(const XmlName& name);
std::string CloseName(const XmlName& name);

}  // namespace webdav
