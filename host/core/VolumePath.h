// A checked path inside the volume. The volume uses absolute paths as native ones, so a path from a user is passed to it only in
// this form.
#pragma once

#include <string>
#include <string_view>

constexpr std::size_t kMaxName = 255;            // units; what the file system stores
constexpr std::size_t kMaxPathComponents = 128;  // functions that go through trees recurse as deep as this

class VolumePath {
public:
    enum class Wildcards { Refused, InLastComponent };

    // The root.
    VolumePath() = default;
    // '/' and '\' both separate; doubled ones, one at the end and "." are dropped. Throws UsageError, naming the path and the
    // reason, for an absolute path, "..", a drive, a stream ("a:b"), a device name, a reserved
    // name, a character that no name may have, a name that ends in a dot or blank (the platform would drop it and open
    // another file) and for a path or name that is too long.
    static VolumePath Parse(std::wstring_view text, Wildcards wildcards = Wildcards::Refused);
    // Why this cannot be a name in a path; null when it can.
    static const char* ComponentProblem(std::wstring_view name, Wildcards wildcards = Wildcards::Refused);

    // "Docs\Reports\a.txt", for the volume.
    const wchar_t* Str() const { return m_path.c_str(); }
    // "Docs/Reports/a.txt" in UTF-8, for the user; the root is "/".
    std::string Shown() const;

    bool IsRoot() const { return m_path.empty(); }
    bool IsMountFolder() const { return !IsRoot() && m_path.find(L'\\') == std::wstring::npos; }
    // The number of names in it.
    std::size_t Depth() const;
    std::wstring Name() const;
    VolumePath Parent() const;
    // name: one component, from the volume's own listing or already checked.
    VolumePath Child(std::wstring_view name) const;
    // A new name beside this one, for a file that will replace it.
    VolumePath Aside() const;
    // The original name of one that Aside made; empty for any other.
    static std::wstring NameBeforeAside(std::wstring_view name);
    // Are they the same item, or is this inside folder?
    bool Equals(const VolumePath& other) const;
    bool IsInside(const VolumePath& folder) const;

private:
    std::wstring m_path;
};
