// The methods of HTTP and WebDAV over the volume, a function each. All throw HttpError, HostError and ConnectionLost.
#pragma once

#include <string>
#include <vector>

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
    std::vector<std::string> notices;  // for whoever looks at a page; set before the first request
};

// One request on its way.
struct Exchange {
    State& state;
    const Request& request;
    RequestBody& body;
    Response& response;
    VolumePath path;                  // of the request, in the spelling that is stored
    VolumePath key;                   // of the request's resource; see Resource
    IfHeader ifHeader;                // empty: the field is missing
    std::vector<std::string> tokens;  // which the client submitted

    Resource Find() const { return Locate(state.volume, path); }
    std::string Tag(const Resource& resource) const { return EntityTag(state.changes, resource); }
};

enum class Depth { Zero, One, Infinity };
Depth ParseDepth(const Request& request, Depth missing);

// If, If-Match, If-None-Match and If-Unmodified-Since against what is there. Throws HttpError 412. Those that only save a
// transfer are for GET to see to.
void CheckConditions(const Exchange& exchange, const Resource& resource);
// May the resource be written? Its locks must be opened, and those of its folder when it comes or goes. Throws HttpError:
// 403 for the root and mount folders, 409 without a parent, 423.
void CheckWritable(const Exchange& exchange, const Resource& resource, bool comesOrGoes);
// The whole body as a small XML document, within its limit; an empty text when there is none. Throws HttpError 413.
std::string ReadXmlBody(RequestBody& body);

struct MemberFailure {
    std::string href;
    int status;
};
// 207 with the members that failed.
void SendFailures(Response& response, const std::vector<MemberFailure>& failures);
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
