#include <windows.h>

#include "ReloadSignal.h"

namespace velmorad {

namespace {

// Windows sends no reload request: the wait only ends.
HANDLE ended = nullptr;

}  // namespace

void installReloadHandler() {
    if (ended == nullptr) ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

bool waitForReload() {
    if (ended != nullptr) WaitForSingleObject(ended, INFINITE);
    return false;
}

void endReloadWait() {
    if (ended != nullptr) SetEvent(ended);
}

}  // namespace velmorad
