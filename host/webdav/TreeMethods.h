// DELETE, MKCOL, COPY and MOVE.
// Throws HttpError, HostError and ConnectionLost.
#pragma once

#include "webdav/Exchange.h"

namespace webdav {

void AnswerDelete(Exchange& exchange);
void AnswerMkcol(Exchange& exchange);
void AnswerCopy(Exchange& exchange);
void AnswerMove(Exchange& exchange);

}  // namespace webdav
