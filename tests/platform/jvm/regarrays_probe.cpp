// The native side of the Java array check: each method hands its Java arguments to the
// library's array makers.
#include <jni.h>
#include <velmora/platform/RegUtil.h>

#include <vector>

extern "C" {

JNIEXPORT jobjectArray JNICALL Java_velmoratest_RegArraysCheck_delimited(JNIEnv* env, jclass,
                                                                         jbyteArray text,
                                                                         jstring delimiters) {
    std::vector<char> buffer(static_cast<size_t>(env->GetArrayLength(text)) + 1, 0);
    env->GetByteArrayRegion(text, 0, env->GetArrayLength(text),
                            reinterpret_cast<jbyte*>(buffer.data()));
    const char* delims = env->GetStringUTFChars(delimiters, nullptr);
    jobjectArray result = velmora::RegUtil::delimitedToJobjectArray(
        env, buffer.data(), static_cast<int>(buffer.size()), delims);
    env->ReleaseStringUTFChars(delimiters, delims);
    return result;
}

JNIEXPORT jobjectArray JNICALL Java_velmoratest_RegArraysCheck_multiSz(JNIEnv* env, jclass,
                                                                       jbyteArray data) {
    std::vector<char> buffer(static_cast<size_t>(env->GetArrayLength(data)));
    env->GetByteArrayRegion(data, 0, env->GetArrayLength(data),
                            reinterpret_cast<jbyte*>(buffer.data()));
    return velmora::RegUtil::regMultiSzToJobjectArray(env, buffer.data(),
                                                      static_cast<int>(buffer.size()));
}
}
