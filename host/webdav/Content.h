// GET, HEAD and PUT: the content of files.
// Throws HttpError, HostError and ConnectionLost.
#pragma once

#include "webdav/Exchange.h"

namespace webdav {

void AnswerGet(Exchange& exchange);  // also for HEAD
void AnswerPut(Exchange& exchange);

}  // namespace webdav
