#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "InstanceLock.h"

namespace velmorad {

namespace {

// A write lock on the whole file; the kernel drops it when the process ends.
struct flock wholeFile(short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

}  // namespace

InstanceLock::~InstanceLock() {
    if (handle_ >= 0) close(static_cast<int>(handle_));
}

bool InstanceLock::acquire(const std::string& path, std::string* why) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        *why = "cannot open the lock file " + path + ": " + std::strerror(errno);
        return false;
    }
    struct flock lock = wholeFile(F_WRLCK);
    if (fcntl(fd, F_SETLK, &lock) != 0) {
        const int err = errno;
        struct flock holder = wholeFile(F_WRLCK);
        std::string who = "another process";
        if (fcntl(fd, F_GETLK, &holder) == 0 && holder.l_type != F_UNLCK) {
            who = "process " + std::to_string(holder.l_pid);
        }
        close(fd);
        *why = err == EACCES || err == EAGAIN
                   ? "another velmorad (" + who + ") runs with this home; it holds " + path
                   : "cannot lock " + path + ": " + std::strerror(err);
        return false;
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) < 0) {
        // The lock holds without the number; the number is only for people.
    }
    handle_ = fd;
    return true;
}

}  // namespace velmorad
