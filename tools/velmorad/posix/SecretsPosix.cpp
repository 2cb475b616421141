#include <errno.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Secrets.h"

namespace velmorad {

namespace {

std::string directoryOf(const std::string& path) {
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string failure(const char* what, const std::string& path) {
    return std::string(what) + " " + path + ": " + std::strerror(errno);
}

}  // namespace

bool secureRandom(unsigned char* out, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = getrandom(out + done, size - done, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

bool writePrivateFile(const std::string& path, const std::string& text, std::string* why) {
    std::string temporary = path + ".new";
    unlink(temporary.c_str());  // a left-over of an interrupted write; O_EXCL below
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        *why = failure("cannot create", temporary);
        return false;
    }
    bool ok = fchmod(fd, 0600) == 0;  // whatever the umask said
    // Made by root for a daemon that runs as another user: the daemon must read it.
    struct stat directory;
    if (ok && geteuid() == 0 && stat(directoryOf(path).c_str(), &directory) == 0 &&
        directory.st_uid != 0) {
        ok = fchown(fd, directory.st_uid, directory.st_gid) == 0;
    }
    size_t done = 0;
    while (ok && done < text.size()) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += static_cast<size_t>(n);
    }
    ok = ok && fsync(fd) == 0;
    if (!ok) *why = failure("cannot write", temporary);
    if (close(fd) != 0 && ok) {
        ok = false;
        *why = failure("cannot write", temporary);
    }
    if (ok && rename(temporary.c_str(), path.c_str()) != 0) {
        ok = false;
        *why = failure("cannot rename to", path);
    }
    if (!ok) unlink(temporary.c_str());
    return ok;
}

bool isPrivateFile(const std::string& path, std::string* why) {
    struct stat file;
    if (stat(path.c_str(), &file) != 0) {
        *why = failure("cannot read", path);
        return false;
    }
    if ((file.st_mode & 077) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(file.st_mode & 07777));
        *why = path + " may be read by others (mode " + mode + "); chmod 600 it";
        return false;
    }
    return true;
}

}  // namespace velmorad
