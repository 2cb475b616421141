#include <velmora/platform/RegUtil.h>

#include <velmora/log/SystemErrorFactory.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "log/Jni.h"
#include "platform/BuildNumberSource.h"
#include "platform/RegSystem.h"

namespace velmora {

namespace {

// The Java arrays hold at most this many entries.
const int kJavaEntries = 128;

const char* const kCurrentVersion[] = {"SOFTWARE", "Microsoft", "Windows NT", "CurrentVersion"};
RegKey buildRoot = nullptr;
const char* const* buildPath = nullptr;
int buildCount = 0;

// Opens the path and keeps the status of the step that failed, which getKey does not give.
RegKey openPath(ErrorHandler* err, RegKey root, const char* const* path, int count,
                unsigned long access, long* status) {
    RegKey current = root;
    *status = regsys::kSuccess;
    for (int i = 0; i < count; ++i) {
        RegKey next = nullptr;
        *status = regsys::openKey(current, path[i], access, &next);
        // The key each component was opened from is closed, the root included.
        regsys::closeKey(current);
        if (*status != regsys::kSuccess) {
            // A missing component is an ordinary answer, not a failure.
            if (*status != regsys::kNotFound) SystemErrorFactory::error(err, *status);
            return nullptr;
        }
        current = next;
    }
    return current;
}

// `capacity` is the caller's buffer size as given, not the size the query answered.
void emptyText(unsigned char* data, unsigned long capacity) {
    if (data != nullptr && capacity > 0) data[0] = 0;
}

// A text value need not be stored with its terminator: the text read is ended within the
// buffer, at its end when the value filled it, so that it is never read past.
void terminateText(unsigned long type, unsigned char* data, unsigned long length,
                   unsigned long capacity) {
    const bool text = type == 1 || type == 2 || type == regsys::kMultiSz;  // SZ, EXPAND_SZ
    if (!text || data == nullptr || capacity == 0) return;
    if (length < capacity) {
        data[length] = 0;
    } else if (data[capacity - 1] != 0) {
        data[capacity - 1] = 0;
    }
}

// Writes with the type the value already has; a value that does not exist is not created.
long writeExisting(ErrorHandler* err, RegKey root, const char* const* path, int count,
                   const char* name, const unsigned char* data, unsigned long size,
                   const char* text) {
    long status = 0;
    RegKey key = openPath(err, root, path, count, RegUtil::kReadWrite, &status);
    if (key == nullptr) return status != regsys::kSuccess ? status : regsys::kNotFound;
    unsigned long type = 0;
    unsigned long existing = 0;
    status = regsys::queryValue(key, name, &type, nullptr, &existing);
    if (status != regsys::kSuccess) {
        // Deliberate: writing only changes values that are there.
        SystemErrorFactory::error(err, static_cast<unsigned long>(status));
        regsys::closeKey(key);
        return status;
    }
    std::vector<unsigned char> multi;
    if (text != nullptr) {
        const size_t len = std::strlen(text);
        if (type == regsys::kMultiSz) {
            // One entry followed by the multi-string's double terminator.
            multi.assign(len + 2, 0);
            std::memcpy(multi.data(), text, len);
            data = multi.data();
            size = static_cast<unsigned long>(len + 2);
        } else {
            data = reinterpret_cast<const unsigned char*>(text);
            size = static_cast<unsigned long>(len + 1);
        }
    }
    status = regsys::setValue(key, name, type, data, size);
    if (status == regsys::kSuccess) {
        status = regsys::flushKey(key);
        if (status != regsys::kSuccess) SystemErrorFactory::error(err, status);
        const long closed = regsys::closeKey(key);
        if (closed != regsys::kSuccess) SystemErrorFactory::error(err, closed);
        return status != regsys::kSuccess ? status : closed;
    }
    SystemErrorFactory::error(err, static_cast<unsigned long>(status));
    regsys::closeKey(key);
    return status;
}

// Entries of a multi-string, at most `limit` of them.
int splitMultiSz(char* data, int size, char** entries, int limit) {
    int n = 0;
    for (int i = 0; i < size && n < limit; ++i) {
        if (data[i] != 0 && (i == 0 || data[i - 1] == 0)) entries[n++] = data + i;
    }
    return n;
}

bool versionAtLeast(unsigned long wantMajor, unsigned long wantMinor) {
    unsigned long platform = 0, major = 0, minor = 0;
    if (!regsys::windowsVersion(&platform, &major, &minor) || platform != 2) return false;
    return major > wantMajor || (major == wantMajor && minor >= wantMinor);
}

#if VELMORA_HAVE_JNI
// A String[] of the entries. An entry is copied only up to the end of the data, so a
// multi-string without its last terminator still cannot be read past.
jobjectArray javaStrings(JNIEnv* env, char** entries, int count, const char* end) {
    jclass stringClass = env->FindClass("java/lang/String");
    if (stringClass == nullptr) return nullptr;
    jobjectArray array = env->NewObjectArray(count, stringClass, nullptr);
    env->DeleteLocalRef(stringClass);
    if (array == nullptr) return nullptr;
    for (int i = 0; i < count; ++i) {
        // Registry text is in the system's code page, not the modified UTF-8 that
        // NewStringUTF expects: it is made into UTF-16 first, so "é" (0xE9) stays "é".
        const std::u16string text = regsys::codePageToUtf16(
            entries[i], strnlen(entries[i], static_cast<size_t>(end - entries[i])));
        jstring s = env->NewString(reinterpret_cast<const jchar*>(text.data()),
                                   static_cast<jsize>(text.size()));
        if (s == nullptr) return nullptr;  // the pending OutOfMemoryError tells the caller
        env->SetObjectArrayElement(array, i, s);
        env->DeleteLocalRef(s);
    }
    return array;
}
#endif

}  // namespace

RegKey RegUtil::getKey(ErrorHandler* err, RegKey root, const char* const* path, int count,
                       unsigned long access) {
    long status = 0;
    return openPath(err, root, path, count, access, &status);
}

void RegUtil::closeKey(RegKey key) {
    if (key != nullptr) regsys::closeKey(key);
}

long RegUtil::getKeyValue(ErrorHandler* err, RegKey root, const char* const* path, int count,
                          const char* name, unsigned long* type, unsigned char* data,
                          unsigned long* size) {
    long status = 0;
    const unsigned long capacity = size != nullptr ? *size : 0;
    RegKey key = openPath(err, root, path, count, kRead, &status);
    if (key == nullptr) {
        emptyText(data, capacity);
        return status != regsys::kSuccess ? status : regsys::kNotFound;
    }
    unsigned long kind = 0;
    status = regsys::queryValue(key, name, &kind, data, size);
    if (type != nullptr) *type = kind;
    if (status != regsys::kSuccess) {
        if (status != regsys::kNotFound) {
            SystemErrorFactory::error(err, static_cast<unsigned long>(status));
        }
        emptyText(data, capacity);
    } else if (size != nullptr) {
        terminateText(kind, data, *size, capacity);
    }
    regsys::closeKey(key);
    return status;
}

long RegUtil::setKeyValue(ErrorHandler* err, RegKey root, const char* const* path, int count,
                          const char* name, const unsigned char* data, unsigned long size) {
    return writeExisting(err, root, path, count, name, data, size, nullptr);
}

long RegUtil::setKeyValue(ErrorHandler* err, RegKey root, const char* const* path, int count,
                          const char* name, const char* text) {
    return writeExisting(err, root, path, count, name, nullptr, 0, text != nullptr ? text : "");
}

void RegUtil::parseDelimited(char* buffer, int size, char** entries, int* count,
                             const char* delimiters) {
    const int capacity = *count;
    *count = 0;
    if (buffer == nullptr || size <= 0) return;
    // The text ends at its terminator or at the end of the buffer, whichever comes first;
    // a buffer with no terminator loses its last byte to one rather than be read past.
    size_t len = strnlen(buffer, static_cast<size_t>(size));
    if (len == static_cast<size_t>(size)) buffer[--len] = 0;
    int n = 0;
    size_t i = 0;
    while (i < len) {
        while (i < len && std::strchr(delimiters, buffer[i]) != nullptr)
            ++i;
        if (i == len) break;
        char* entry = buffer + i;
        while (i < len && std::strchr(delimiters, buffer[i]) == nullptr)
            ++i;
        if (i < len) buffer[i++] = 0;
        // Kept: the entry found at the capacity still lands in entries[capacity].
        entries[n] = entry;
        if (n >= capacity) break;
        ++n;
    }
    *count = n;
}

void RegUtil::parseRegMultiSz(char* data, int size, char** entries, int* count) {
    *count = data != nullptr ? splitMultiSz(data, size, entries, size) : 0;
}

void RegUtil::printKey(const char* const* path, int count) {
    for (int i = 0; i < count; ++i)
        std::printf("%s:", path[i]);
    std::printf("\n");
    std::fflush(stdout);
}

#if VELMORA_HAVE_JNI

jobjectArray RegUtil::delimitedToJobjectArray(JNIEnv* env, char* buffer, int size,
                                              const char* delimiters) {
    // The capacity plus the one slot that the split may still fill.
    char* entries[kJavaEntries + 1];
    int count = kJavaEntries;
    parseDelimited(buffer, size, entries, &count, delimiters);
    return javaStrings(env, entries, count, buffer + (size > 0 ? size : 0));
}

jobjectArray RegUtil::regMultiSzToJobjectArray(JNIEnv* env, char* data, int size) {
    char* entries[kJavaEntries];
    const int count = data != nullptr ? splitMultiSz(data, size, entries, kJavaEntries) : 0;
    return javaStrings(env, entries, count, data + (size > 0 ? size : 0));
}

#else

// Built without the Java headers: there is no virtual machine to make arrays in.
jobjectArray RegUtil::delimitedToJobjectArray(JNIEnv*, char*, int, const char*) {
    return nullptr;
}

jobjectArray RegUtil::regMultiSzToJobjectArray(JNIEnv*, char*, int) {
    return nullptr;
}

#endif

int RegUtil::isWin2k() {
    return versionAtLeast(5, 0) ? 1 : 0;
}

int RegUtil::isWinXP() {
    return versionAtLeast(5, 1) ? 1 : 0;
}

int RegUtil::isWinXPSP1() {
    unsigned long platform = 0, major = 0, minor = 0;
    if (!regsys::windowsVersion(&platform, &major, &minor) || platform != 2) return 0;
    if (major > 5) return 1;
    // Kept: build 2600 itself passes, so every XP build counts.
    return major == 5 && minor >= 1 && BuildNumberSource::read() >= 2600 ? 1 : 0;
}

int RegUtil::isWinVista() {
    return versionAtLeast(6, 0) ? 1 : 0;
}

int RegUtil::isWin7() {
    return versionAtLeast(6, 1) ? 1 : 0;
}

int RegUtil::isWin8() {
    return versionAtLeast(6, 2) ? 1 : 0;
}

void BuildNumberSource::redirect(RegKey root, const char* const* path, int count) {
    buildRoot = root;
    buildPath = path;
    buildCount = count;
}

void BuildNumberSource::reset() {
    buildPath = nullptr;
}

int BuildNumberSource::read() {
    const bool redirected = buildPath != nullptr;
    char text[32] = {};
    unsigned long type = 0;
    unsigned long size = sizeof text - 1;  // the last byte stays a terminator
    // No error handler: a failed read is silent and leaves the build at 0.
    RegUtil::getKeyValue(nullptr, redirected ? buildRoot : regsys::localMachine(),
                         redirected ? buildPath : kCurrentVersion, redirected ? buildCount : 4,
                         "CurrentBuildNumber", &type, reinterpret_cast<unsigned char*>(text),
                         &size);
    int build = 0;
    if (std::sscanf(text, "%d", &build) != 1) build = 0;
    return build;
}

}  // namespace velmora
