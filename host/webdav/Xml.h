// XML as WebDAV uses it: small documents with namespaces in, text with escapes out.
#pragma once

#include <compare>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace webdav {

constexpr std::string_view kDav = "DAV:";

// The texts of names, of which a document has few. Shared, because a namespace may be long and is that of every element.
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

// Throws HttpError 400 for what is no well-formed document with well-formed namespaces, has a document type, is nested too
// deeply or has too many nodes (see Limits.h).
XmlNode ParseXml(std::string_view document);

// Characters that no document may have become U+FFFD.
std::string Escaped(std::string_view text);
// The element with every namespace it needs declared in it, so that it can stand anywhere.
std::string Serialized(const XmlNode& node);
std::string SerializedChildren(const XmlNode& node);
// "D:name" for DAV names, "name xmlns=..." for others: the inside of a start tag; and that of the end tag.
std::string OpenName(const XmlName& name);
std::string CloseName(const XmlName& name);

}  // namespace webdav
