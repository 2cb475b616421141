// The /network endpoints (NetworkRoutes.cpp): GET answers the host's tcpIpSettings
// document, POST applies one when lib/velmorad.properties allows it, and
// /network/confirm, /network/revert and /network/pending handle a change applied with a
// confirmation window.
#pragma once

#include "Exchange.h"

namespace velmorad {

// `get` is true for GET and HEAD; `x`'s path is /network or below it.
void network(Exchange& x, bool get);
// At the daemon's start: reverts a change left unconfirmed by a daemon that ended in its
// window. At its stop: reverts a change that still waits.
void resumeNetworkChanges(Daemon* daemon);
void endNetworkChanges();

}  // namespace velmorad
