#include "webdav/Proppatch.h"

#include <algorithm>
#include <set>

#include "core/HostError.h"
#include "webdav/FileReader.h"
#include "webdav/Limits.h"
#include "webdav/Methods.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

constexpr std::string_view kWindows = "urn:schemas-microsoft-com:";
constexpr std::uint64_t kPartSize = 256 * 1024;
constexpr std::uint32_t kKeepAttributes = 0xFFFFFFFF;
constexpr const char* kProtected[] = {"creationdate",    "getcontentlength", "getcontenttype", "getetag",
                                      "getlastmodified", "lockdiscovery",    "resourcetype",   "supportedlock"};

struct Changes {
    std::vector<XmlName> order;  // of the properties in the answer
    std::set<XmlName> known;     // the same names
    std::map<XmlName, std::optional<std::string>> dead;
    std::size_t bytes = 0;
    std::map<XmlName, int> refused;  // with which status; then nothing is changed
    VirtFindData times{};            // 0: not set
    bool setsTimes = false;
};

bool IsProtected(const XmlName& name) {
    return std::any_of(std::begin(kProtected), std::end(kProtected), [&](const char* known) { return name.IsDav(known); });
}

std::uint64_t* TimeField(const XmlName& name, VirtFindData& times) {
    if (std::string_view(name.space) != kWindows)
        return nullptr;
    if (std::string_view(name.local) == "Win32CreationTime")
        return &times.creationTime;
    if (std::string_view(name.local) == "Win32LastAccessTime")
        return &times.lastAccessTime;
    return std::string_view(name.local) == "Win32LastModifiedTime" ? &times.lastWriteTime : nullptr;
}

void AddChange(Changes& changes, const XmlNode& property, bool isSet) {
    if (changes.known.insert(property.name).second)
        changes.order.push_back(property.name);
    if (changes.order.size() > limits::propertiesOfOneFile)
        throw HttpError(507, "too many properties");
    if (IsProtected(property.name))
        changes.refused[property.name] = 403;
    std::uint64_t* const time = TimeField(property.name, changes.times);
    if (!time) {
        std::optional<std::string>& kept = changes.dead[property.name];
        kept = isSet ? Serialized(property, limits::propertyBytesOfOneFile - changes.bytes) : std::nullopt;
        if (isSet && !kept)
            throw HttpError(507, "the properties are too long");
        changes.bytes += kept ? kept->size() : 0;
    } else if (isSet) {
        *time = ParseHttpDate(Trimmed(property.Text()));
        changes.setsTimes = true;
        if (!IsKeptTime(*time))
            changes.refused[property.name] = 409;
    }
}

Changes ParseChanges(const std::string& text) {
    const Turn turn(g_xmlTurns);
    const XmlNode document = text.empty() ? XmlNode() : ParseXml(text);
    if (!document.name.IsDav("propertyupdate"))
        throw HttpError(400, "the body is not a propertyupdate");
    Changes changes;
    for (const XmlNode& step : document.children) {
        if (!step.name.IsDav("set") && !step.name.IsDav("remove"))
            continue;
        for (const XmlNode& prop : step.children) {
            if (!prop.name.IsDav("prop"))
                continue;
            for (const XmlNode& property : prop.children)
                if (!property.IsText())
                    AddChange(changes, property, step.name.IsDav("set"));
        }
    }
    if (changes.order.empty())
        throw HttpError(400, "the propertyupdate changes nothing");
    return changes;
}

bool HasTimes(const VirtFindData& data, const VirtFindData& wanted) {
    const auto same = [](std::uint64_t has, std::uint64_t wants) { return wants == 0 || has / kSecond == wants / kSecond; };
    return same(data.lastWriteTime, wanted.lastWriteTime) && same(data.creationTime, wanted.creationTime) &&
           same(data.lastAccessTime, wanted.lastAccessTime);
}

// The times of an encrypted file are inside its container, which must be written again to set them.
void StoreAgain(State& state, Resource& file, const VirtFindData& times) {
    const Volume& volume = state.volume;
    if (!volume.HasRoomFor(static_cast<std::uint64_t>(file.entry->data.fileSize), file.path.Parent()))
        throw HttpError(507, "the disk has no room for it");
    const DiskVersion read = volume.VersionOf(*file.entry);
    FileReader source(volume, file.entry->path);
    const std::unique_ptr<Upload> upload = StartUpload(volume, file);
    std::uint64_t done = 0;
    for (std::string_view part; !(part = source.Read(done, kPartSize)).empty(); done += part.size())
        upload->Write(part.data(), part.size());
    upload->Place(times, [&] {
        if (volume.VersionOf(*file.entry) != read)  // somebody else's new content must not be replaced by the old one
            throw HttpError(409, "it was changed meanwhile");
    });
    Resource stored = StoredAs(file, *upload);
    NoteStored(state, file, stored);
    file = std::move(stored);
}

// A conflict copy becomes an ordinary file, and resource is then that file.
void SetTimes(State& state, Resource& resource, VirtFindData times) {
    const VirtFindData& data = resource.entry->data;
    if (HasTimes(data, times) || resource.IsTopLevel())
        return;
    if (!resource.IsFolder() && data.itemType != VIT_PlainFile) {
        for (const auto time : {&VirtFindData::creationTime, &VirtFindData::lastAccessTime, &VirtFindData::lastWriteTime})
            if (times.*time == 0)
                times.*time = data.*time;
        StoreAgain(state, resource, times);
    } else {
        const FileHandle file = state.volume.Open(resource.entry->path, GENERIC_READ | FILE_WRITE_ATTRIBUTES, kShareAll, OPEN_EXISTING);
        Check(state.volume->SetFileInfo(file.Get(), kKeepAttributes, &times), resource.path);
        if (!resource.IsFolder())
            state.changes.Note(resource.key);
    }
}

void SendResult(Response& response, const Resource& resource, const Changes& changes) {
    std::map<int, std::string> byStatus;
    for (const XmlName& name : changes.order) {
        const auto refused = changes.refused.find(name);
        byStatus[refused != changes.refused.end() ? refused->second : changes.refused.empty() ? 200 : 424] += '<' + OpenName(name) + "/>";
    }
    std::string xml = R"(<?xml version="1.0" encoding="utf-8"?><D:multistatus xmlns:D="DAV:"><D:response><D:href>)" +
                      Escaped(resource.Url()) + "</D:href>";
    for (const auto& [status, names] : byStatus)
        xml += "<D:propstat><D:prop>" + names + "</D:prop><D:status>" + StatusLine(status) + "</D:status>" +
               (status == 403 ? "<D:error><D:cannot-modify-protected-property/></D:error>" : "") + "</D:propstat>";
    response.Send(207, {{"Content-Type", "application/xml; charset=utf-8"}}, xml + "</D:response></D:multistatus>");
}

// All or nothing (RFC 4918, 9.2).
void Make(const Changes& changes, State& state, Resource& resource) {
    const PropertyTexts before = state.properties.Of(resource.key);
    state.properties.Change(resource.key, changes.dead);
    try {
        if (changes.setsTimes)
            SetTimes(state, resource, changes.times);
    } catch (...) {
        auto undo = changes.dead;
        for (auto& [name, text] : undo) {
            const auto old = before.find(name);
            text = old == before.end() ? std::nullopt : std::optional(old->second);
        }
        state.properties.Change(resource.key, undo);
        throw;
    }
}

}  // namespace

void AnswerProppatch(Exchange& exchange) {
    const Changes changes = ParseChanges(ReadXmlBody(exchange.body));
    const Claim claim(exchange.state.claims, {{exchange.found.key, Use::Change}});
    Resource resource = exchange.Find();
    if (!resource.Exists())
        throw HttpError(404, "there is no such file or folder");
    CheckConditions(exchange, resource);
    CheckWritable(exchange, resource, false);
    if (changes.refused.empty())
        Make(changes, exchange.state, resource);
    SendResult(exchange.response, resource, changes);
}

}  // namespace webdav
