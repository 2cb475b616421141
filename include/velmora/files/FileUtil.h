// Path and file operations that the streams, logs and properties files use before they
// write. Both "\" and "/" separate path components on every system; nothing is reported
// through an ErrorHandler, results are booleans or integer statuses.
//
//   if (velmora::FileUtil::verifyPath("logs/daemon/daemon.log")) {
//       velmora::FileUtil::renameToBackup("logs/daemon/daemon.log", 5);
//       // now logs/daemon/daemon.backup_20260419_1303.log, with at most 6 backups kept
//   }
#pragma once

#include <velmora/Export.h>

#include <cstddef>

namespace velmora {

class VELMORA_API FileUtil {
public:
    // Creates every missing directory above the file (never the file name, never a drive
    // such as "C:"); false at the first directory that can be neither found nor created.
    static bool verifyPath(const char* path);
    // True when the path is a directory already or one was created.
    static bool createDirectory(const char* path);
    static bool isDirectory(const char* path);
    // True when the path exists and is no device or virtual file; directories count.
    static bool isFileRegular(const char* path);
    // 0 when deleted or not there at all, -1 on failure; a read-only flag is cleared first.
    static int deleteFile(const char* path);
    // The text after the last "." of the whole path, or a constant "" when there is none.
    static const char* getExtension(const char* path);
    // The volume part of a path: "C:\" for "C:/x/y", "\\server\" for "\\server\share\x";
    // a path without separator is copied whole. Always terminated, cut to the buffer.
    static void getFilesystemName(const char* path, char* buf, int size);
    // Replaces the whole content of the file the path names (symbolic links followed)
    // with `length` bytes, so that a reader or a crash sees the old text or the new one,
    // never a part: the bytes go to a uniquely named file beside the real file, are
    // flushed to disk, take over the old file's mode, owner and group and are renamed
    // over it. Of several saves of one file at the same time, the last one wins whole.
    // Where no file can be made beside it (the directory is not writable, or the new file
    // could not be given the old one's owner) an existing file is rewritten in place.
    // False on failure, with the system's error number in `error` when given; the old
    // file is then as it was, except after a failed write in place.
    static bool rewriteFile(const char* path, const char* data, size_t length,
                            int* error = nullptr);
    // Renames the file to "<path up to its last .>.backup_%Y%m%d_%H%M<rest>", first
    // deleting the oldest backups so that, with max > 1, max + 1 backups remain after the
    // rename. Returns the rename's status: 0 on success, -1 when it failed (for instance
    // because a backup of the same minute exists).
    //
    // Kept on purpose: the backups are matched by the base name up to its last ".", while
    // the new name is made at the last "." of the whole path, so a file without extension
    // in a directory whose name has a "." gets a name inside that directory part and the
    // rename fails.
    static int renameToBackup(const char* path, int max = -1);
};

}  // namespace velmora
