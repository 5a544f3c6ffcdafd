// A path inside the volume that was checked. The volume takes absolute paths as native ones, so nothing that a user wrote
// reaches it in any other form than this.
#pragma once

#include <string>
#include <string_view>

constexpr std::size_t kMaxPathComponents = 128;  // folders in each other; whoever goes through trees recurses as deep

class VolumePath {
public:
    enum class Wildcards { Refused, InLastComponent };

    // The root.
    VolumePath() = default;
    // '/' and '\' both separate; doubled ones, one at the end and "." fall away. Throws UsageError, naming the path and the
    // reason, for an absolute path, "..", a drive, a stream ("a:b"), a device name, a name that the volume keeps for
    // itself, a character that no name may have, a name that ends in a dot or blank (the platform would drop it and mean
    // another file) and for what is too long.
    static VolumePath Parse(std::wstring_view text, Wildcards wildcards = Wildcards::Refused);
    // Why name cannot stand between separators; null when it can.
    static const char* ComponentProblem(std::wstring_view name, Wildcards wildcards = Wildcards::Refused);

    // "Docs\Reports\a.txt", as the volume takes it.
    const wchar_t* Str() const { return m_path.c_str(); }
    // "Docs/Reports/a.txt" in UTF-8, as the user reads it; the root is "/".
    std::string Shown() const;

    bool IsRoot() const { return m_path.empty(); }
    bool IsMountFolder() const { return !IsRoot() && m_path.find(L'\\') == std::wstring::npos; }
    // The number of names in it.
    std::size_t Depth() const;
    std::wstring Name() const;
    VolumePath Parent() const;
    // name: one component, from the volume's own listing or already checked.
    VolumePath Child(std::wstring_view name) const;
    // A name of its own beside this one, for what is to take its place.
    VolumePath Aside() const;
    // The name that such a one stands beside; empty for any other.
    static std::wstring NameBeforeAside(std::wstring_view name);
    // Are they the same item, or is this inside folder?
    bool Equals(const VolumePath& other) const;
    bool IsInside(const VolumePath& folder) const;

private:
    std::wstring m_path;
};
