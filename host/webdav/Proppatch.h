// PROPPATCH: makes all of the changes or none. Properties are kept in memory, except the times that Windows sets, which become the file's.
// Throws HttpError, HostError and ConnectionLost.
#pragma once

#include "webdav/Exchange.h"

namespace webdav {

void AnswerProppatch(Exchange& exchange);

}  // namespace webdav
