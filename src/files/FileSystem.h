// Internal: the file-system services that the file utilities and file streams need, one
// implementation per operating system (posix/, win32/). Paths are narrow texts; both
// "\" and "/" separate components on every system (the POSIX side turns "\" into "/").
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace velmora {
namespace fs {

extern const char kSeparator;  // the separator the system prefers when joining paths

bool exists(const char* path);  // anything at all is there (no wildcard expansion)
bool isDirectory(const char* path);
bool isRegular(const char* path);  // exists and is no device or virtual file
bool makeDirectory(const char* path);
int removeFile(const char* path);                       // 0 also when missing, -1 on failure
int renameNoReplace(const char* from, const char* to);  // 0, or -1 when `to` exists or on failure

// The modification time in the system's finest unit (nanoseconds since 1970 here, 100 ns
// steps on Windows): only compared with earlier readings of the same file. False when
// the file cannot be examined.
bool modificationTime(const char* path, int64_t* time);
// True when the file exists and cannot be written (Windows: the read-only attribute;
// elsewhere: no write permission bit for the owner).
bool isReadOnly(const char* path);
// Clears the read-only state; true when the file is writable afterwards.
bool makeWritable(const char* path);
// Gives the file `path` names (symbolic links followed) the `len` bytes as its whole
// content. The bytes go to a new file of a unique name beside the real file, are flushed
// to disk, take the old file's mode, owner and group, and the new file is then renamed
// over the old one: readers see the old text or the new one, a failed write (full disk,
// short write) leaves the old file untouched, and of several saves at once the last
// rename wins whole. Where no file can be made beside it (a directory that is not
// writable, an owner the new file could not be given) an existing file is rewritten in
// place under an exclusive lock instead. 0 on success, else the system's error number.
int rewrite(const char* path, const char* data, size_t len);

FILE* openStream(const char* path, const char* mode);  // binary stdio stream, or null
int openForReading(const char* path);                  // descriptor, or -1
int readBytes(int fd, void* buf, int size);            // the read's result
void closeDescriptor(int fd);

struct EntryInfo {
    std::string name;
    bool directory = false;
    int64_t size = 0;
    int64_t modified = 0;  // seconds since 1970
};

// Walks one directory; "." and ".." are skipped.
class DirectoryWalk {
public:
    explicit DirectoryWalk(const char* directory);
    ~DirectoryWalk();
    bool isOpen() const { return handle_ != nullptr; }
    bool next(EntryInfo& entry);

private:
    DirectoryWalk(const DirectoryWalk&) = delete;
    DirectoryWalk& operator=(const DirectoryWalk&) = delete;
    void* handle_ = nullptr;
    std::string directory_;
};

}  // namespace fs
}  // namespace velmora
