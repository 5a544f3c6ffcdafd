#include "webdav/Pages.h"

#include <algorithm>
#include <cstdio>

#include "core/Companion.h"
#include "core/Interrupt.h"
#include "core/Storage.h"
#include "core/Text.h"
#include "webdav/Limits.h"
#include "webdav/Methods.h"
#include "webdav/PageFiles.h"
#include "webdav/Spool.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

// Everything is loaded from this server only, and no inline script runs.
const Fields kPageFields{{"Content-Type", "text/html; charset=utf-8"},
                         {"Cache-Control", "private, no-cache"},
                         {"X-Content-Type-Options", "nosniff"},
                         {"X-Frame-Options", "DENY"},
                         {"Referrer-Policy", "no-referrer"},
                         {"Content-Security-Policy",
                          "default-src 'none'; style-src 'self'; script-src 'self'; connect-src 'self'; base-uri 'none'; "
                          "form-action 'none'; frame-ancestors 'none'"}};

constexpr const char* kTools = R"(<div id=tools hidden>
<button type=button id=upload>Upload files</button><button type=button id=uploadFolder>Upload a folder</button>
<button type=button id=newFolder>New folder</button>
<input type=search id=filter aria-label="Filter by name" placeholder="Filter">
<input type=file id=files multiple hidden><input type=file id=folder webkitdirectory hidden></div>
<div id=state role=status aria-live=polite></div><progress id=progress max=1 hidden aria-label="Upload"></progress>
<dialog id=ask><form method=dialog><p id=question></p><input aria-labelledby=question>
<div><button value=yes>Yes</button><button value=no formnovalidate>Cancel</button></div></form></dialog>
)";

std::string Beginning(const std::string& title, bool isRoot) {
    return "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8><meta name=viewport "
           "content=\"width=device-width,initial-scale=1\"><title>" +
           title + "</title><link rel=stylesheet href=\"/?page.css\"><script src=\"/?page.js\" defer></script></head><body" +
           (isRoot ? " data-root" : "") + ">\n";
}

std::string SizeText(std::int64_t bytes) {
    static constexpr const char* units[] = {"B", "kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < std::size(units); ++unit)
        value /= 1000;
    char text[32];
    std::snprintf(text, sizeof(text), unit > 0 && value < 9.95 ? "%.1f %s" : "%.0f %s", value, units[unit]);
    return text;
}

// The text, without tags, of what the client said about itself; it is escaped already.
std::string OwnerText(const std::string& ownerXml) {
    std::string text;
    bool isTag = false;
    for (const char unit : ownerXml) {
        isTag = isTag || unit == '<';
        if (!isTag)
            text += unit;
        isTag = isTag && unit != '>';
    }
    text = std::string(Trimmed(text));
    return text.empty() ? text : " by " + text;
}

// Why it is damaged or not encrypted, beside the mark that says that it is; empty for other files.
std::string Reason(const Volume& volume, const Entry& entry, Stored stored) {
    std::string reason;
    if (stored == Stored::Damaged)
        reason = ExamineContainer(ConfiguredPath(volume, entry)).reason;
    else if (std::string_view(StoredWord(stored)) == "plain")
        reason = WhyInClear(stored);
    return reason.empty() ? reason : " <span class=why>" + Escaped(reason) + "</span>";
}

// How it is stored, and what is special about it.
std::string Marks(const Exchange& exchange, const Resource& item, const Storage& storage) {
    if (item.IsFolder())
        return "folder";
    const Stored stored = storage.Of(*item.entry);
    const char* const mark = stored == Stored::Encrypted      ? "encrypted"
                             : stored == Stored::ConflictCopy ? "conflict copy"
                             : stored == Stored::Damaged      ? "DAMAGED"
                                                              : "NOT encrypted";
    std::string marks =
        "<span class=" + std::string(StoredWord(stored)) + ">" + mark + "</span>" + Reason(exchange.state.volume, *item.entry, stored);
    for (const DavLock& lock : exchange.state.locks.Covering(item.key))
        marks += " <span class=locked>locked" + OwnerText(lock.ownerXml) + "</span>";
    return marks;
}

std::string Row(const Exchange& exchange, const Resource& item, const Storage& storage) {
    const VirtFindData& data = item.entry->data;
    const bool isFolder = item.IsFolder();
    const std::string time = data.lastWriteTime ? IsoDate(data.lastWriteTime) : "", name = Escaped(ToUtf8(item.path.Name()));
    return std::string("<tr data-kind=") + (isFolder ? "folder" : "file") + " data-name=\"" + name +
           "\" data-size=" + std::to_string(isFolder ? 0 : data.fileSize) + " data-time=\"" + time + "\"><td><a href=\"" +
           Escaped(item.Url()) + "\">" + name + (isFolder ? "/" : "") + "</a></td><td class=n>" +
           (isFolder ? "" : SizeText(data.fileSize)) + "</td><td class=t>" +
           (time.empty() ? "" : "<time datetime=\"" + time + "\">" + time.substr(0, 10) + ' ' + time.substr(11, 5) + "</time>") +
           "</td><td class=k>" + Marks(exchange, item, storage) + "</td></tr>\n";
}

// What the reader of the page must know first.
std::string Notices(const Exchange& exchange, const Resource& folder) {
    std::string text;
    for (const std::string& notice : exchange.state.notices ? exchange.state.notices() : std::vector<std::string>())
        text += "<p class=notice role=note>" + Escaped(notice) + "</p>\n";
    if (!folder.path.IsRoot()) {
        const Verdict verdict = CheckFolderPassword(ConfiguredPath(exchange.state.volume, folder.entry->path), false);
        if (verdict.state == ContainerState::WrongKey)
            text += "<p class=notice role=alert>Nothing can be stored here: " + Escaped(verdict.reason) + ".</p>\n";
    }
    return text;
}

// "volume / Docs / Reports", each a link.
std::string Trail(VolumePath path) {
    std::string trail;
    for (; !path.IsRoot(); path = path.Parent())
        trail = " / <a href=\"" + Escaped(Href(path, true)) + "\">" + Escaped(ToUtf8(path.Name())) + "</a>" + trail;
    return "<a href=\"/\">Volume</a>" + trail;
}

// The part of an entry that a row needs: a whole Entry takes three times the memory.
struct Line {
    std::wstring name, stored;  // stored: the last name of its path, if that is different
    std::uint32_t attributes;
    VirtualItemType type;
    std::int64_t size;
    std::uint64_t time;

    explicit Line(const Entry& entry)
        : name(entry.Name()),
          stored(entry.IsConflict() ? entry.path.Name() : std::wstring()),
          attributes(entry.data.fileAttributes),
          type(entry.data.itemType),
          size(entry.data.fileSize),
          time(entry.data.lastWriteTime) {}
    bool IsFolder() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    Entry In(const VolumePath& folder) const {
        Entry entry{folder.Child(stored.empty() ? name : stored)};
        entry.data.fileAttributes = attributes;
        entry.data.itemType = type;
        entry.data.fileSize = size;
        entry.data.lastWriteTime = time;
        name.copy(entry.data.fileName, std::size(entry.data.fileName) - 1);
        return entry;
    }
};

void WritePage(Exchange& exchange, const Resource& folder, Spool& page) {
    const Claim claim(exchange.state.claims, {{folder.key, Use::Read}});  // a folder that is listed cannot be moved
    const Turn turn(g_listingTurns);
    const ListedEntries listed(exchange.state.volume, folder);
    std::vector<Line> lines;
    bool isWhole = true;
    Search search(exchange.state.volume, folder.entry->path);
    for (Entry entry; isWhole && search.Next(entry);) {
        StopIfInterrupted();
        if (listed.Has(entry)) {
            isWhole = lines.size() < limits::pageEntries;
            if (isWhole)
                lines.emplace_back(entry);
        }
    }
    std::sort(lines.begin(), lines.end(), [](const Line& left, const Line& right) {
        return left.IsFolder() != right.IsFolder() ? left.IsFolder() : LessNoCase(left.name, right.name);
    });
    const std::string title = folder.path.IsRoot() ? "Volume" : Escaped(ToUtf8(folder.path.Name()));
    page.Append(Beginning(title, folder.path.IsRoot()) + "<h1>" + Trail(folder.path) + "</h1>\n" + kTools + "<main>\n" +
                Notices(exchange, folder));
    page.Append(lines.empty() ? "<p>This folder is empty.</p>\n"
                              : "<table><thead><tr><th>Name</th><th class=n>Size</th><th class=t>Changed "
                                "(UTC)</th><th>Stored</th></tr></thead><tbody>\n");
    const Storage storage(exchange.state.volume, folder.entry->path);
    for (const Line& line : lines)
        page.Append(Row(exchange, Listed(folder, line.In(folder.entry->path)), storage));
    if (!lines.empty())
        page.Append("</tbody></table>\n<p>" + std::to_string(lines.size()) + (lines.size() == 1 ? " entry" : " entries") +
                    (isWhole ? "" : "; there are more, which this page does not show") + "</p>\n");
    page.Append("</main></body></html>\n");
}

}  // namespace

void SendFolderPage(Exchange& exchange, const Resource& folder) {
    if (exchange.request.method == "HEAD")
        return exchange.response.Begin(200, kPageFields, std::nullopt);
    Spool page(exchange.state.volume.Temp());
    WritePage(exchange, folder, page);
    exchange.response.Begin(200, kPageFields, page.Size());
    page.ForEach([&](std::string_view part) { exchange.response.Write(part); });
}

bool SendPageFile(const Request& request, Response& response) {
    const bool isScript = request.target == "/?page.js";
    if ((!isScript && request.target != "/?page.css") || (request.method != "GET" && request.method != "HEAD"))
        return false;
    response.Send(200,
                  {{"Content-Type", isScript ? "text/javascript; charset=utf-8" : "text/css; charset=utf-8"},
                   {"Cache-Control", "private, no-cache"},
                   {"X-Content-Type-Options", "nosniff"}},
                  isScript ? kPageScript : kPageStyle);
    return true;
}

bool WantsPage(const Request& request) {
    return request.method == "GET" && request.Field("Accept").value_or("").find("text/html") != std::string::npos;
}

void SendErrorPage(Response& response, int status, const std::string& text, Fields fields) {
    fields.insert(fields.end(), kPageFields.begin(), kPageFields.end());
    const std::string words = StatusLine(status).substr(std::string_view("HTTP/1.1 404 ").size());
    response.Send(status, fields,
                  Beginning(words, true) + "<h1>" + words + "</h1>\n<main><p>" + Escaped(text) +
                      "</p>\n<p><a href=\"./\">To the folder</a> or <a href=\"/\">to the start page</a></p></main></body></html>\n");
}

}  // namespace webdav
