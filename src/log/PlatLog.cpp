#include <velmora/log/PlatLog.h>

#include <cstdarg>
#include <cstdio>

#include "log/Jni.h"
#include "log/LogSystem.h"

#if VELMORA_HAVE_JNI

namespace {

// Filled on first use and kept for the process. No lock: two threads racing here find the
// same class and methods, so either result is right.
jclass logClass = nullptr;
jmethodID getLogMethod = nullptr;
jmethodID logMethod = nullptr;

// The calling thread's environment in the process's virtual machine, or null when no
// machine is loaded or the thread is not attached to it.
JNIEnv* attachedEnv() {
    velmora::logsys::GetCreatedJavaVMsFn getVms = velmora::logsys::findGetCreatedJavaVMs();
    if (getVms == nullptr) return nullptr;
    void* vm = nullptr;
    int count = 0;
    if (getVms(&vm, 1, &count) != JNI_OK || count < 1 || vm == nullptr) return nullptr;
    void* env = nullptr;
    if (static_cast<JavaVM*>(vm)->GetEnv(&env, JNI_VERSION_1_2) != JNI_OK) return nullptr;
    return static_cast<JNIEnv*>(env);
}

bool lookUp(JNIEnv* env) {
    if (logClass == nullptr) {
        jclass local = env->FindClass("javax/kova/log/Log");
        if (local == nullptr) return false;
        logClass = static_cast<jclass>(env->NewGlobalRef(local));
        if (logClass == nullptr) return false;
    }
    if (getLogMethod == nullptr) {
        getLogMethod =
            env->GetStaticMethodID(logClass, "getLog", "(Ljava/lang/String;)Ljavax/kova/log/Log;");
        if (getLogMethod == nullptr) return false;
    }
    if (logMethod == nullptr) {
        logMethod =
            env->GetMethodID(logClass, "log", "(ILjava/lang/String;Ljava/lang/Throwable;)V");
        if (logMethod == nullptr) return false;
    }
    return true;
}

// Logs through the Java side; the caller's pending exception, if any, was set aside.
void logLine(JNIEnv* env, const char* logName, int level, const char* message) {
    jstring text = message != nullptr ? env->NewStringUTF(message) : nullptr;
    if (!lookUp(env) || env->ExceptionCheck()) {
        // A missing class or method: say why on the error stream, as for getLog below.
        if (env->ExceptionCheck()) env->ExceptionDescribe();
        return;
    }
    jvalue nameArg;
    nameArg.l = env->NewStringUTF(logName);
    jobject log = env->CallStaticObjectMethodA(logClass, getLogMethod, &nameArg);
    if (env->ExceptionCheck()) {
        // Described (which also clears it) and swallowed: logging must not throw.
        env->ExceptionDescribe();
        return;
    }
    if (log == nullptr) return;
    jvalue args[3];
    args[0].i = level;
    args[1].l = text;
    args[2].l = nullptr;
    // An exception thrown by log itself stays pending for the calling Java code.
    env->CallVoidMethodA(log, logMethod, args);
}

}  // namespace

extern "C" void platLog(JNIEnv* env, const char* logName, int level, const char* message) {
    if (env == nullptr) env = attachedEnv();
    if (env == nullptr || logName == nullptr) return;
    // No Java call may be made while an exception is pending, yet the caller's exception
    // must reach its Java code: it is set aside for the line and thrown again afterwards,
    // taking precedence over anything the logging itself threw.
    jthrowable pending = env->ExceptionOccurred();
    if (pending != nullptr) env->ExceptionClear();
    logLine(env, logName, level, message);
    if (pending != nullptr) {
        if (env->ExceptionCheck()) env->ExceptionDescribe();
        env->Throw(pending);
        env->DeleteLocalRef(pending);
    }
}

#else

// Built without the Java headers: the line goes to standard error instead.
extern "C" void platLog(JNIEnv*, const char* logName, int level, const char* message) {
    std::fprintf(stderr, "%s [%d] %s\n", logName != nullptr ? logName : "", level,
                 message != nullptr ? message : "");
}

#endif

extern "C" void platLogf(JNIEnv* env, const char* logName, int level, const char* format, ...) {
    char buffer[32768] = {};
    if (format != nullptr) {
        // Bounded: a longer text is cut rather than written past the buffer.
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
    }
    platLog(env, logName, level, buffer);
}
