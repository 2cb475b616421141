// The Windows registry and the Windows version: open a key given as a list of path
// components, read and write one value (a write changes only a value that exists and keeps
// its type), split registry texts into entries (also into Java string arrays), and tell
// whether this Windows is at least a given version.
//
//   const char* const path[] = {"SYSTEM", "CurrentControlSet", "Services", "Tcpip", "Parameters"};
//   char name[256];
//   unsigned long type = 0, size = sizeof name;
//   long st = velmora::RegUtil::getKeyValue(log, HKEY_LOCAL_MACHINE, path, 5, "Hostname",
//                                           &type, reinterpret_cast<unsigned char*>(name), &size);
//
// Statuses are the registry's own (0 success, 2 not found, 5 access denied...). A missing
// key, or a missing value on a read, is an ordinary answer and is never reported; every
// other failing status is reported through SystemErrorFactory::error.
//
// Off Windows there is no registry: key operations answer as for a missing key (a null key,
// status 2 and an empty text, nothing reported), writes return a failing status and report
// nothing, and every version predicate answers 0. Splitting, printing and the Java array
// makers work on every system.
#pragma once

#include <velmora/Export.h>

// The registry's key handle (HKEY on Windows); an opaque pointer elsewhere.
struct HKEY__;
// The Java Native Interface types, declared as <jni.h> declares them for C++.
struct JNIEnv_;
typedef JNIEnv_ JNIEnv;
class _jobjectArray;
typedef _jobjectArray* jobjectArray;

namespace velmora {

class ErrorHandler;

using RegKey = ::HKEY__*;

class VELMORA_API RegUtil {
public:
    // Access rights of a reading open and of a reading and writing one.
    static const unsigned long kRead = 0x20019;
    static const unsigned long kReadWrite = 0x2001B;

    // Opens `path` below `root` one component at a time with `access`. Null when a
    // component is missing (not reported) or another failure was reported. The caller
    // closes the key with closeKey. Each key a component is opened from is closed, the
    // root included: pass a predefined root (HKEY_LOCAL_MACHINE...), or a key of your own
    // that you give up. With no components the root itself is the answer.
    static RegKey getKey(ErrorHandler* err, RegKey root, const char* const* path, int count,
                         unsigned long access);
    static void closeKey(RegKey key);
    // Reads one value into type, data and size (in: the buffer's size, out: the value's).
    // On any failure the data buffer is left an empty text (a buffer of size 0 is not
    // touched). A text value is always terminated within the buffer, also when it was
    // stored without its terminator (cut by its last byte when it fills the buffer).
    static long getKeyValue(ErrorHandler* err, RegKey root, const char* const* path, int count,
                            const char* name, unsigned long* type, unsigned char* data,
                            unsigned long* size);
    // Writes an existing value with the type it has. A value that does not exist is not
    // created: its status (2) is reported. The result is the first failing status (of the
    // open, the query, the write, the flush or the close), 0 when all worked.
    static long setKeyValue(ErrorHandler* err, RegKey root, const char* const* path, int count,
                            const char* name, const unsigned char* data, unsigned long size);
    // Text form: a multi-string value gets the text and two terminating zero bytes.
    static long setKeyValue(ErrorHandler* err, RegKey root, const char* const* path, int count,
                            const char* name, const char* text);

    // Splits `buffer` (of `size` bytes) in place at runs of `delimiters`. `count` holds the
    // capacity on entry and the number of entries on return. Kept: once the capacity is
    // reached, one more entry is still stored in entries[capacity], so `entries` must have
    // capacity + 1 slots.
    static void parseDelimited(char* buffer, int size, char** entries, int* count,
                               const char* delimiters);
    // Entries of a multi-string: pointers into `data`. No capacity check: the caller gives
    // enough slots.
    static void parseRegMultiSz(char* data, int size, char** entries, int* count);
    // Prints "component:" for each component and a newline on standard output.
    static void printKey(const char* const* path, int count);

    // Java String arrays of the entries (at most 128; the delimited form is capped there).
    static jobjectArray delimitedToJobjectArray(JNIEnv* env, char* buffer, int size,
                                                const char* delimiters);
    static jobjectArray regMultiSzToJobjectArray(JNIEnv* env, char* data, int size);

    // 1 when this Windows is at least the named version, else 0.
    static int isWin2k();
    static int isWinXP();
    static int isWinXPSP1();
    static int isWinVista();
    static int isWin7();
    static int isWin8();
};

}  // namespace velmora
