// The methods of HTTP and WebDAV over the volume, a function each. All throw HttpError, HostError and ConnectionLost.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/Upload.h"
#include "webdav/Claims.h"
#include "webdav/Conditions.h"
#include "webdav/Http.h"
#include "webdav/LockTable.h"
#include "webdav/Paths.h"
#include "webdav/Properties.h"

namespace webdav {

// What all requests share. Every part may be used from any thread.
struct State {
    explicit State(const Volume& theVolume) : volume(theVolume), locks(theVolume) {}

    const Volume& volume;
    LockTable locks;
    DeadProperties properties;
    ChangeNumbers changes;
    Claims claims;
    std::function<std::vector<std::string>()> notices;  // lines that every page shows; may be empty; set before the first request
};

// One request on its way.
struct Exchange {
    State& state;
    const Request& request;
    RequestBody& body;
    Response& response;
    std::uint64_t changes;            // Claims::Changes when the request came in
    Resource found;                   // what the request's path named then
    IfHeader ifHeader;                // empty: the field is missing
    std::vector<std::string> tokens;  // which the client submitted

    // What was found is found again, by another look when other requests changed something meanwhile.
    Resource FindAgain(const Resource& known) const {
        return state.locks.AsHeld(state.claims.Changes() == changes ? known : Locate(state.volume, known.path));
    }
    Resource Find() const { return FindAgain(found); }
    std::string Tag(const Resource& resource) const { return EntityTag(state.volume, state.changes, resource); }
};

enum class Depth { Zero, One, Infinity };
Depth ParseDepth(const Request& request, Depth missing);

// If, If-Match, If-None-Match and If-Unmodified-Since against what is there. Throws HttpError 412. Those that only save a
// transfer are for GET to see to.
void CheckConditions(const Exchange& exchange, const Resource& resource);
// Throws HttpError 423 unless the locks of the resource are opened, and those of its folder when it comes or goes.
void CheckLocks(const Exchange& exchange, const Resource& resource, bool comesOrGoes);
// The same, and may it be written? Throws HttpError 403 for the root and mount folders, 409 without a parent.
void CheckWritable(const Exchange& exchange, const Resource& resource, bool comesOrGoes);
// The whole body as a small XML document, within its limit; an empty text when there is none. Throws HttpError 413.
std::string ReadXmlBody(RequestBody& body);

struct MemberFailure {
    std::string href;
    int status;
};
// 207 with the members that failed.
void SendFailures(Response& response, const std::vector<MemberFailure>& failures);
// Throws HttpError 409 for a new resource when what stands on disk under its name is listed as another file. An Upload asks itself.
void RequireFree(const Volume& volume, const Resource& resource);
// Starts to store target, a file or nothing yet. Throws HttpError 409 without a folder, and when it would cost another file its place or
// this one its encryption.
std::unique_ptr<Upload> StartUpload(const Volume& volume, const Resource& target);
// What stands where the upload for target was placed.
Resource StoredAs(const Resource& target, const Upload& upload);
// What was to be stored as target was stored, perhaps under another name: tags and properties follow.
void NoteStored(State& state, const Resource& target, const Resource& stored);
// The status for an answer of the volume.
int HttpStatus(VirtualVolumeStatus status);

void AnswerOptions(Exchange& exchange);
void AnswerGet(Exchange& exchange);  // and HEAD
void AnswerPut(Exchange& exchange);
void AnswerDelete(Exchange& exchange);
void AnswerMkcol(Exchange& exchange);
void AnswerCopy(Exchange& exchange);
void AnswerMove(Exchange& exchange);
void AnswerPropfind(Exchange& exchange);
void AnswerProppatch(Exchange& exchange);
void AnswerLock(Exchange& exchange);
void AnswerUnlock(Exchange& exchange);

// The page for a folder.
void SendFolderPage(Exchange& exchange, const Resource& folder);
// Is the request for the pages' script or style sheet? Then it is answered.
bool SendPageFile(const Request& request, Response& response);
// Does a person look at the answer, who would want a page?
bool WantsPage(const Request& request);
void SendErrorPage(Response& response, int status, const std::string& text, Fields fields);

}  // namespace webdav
