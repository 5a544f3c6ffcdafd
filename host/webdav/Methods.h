// The methods of HTTP and WebDAV, one function each. All throw HttpError, HostError and ConnectionLost.
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

// Shared by all requests. Every part may be used from any thread.
struct State {
    explicit State(const Volume& theVolume) : volume(theVolume), locks(theVolume) {}

    const Volume& volume;
    LockTable locks;
    DeadProperties properties;
    ChangeNumbers changes;
    Claims claims;
    std::function<std::vector<std::string>()> notices;  // lines that every page shows; may be empty; set before the first request
};

// One request and its answer.
struct Exchange {
    State& state;
    const Request& request;
    RequestBody& body;
    Response& response;
    std::uint64_t changes;            // Claims::Changes when the request arrived
    Resource found;                   // what the request's path named then
    IfHeader ifHeader;                // empty: the field is missing
    std::vector<std::string> tokens;  // that the client submitted

    // The resource as it is now; looked up again only if other requests changed something meanwhile.
    Resource FindAgain(const Resource& known) const { return state.claims.Changes() == changes ? known : Locate(state.volume, known.path); }
    Resource Find() const { return FindAgain(found); }
    std::string Tag(const Resource& resource) const { return EntityTag(state.volume, state.changes, resource); }
};

enum class Depth { Zero, One, Infinity };
Depth ParseDepth(const Request& request, Depth missing);

// Checks If, If-Match, If-None-Match and If-Unmodified-Since. Throws HttpError 412. GET itself checks the conditions that only
// save a transfer.
void CheckConditions(const Exchange& exchange, const Resource& resource);
// Throws HttpError 423 unless tokens were submitted for the locks of the resource, and for those of its folder when it is created or
// deleted.
void CheckLocks(const Exchange& exchange, const Resource& resource, bool comesOrGoes);
// The same; also throws HttpError 403 for the root and mount folders, 409 without a parent folder.
void CheckWritable(const Exchange& exchange, const Resource& resource, bool comesOrGoes);
// The body, a small XML document; empty when there is none. Throws HttpError 413 beyond the limit.
std::string ReadXmlBody(RequestBody& body);

struct MemberFailure {
    std::string href;
    int status;
};
// Sends 207 with the entries that failed.
void SendFailures(Response& response, const std::vector<MemberFailure>& failures);
// Throws HttpError 409 for a new resource when the file on disk under its name is listed as another file. Upload checks this itself.
void RequireFree(const Volume& volume, const Resource& resource);
// Starts to store target, an existing or new file. Throws HttpError 409 without a folder, when it would replace another file, and when
// this one would be stored unencrypted.
std::unique_ptr<Upload> StartUpload(const Volume& volume, const Resource& target);
// The resource that the upload for target has stored.
Resource StoredAs(const Resource& target, const Upload& upload);
// After target was stored, perhaps under another name: updates tags and properties.
void NoteStored(State& state, const Resource& target, const Resource& stored);
// The HTTP status for a status of the volume.
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

// Sends the page for a folder.
void SendFolderPage(Exchange& exchange, const Resource& folder);
// Answers a request for the pages' script or style sheet. False: it is for something else.
bool SendPageFile(const Request& request, Response& response);
// Does the request come from a browser, which shows pages to a person?
bool WantsPage(const Request& request);
void SendErrorPage(Response& response, int status, const std::string& text, Fields fields);

}  // namespace webdav
