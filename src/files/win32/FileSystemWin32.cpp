#include "files/FileSystem.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <string>

namespace velmora {
namespace fs {

namespace {

bool empty(const char* path) {
    return path == nullptr || path[0] == '\0';
}

// FILETIME counts 100 ns steps since 1601; the entries count seconds since 1970.
int64_t unixSeconds(const FILETIME& ft) {
    ULARGE_INTEGER t;
    t.LowPart = ft.dwLowDateTime;
    t.HighPart = ft.dwHighDateTime;
    return static_cast<int64_t>(t.QuadPart / 10000000ULL) - 11644473600LL;
}

struct FindState {
    HANDLE find = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAA data;
    bool pending = false;  // `data` holds an entry not yet handed out
};

DWORD writeAll(HANDLE h, const char* data, size_t len) {
    size_t done = 0;
    while (done < len) {
        DWORD chunk = static_cast<DWORD>(len - done > 0x40000000 ? 0x40000000 : len - done);
        DWORD written = 0;
        if (!WriteFile(h, data + done, chunk, &written, nullptr)) return GetLastError();
        if (written == 0) return ERROR_WRITE_FAULT;
        done += written;
    }
    return 0;
}

// The file a path finally names, symbolic links followed, when it exists; the path as
// given otherwise.
std::string finalTarget(const char* path) {
    HANDLE h = CreateFileA(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) return path;
    char buf[MAX_PATH + 8];
    DWORD n = GetFinalPathNameByHandleA(h, buf, sizeof buf, FILE_NAME_NORMALIZED);
    CloseHandle(h);
    if (n == 0 || n >= sizeof buf) return path;
    std::string name(buf, n);
    if (name.compare(0, 8, "\\\\?\\UNC\\") == 0) return "\\\\" + name.substr(8);
    if (name.compare(0, 4, "\\\\?\\") == 0) return name.substr(4);
    return name;
}

// Where no file can be made beside the target, the target itself is rewritten and cut to
// the new length; it is opened without sharing, so a second such save waits its turn
// instead of mixing its bytes in.
int rewriteInPlace(const std::string& target, const char* data, size_t len) {
    HANDLE h = INVALID_HANDLE_VALUE;
    for (int tries = 0; tries < 200; ++tries) {
        h = CreateFileA(target.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h != INVALID_HANDLE_VALUE || GetLastError() != ERROR_SHARING_VIOLATION) break;
        Sleep(10);
    }
    if (h == INVALID_HANDLE_VALUE) return static_cast<int>(GetLastError());
    DWORD code = writeAll(h, data, len);
    if (code == 0 && !SetEndOfFile(h)) code = GetLastError();
    if (code == 0 && !FlushFileBuffers(h)) code = GetLastError();
    if (!CloseHandle(h) && code == 0) code = GetLastError();
    return static_cast<int>(code);
}
}  // namespace

const char kSeparator = '\\';

bool exists(const char* path) {
    return !empty(path) && GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool isDirectory(const char* path) {
    if (empty(path)) return false;
    DWORD a = GetFileAttributesA(path);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isRegular(const char* path) {
    if (empty(path)) return false;
    DWORD a = GetFileAttributesA(path);
    return a != INVALID_FILE_ATTRIBUTES &&
           (a & (FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_VIRTUAL)) == 0;
}

bool makeDirectory(const char* path) {
    return !empty(path) && CreateDirectoryA(path, nullptr) != 0;
}

int removeFile(const char* path) {
    if (empty(path)) return -1;
    DWORD a = GetFileAttributesA(path);
    if (a == INVALID_FILE_ATTRIBUTES) {
        DWORD e = GetLastError();
        return (e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND) ? 0 : -1;
    }
    if ((a & FILE_ATTRIBUTE_READONLY) != 0) SetFileAttributesA(path, a & ~FILE_ATTRIBUTE_READONLY);
    if (DeleteFileA(path)) return 0;
    DWORD e = GetLastError();
    return (e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND) ? 0 : -1;
}

int renameNoReplace(const char* from, const char* to) {
    if (empty(from) || empty(to)) return -1;
    return MoveFileA(from, to) ? 0 : -1;
}

bool modificationTime(const char* path, int64_t* time) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (empty(path) || !GetFileAttributesExA(path, GetFileExInfoStandard, &data)) return false;
    ULARGE_INTEGER t;
    t.LowPart = data.ftLastWriteTime.dwLowDateTime;
    t.HighPart = data.ftLastWriteTime.dwHighDateTime;
    *time = static_cast<int64_t>(t.QuadPart);
    return true;
}

bool isReadOnly(const char* path) {
    if (empty(path)) return false;
    DWORD a = GetFileAttributesA(path);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_READONLY) != 0;
}

bool makeWritable(const char* path) {
    if (empty(path)) return false;
    DWORD a = GetFileAttributesA(path);
    if (a == INVALID_FILE_ATTRIBUTES) return false;
    if ((a & FILE_ATTRIBUTE_READONLY) == 0) return true;
    return SetFileAttributesA(path, a & ~FILE_ATTRIBUTE_READONLY) != 0;
}

int rewrite(const char* path, const char* data, size_t len) {
    if (empty(path)) return ERROR_INVALID_PARAMETER;
    const std::string target = finalTarget(path);
    const bool existed = GetFileAttributesA(target.c_str()) != INVALID_FILE_ATTRIBUTES;
    std::string dir = target;
    size_t sep = dir.find_last_of("\\/");
    dir = sep == std::string::npos ? "." : dir.substr(0, sep + 1);
    char temp[MAX_PATH + 16];
    // A name of its own in the target's directory: the system picks one no other file has.
    if (GetTempFileNameA(dir.c_str(), "vel", 0, temp) == 0) {
        DWORD e = GetLastError();
        if (e == ERROR_ACCESS_DENIED && existed) return rewriteInPlace(target, data, len);
        return static_cast<int>(e);
    }
    HANDLE h = CreateFileA(temp, GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        DWORD e = GetLastError();
        DeleteFileA(temp);
        return static_cast<int>(e);
    }
    DWORD code = writeAll(h, data, len);
    if (code == 0 && !FlushFileBuffers(h)) code = GetLastError();
    if (!CloseHandle(h) && code == 0) code = GetLastError();
    // ReplaceFile keeps the replaced file's attributes, owner and access rights; a new
    // file simply moves into place.
    if (code == 0 && existed &&
        !ReplaceFileA(target.c_str(), temp, nullptr, REPLACEFILE_WRITE_THROUGH, nullptr, nullptr))
        code = GetLastError();
    if (code == 0 && !existed &&
        !MoveFileExA(temp, target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        code = GetLastError();
    if (code != 0) DeleteFileA(temp);
    return static_cast<int>(code);
}

FILE* openStream(const char* path, const char* mode) {
    if (empty(path) || mode == nullptr) return nullptr;
    return std::fopen(path, mode);
}

int openForReading(const char* path) {
    if (empty(path)) return -1;
    return _open(path, _O_RDONLY | _O_BINARY);
}

int readBytes(int fd, void* buf, int size) {
    return _read(fd, buf, static_cast<unsigned>(size));
}

void closeDescriptor(int fd) {
    _close(fd);
}

DirectoryWalk::DirectoryWalk(const char* directory) {
    if (empty(directory)) return;
    directory_ = directory;
    std::string pattern = directory_;
    if (pattern.back() != '\\' && pattern.back() != '/') pattern += '\\';
    pattern += '*';
    FindState* state = new FindState;
    state->find = FindFirstFileA(pattern.c_str(), &state->data);
    if (state->find == INVALID_HANDLE_VALUE) {
        delete state;
        return;
    }
    state->pending = true;
    handle_ = state;
}

DirectoryWalk::~DirectoryWalk() {
    FindState* state = static_cast<FindState*>(handle_);
    if (state == nullptr) return;
    FindClose(state->find);
    delete state;
}

bool DirectoryWalk::next(EntryInfo& entry) {
    FindState* state = static_cast<FindState*>(handle_);
    if (state == nullptr) return false;
    for (;;) {
        if (!state->pending && !FindNextFileA(state->find, &state->data)) return false;
        state->pending = false;
        const WIN32_FIND_DATAA& d = state->data;
        if (std::string(d.cFileName) == "." || std::string(d.cFileName) == "..") continue;
        entry.name = d.cFileName;
        entry.directory = (d.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        entry.size = (static_cast<int64_t>(d.nFileSizeHigh) << 32) | d.nFileSizeLow;
        entry.modified = unixSeconds(d.ftLastWriteTime);
        return true;
    }
}

}  // namespace fs
}  // namespace velmora
