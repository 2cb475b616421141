// The native side of the platLog check: each method hands its Java arguments to the
// library's exported logging functions.
#include <jni.h>
#include <velmora/log/PlatLog.h>

#include <string>

namespace {

std::string text(JNIEnv* env, jstring s) {
    const char* chars = env->GetStringUTFChars(s, nullptr);
    std::string copy(chars);
    env->ReleaseStringUTFChars(s, chars);
    return copy;
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_velmoratest_PlatLogCheck_log(JNIEnv* env, jclass, jstring name,
                                                         jint level, jstring message) {
    platLog(env, text(env, name).c_str(), level, text(env, message).c_str());
}

JNIEXPORT void JNICALL Java_velmoratest_PlatLogCheck_logFormatted(JNIEnv* env, jclass, jstring name,
                                                                  jint level, jint number,
                                                                  jstring word) {
    platLogf(env, text(env, name).c_str(), level, "port %d on %s", number, text(env, word).c_str());
}

JNIEXPORT void JNICALL Java_velmoratest_PlatLogCheck_logWithoutEnv(JNIEnv* env, jclass,
                                                                   jstring name, jint level,
                                                                   jstring message) {
    platLog(nullptr, text(env, name).c_str(), level, text(env, message).c_str());
}

JNIEXPORT void JNICALL Java_velmoratest_PlatLogCheck_logWhileThrowing(JNIEnv* env, jclass,
                                                                      jstring name, jint level,
                                                                      jstring message) {
    std::string n = text(env, name), m = text(env, message);
    env->ThrowNew(env->FindClass("java/lang/IllegalArgumentException"), "the caller's own");
    platLog(env, n.c_str(), level, m.c_str());
}
}
