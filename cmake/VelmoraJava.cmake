# Finds the Java headers that platLog is compiled against: JAVA_HOME, else the system's
# default JDK. Sets VELMORA_JAVA_HOME (empty when there is none) and
# VELMORA_JNI_INCLUDE_DIRS. A Windows cross build uses the host's JDK headers: the JNI
# types and calls are the same on 64-bit Windows.
set(VELMORA_JAVA_HOME "")
foreach(home "$ENV{JAVA_HOME}" /usr/lib/jvm/default-java)
    if(home AND EXISTS "${home}/include/jni.h")
        set(VELMORA_JAVA_HOME "${home}")
        break()
    endif()
endforeach()
set(VELMORA_JNI_INCLUDE_DIRS "")
if(VELMORA_JAVA_HOME)
    file(GLOB velmora_jni_md "${VELMORA_JAVA_HOME}/include/*/jni_md.h")
    list(GET velmora_jni_md 0 velmora_jni_md)
    get_filename_component(velmora_jni_md_dir "${velmora_jni_md}" DIRECTORY)
    set(VELMORA_JNI_INCLUDE_DIRS "${VELMORA_JAVA_HOME}/include" "${velmora_jni_md_dir}")
else()
    message(STATUS "No JDK headers found: platLog writes to standard error")
endif()
