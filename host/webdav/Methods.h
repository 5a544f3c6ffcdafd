// What the methods of HTTP and WebDAV share. All functions throw HttpError, HostError and ConnectionLost.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/Upload.h"
#include "webdav/Exchange.h"

namespace webdav {

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

}  // namespace webdav
