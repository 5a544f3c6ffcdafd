// The pages for browsers: of a folder, and of an error.
// Throws HostError and ConnectionLost.
#pragma once

#include <string>

#include "webdav/Exchange.h"

namespace webdav {

// Sends the page for a folder.
void SendFolderPage(Exchange& exchange, const Resource& folder);
// Answers a request for the pages' script or style sheet. False: it is for something else.
bool SendPageFile(const Request& request, Response& response);
// Does the request come from a browser, which shows pages to a person?
bool WantsPage(const Request& request);
void SendErrorPage(Response& response, int status, const std::string& text, Fields fields);

}  // namespace webdav
