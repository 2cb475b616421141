#include "files/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <random>

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

// Follows symbolic links to the name of the file they end at, which need not exist yet
// (a dangling link names the file a save creates). Directories on the way need not be
// resolved: the new file is made in the same directory, whatever it is called.
std::string finalTarget(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        char link[PATH_MAX];
        ssize_t n = ::readlink(path.c_str(), link, sizeof link - 1);
        if (n < 0) break;  // not a link: this is the file
        link[n] = '\0';
        size_t slash = path.rfind('/');
        if (link[0] == '/' || slash == std::string::npos) {
            path = link;
        } else {
            path = path.substr(0, slash + 1) + link;
        }
    }
    return path;
}

int writeAll(int fd, const char* data, size_t len) {
    size_t done = 0;
    while (done < len) {
        ssize_t n = ::write(fd, data + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return EIO;
        done += static_cast<size_t>(n);
    }
    return 0;
}

// A new, empty file beside `target` under a name no other save uses (process, counter
// and a random part), made with the usual creation mode so the umask applies to it. The
// random part is drawn once per process: drawing it costs a system call, and the counter
// already tells one save of this process from the next.
int createBeside(const std::string& target, int* fd, std::string* temp) {
    static std::atomic<unsigned> counter{0};
    static const unsigned salt = static_cast<unsigned>(std::random_device()());
    size_t slash = target.rfind('/');
    std::string dir = slash == std::string::npos ? "" : target.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
    for (int tries = 0; tries < 100; ++tries) {
        char unique[64];
        std::snprintf(unique, sizeof unique, ".%ld.%u.%08x", static_cast<long>(::getpid()),
                      counter.fetch_add(1), salt);
        *temp = dir + "." + name + unique;
        *fd = ::open(temp->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (*fd >= 0) return 0;
        if (errno != EEXIST) return errno;
    }
    return EEXIST;
}

// The fallback where no file can be made beside the target: the target itself is
// rewritten from its start and cut to the new length, under an exclusive lock so that
// two such saves never interleave their bytes.
int rewriteInPlace(const std::string& target, const char* data, size_t len) {
    int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    int code = 0;
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            code = errno;
            break;
        }
    }
    if (code == 0) code = writeAll(fd, data, len);
    if (code == 0 && ::ftruncate(fd, static_cast<off_t>(len)) != 0) code = errno;
    if (code == 0 && ::fsync(fd) != 0) code = errno;
    if (::close(fd) != 0 && code == 0) code = errno;
    return code;
}

// The rename is only durable once the directory entry is on disk too.
void syncDirectoryOf(const std::string& target) {
    size_t slash = target.rfind('/');
    std::string dir = slash == std::string::npos ? "." : target.substr(0, slash == 0 ? 1 : slash);
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
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

int rewrite(const char* path, const char* data, size_t len) {
    if (path == nullptr || path[0] == '\0') return EINVAL;
    const std::string target = finalTarget(native(path));
    struct stat old;
    const bool existed = ::stat(target.c_str(), &old) == 0;
    std::string temp;
    int fd = -1;
    int code = createBeside(target, &fd, &temp);
    if (code == EACCES || code == EPERM) return existed ? rewriteInPlace(target, data, len) : code;
    if (code != 0) return code;
    if (existed) {
        // The new file must look like the old one to everybody else: owner and group
        // first (a change of owner clears the set-id bits), then the mode.
        if (::fchown(fd, old.st_uid, old.st_gid) != 0) {
            ::close(fd);
            ::unlink(temp.c_str());
            return rewriteInPlace(target, data, len);
        }
        if (::fchmod(fd, old.st_mode & 07777) != 0) code = errno;
    }
    if (code == 0) code = writeAll(fd, data, len);
    if (code == 0 && ::fsync(fd) != 0) code = errno;
    if (::close(fd) != 0 && code == 0) code = errno;
    if (code == 0 && ::rename(temp.c_str(), target.c_str()) != 0) code = errno;
    if (code != 0) {
        ::unlink(temp.c_str());
        return code;
    }
    syncDirectoryOf(target);
    return 0;
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
