// Logging into the Java side of the hosting virtual machine: one line goes to
// javax.kova.log.Log.getLog(logName).log(level, message, null). Call them from a native
// method (its frame releases the local references made here) or from a thread attached
// to the virtual machine.
//
//   JNIEXPORT void JNICALL Java_x_Y_run(JNIEnv* env, jclass) {
//       platLogf(env, "daemon", 1, "started on port %d", 8080);
//   }
//
// A Java exception thrown by getLog is described on the error stream and cleared, and
// nothing is logged; one thrown by log stays pending for the calling Java code. An
// exception the caller left pending is kept pending, and the line is logged all the same
// (an exception of the logging itself is then described and dropped). A null
// env means the calling thread's environment in the process's virtual machine, when the
// thread is attached to one (otherwise nothing happens).
#pragma once

#include <velmora/Export.h>

#ifdef __cplusplus
struct JNIEnv_;
typedef JNIEnv_ JNIEnv;
extern "C" {
#else
typedef const struct JNINativeInterface_* JNIEnv;
#endif

VELMORA_API void platLog(JNIEnv* env, const char* logName, int level, const char* message);
// Formats into a 32768-byte buffer (longer texts are cut) and calls platLog.
VELMORA_API void platLogf(JNIEnv* env, const char* logName, int level, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

#ifdef __cplusplus
}
#endif
