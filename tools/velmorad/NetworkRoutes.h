// The /network endpoint (NetworkRoutes.cpp): GET answers the host's tcpIpSettings
// document, POST applies one when lib/velmorad.properties allows it.
#pragma once

#include "Exchange.h"

namespace velmorad {

// `get` is true for GET and HEAD.
void network(Exchange& x, bool get);

}  // namespace velmorad
