#include "core/VolumePath.h"

#include <algorithm>

#include "core/HostError.h"
#include "core/Text.h"

namespace {

constexpr std::size_t kMaxAsideStem = 64;  // units; leaves room in the folder of the decrypted copies
constexpr std::size_t kMaxPath = 32'000;   // units; leaves room for the native path of the mount folder

bool IsSeparator(wchar_t unit) { return unit == L'/' || unit == L'\\'; }

const char* PathProblem(std::wstring_view text) {
    if (!text.empty() && IsSeparator(text[0]))
        return "an absolute path; a path of the volume begins with a mount folder, as in Docs/a.txt";
    if (text.size() >= 2 && text[1] == L':')
        return "a path with a drive; a path of the volume begins with a mount folder, as in Docs/a.txt";
    if (text.size() > kMaxPath)
        return "a path may have 32,000 characters at most";
    return nullptr;
}

}  // namespace

const char* VolumePath::ComponentProblem(std::wstring_view name, Wildcards wildcards) {
    if (name.empty())
        return "an empty name";
    if (name == L"." || name == L"..")
        return "'..' is not allowed in a path";
    if (name.find(L':') != std::wstring_view::npos)
        return "a name may not contain ':'";
    for (const wchar_t unit : name) {
        const bool wildcard = unit == L'*' || unit == L'?';
        if (unit < 32 || std::wstring_view(L"<>\"|/\\").find(unit) != std::wstring_view::npos)
            return "a name may not contain any of < > \" | / \\ or a control character";
        if (wildcard && wildcards == Wildcards::Refused)
            return "'*' and '?' are allowed only in the last name, and only for 'ls'";
    }
    // A container must not stand for a document of such a name either.
    const std::wstring_view shown = WithoutContainerExtension(name);
    if (shown.empty() || shown.back() == L'.' || shown.back() == L' ' || name.back() == L'.' || name.back() == L' ')
        return "a name may not end in a dot or a blank";
    if (IsDeviceName(name))
        return "the name of a device";
    if (IsReservedName(name) || IsReservedName(shown))
        return "a name that the volume reserves";
    if (name.size() > kMaxName)
        return "a name may have 255 characters at most";
    return nullptr;
}

VolumePath VolumePath::Parse(std::wstring_view text, Wildcards wildcards) {
    const auto refuse = [text](const char* reason) { throw UsageError("'" + ToUtf8(text) + "' is refused: " + reason); };
    if (const char* reason = PathProblem(text))
        refuse(reason);
    VolumePath path;
    for (auto begin = text.begin(); begin != text.end();) {
        const auto end = std::find_if(begin, text.end(), IsSeparator);
        const std::wstring_view name(begin, end);
        const bool last = std::all_of(end, text.end(), IsSeparator);
        if (!name.empty() && name != L".") {
            if (const char* reason = ComponentProblem(name, last ? wildcards : Wildcards::Refused))
                refuse(reason);
            path = path.Child(name);
        }
        begin = end == text.end() ? end : end + 1;
    }
    if (path.Depth() > kMaxPathComponents)
        refuse("too many folders in each other");
    return path;
}

std::size_t VolumePath::Depth() const {
    return IsRoot() ? 0 : static_cast<std::size_t>(std::count(m_path.begin(), m_path.end(), L'\\')) + 1;
}

std::string VolumePath::Shown() const {
    std::wstring text = IsRoot() ? L"/" : m_path;
    std::replace(text.begin(), text.end(), L'\\', L'/');
    std::replace_if(
        text.begin(), text.end(), [](wchar_t unit) { return unit < 32; }, L'\xFFFD');  // names are printed on one line
    return ToUtf8(text);
}

std::wstring VolumePath::Name() const { return m_path.substr(m_path.rfind(L'\\') + 1); }

VolumePath VolumePath::Parent() const {
    VolumePath parent;
    const std::size_t separator = m_path.rfind(L'\\');
    if (separator != std::wstring::npos)
        parent.m_path = m_path.substr(0, separator);
    return parent;
}

VolumePath VolumePath::Child(std::wstring_view name) const {
    VolumePath child;
    child.m_path = IsRoot() ? std::wstring(name) : m_path + L'\\' + std::wstring(name);
    return child;
}

// "report.docx" becomes "report.~1a2b3c4d.docx": the beginning and the extension stay, because names are excluded from encryption by
// these.
VolumePath VolumePath::Aside() const {
    const std::wstring name = Name();
    const std::size_t dot = name.rfind(L'.');
    std::wstring stem = name.substr(0, dot).substr(0, kMaxAsideStem);
    if (!stem.empty() && (stem.back() & 0xFC00) == 0xD800)  // half of a surrogate pair
        stem.pop_back();
    const bool hasDot = dot != std::wstring::npos;
    return Parent().Child(stem + (hasDot ? L".~" : L"~") + UniqueSuffix() + (hasDot ? name.substr(dot) : L""));
}

std::wstring VolumePath::NameBeforeAside(std::wstring_view name) {
    constexpr std::size_t suffixSize = 9;  // "~1a2b3c4d"
    const std::size_t tilde = name.rfind(L'~');
    if (tilde == std::wstring_view::npos || tilde == 0 || name.size() < tilde + suffixSize)
        return {};
    const std::wstring_view digits = name.substr(tilde + 1, suffixSize - 1), rest = name.substr(tilde + suffixSize);
    const bool hasDot = name[tilde - 1] == L'.';
    if (digits.find_first_not_of(L"0123456789abcdef") != std::wstring_view::npos || hasDot != rest.starts_with(L'.') ||
        (!hasDot && !rest.empty()))
        return {};
    return std::wstring(name.substr(0, hasDot ? tilde - 1 : tilde)) + std::wstring(rest);
}

bool VolumePath::Equals(const VolumePath& other) const { return EqualNoCase(m_path, other.m_path); }

bool VolumePath::IsInside(const VolumePath& folder) const {
    return m_path.size() > folder.m_path.size() && EqualNoCase(m_path.substr(0, folder.m_path.size()), folder.m_path) &&
           (folder.IsRoot() || m_path[folder.m_path.size()] == L'\\');
}
