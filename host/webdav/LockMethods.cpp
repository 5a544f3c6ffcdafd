#include "webdav/LockMethods.h"

#include <algorithm>

#include "core/HostError.h"
#include "webdav/Limits.h"
#include "webdav/Methods.h"
#include "webdav/TreeWork.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

constexpr std::uint32_t kUsualTimeout = 3600;        // seconds
constexpr std::uint32_t kLongestTimeout = 4 * 3600;  // longer than a long lunch, but not for ever

std::uint32_t ParseTimeout(const Request& request) {
    const std::string field = request.Field("Timeout").value_or("");
    for (const std::string_view wish : SplitList(field)) {
        if (EqualToken(wish, "Infinite"))
            return kLongestTimeout;
        if (wish.size() < 8 || !EqualToken(wish.substr(0, 7), "Second-"))
            continue;
        const std::uint64_t seconds = ParseNumber(wish.substr(7)).value_or(kUsualTimeout);
        return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(seconds, 1, kLongestTimeout));
    }
    return kUsualTimeout;
}

DavLock ParseLockInfo(const std::string& text) {
    const Turn turn(g_xmlTurns);
    const XmlNode document = ParseXml(text);
    const XmlNode* const scope = document.Child("lockscope");
    const XmlNode* const type = document.Child("locktype");
    if (!document.name.IsDav("lockinfo") || !scope || !type)
        throw HttpError(400, "the body is not a lockinfo");
    if (!type->Child("write") || (!scope->Child("exclusive") && !scope->Child("shared")))
        throw HttpError(422, "only write locks, exclusive or shared, are possible");
    DavLock lock;
    lock.scope = scope->Child("exclusive") ? LockScope_Exclusive : LockScope_Shared;
    if (const XmlNode* const owner = document.Child("owner")) {
        auto kept = SerializedChildren(*owner, limits::lockOwnerBytes);
        if (!kept)
            throw HttpError(507, "the lock's owner is too long");
        lock.ownerXml = *std::move(kept);
    }
    return lock;
}

void SendLock(Response& response, int status, const DavLock& lock) {
    const std::string xml = R"(<?xml version="1.0" encoding="utf-8"?><D:prop xmlns:D="DAV:">)" + LockDiscoveryXml({lock}) + "</D:prop>";
    response.Send(status,
                  {{"Content-Type", "application/xml; charset=utf-8"},
                   {"Lock-Token", "<" + lock.token + ">"},
                   {"Timeout", "Second-" + std::to_string(lock.timeoutSeconds)}},
                  xml);
}

void RefreshLock(Exchange& exchange) {
    const Resource resource = exchange.Find();
    if (exchange.tokens.empty())
        throw HttpError(400, "a LOCK without a body must submit the token of the lock that it renews");
    CheckConditions(exchange, resource);
    for (const std::string& token : exchange.tokens)
        if (const auto lock = exchange.state.locks.Refresh(token, resource.key, ParseTimeout(exchange.request)))
            return SendLock(exchange.response, 200, *lock);
    throw HttpError(412, "there is no such lock on it", "<D:lock-token-matches-request-uri/>");
}

void TakeLock(Exchange& exchange, DavLock lock) {
    const Depth depth = ParseDepth(exchange.request, Depth::Infinity);
    if (depth == Depth::One)
        throw HttpError(400, "a lock is of depth 0 or infinity");
    State& state = exchange.state;
    // In a folder that is being locked, no other request is at work: what it lists is what is there as long as it is locked.
    const Claim claim(state.claims, {{exchange.found.key, exchange.found.IsFolder() ? Use::ChangeTree : Use::Change}});
    Resource resource = exchange.Find();
    if (resource.IsFolder() && resource.path.IsRoot() && depth == Depth::Infinity)
        throw HttpError(403, "the whole volume cannot be locked");
    const bool isNew = !resource.Exists();
    CheckConditions(exchange, resource);
    if (isNew) {
        CheckWritable(exchange, resource, true);
        // The file is made here and not by the volume's lock, because unlocking would delete it while it is empty.
        const std::unique_ptr<Upload> upload = StartUpload(state.volume, resource);
        if (!upload->PlaceIfFree())
            throw HttpError(409, "another program has just made it");
        state.changes.Note(resource.key);
        resource = StoredAs(resource, *upload);
    }
    lock.root = resource.path;
    lock.key = resource.key;
    lock.storedPath = resource.StoredPath();
    lock.isFolder = resource.IsFolder();
    lock.infinite = lock.isFolder && depth == Depth::Infinity;
    lock.timeoutSeconds = ParseTimeout(exchange.request);
    try {
        lock = state.locks.Add(std::move(lock));
    } catch (...) {
        TreeResult ignored;
        if (isNew)
            RemoveTree(state.volume, resource, ignored);
        throw;
    }
    SendLock(exchange.response, isNew ? 201 : 200, lock);
}

}  // namespace

void AnswerLock(Exchange& exchange) {
    const std::string body = ReadXmlBody(exchange.body);
    exchange.state.locks.RemoveExpired();
    if (body.empty())
        RefreshLock(exchange);
    else
        TakeLock(exchange, ParseLockInfo(body));
}

void AnswerUnlock(Exchange& exchange) {
    const std::string field = exchange.request.Field("Lock-Token").value_or("");
    const std::string_view text = Trimmed(field);
    if (text.size() < 3 || text.front() != '<' || text.back() != '>')
        throw HttpError(400, "the request names no lock");
    const Claim claim(exchange.state.claims, {{exchange.found.key, Use::Change}});
    if (!exchange.state.locks.Remove(std::string(text.substr(1, text.size() - 2)), exchange.found.key))
        throw HttpError(409, "there is no such lock on it", "<D:lock-token-matches-request-uri/>");
    exchange.response.Send(204);
}

}  // namespace webdav
