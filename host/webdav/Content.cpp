#include "webdav/Content.h"

#include <algorithm>

#include "core/Companion.h"
#include "core/HostError.h"
#include "core/Storage.h"
#include "core/Text.h"
#include "webdav/FileReader.h"
#include "webdav/Limits.h"
#include "webdav/Methods.h"
#include "webdav/Pages.h"
#include "webdav/Spool.h"

namespace webdav {

namespace {

constexpr std::size_t kPartSize = 64 * 1024;
constexpr std::size_t kWriteSize = 64 * 1024;

// Could a browser run scripts of such a document? In the name of this site they could reach every file.
bool MayRunScripts(const char* type) {
    const std::string_view text = type ? type : "";
    return text.starts_with("text/html") || text.find("xml") != std::string_view::npos;
}

Fields ContentFields(const Exchange& exchange, const Resource& file) {
    Fields fields{{"ETag", exchange.Tag(file)},
                  {"Last-Modified", HttpDate(file.entry->data.lastWriteTime)},
                  {"Accept-Ranges", "bytes"},
                  {"Cache-Control", "private, no-cache"},
                  {"X-Content-Type-Options", "nosniff"}};
    const char* const type = ContentType(file.path.Name());
    fields.emplace_back("Content-Type", type ? type : "application/octet-stream");
    if (MayRunScripts(type))
        fields.emplace_back("Content-Security-Policy", "sandbox");
    return fields;
}

bool ClientHasIt(const Exchange& exchange, const Resource& file) {
    if (const auto noneMatch = exchange.request.Field("If-None-Match"))
        return TagListMatches(*noneMatch, exchange.Tag(file), true);
    const auto since = exchange.request.Field("If-Modified-Since");
    const std::uint64_t time = since ? ParseHttpDate(*since) : 0;
    // Equal, not later: an older version may have been put back.
    return time != 0 && file.entry->data.lastWriteTime / kSecond == time / kSecond;
}

// Does the client still have the same version? If not, a range of the new one is of no use, and everything is sent.
bool RangeIsWanted(const Exchange& exchange, const Resource& file) {
    const auto ifRange = exchange.request.Field("If-Range");
    return !ifRange || *ifRange == exchange.Tag(file);  // dates never match: two versions may have the same
}

// A copy of the rest of the range, for a client that may take long.
class KeptAside {
public:
    KeptAside(const Exchange& exchange, const Resource& file, FileReader& reader, std::uint64_t first, std::uint64_t length)
        : m_spool(exchange.state.volume.Temp()) {
        if (!exchange.state.volume.HasRoomFor(length))
            throw HttpError(507, "the disk of the temp folder is full");
        for (std::uint64_t done = 0; done < length;) {
            const std::string_view part = reader.Read(first + done, length - done);
            if (part.empty())
                throw HostError(file.path.Shown() + ": it ends before its size");
            m_spool.Append(part);
            done += part.size();
        }
    }
    void Send(Response& response) {
        m_spool.ForEach([&](std::string_view part) { response.Write(part); });
    }

private:
    Spool m_spool;
};

// The file is closed before a slow client takes the content: an open handle of a locked file would prevent the next lock.
void SendLockedContent(Exchange& exchange, const Resource& file, const ByteRange& range, int status, const Fields& fields, Claim& claim) {
    std::optional<FileReader> reader(std::in_place, exchange.state.volume, file.entry->path);
    KeptAside content(exchange, file, *reader, range.first, range.length);
    reader.reset();
    claim.Release();
    exchange.response.Begin(status, fields, range.length);
    content.Send(exchange.response);
}

// A writer of a plain file waits for its readers, and who moves or deletes a folder for those of anything in it. When one waits, the rest
// is copied, so that it does not wait for the reader's client.
void SendReleasing(Exchange& exchange, const Resource& file, const ByteRange& range, FileReader& reader, std::string_view part,
                   Claim& claim) {
    for (std::uint64_t done = 0; done < range.length;) {
        if (part.empty())
            throw HostError(file.path.Shown() + ": it ends before its size");
        for (std::string_view rest = part; !rest.empty(); rest.remove_prefix(std::min(rest.size(), kWriteSize)))
            exchange.response.Write(rest.substr(0, kWriteSize));
        done += part.size();
        if (done < range.length && claim.IsInTheWay()) {
            KeptAside content(exchange, file, reader, range.first + done, range.length - done);
            reader.Close();
            claim.Release();
            return content.Send(exchange.response);
        }
        part = done < range.length ? reader.Read(range.first + done, std::min<std::uint64_t>(range.length - done, kWriteSize)) : part;
    }
}

// A container may claim that its document is empty, and hold something else.
void RequireEmpty(const Exchange& exchange, const Resource& file) {
    if (!FileReader(exchange.state.volume, file.entry->path).Read(0, 1).empty())
        throw HostError(file.path.Shown() + ": it is longer than its container says");
}

// False: another program has just stored another version, and nothing was sent.
bool SendContent(Exchange& exchange, const Resource& file, Claim& claim) {
    const bool isHead = exchange.request.method == "HEAD", isDecrypted = !isHead && file.entry->data.itemType != VIT_PlainFile;
    const DiskVersion version = isDecrypted ? exchange.state.volume.VersionOf(*file.entry) : DiskVersion();
    const std::uint64_t size = static_cast<std::uint64_t>(file.entry->data.fileSize);
    Fields fields = ContentFields(exchange, file);
    ByteRange range{0, size};
    RangeKind kind = RangeKind::Whole;
    if (const auto field = exchange.request.Field("Range"); field && RangeIsWanted(exchange, file))
        kind = ParseRange(*field, size, range);
    if (kind == RangeKind::Unsatisfiable)
        throw HttpError(416, {}, {}, {{"Content-Range", "bytes */" + std::to_string(size)}});
    if (kind == RangeKind::Part)
        fields.emplace_back("Content-Range", "bytes " + std::to_string(range.first) + "-" + std::to_string(range.first + range.length - 1) +
                                                 "/" + std::to_string(size));
    const int status = kind == RangeKind::Part ? 206 : 200;
    if (isDecrypted && size == 0)
        RequireEmpty(exchange, file);
    if (isHead || range.length == 0) {
        exchange.response.Begin(status, fields, range.length);
        return true;
    }

    if (isDecrypted && !exchange.state.volume.HasRoomFor(size))
        throw HttpError(507, "the disk of the temp folder has no room for what is in it");
    if (!exchange.state.locks.Covering(file.key).empty()) {
        SendLockedContent(exchange, file, range, status, fields, claim);
        return true;
    }

    FileReader reader(exchange.state.volume, file.entry->path);
    std::string_view part = reader.Read(range.first, range.length);
    // The first read decrypts what is stored then.
    if (isDecrypted && (exchange.state.volume.VersionOf(*file.entry) != version || reader.Size() != file.entry->data.fileSize))
        return false;
    // After its first read, an encrypted file is read from its own decrypted copy, which later writers do not change.
    if (isDecrypted || part.size() == range.length)
        claim.OnlyOpen();
    exchange.response.Begin(status, fields, range.length);
    SendReleasing(exchange, file, range, reader, part, claim);
    return true;
}

// A person who opens a damaged container in a browser must not take its bytes for the document. Other clients may copy it as it is.
void RefuseDamaged(const Volume& volume, const Resource& file) {
    if (!file.Exists())
        return RequireUndamaged(volume, file.path);
    if (file.IsFolder() || !EndsWithNoCase(file.path.Name(), kContainerExtension) || ::StoredAs(volume, *file.entry) != Stored::Damaged)
        return;
    throw HostError(file.path.Shown() + ": a damaged container: " + ExamineContainer(ConfiguredPath(volume, *file.entry)).reason +
                    "; 'quelvol get' copies it as it is");
}

// The time that some clients send with an upload.
std::uint64_t UploadTime(const Request& request) {
    const auto field = request.Field("X-OC-Mtime");
    const auto seconds = field ? ParseNumber(std::string_view(*field).substr(0, field->find('.'))) : std::nullopt;
    const std::uint64_t time = (std::min<std::uint64_t>(seconds.value_or(0), kLastUnixTime + 1) + kUnixEpoch) * kSecond;
    return IsKeptTime(time) ? time : 0;
}

// The request must send a complete, unencoded file of known length.
void RequireWholeContent(const Request& request) {
    if (request.Field("Content-Range"))
        throw HttpError(400, "a part of a file cannot be stored");
    if (!EqualToken(request.Field("Content-Encoding").value_or("identity"), "identity"))
        throw HttpError(415, "content is stored as it is, and not decoded");
    if (!request.Field("Content-Length") && !request.Field("Transfer-Encoding"))
        throw HttpError(411, "the request does not say how long its content is");
}

void RequireRoom(const Exchange& exchange, std::uint64_t bytes) {
    if (!exchange.state.volume.HasRoomFor(bytes, exchange.found.path.Parent()))
        throw HttpError(507, "the disk has no room for it");
}

void CheckPut(const Exchange& exchange, const Resource& target) {
    if (target.IsFolder())
        throw HttpError(405, "a folder has no content", {}, {{"Allow", "OPTIONS, GET, HEAD, PROPFIND"}});
    CheckConditions(exchange, target);
}

// For a conditional request: the version that was checked must still be stored when the new content, which may take long to write,
// replaces it.
class RequiredVersion {
public:
    RequiredVersion(const Exchange& exchange, const Resource& target) : m_volume(exchange.state.volume), m_target(target) {
        for (const char* field : {"If", "If-Match", "If-None-Match", "If-Unmodified-Since"})
            m_isRequired = m_isRequired || exchange.request.Field(field);
        if (m_isRequired)
            m_version = VersionNow();
    }
    void Check() const {
        if (m_isRequired && (VersionNow() != m_version || (!m_target.Exists() && m_volume.Find(m_target.path))))
            throw HttpError(412, "it was changed meanwhile");
    }

private:
    DiskVersion VersionNow() const { return m_target.Exists() ? m_volume.VersionOf(*m_target.entry) : DiskVersion(); }

    const Volume& m_volume;
    const Resource& m_target;
    DiskVersion m_version;
    bool m_isRequired = false;
};

// How a document that is not encrypted is stored, told once.
void TellIfExposed(State& state, const Resource& stored) {
    const VolumePath folder = stored.path.Parent();
    if (stored.entry->data.itemType != VIT_PlainFile || state.told.Knows(stored.path) || state.told.Knows(folder))
        return;
    const Stored how = Storage(state.volume, folder).OfNew(stored.path.Name());
    Exposed exposed;
    exposed.Note(stored.path, how);
    if (const std::string text = exposed.Text(); !text.empty())
        state.told.Tell(how == Stored::NoPolicy ? folder : stored.path, text);
}

// Returns what is stored: a conflict copy gets the ordinary name of its container.
Resource Store(State& state, const Resource& target, Spool& spool, const VirtFindData& times, const RequiredVersion& required) {
    const std::unique_ptr<Upload> upload = StartUpload(state.volume, target);
    spool.ForEach([&](std::string_view data) { upload->Write(data.data(), data.size()); });
    // The volume's lock holds an unencrypted file, and is then taken again on the container in its place.
    std::optional<SuspendedLocks> ofOldForm;
    if (target.Exists() && target.entry->data.itemType == VIT_PlainFile && upload->IsToBeEncrypted())
        ofOldForm.emplace(state.locks, target.key);
    try {
        upload->Place(times, [&] { required.Check(); });
    } catch (const StatusError& error) {
        if (error.Status() == VSS_SharingViolation)  // this may mean another version
            required.Check();
        throw;
    }
    return StoredAs(target, *upload);
}

// False: another program has just stored another version, and nothing was sent.
bool AnswerGetOnce(Exchange& exchange) {
    Claim claim(exchange.state.claims, {{exchange.found.key, Use::Read}});
    const Resource resource = exchange.Find();
    if (WantsPage(exchange.request))
        RefuseDamaged(exchange.state.volume, resource);
    if (!resource.Exists())
        throw HttpError(404, "there is no such file or folder");
    CheckConditions(exchange, resource);
    if (resource.IsFolder()) {
        claim.Release();
        SendFolderPage(exchange, resource);
    } else if (ClientHasIt(exchange, resource)) {
        exchange.response.Begin(304, {{"ETag", exchange.Tag(resource)}}, 0);
    } else {
        return SendContent(exchange, resource, claim);
    }
    return true;
}

}  // namespace

void AnswerGet(Exchange& exchange) {
    constexpr int mostAttempts = 5;
    for (int attempt = 1; !AnswerGetOnce(exchange); ++attempt) {
        if (attempt == mostAttempts)
            throw HttpError(503, "other programs change it again and again", {}, {{"Retry-After", "10"}});
        exchange.found = Locate(exchange.state.volume, exchange.found.path);
    }
}

void AnswerPut(Exchange& exchange) {
    RequireWholeContent(exchange.request);
    // Before the client sends the body.
    CheckPut(exchange, exchange.found);
    CheckWritable(exchange, exchange.found, !exchange.found.Exists());
    const std::uint64_t announced = ParseNumber(exchange.request.Field("Content-Length").value_or("")).value_or(0);
    if (announced > limits::spoolMemoryBytes)
        RequireRoom(exchange, announced);
    Spool spool(exchange.state.volume.Temp());
    std::vector<char> part(kPartSize);
    while (const std::size_t count = exchange.body.Read(part.data(), part.size()))
        spool.Append({part.data(), count});

    State& state = exchange.state;
    const Claim claim(state.claims, {{exchange.found.key, Use::Change}});
    const Resource target = state.locks.AsHeld(Locate(state.volume, exchange.found.path));  // again: the body may have taken long
    const RequiredVersion required(exchange, target);
    CheckPut(exchange, target);
    CheckLocks(exchange, target, !target.Exists());
    RequireRoom(exchange, spool.Size());
    VirtFindData times{};
    times.lastWriteTime = UploadTime(exchange.request);
    const Resource stored = Store(state, target, spool, times, required);
    NoteStored(state, target, stored);
    TellIfExposed(state, stored);
    Fields fields{{"ETag", exchange.Tag(stored)}};
    const bool isElsewhere = !stored.path.Equals(target.path);
    if (isElsewhere)
        fields.emplace_back("Location", stored.Url());
    if (times.lastWriteTime != 0 && stored.entry->data.lastWriteTime / kSecond == times.lastWriteTime / kSecond)
        fields.emplace_back("X-OC-Mtime", "accepted");
    exchange.response.Send(target.Exists() && !isElsewhere ? 204 : 201, fields);
}

}  // namespace webdav
