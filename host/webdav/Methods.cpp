#include "webdav/Methods.h"

#include <algorithm>
#include <map>

#include "core/HostError.h"
#include "core/Text.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

// Nothing when url is not one of this server.
std::optional<Resource> ResourceOf(const Exchange& exchange, const std::string& url) {
    try {
        std::string authority;
        const VolumePath path = ParseTarget(url, &authority);
        if (authority.empty() || EqualToken(authority, exchange.request.Field("Host").value_or("")))
            return Locate(exchange.state.volume, path);
    } catch (const HttpError&) {
    }
    return std::nullopt;
}

bool Holds(const Exchange& exchange, const Resource& resource, const IfCondition& condition) {
    if (condition.isTag)
        return resource.Exists() && condition.value == exchange.Tag(resource);
    const std::vector<DavLock> locks = exchange.state.locks.Covering(resource.key);
    return std::any_of(locks.begin(), locks.end(), [&](const DavLock& lock) { return lock.token == condition.value; });
}

bool IfFieldHolds(const Exchange& exchange, const Resource& own) {
    std::map<std::string, std::optional<Resource>> resources{{"", own}};  // each is looked up once
    return IfHolds(exchange.ifHeader, [&](const std::string& url, const IfCondition& condition) {
        const auto known = resources.find(url);
        const auto& resource = known != resources.end() ? known->second : resources.emplace(url, ResourceOf(exchange, url)).first->second;
        return resource && Holds(exchange, *resource, condition);
    });
}

}  // namespace

Depth ParseDepth(const Request& request, Depth missing) {
    const auto field = request.Field("Depth");
    if (!field)
        return missing;
    if (*field == "0")
        return Depth::Zero;
    if (*field == "1")
        return Depth::One;
    if (EqualToken(*field, "infinity"))
        return Depth::Infinity;
    throw HttpError(400, "the depth is not 0, 1 or infinity");
}

void CheckConditions(const Exchange& exchange, const Resource& resource) {
    const Request& request = exchange.request;
    if (const auto match = request.Field("If-Match"); match && (!resource.Exists() || !TagListMatches(*match, exchange.Tag(resource))))
        throw HttpError(412, "it is not what If-Match asks for");
    const bool onlySavesTransfer = request.method == "GET" || request.method == "HEAD";
    if (const auto noneMatch = request.Field("If-None-Match"); noneMatch && !onlySavesTransfer)
        if (resource.Exists() && TagListMatches(*noneMatch, exchange.Tag(resource), true))
            throw HttpError(412, "it is what If-None-Match excludes");
    if (const auto since = request.Field("If-Unmodified-Since"); since && resource.Exists() && !request.Field("If-Match")) {
        const std::uint64_t time = ParseHttpDate(*since);
        if (time != 0 && resource.entry->data.lastWriteTime / kSecond > time / kSecond)
            throw HttpError(412, "it was changed since");
    }
    if (!exchange.ifHeader.empty() && !IfFieldHolds(exchange, resource))
        throw HttpError(412, "the If field is not true");
}

void CheckLocks(const Exchange& exchange, const Resource& resource, bool comesOrGoes) {
    RequireTokens(exchange.state.locks, exchange.tokens, resource.key);
    if (comesOrGoes)
        RequireTokens(exchange.state.locks, exchange.tokens, resource.key.Parent());
}

void CheckWritable(const Exchange& exchange, const Resource& resource, bool comesOrGoes) {
    if (comesOrGoes && (resource.IsTopLevel() || (resource.IsFolder() && exchange.state.volume.HoldsMountFolder(resource.path))))
        throw HttpError(403, "mount folders can be changed only in the configuration");
    if (comesOrGoes && !resource.Exists() && !Locate(exchange.state.volume, resource.path.Parent()).IsFolder())
        throw HttpError(409, "the folder it is to be in does not exist");
    CheckLocks(exchange, resource, comesOrGoes);
}

std::string ReadXmlBody(RequestBody& body) {
    std::string text;
    char part[8192];
    while (const std::size_t count = body.Read(part, sizeof(part))) {
        if (text.size() + count > limits::xmlBytes)
            throw HttpError(413, "the XML of the request is too long");
        text.append(part, count);
    }
    return text;
}

void SendFailures(Response& response, const std::vector<MemberFailure>& failures) {
    std::string xml = R"(<?xml version="1.0" encoding="utf-8"?><D:multistatus xmlns:D="DAV:">)";
    for (const MemberFailure& failure : failures)
        xml += "<D:response><D:href>" + failure.href + "</D:href><D:status>" + StatusLine(failure.status) + "</D:status></D:response>";
    response.Send(207, {{"Content-Type", "application/xml; charset=utf-8"}}, xml + "</D:multistatus>");
}

void RequireFree(const Volume& volume, const Resource& resource) {
    try {
        if (!resource.Exists())
            volume.RequireFree(resource.path, false);  // Upload and the volume check encrypted files
    } catch (const HostError& error) {
        throw HttpError(409, error.what());
    }
}

std::unique_ptr<Upload> StartUpload(const Volume& volume, const Resource& target) {
    try {
        return std::make_unique<Upload>(volume, target.path, target.entry);
    } catch (const StatusError& error) {
        if (error.Status() == VVS_PathNotFound)
            throw HttpError(409, "the folder it is to be in does not exist");
        throw;
    } catch (const HostError& error) {
        throw HttpError(409, error.what());
    }
}

Resource StoredAs(const Resource& target, const Upload& upload) {
    const std::wstring name = upload.Target().Name();
    const bool hasOwnName = EqualNoCase(name, target.path.Name());
    return {hasOwnName ? target.path : upload.Target(), hasOwnName ? target.key : target.key.Parent().Child(name), upload.Stored()};
}

void NoteStored(State& state, const Resource& target, const Resource& stored) {
    state.changes.Note(target.key);
    if (stored.key.Equals(target.key))
        return;
    state.changes.Note(stored.key);
    state.properties.MoveTree(target.key, stored.key);
}

int HttpStatus(VirtualVolumeStatus status) {
    switch (status) {
        case VVS_Success: return 200;
        case VVS_PathNotFound:
        case VVS_FileNotFound:
        case VVS_MountFolderNotFound: return 404;
        case VVS_PathAlreadyExists:
        case VSS_FileExists: return 409;
        case VVS_Locked:
        case VVS_LockScopeViolation:
        case VVS_LockTokenNotFound:
        case VSS_LockViolation:
        case VSS_SharingViolation: return 423;
        case VVS_AccessDenied:
        case VVS_Unauthorized: return 403;
        case VVS_InvalidParameter:
        case VVS_BadRequest: return 400;
        case VVS_PreConditionFailed: return 412;
        case VSS_NotImplemented: return 501;
        case VSS_OutMemory: return 507;
        default: return 500;
    }
}

void AnswerOptions(Exchange& exchange) {
    const Resource resource = exchange.Find();
    std::string allow = "OPTIONS, PROPFIND, PROPPATCH, LOCK, UNLOCK, COPY";
    if (!resource.Exists())
        allow = "OPTIONS, PUT, MKCOL, LOCK";
    else if (!resource.IsFolder())
        allow += ", GET, HEAD, PUT, DELETE, MOVE";
    else
        allow += resource.IsTopLevel() ? ", GET, HEAD" : ", GET, HEAD, DELETE, MOVE";
    // MS-Author-Via makes Windows use WebDAV and nothing else.
    exchange.response.Send(200, {{"DAV", "1, 2"}, {"Allow", allow}, {"MS-Author-Via", "DAV"}, {"Accept-Ranges", "bytes"}});
}

}  // namespace webdav
