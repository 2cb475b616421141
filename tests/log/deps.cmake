if(WIN32)
    target_link_libraries(${exe} PRIVATE ws2_32)
endif()
# The platLog check in a real Java virtual machine: a probe library of native methods,
# the Java classes it talks to, and a run that checks what the Java side received.
# Native builds with a JDK only (the Java run cannot load sanitizer-built libraries).
if(NOT CMAKE_CROSSCOMPILING AND NOT VELMORA_SANITIZE AND VELMORA_JAVA_HOME
        AND EXISTS "${VELMORA_JAVA_HOME}/bin/javac")
    set(jvm_src ${CMAKE_CURRENT_SOURCE_DIR}/log/jvm)
    set(jvm_classes ${CMAKE_CURRENT_BINARY_DIR}/jvm-classes)
    set(jvm_java ${jvm_src}/javax/kova/log/Log.java ${jvm_src}/velmoratest/PlatLogCheck.java)
    add_custom_command(OUTPUT ${jvm_classes}/velmoratest/PlatLogCheck.class
        COMMAND "${VELMORA_JAVA_HOME}/bin/javac" -d ${jvm_classes} ${jvm_java}
        DEPENDS ${jvm_java} COMMENT "Compiling the Java side of the platLog check")
    add_custom_target(velmora_platlog_classes ALL
        DEPENDS ${jvm_classes}/velmoratest/PlatLogCheck.class)
    add_library(velmora_platlog_probe MODULE ${jvm_src}/platlog_probe.cpp)
    target_include_directories(velmora_platlog_probe PRIVATE ${VELMORA_JNI_INCLUDE_DIRS})
    target_link_libraries(velmora_platlog_probe PRIVATE velmora::common)
    velmora_warnings(velmora_platlog_probe)
    add_test(NAME log.jvm.PlatLogReachesTheJavaLog
        COMMAND "${VELMORA_JAVA_HOME}/bin/java" -cp ${jvm_classes} velmoratest.PlatLogCheck
            $<TARGET_FILE:velmora_platlog_probe>)
    set_tests_properties(log.jvm.PlatLogReachesTheJavaLog PROPERTIES TIMEOUT 120)
endif()
# The XML form of bundles is also read back by expat, natively.
if(NOT CMAKE_CROSSCOMPILING)
    target_link_libraries(${exe} PRIVATE expat)
    target_compile_definitions(${exe} PRIVATE VELMORA_TEST_EXPAT)
endif()
