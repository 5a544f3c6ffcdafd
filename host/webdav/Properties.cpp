#include "webdav/Properties.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

#include "core/Text.h"
#include "webdav/Http.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

constexpr std::uint64_t kMillisecond = kSecond / 1000;

std::size_t SizeOf(const VolumePath& path) { return std::wcslen(path.Str()) * sizeof(wchar_t) + 64; }

std::size_t SizeOf(const PropertyTexts& texts) {
    std::size_t size = 0;
    for (const auto& [name, text] : texts)
        size += name.space.size() + name.local.size() + text.size() + 64;
    return size;
}

struct TypeRow {
    const wchar_t* extension;
    const char* type;
};

constexpr TypeRow kTypes[] = {
    {L".txt", "text/plain; charset=utf-8"},
    {L".md", "text/plain; charset=utf-8"},
    {L".csv", "text/csv; charset=utf-8"},
    {L".html", "text/html"},
    {L".htm", "text/html"},
    {L".xml", "text/xml"},
    {L".json", "application/json"},
    {L".pdf", "application/pdf"},
    {L".png", "image/png"},
    {L".jpg", "image/jpeg"},
    {L".jpeg", "image/jpeg"},
    {L".gif", "image/gif"},
    {L".webp", "image/webp"},
    {L".svg", "image/svg+xml"},
    {L".mp3", "audio/mpeg"},
    {L".mp4", "video/mp4"},
    {L".zip", "application/zip"},
    {L".doc", "application/msword"},
    {L".xls", "application/vnd.ms-excel"},
    {L".ppt", "application/vnd.ms-powerpoint"},
    {L".docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {L".xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {L".pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {L".odt", "application/vnd.oasis.opendocument.text"},
};

}  // namespace

PropertyTexts DeadProperties::Of(const VolumePath& path) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_properties.find(path);
    return found == m_properties.end() ? PropertyTexts{} : found->second;
}

void DeadProperties::Change(const VolumePath& path, const std::map<XmlName, std::optional<std::string>>& changes) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_properties.find(path);
    const std::size_t oldSize = found == m_properties.end() ? 0 : SizeOf(path) + SizeOf(found->second);
    PropertyTexts texts = found == m_properties.end() ? PropertyTexts{} : found->second;
    for (const auto& [name, text] : changes) {
        if (text)
            texts[name] = *text;
        else
            texts.erase(name);
    }
    const std::size_t ownBytes = SizeOf(texts), bytes = m_bytes - oldSize + (texts.empty() ? 0 : SizeOf(path) + ownBytes);
    const bool isTooMuch =
        bytes > limits::propertyBytes || ownBytes > limits::propertyBytesOfOneFile || texts.size() > limits::propertiesOfOneFile;
    if (isTooMuch && bytes > m_bytes)
        throw HttpError(507, "too many properties are kept already");
    m_bytes = bytes;
    if (texts.empty())
        m_properties.erase(path);
    else
        m_properties[path] = std::move(texts);
}

void DeadProperties::RequireRoomForCopy(const VolumePath& from) const {
    const std::lock_guard guard(m_mutex);
    std::size_t bytes = m_bytes;
    for (const auto& [path, texts] : m_properties)
        if (IsAtOrInside(path, from))
            bytes += SizeOf(path) + SizeOf(texts);
    if (bytes > limits::propertyBytes && bytes > m_bytes)
        throw HttpError(507, "too many properties are kept already");
}

void DeadProperties::CopyTree(const VolumePath& from, const VolumePath& to) {
    const std::lock_guard guard(m_mutex);
    PathMap<PropertyTexts> copies;
    for (const auto& [path, texts] : m_properties)
        if (IsAtOrInside(path, from))
            copies.emplace(Moved(path, from, to), texts);
    for (auto& [path, texts] : copies)
        Store(path, std::move(texts));
}

void DeadProperties::Store(const VolumePath& path, PropertyTexts texts) {
    if (const auto old = m_properties.find(path); old != m_properties.end()) {
        m_bytes -= SizeOf(path) + SizeOf(old->second);
        m_properties.erase(old);
    }
    if (m_bytes + SizeOf(path) + SizeOf(texts) > limits::propertyBytes)
        return;
    m_bytes += SizeOf(path) + SizeOf(texts);
    m_properties.emplace(path, std::move(texts));
}

void DeadProperties::MoveTree(const VolumePath& from, const VolumePath& to) {
    const std::lock_guard guard(m_mutex);
    PathMap<PropertyTexts> moved;
    for (auto place = m_properties.begin(); place != m_properties.end();) {
        const auto next = std::next(place);
        if (IsAtOrInside(place->first, from)) {
            m_bytes -= SizeOf(place->first) + SizeOf(place->second);
            moved.emplace(Moved(place->first, from, to), std::move(place->second));
            m_properties.erase(place);
        }
        place = next;
    }
    for (auto& [path, texts] : moved)
        Store(path, std::move(texts));
}

void DeadProperties::RemoveTree(const VolumePath& top) {
    const std::lock_guard guard(m_mutex);
    for (auto place = m_properties.begin(); place != m_properties.end();) {
        const auto next = std::next(place);
        if (IsAtOrInside(place->first, top)) {
            m_bytes -= SizeOf(place->first) + SizeOf(place->second);
            m_properties.erase(place);
        }
        place = next;
    }
}

void ChangeNumbers::Note(const VolumePath& path) {
    const std::lock_guard guard(m_mutex);
    // Starts with the current time, so that a number of an earlier run is never used again.
    m_last = std::max(m_last + 1, Now() / kSecond);
    if (m_bytes + SizeOf(path) > limits::changeBytes) {  // from then on every file counts as changed
        m_numbers.clear();
        m_bytes = 0;
        m_least = m_last;
    }
    if (m_numbers.insert_or_assign(path, m_last).second)
        m_bytes += SizeOf(path);
}

std::uint64_t ChangeNumbers::Of(const VolumePath& path) const {
    const std::lock_guard guard(m_mutex);
    std::uint64_t number = m_least;
    for (VolumePath place = path; !m_numbers.empty(); place = place.Parent()) {
        if (const auto found = m_numbers.find(place); found != m_numbers.end())
            number = std::max(number, found->second);
        if (place.IsRoot())
            break;
    }
    return number;
}

std::string EntityTag(const Volume& volume, const ChangeNumbers& changes, const Resource& resource) {
    if (!resource.entry || resource.IsFolder())
        return {};
    const VirtFindData& data = resource.entry->data;
    // The tag must not change when a file is locked or unlocked, so the time is taken in the precision of containers. The change time
    // on disk is written relative to it, which needs few digits; a listing has many tags.
    const DiskVersion onDisk = resource.version ? *resource.version : volume.VersionOf(*resource.entry);
    const std::uint64_t written = data.lastWriteTime / kMillisecond, changed = onDisk.changed / kMillisecond;
    char tag[96];
    std::snprintf(tag, sizeof(tag), "\"%llx-%llx-%llx", static_cast<unsigned long long>(written),
                  static_cast<unsigned long long>(data.fileSize), static_cast<unsigned long long>(changed - written));
    std::string text = tag;
    if (const std::uint64_t number = changes.Of(resource.key)) {
        std::snprintf(tag, sizeof(tag), "-%llx", static_cast<unsigned long long>(number));
        text += tag;
    }
    return text + '"';
}

const char* ContentType(std::wstring_view name) {
    for (const TypeRow& row : kTypes)
        if (EndsWithNoCase(name, row.extension))
            return row.type;
    return nullptr;
}

std::string LockDiscoveryXml(const std::vector<DavLock>& locks) {
    if (locks.empty())
        return "<D:lockdiscovery/>";
    std::string xml = "<D:lockdiscovery>";
    for (const DavLock& lock : locks) {
        xml += "<D:activelock><D:locktype><D:write/></D:locktype><D:lockscope>";
        xml += lock.scope == LockScope_Exclusive ? "<D:exclusive/>" : "<D:shared/>";
        xml += "</D:lockscope><D:depth>" + std::string(lock.infinite ? "infinity" : "0") + "</D:depth>";
        if (!lock.ownerXml.empty())
            xml += "<D:owner>" + lock.ownerXml + "</D:owner>";
        xml += "<D:timeout>Second-" + std::to_string(lock.timeoutSeconds) + "</D:timeout><D:locktoken><D:href>" + lock.token +
               "</D:href></D:locktoken><D:lockroot><D:href>" + Href(lock.root, lock.isFolder) + "</D:href></D:lockroot></D:activelock>";
    }
    return xml + "</D:lockdiscovery>";
}

}  // namespace webdav
