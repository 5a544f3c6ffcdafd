#include "webdav/TreeMethods.h"

#include <optional>

#include "core/HostError.h"
#include "webdav/Methods.h"
#include "webdav/TreeWork.h"
#include "webdav/Turns.h"

namespace webdav {

namespace {

// Before a folder is deleted or replaced: true when the client submitted tokens for all locks below it. Otherwise sends the answer.
bool MembersAreOpen(Exchange& exchange, const Resource& top) {
    std::vector<MemberFailure> failures;
    for (const DavLock& lock : ClosedLocksInside(exchange.state.locks, exchange.tokens, top.key))
        failures.push_back({Href(lock.root, lock.isFolder), 423});
    if (failures.empty())
        return true;
    failures.push_back({top.Url(), 424});
    SendFailures(exchange.response, failures);
    return false;
}

// If only the resource itself failed, the answer has its status.
void AnswerForFailures(Exchange& exchange, const std::vector<MemberFailure>& failures, const Resource& top) {
    if (failures.size() == 1 && failures[0].href == top.Url())
        throw HttpError(failures[0].status, "it failed");
    SendFailures(exchange.response, failures);
}

// Source and target of a COPY or MOVE.
struct Transfer {
    Resource source, target;
    bool isMove = false;
    bool shallow = false;  // a folder without its content

    bool ReplacesFileByFile() const { return target.Exists() && !target.IsFolder() && !source.IsFolder(); }
};

VolumePath DestinationPath(const Exchange& exchange) {
    const auto field = exchange.request.Field("Destination");
    if (!field)
        throw HttpError(400, "the request has no destination");
    if (field->find('?') != std::string::npos)
        throw HttpError(400, "the destination has a query; in a name, '?' is not possible");
    std::string authority;
    const VolumePath path = ParseTarget(*field, &authority);
    if (!authority.empty() && !EqualToken(authority, exchange.request.Field("Host").value_or("")))
        throw HttpError(502, "the destination is on another server");
    return path;
}

bool MayOverwrite(const Request& request) {
    const std::string field = request.Field("Overwrite").value_or("T");
    if (!EqualToken(field, "T") && !EqualToken(field, "F"))
        throw HttpError(400, "Overwrite is neither T nor F");
    return EqualToken(field, "T");
}

// Does only the spelling change: the letter case, or how accents are composed? The target is then found as the source.
bool IsRespelling(const Transfer& transfer, const VolumePath& destination) {
    return transfer.isMove && transfer.target.path.Equals(transfer.source.path) && destination.Name() != transfer.source.path.Name() &&
           AreSpellings(destination.Name(), transfer.source.path.Name());
}

Transfer CheckTransfer(const Exchange& exchange, const VolumePath& destination, const Resource& foundThere, bool isMove) {
    Transfer transfer{exchange.Find(), exchange.FindAgain(foundThere), isMove, false};
    const Resource& source = transfer.source;
    Resource& target = transfer.target;
    if (!source.Exists())
        throw HttpError(404, "there is no such file or folder");
    const bool isRespelling = IsRespelling(transfer, destination);
    if (isRespelling && exchange.state.volume.HasTwin(*source.entry, destination.Name()))
        throw HttpError(MayOverwrite(exchange.request) ? 409 : 412,
                        "the name of another file differs from it in letter case only; delete that one first");
    if (isRespelling)
        target = {target.path.Parent().Child(destination.Name()), target.key.Parent().Child(destination.Name()), std::nullopt};
    else if (target.key.Equals(source.key))
        throw HttpError(403, "source and destination are the same");
    if (target.key.IsInside(source.key) || source.key.IsInside(target.key))
        throw HttpError(403, "source and destination are inside each other");
    if (target.IsTopLevel() || (isMove && source.IsTopLevel()))
        throw HttpError(403, "mount folders can be changed only in the configuration");
    const Depth depth = ParseDepth(exchange.request, Depth::Infinity);
    if (source.IsFolder() && (depth == Depth::One || (isMove && depth == Depth::Zero)))
        throw HttpError(400, "a folder is copied, moved or deleted with everything in it");
    transfer.shallow = depth == Depth::Zero;
    CheckConditions(exchange, source);
    if (isMove)
        CheckWritable(exchange, source, true);
    if (!isRespelling) {
        CheckWritable(exchange, target, !transfer.ReplacesFileByFile());
        RequireFree(exchange.state.volume, target);
    }
    if (target.Exists() && !MayOverwrite(exchange.request))
        throw HttpError(412, "something is there already");
    return transfer;
}

// Updates properties and tags.
void NoteTransfer(State& state, const Transfer& transfer) {
    if (!transfer.source.key.Equals(transfer.target.key))
        state.properties.RemoveTree(transfer.target.key);
    if (transfer.isMove)
        state.properties.MoveTree(transfer.source.key, transfer.target.key);
    else
        state.properties.CopyTree(transfer.source.key, transfer.target.key);
    state.changes.Note(transfer.target.key);
    if (transfer.isMove)
        state.changes.Note(transfer.source.key);
}

void RemovePart(const Volume& volume, const VolumePath& copy) {
    TreeResult result;
    const Resource item = Locate(volume, copy);
    if (item.Exists())
        RemoveTree(volume, item, result);
}

// Moves the copy to its place, from which the target, if there is one, is set aside. An incomplete copy does not replace it. Deletes a copy
// that does not get there.
void TakePlace(const Volume& volume, bool whole, const VolumePath& copy, const Resource& target, const VolumePath& place,
               std::optional<SetAside>& replaced) {
    if (!whole && target.Exists())
        return RemovePart(volume, copy);
    if (!whole && !volume.Find(copy))
        return;
    try {
        if (target.Exists())
            replaced.emplace(volume, target);
        volume.Move(copy, place);
    } catch (...) {
        RemovePart(volume, copy);
        throw;
    }
}

void CarryOut(Exchange& exchange, const Transfer& transfer) {
    State& state = exchange.state;
    const auto& [source, target, isMove, shallow] = transfer;
    const std::uint64_t began = Now();
    // When a file replaces a file, the target's lock stays, because programs save like this under their lock.
    std::optional<SuspendedLocks> sourceLocks, targetLocks;
    std::optional<SetAside> replaced;
    if (!isMove)
        state.properties.RequireRoomForCopy(source.key);
    if (isMove)
        sourceLocks.emplace(state.locks, source.key);
    const bool replaces = target.Exists() && !transfer.ReplacesFileByFile();
    if (replaces)
        targetLocks.emplace(state.locks, target.key);
    if (replaces && isMove)
        replaced.emplace(state.volume, target);
    const VolumePath& place = transfer.ReplacesFileByFile() ? target.entry->path : target.path;
    // A copy that is to replace anything but a file by a file is made under another name, so that it replaces nothing that another program
    // makes in its place meanwhile.
    const bool madeAside = !isMove && (replaces || source.IsFolder());
    const VolumePath made = madeAside ? place.Aside() : place;
    TreeResult result;
    const bool mayReplace = target.Exists() || target.key.Equals(source.key);
    const bool whole = isMove ? MoveTree(state.volume, source, made, mayReplace, result)
                              : CopyTree(state.volume, source, made, shallow, mayReplace, result);
    if (std::string text = result.exposed.Text(); !text.empty())
        state.told.Tell(place, text.replace(0, made.Shown().size(), place.Shown()));
    if (madeAside)
        TakePlace(state.volume, whole, made, target, place, replaced);
    if (!whole && ((!isMove && replaces) || !state.volume.Find(place)))
        return AnswerForFailures(exchange, result.failures, source);  // the target is still there, or gets its name back
    NoteTransfer(state, transfer);
    if (whole && replaced)
        replaced->Discard(began);
    if (targetLocks)
        targetLocks->Forget();
    if (!whole)
        return AnswerForFailures(exchange, result.failures, source);
    if (sourceLocks)
        sourceLocks->Forget();
    exchange.response.Send(target.Exists() ? 204 : 201);
}

void AnswerTransfer(Exchange& exchange, bool isMove) {
    if (exchange.body.IsExpected())
        throw HttpError(415, "no body is understood here");
    const VolumePath destination = DestinationPath(exchange);
    const Resource &source = exchange.found, target = Locate(exchange.state.volume, destination);
    const bool sourceIsFile = source.Exists() && !source.IsFolder();
    const Claim claim(exchange.state.claims,
                      {{source.key, isMove || !sourceIsFile ? Use::ChangeTree : Use::Read}, {target.key, Use::ChangeTree}});
    const Transfer transfer = CheckTransfer(exchange, destination, target, isMove);
    if (isMove && !MembersAreOpen(exchange, transfer.source))
        return;
    if (transfer.target.Exists() && !MembersAreOpen(exchange, transfer.target))
        return;
    TreeTurn turn;
    if (transfer.source.IsFolder() || transfer.target.IsFolder())
        turn.emplace(g_treeTurns);
    CarryOut(exchange, transfer);
}

// Deletes the link itself; no method finds its target.
void DeleteLink(Exchange& exchange, const Resource& resource) {
    CheckConditions(exchange, resource);
    RequireTokens(exchange.state.locks, exchange.tokens, resource.key);
    RequireTokens(exchange.state.locks, exchange.tokens, resource.key.Parent());
    bool wasLink = false;
    try {
        wasLink = exchange.state.volume.RemoveLink(resource.path);
    } catch (const HostError& error) {
        throw HttpError(403, error.what());
    }
    if (!wasLink)
        throw HttpError(404, "there is no such file or folder");
    exchange.response.Send(204);
}

}  // namespace

void AnswerDelete(Exchange& exchange) {
    State& state = exchange.state;
    const Claim claim(state.claims, {{exchange.found.key, Use::ChangeTree}});
    const Resource resource = exchange.Find();
    if (!resource.Exists())
        return DeleteLink(exchange, resource);
    if (resource.IsFolder() && ParseDepth(exchange.request, Depth::Infinity) != Depth::Infinity)
        throw HttpError(400, "a folder is copied, moved or deleted with everything in it");
    CheckConditions(exchange, resource);
    CheckWritable(exchange, resource, true);
    if (!MembersAreOpen(exchange, resource))
        return;
    TreeTurn turn;
    if (resource.IsFolder())
        turn.emplace(g_treeTurns);
    SuspendedLocks locks(state.locks, resource.key);
    TreeResult result;
    const bool gone = RemoveTree(state.volume, resource, result);
    state.changes.Note(resource.key);
    if (!gone)
        return AnswerForFailures(exchange, result.failures, resource);
    locks.Forget();
    state.properties.RemoveTree(resource.key);
    exchange.response.Send(204);
}

void AnswerMkcol(Exchange& exchange) {
    if (exchange.body.IsExpected())
        throw HttpError(415, "no body is understood here");
    const Claim claim(exchange.state.claims, {{exchange.found.key, Use::Change}});
    const Resource resource = exchange.Find();
    if (resource.Exists())
        throw HttpError(405, "it is there already", {}, {{"Allow", "OPTIONS, PROPFIND, DELETE"}});
    CheckConditions(exchange, resource);
    CheckWritable(exchange, resource, true);
    RequireFree(exchange.state.volume, resource);
    exchange.state.volume.Open(resource.path, GENERIC_READ, kShareAll, CreateNewFolder);
    exchange.state.changes.Note(resource.key);
    exchange.response.Send(201);
}

void AnswerCopy(Exchange& exchange) { AnswerTransfer(exchange, false); }

void AnswerMove(Exchange& exchange) { AnswerTransfer(exchange, true); }

}  // namespace webdav
