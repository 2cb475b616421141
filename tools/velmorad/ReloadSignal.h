// The reload request (SIGHUP on POSIX systems; Windows has none) turned into a wait that
// a thread of the daemon can block in.
//
//   installReloadHandler();
//   while (waitForReload()) reload();  // until endReloadWait() is called
#pragma once

namespace velmorad {

void installReloadHandler();
// Blocks until a reload is asked for (true) or endReloadWait() is called (false; then
// every later call answers false at once).
bool waitForReload();
// Safe from a signal handler.
void endReloadWait();

}  // namespace velmorad
