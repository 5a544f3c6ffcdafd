// The page that a browser gets for a folder.
#include <algorithm>
#include <cstdio>

#include "core/Text.h"
#include "webdav/Limits.h"
#include "webdav/Methods.h"
#include "webdav/Spool.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

constexpr const char* c_style = R"(
:root{color-scheme:light dark}
body{font:16px/1.5 system-ui,sans-serif;margin:0 auto;max-width:60rem;padding:1.5rem 1rem}
h1{font-size:1.25rem;font-weight:600;overflow-wrap:anywhere}
a{color:inherit;text-decoration:none}a:hover,a:focus{text-decoration:underline}
h1 a{color:#2563a8}
table{border-collapse:collapse;width:100%}
th{text-align:left;font-weight:600;font-size:.85rem;color:#777}
th,td{padding:.4rem .6rem;border-bottom:1px solid #8883}
td:first-child{overflow-wrap:anywhere}
.n{text-align:right;white-space:nowrap;font-variant-numeric:tabular-nums}
.t{white-space:nowrap;font-variant-numeric:tabular-nums;color:#777}
.k{white-space:nowrap;font-size:.85rem;color:#777}
.enc{color:#15803d}.conflict{color:#b45309;font-weight:600}
p{color:#777;font-size:.85rem}
@media(max-width:36rem){.t{display:none}}
)";

std::string SizeText(std::int64_t bytes) {
    static constexpr const char* c_units[] = {"B", "kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < std::size(c_units); ++unit)
        value /= 1000;
    char text[32];
    std::snprintf(text, sizeof(text), unit > 0 && value < 9.95 ? "%.1f %s" : "%.0f %s", value, c_units[unit]);
    return text;
}

const char* KindMarkup(VirtualItemType type) {
    switch (type) {
    case VIT_EncryptedFile: return "<span class=enc>encrypted</span>";
    case VIT_EncryptedFileInConflict: return "<span class=conflict>conflict copy</span>";
    case VIT_PlainFile: return "not encrypted";
    default: return "folder";
    }
}

std::string Row(const Resource& item) {
    const VirtFindData& data = item.entry->data;
    const bool isFolder = item.IsFolder();
    const std::string time = data.lastWriteTime ? IsoDate(data.lastWriteTime) : "";
    return "<tr><td><a href=\"" + Escaped(item.Url()) + "\">" + Escaped(ToUtf8(item.path.Name())) + (isFolder ? "/" : "") +
           "</a></td><td class=n>" + (isFolder ? "" : SizeText(data.fileSize)) + "</td><td class=t>" +
           (time.empty() ? "" : "<time datetime=\"" + time + "\">" + time.substr(0, 10) + ' ' + time.substr(11, 5) + "</time>") +
           "</td><td class=k>" + KindMarkup(data.itemType) + "</td></tr>\n";
}

// "volume / Docs / Reports", each a link.
std::string Trail(VolumePath path) {
    std::string trail;
    for (; !path.IsRoot(); path = path.Parent())
        trail = " / <a href=\"" + Escaped(Href(path, true)) + "\">" + Escaped(ToUtf8(path.Name())) + "</a>" + trail;
    return "<a href=\"/\">Volume</a>" + trail;
}

void WritePage(Exchange& exchange, const Resource& folder, Spool& page) {
    const Claim claim(exchange.state.claims, {{folder.key, Use::Read}});  // a folder that is listed cannot be moved
    const Turn turn(g_listingTurns);
    const ListedEntries listed(exchange.state.volume, folder);
    std::vector<Entry> entries;
    bool isWhole = true;
    Search search(exchange.state.volume, folder.entry->path);
    for (Entry entry; isWhole && search.Next(entry);)
        if (listed.Has(entry)) {
            isWhole = entries.size() < limits::pageEntries;
            if (isWhole)
                entries.push_back(entry);
        }
    std::sort(entries.begin(), entries.end(), IsBefore);
    std::stable_partition(entries.begin(), entries.end(), [](const Entry& entry) { return entry.IsFolder(); });
    const std::string title = folder.path.IsRoot() ? "Volume" : Escaped(ToUtf8(folder.path.Name()));
    page.Append("<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8><meta name=viewport content=\"width=device-width\"><title>" +
                title + "</title><style>" + c_style + "</style></head><body>\n<h1>" + Trail(folder.path) + "</h1>\n");
    page.Append(entries.empty() ? "<p>This folder is empty.</p>\n"
                                : "<table><thead><tr><th>Name</th><th class=n>Size</th><th class=t>Changed "
                                  "(UTC)</th><th>Stored</th></tr></thead><tbody>\n");
    for (const Entry& entry : entries)
        page.Append(Row(Listed(folder, entry)));
    if (!entries.empty())
        page.Append("</tbody></table>\n<p>" + std::to_string(entries.size()) + (entries.size() == 1 ? " entry" : " entries") +
                    (isWhole ? "" : "; there are more, which a page does not show") + "</p>\n");
    page.Append("</body></html>\n");
}

}  // namespace

void SendFolderPage(Exchange& exchange, const Resource& folder) {
    const Fields fields{
        {"Content-Type", "text/html; charset=utf-8"},
        {"Cache-Control", "private, no-cache"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'"}};
    if (exchange.request.method == "HEAD")
        return exchange.response.Begin(200, fields, std::nullopt);
    Spool page(exchange.state.volume.Temp());
    WritePage(exchange, folder, page);
    exchange.response.Begin(200, fields, page.Size());
    page.ForEach([&](std::string_view part) { exchange.response.Write(part); });
}

}  // namespace webdav
