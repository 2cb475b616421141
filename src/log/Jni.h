// Internal: the Java Native Interface headers where the build found a JDK, with
// VELMORA_HAVE_JNI set to 1; without them the including code builds its fallback.
// The JDK's jni_md.h of a Linux JDK marks declarations with visibility attributes, which
// a Windows compiler warns about and ignores; the JNI types and calls are the same.
#pragma once

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wattributes"
#endif
#if __has_include(<jni.h>)
#include <jni.h>
#define VELMORA_HAVE_JNI 1
#endif
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
