#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "ReloadSignal.h"

namespace velmorad {

namespace {

// The handler writes one byte into the pipe: 'r' reload, 'q' no more reloads.
int wakePipe[2] = {-1, -1};

void onHangUp(int) {
    const int saved = errno;
    if (wakePipe[1] >= 0) (void)!write(wakePipe[1], "r", 1);
    errno = saved;
}

}  // namespace

void installReloadHandler() {
    if (wakePipe[0] < 0 && pipe(wakePipe) == 0) {
        fcntl(wakePipe[0], F_SETFD, FD_CLOEXEC);
        fcntl(wakePipe[1], F_SETFD, FD_CLOEXEC);
        fcntl(wakePipe[1], F_SETFL, O_NONBLOCK);  // a burst of signals never blocks a handler
    }
    struct sigaction action = {};
    action.sa_handler = onHangUp;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGHUP, &action, nullptr);
}

bool waitForReload() {
    if (wakePipe[0] < 0) return false;
    for (;;) {
        char c;
        const ssize_t n = read(wakePipe[0], &c, 1);
        if (n == 1) {
            if (c == 'q') {
                // Left for any other waiter.
                (void)!write(wakePipe[1], "q", 1);
                return false;
            }
            return true;
        }
        if (n < 0 && errno == EINTR) continue;
        return false;
    }
}

void endReloadWait() {
    if (wakePipe[1] >= 0) (void)!write(wakePipe[1], "q", 1);
}

}  // namespace velmorad
