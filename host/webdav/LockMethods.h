// LOCK and UNLOCK.
// Throws HttpError, HostError and ConnectionLost.
#pragma once

#include "webdav/Exchange.h"

namespace webdav {

void AnswerLock(Exchange& exchange);
void AnswerUnlock(Exchange& exchange);

}  // namespace webdav
