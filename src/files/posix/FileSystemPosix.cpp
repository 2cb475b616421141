#include "files/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace velmora {
namespace fs {

namespace {

// Both separators are accepted everywhere; the system only knows "/".
std::string native(const char* path) {
    std::string p(path);
    for (char& c : p) {
        if (c == '\\') c = '/';
    }
    return p;
}

bool statPath(const char* path, struct stat* st) {
    return path != nullptr && path[0] != '\0' && ::stat(native(path).c_str(), st) == 0;
}

}  // namespace

const char kSeparator = '/';

bool exists(const char* path) {
    struct stat st;
    return statPath(path, &st);
}

bool isDirectory(const char* path) {
    struct stat st;
    return statPath(path, &st) && S_ISDIR(st.st_mode);
}

bool isRegular(const char* path) {
    struct stat st;
    return statPath(path, &st) && (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode));
}

bool makeDirectory(const char* path) {
    return path != nullptr && path[0] != '\0' && ::mkdir(native(path).c_str(), 0777) == 0;
}

int removeFile(const char* path) {
    if (path == nullptr || path[0] == '\0') return -1;
    // Removing a name needs no write permission on the file itself, so a read-only file
    // goes without touching its mode.
    if (::unlink(native(path).c_str()) == 0) return 0;
    return (errno == ENOENT || errno == ENOTDIR) ? 0 : -1;
}

int renameNoReplace(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    std::string f = native(from), t = native(to);
    // POSIX rename() silently replaces an existing target; backups must never overwrite
    // each other, so the rename refuses an existing name as Windows does.
    if (::renameat2(AT_FDCWD, f.c_str(), AT_FDCWD, t.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    // File systems without the no-replace flag: link, then drop the old name.
    if (::link(f.c_str(), t.c_str()) != 0) return -1;
    ::unlink(f.c_str());
    return 0;
}

bool modificationTime(const char* path, int64_t* time) {
    struct stat st;
    if (!statPath(path, &st)) return false;
    *time = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
    return true;
}

bool isReadOnly(const char* path) {
    struct stat st;
    return statPath(path, &st) && (st.st_mode & S_IWUSR) == 0;
}

bool makeWritable(const char* path) {
    struct stat st;
    if (!statPath(path, &st)) return false;
    if ((st.st_mode & S_IWUSR) != 0) return true;
    return ::chmod(native(path).c_str(), (st.st_mode & 07777) | S_IWUSR) == 0;
}

bool writeThenReplace(const char* path, const char* data, size_t len) {
    if (path == nullptr || path[0] == '\0') return false;
    std::string target = native(path);
    std::string temp = target + ".saving";
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    // The new file takes the old one's permissions, so that replacing it changes nothing
    // but the text.
    struct stat st;
    if (::stat(target.c_str(), &st) == 0) ::fchmod(fd, (st.st_mode & 07777) | S_IWUSR);
    size_t done = 0;
    while (done < len) {
        ssize_t n = ::write(fd, data + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    bool ok = done == len && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok && ::rename(temp.c_str(), target.c_str()) == 0) return true;
    ::unlink(temp.c_str());
    return false;
}

FILE* openStream(const char* path, const char* mode) {
    if (path == nullptr || path[0] == '\0' || mode == nullptr) return nullptr;
    return std::fopen(native(path).c_str(), mode);
}

int openForReading(const char* path) {
    if (path == nullptr || path[0] == '\0') return -1;
    return ::open(native(path).c_str(), O_RDONLY | O_CLOEXEC);
}

int readBytes(int fd, void* buf, int size) {
    ssize_t n;
    do {
        n = ::read(fd, buf, static_cast<size_t>(size));
    } while (n < 0 && errno == EINTR);
    return static_cast<int>(n);
}

void closeDescriptor(int fd) {
    ::close(fd);
}

DirectoryWalk::DirectoryWalk(const char* directory) {
    if (directory == nullptr || directory[0] == '\0') return;
    directory_ = native(directory);
    handle_ = ::opendir(directory_.c_str());
}

DirectoryWalk::~DirectoryWalk() {
    if (handle_ != nullptr) ::closedir(static_cast<DIR*>(handle_));
}

bool DirectoryWalk::next(EntryInfo& entry) {
    if (handle_ == nullptr) return false;
    while (dirent* d = ::readdir(static_cast<DIR*>(handle_))) {
        std::string name = d->d_name;
        if (name == "." || name == "..") continue;
        std::string full = directory_;
        if (full.back() != '/') full += '/';
        full += name;
        struct stat st;
        if (::stat(full.c_str(), &st) != 0) continue;  // vanished meanwhile, or a dangling link
        entry.name = name;
        entry.directory = S_ISDIR(st.st_mode);
        entry.size = static_cast<int64_t>(st.st_size);
        entry.modified = static_cast<int64_t>(st.st_mtime);
        return true;
    }
    return false;
}

}  // namespace fs
}  // namespace velmora
