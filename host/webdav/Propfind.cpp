#include "webdav/Propfind.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "core/Interrupt.h"
#include "core/Text.h"
#include "webdav/Limits.h"
#include "webdav/Methods.h"
#include "webdav/Spool.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

constexpr std::string_view kWindows = "urn:schemas-microsoft-com:";

// A property that the volume knows; null when this resource does not have it.
struct LiveProperty {
    std::string_view space;
    const char* name;
    bool inAllProp;  // false: too slow for every entry of a large folder, and sent only if asked for by name
    std::optional<std::string> (*value)(const Exchange&, const Resource&);
};

std::optional<std::string> Element(std::string_view name, const std::string& value) {
    return "<D:" + std::string(name) + '>' + value + "</D:" + std::string(name) + '>';
}

std::optional<std::string> WindowsElement(const std::string& name, const std::string& value) {
    return '<' + name + " xmlns=\"" + std::string(kWindows) + "\">" + value + "</" + name + '>';
}

std::optional<std::string> DateElement(std::string_view name, std::uint64_t time, std::string (*format)(std::uint64_t)) {
    return time ? Element(name, format(time)) : std::nullopt;
}

std::optional<std::string> WindowsDate(const std::string& name, std::uint64_t time) {
    return time ? WindowsElement(name, HttpDate(time)) : std::nullopt;
}

using Value = std::optional<std::string>;

constexpr LiveProperty kLive[] = {
    {kDav, "resourcetype", true,
     [](const Exchange&, const Resource& item) -> Value {
         return item.IsFolder() ? "<D:resourcetype><D:collection/></D:resourcetype>" : "<D:resourcetype/>";
     }},
    {kDav, "getcontentlength", true,
     [](const Exchange&, const Resource& item) -> Value {
         return item.IsFolder() ? std::nullopt : Element("getcontentlength", std::to_string(item.entry->data.fileSize));
     }},
    {kDav, "getlastmodified", true,
     [](const Exchange&, const Resource& item) { return DateElement("getlastmodified", item.entry->data.lastWriteTime, HttpDate); }},
    {kDav, "creationdate", true,
     [](const Exchange&, const Resource& item) { return DateElement("creationdate", item.entry->data.creationTime, IsoDate); }},
    {kDav, "getetag", true,
     [](const Exchange& exchange, const Resource& item) -> Value {
         return item.IsFolder() ? std::nullopt : Element("getetag", exchange.Tag(item));
     }},
    {kDav, "getcontenttype", false,
     [](const Exchange&, const Resource& item) -> Value {
         const char* const type = item.IsFolder() ? "httpd/unix-directory" : ContentType(item.path.Name());
         return Element("getcontenttype", type ? type : "application/octet-stream");
     }},
    {kDav, "displayname", false,
     [](const Exchange&, const Resource& item) -> Value {
         return item.path.IsRoot() ? std::nullopt : Element("displayname", Escaped(ToUtf8(item.path.Name())));
     }},
    {kDav, "lockdiscovery", false,
     [](const Exchange& exchange, const Resource& item) -> Value { return LockDiscoveryXml(exchange.state.locks.Covering(item.key)); }},
    {kDav, "supportedlock", false,
     [](const Exchange&, const Resource&) -> Value {
         return "<D:supportedlock><D:lockentry><D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype>"
                "</D:lockentry><D:lockentry><D:lockscope><D:shared/></D:lockscope><D:locktype><D:write/></D:locktype>"
                "</D:lockentry></D:supportedlock>";
     }},
    {kWindows, "Win32CreationTime", false,
     [](const Exchange&, const Resource& item) { return WindowsDate("Win32CreationTime", item.entry->data.creationTime); }},
    {kWindows, "Win32LastAccessTime", false,
     [](const Exchange&, const Resource& item) { return WindowsDate("Win32LastAccessTime", item.entry->data.lastAccessTime); }},
    {kWindows, "Win32LastModifiedTime", false,
     [](const Exchange&, const Resource& item) { return WindowsDate("Win32LastModifiedTime", item.entry->data.lastWriteTime); }},
    {kWindows, "Win32FileAttributes", false,
     [](const Exchange&, const Resource& item) -> Value {
         char text[16];
         std::snprintf(text, sizeof(text), "%08x", static_cast<unsigned>(item.entry->data.fileAttributes));
         return WindowsElement("Win32FileAttributes", text);
     }},
};

struct Query {
    enum Kind { All, Names, Some } kind = All;
    std::vector<XmlName> wanted;  // for Some; for All, those to include
    bool brief = false;           // leave out what is missing
};

void TakeNames(const XmlNode& parent, Query& query) {
    std::set<XmlName> taken;
    for (const XmlNode& child : parent.children)
        if (!child.IsText() && taken.insert(child.name).second)
            query.wanted.push_back(child.name);
    std::size_t bytes = 0;
    std::set<SharedText> spaces;
    for (const XmlName& name : query.wanted)
        bytes += name.local.size() + (spaces.insert(name.space).second ? name.space.size() : 0);
    if (query.wanted.size() > limits::propertiesAsked || bytes > limits::propertyNameBytes)
        throw HttpError(413, "too many properties are asked for at once");
}

Query ParseQuery(const Exchange& exchange) {
    Query query;
    query.brief = EqualToken(exchange.request.Field("Brief").value_or(""), "t") ||
                  exchange.request.Field("Prefer").value_or("").find("return=minimal") != std::string::npos;
    const std::string text = ReadXmlBody(exchange.body);
    if (text.empty())
        return query;
    const Turn turn(g_xmlTurns);
    const XmlNode document = ParseXml(text);
    if (!document.name.IsDav("propfind"))
        throw HttpError(400, "the body is not a propfind");
    if (const XmlNode* prop = document.Child("prop")) {
        query.kind = Query::Some;
        TakeNames(*prop, query);
    } else if (document.Child("propname")) {
        query.kind = Query::Names;
    } else if (!document.Child("allprop")) {
        throw HttpError(400, "the propfind asks for nothing");
    } else if (const XmlNode* include = document.Child("include")) {
        TakeNames(*include, query);
    }
    return query;
}

const LiveProperty* FindLive(const XmlName& name) {
    const auto found = std::find_if(std::begin(kLive), std::end(kLive), [&](const LiveProperty& live) {
        return live.space == std::string_view(name.space) && live.name == std::string_view(name.local);
    });
    return found == std::end(kLive) ? nullptr : found;
}

class Listing {
public:
    Listing(const Exchange& exchange, Query query) : m_exchange(exchange), m_query(std::move(query)) {
        for (const XmlName& name : m_query.wanted)
            if (!name.space.empty() && !FindLive(name))
                m_prefixes.try_emplace(name.space, "n" + std::to_string(m_prefixes.size()));
    }

    // Declares the namespaces of the wanted properties, because every entry names those that it lacks.
    std::string Begin() const {
        std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\"";
        for (const auto& [space, prefix] : m_prefixes)
            xml += " xmlns:" + prefix + "=\"" + Escaped(space) + '"';
        return xml + ">\n";
    }

    std::string Entry(const Resource& item) const {
        const PropertyTexts dead = m_exchange.state.properties.Of(item.key);
        std::string found, missing;
        if (m_query.kind == Query::Names)
            AddNames(item, dead, found);
        if (m_query.kind == Query::All)
            AddAll(item, dead, found);
        for (const XmlName& name : m_query.wanted)
            AddOne(item, dead, name, found, missing);
        std::string xml = "<D:response><D:href>" + Escaped(item.Url()) + "</D:href>";
        if (!found.empty() || missing.empty() || m_query.brief)
            xml += "<D:propstat><D:prop>" + found + "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>";
        if (!missing.empty() && !m_query.brief)
            xml += "<D:propstat><D:prop>" + missing + "</D:prop><D:status>HTTP/1.1 404 Not Found</D:status></D:propstat>";
        return xml + "</D:response>\n";
    }

private:
    void AddNames(const Resource& item, const PropertyTexts& dead, std::string& found) const {
        for (const LiveProperty& live : kLive)
            if (live.value(m_exchange, item))
                found += '<' + OpenName({live.space, live.name}) + "/>";
        for (const auto& [name, text] : dead)
            if (!FindLive(name))
                found += '<' + OpenName(name) + "/>";
    }

    void AddAll(const Resource& item, const PropertyTexts& dead, std::string& found) const {
        for (const LiveProperty& live : kLive)
            if (live.inAllProp)
                found += live.value(m_exchange, item).value_or("");
        for (const auto& [name, text] : dead)
            found += text;
        if (const std::vector<DavLock> locks = m_exchange.state.locks.Covering(item.key); !locks.empty())
            found += LockDiscoveryXml(locks);
    }

    void AddOne(const Resource& item, const PropertyTexts& dead, const XmlName& name, std::string& found, std::string& missing) const {
        const LiveProperty* const live = FindLive(name);
        const auto kept = dead.find(name);
        const Value value = kept != dead.end() ? kept->second : live ? live->value(m_exchange, item) : std::nullopt;
        if (value)
            found += *value;
        else
            missing += '<' + Prefixed(name) + "/>";
    }

    std::string Prefixed(const XmlName& name) const {
        const auto found = m_prefixes.find(name.space);
        return found == m_prefixes.end() ? OpenName(name) : found->second + ':' + std::string(std::string_view(name.local));
    }

    const Exchange& m_exchange;
    Query m_query;
    std::map<SharedText, std::string> m_prefixes;  // of namespaces
};

}  // namespace

void AnswerPropfind(Exchange& exchange) {
    const Depth depth = ParseDepth(exchange.request, Depth::Infinity);
    const Listing listing(exchange, ParseQuery(exchange));
    const Resource resource = exchange.Find();
    if (!resource.Exists())
        throw HttpError(404, "there is no such file or folder");
    CheckConditions(exchange, resource);
    if (depth == Depth::Infinity && resource.IsFolder())
        throw HttpError(403, "only one folder at a time is listed", "<D:propfind-finite-depth/>");
    // Completed before it is sent, so that a slow client does not keep the search of a folder open.
    Spool spool(exchange.state.volume.Temp());
    const auto append = [&spool](const std::string& xml) {
        if (spool.Size() + xml.size() > limits::answerBytes)
            throw HttpError(507, "the answer would be too long; ask for fewer properties");
        spool.Append(xml);
    };
    append(listing.Begin() + listing.Entry(resource));
    if (resource.IsFolder() && depth == Depth::One) {
        const Claim claim(exchange.state.claims, {{resource.key, Use::Read}});  // a folder that is listed cannot be moved
        const Turn turn(g_listingTurns);
        const ListedEntries listed(exchange.state.volume, resource);
        Search search(exchange.state.volume, resource.entry->path);
        for (Entry entry; search.Next(entry);) {
            StopIfInterrupted();
            Resource item = Listed(resource, entry);
            if (listed.Has(entry, &item.version))
                append(listing.Entry(item));
        }
    }
    append("</D:multistatus>\n");
    exchange.response.Begin(207, {{"Content-Type", "application/xml; charset=utf-8"}}, spool.Size());
    spool.ForEach([&](std::string_view part) { exchange.response.Write(part); });
}

}  // namespace webdav
