#include "webdav/Paths.h"

#include <cwchar>

#include <windows.h>

#include "core/HostError.h"
#include "core/OnDisk.h"
#include "core/Text.h"
#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

static_assert(limits::pathComponents == kMaxPathComponents);

constexpr std::string_view kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$'()*+,=@";

int HexDigit(char unit) {
    if (unit >= '0' && unit <= '9')
        return unit - '0';
    const char lower = static_cast<char>(unit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string PercentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            throw HttpError(400, "the path has a '%' that two hexadecimal digits do not follow");
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

// Removes "http://host".
std::string_view PathPart(std::string_view target, std::string* authority) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (target.size() < scheme.size() || !EqualToken(target.substr(0, scheme.size()), scheme))
            continue;
        target.remove_prefix(scheme.size());
        const std::size_t slash = std::min(target.find('/'), target.size());
        if (authority)
            *authority = std::string(target.substr(0, slash));
        target.remove_prefix(slash);
        return target.empty() ? "/" : target;
    }
    return target;
}

std::wstring DecodedName(std::string_view component) {
    const std::string decoded = PercentDecoded(component);
    if (decoded.find_first_of("/\\") != std::string::npos)
        throw HttpError(400, "a name cannot contain a separator");
    try {
        return ToUtf16(decoded);
    } catch (const HostError&) {
        throw HttpError(400, "the path is not valid UTF-8");
    }
}

bool IsAscii(std::wstring_view text) {
    return text.find_first_not_of(L"\t !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~") ==
           std::wstring_view::npos;
}

std::wstring Normalized(const std::wstring& text, NORM_FORM form) {
    std::wstring result(text.size() * 4 + 16, L'\0');
    const int length = NormalizeString(form, text.data(), static_cast<int>(text.size()), result.data(), static_cast<int>(result.size()));
    result.resize(static_cast<std::size_t>(std::max(length, 0)));
    return result;
}

std::vector<std::wstring> Spellings(const std::wstring& name) {
    std::vector<std::wstring> spellings{name};
    for (const NORM_FORM form : {NormalizationC, NormalizationD})
        if (std::wstring other = IsAscii(name) ? std::wstring() : Normalized(name, form);
            other != name && !VolumePath::ComponentProblem(other))
            spellings.push_back(std::move(other));
    return spellings;
}

// The name of a folder in the path, in its stored spelling; nothing when it is missing.
std::optional<std::wstring> StoredName(const Volume& volume, const VolumePath& folder, const std::wstring& name) {
    if (IsAscii(name) && name.find(L'~') == std::wstring::npos)
        return name;
    const auto onDisk = volume.FolderOnDisk(folder);
    for (const std::wstring& spelling : Spellings(name))
        if (std::wstring stored = onDisk ? LongName(*onDisk + L'\\' + spelling) : std::wstring(); !VolumePath::ComponentProblem(stored))
            return stored;
    return std::nullopt;
}

VolumePath StoredParent(const Volume& volume, const VolumePath& path) {
    const std::wstring text = path.Parent().Str();
    if (IsAscii(text) && text.find(L'~') == std::wstring::npos)
        return path.Parent();
    VolumePath stored;
    bool isMissing = false;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end + 1) {
        end = std::min(text.find(L'\\', begin), text.size());
        const std::wstring name = text.substr(begin, end - begin);
        const auto own = stored.IsRoot() || isMissing ? name : StoredName(volume, stored, name);
        isMissing = isMissing || !own;
        stored = stored.Child(own.value_or(name));
    }
    return stored;
}

}  // namespace

bool PathLess::operator()(const VolumePath& left, const VolumePath& right) const { return LessNoCase(left.Str(), right.Str()); }

bool IsAtOrInside(const VolumePath& path, const VolumePath& folder) {
    return folder.IsRoot() || path.Equals(folder) || path.IsInside(folder);
}

VolumePath Moved(const VolumePath& path, const VolumePath& oldTop, const VolumePath& newTop) {
    const std::wstring rest = std::wstring(path.Str()).substr(std::wcslen(oldTop.Str()));
    return rest.empty() ? newTop : newTop.Child(rest.substr(oldTop.IsRoot() ? 0 : 1));
}

VolumePath ParseTarget(std::string_view target, std::string* authority) {
    if (target.size() > limits::targetBytes)
        throw HttpError(414);
    target = PathPart(target, authority);
    target = target.substr(0, target.find('?'));
    if (target.empty() || target[0] != '/' || target.find('#') != std::string_view::npos)
        throw HttpError(400, "not a path of this server");
    VolumePath path;
    while (!target.empty()) {
        const std::size_t end = std::min(target.find('/'), target.size());
        const std::wstring name = DecodedName(target.substr(0, end));
        target.remove_prefix(std::min(end + 1, target.size()));
        if (name.empty())
            continue;
        if (const char* problem = VolumePath::ComponentProblem(name))
            throw HttpError(name.size() > 255 ? 414 : 400, "the path is refused: " + std::string(problem));
        if (path.Depth() >= limits::pathComponents)
            throw HttpError(414, "the path is refused: too many nested folders");
        path = path.Child(name);
    }
    if (std::wcslen(path.Str()) > 32'000)
        throw HttpError(414);
    return path;
}

std::string Href(const VolumePath& path, bool isFolder) {
    std::string href = "/";
    if (path.IsRoot())
        return href;
    for (const char unit : ToUtf8(path.Str())) {
        if (unit == '\\') {
            href += '/';
        } else if (kUnreserved.find(unit) != std::string_view::npos) {
            href += unit;
        } else {
            constexpr char digits[] = "0123456789ABCDEF";
            href += {'%', digits[static_cast<unsigned char>(unit) >> 4], digits[unit & 15]};
        }
    }
    return isFolder ? href + '/' : href;
}

Resource Locate(const Volume& volume, const VolumePath& path) {
    if (path.IsRoot()) {
        Resource root{path, path, Entry{path}};
        root.entry->data.fileAttributes = FILE_ATTRIBUTE_DIRECTORY;
        return root;
    }
    const std::wstring name = path.Name();
    const VolumePath parent = StoredParent(volume, path);
    for (const std::wstring& spelling : Spellings(name)) {
        std::optional<Entry> entry = volume.Find(parent.Child(spelling));
        if (!entry)
            continue;
        const VolumePath found = parent.Child(EqualNoCase(entry->Name(), spelling) ? spelling : entry->Name());
        return {found, volume.Key(found), std::move(entry)};
    }
    return {parent.Child(name), volume.Key(parent.Child(name)), std::nullopt};
}

Resource Listed(const Resource& folder, const Entry& entry) {
    const VolumePath path = folder.path.Child(entry.Name());
    return {path, folder.path.IsRoot() ? path : folder.key.Child(entry.Name()), entry};
}

bool AreSpellings(const std::wstring& left, const std::wstring& right) {
    return EqualNoCase(Normalized(left, NormalizationC), Normalized(right, NormalizationC));
}

ListedEntries::ListedEntries(const Volume& volume, const Resource& folder) : m_volume(volume), m_folder(folder) {
    VirtMountInfo mount{};
    if (!folder.path.IsRoot() && volume->GetMountInfoByVolumePath(folder.path.Str(), &mount))
        m_mountPathSize = BoundedText(mount.path).size();
    if (!AreLinksMarked())
        m_onDisk = volume.FolderOnDisk(folder.path).value_or(std::wstring());
}

// Is there a plain file or document of the name that the conflict copy is listed under? The folder is read once for all conflict copies.
bool ListedEntries::IsHidden(const std::wstring& conflictName) const {
    if (!m_hiding) {
        m_hiding.emplace(&LessNoCase);
        const auto folder = m_volume.FolderOnDisk(m_folder.path);
        const std::wstring pattern = L'*' + std::wstring(kConflictExtension) + L'*';
        for (const std::wstring& name : folder ? NamesIn(*folder, pattern.c_str()) : std::vector<std::wstring>()) {
            const std::wstring shown(WithoutContainerExtension(name));
            if (EndsWithNoCase(shown, kConflictExtension) && StandingAt(*folder + L'\\' + name) == Standing::Itself)
                m_hiding->insert(shown);
        }
    }
    return m_hiding->contains(conflictName);
}

bool ListedEntries::Has(const Entry& entry, std::optional<DiskVersion>* version) const {
    constexpr std::size_t surelyShort = 250;  // units; from 260, the platform's limit applies
    const std::wstring name = entry.Name();
    if (VolumePath::ComponentProblem(name) || entry.path.Depth() > limits::pathComponents)
        return false;
    if (ToUtf8(name).find("\xEF\xBF\xBD") != std::string::npos && name.find(L'\xFFFD') == std::wstring::npos)
        return false;  // not valid Unicode
    if (entry.IsConflict() && IsHidden(name))
        return false;
    if (m_mountPathSize > 0 && m_mountPathSize + std::wcslen(entry.path.Str()) > surelyShort) {
        const auto found = m_volume.Find(m_folder.path.Child(name));
        return found && found->path.Equals(entry.path);
    }
    if (!m_onDisk.empty())
        return StandingAt(m_onDisk + L'\\' + entry.NameOnDisk(), version) == Standing::Itself;
    const bool mayBeLink = (entry.data.fileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    return !mayBeLink || m_volume.IsItself(entry);
}

}  // namespace webdav
