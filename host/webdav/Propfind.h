// PROPFIND: the properties of a resource and of those in it.
// Throws HttpError, HostError and ConnectionLost.
#pragma once

#include "webdav/Exchange.h"

namespace webdav {

void AnswerPropfind(Exchange& exchange);

}  // namespace webdav
