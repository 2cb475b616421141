# The registry tests reach the build-number seam of the version predicates.
target_include_directories(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/src)
if(WIN32)
    target_link_libraries(${exe} PRIVATE advapi32)
endif()
# The version predicates under several Windows versions: a probe program run by a script
# under per-program Wine version settings (Windows cross build only).
find_program(VELMORA_PYTHON3 NAMES python3)
if(CMAKE_CROSSCOMPILING AND WIN32 AND VELMORA_PYTHON3)
    add_executable(velmora_version_probe ${CMAKE_CURRENT_SOURCE_DIR}/platform/probe/version_probe.cpp)
    target_include_directories(velmora_version_probe PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(velmora_version_probe PRIVATE velmora::common advapi32)
    velmora_warnings(velmora_version_probe)
    add_test(NAME platform.versionPredicatesUnderWineVersions
        COMMAND ${VELMORA_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/platform/version_probe.py
            --launcher ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:velmora_version_probe>)
    set_tests_properties(platform.versionPredicatesUnderWineVersions PROPERTIES TIMEOUT 300)
endif()
# The Java arrays made in a real Java virtual machine (native builds with a JDK only; the
# Java run cannot load sanitizer-built libraries).
if(NOT CMAKE_CROSSCOMPILING AND NOT VELMORA_SANITIZE AND VELMORA_JAVA_HOME
        AND EXISTS "${VELMORA_JAVA_HOME}/bin/javac")
    set(reg_jvm_src ${CMAKE_CURRENT_SOURCE_DIR}/platform/jvm)
    set(reg_jvm_classes ${CMAKE_CURRENT_BINARY_DIR}/jvm-classes-platform)
    set(reg_jvm_java ${reg_jvm_src}/velmoratest/RegArraysCheck.java)
    add_custom_command(OUTPUT ${reg_jvm_classes}/velmoratest/RegArraysCheck.class
        COMMAND "${VELMORA_JAVA_HOME}/bin/javac" -d ${reg_jvm_classes} ${reg_jvm_java}
        DEPENDS ${reg_jvm_java} COMMENT "Compiling the Java side of the registry array check")
    add_custom_target(velmora_regarrays_classes ALL
        DEPENDS ${reg_jvm_classes}/velmoratest/RegArraysCheck.class)
    add_library(velmora_regarrays_probe MODULE ${reg_jvm_src}/regarrays_probe.cpp)
    target_include_directories(velmora_regarrays_probe PRIVATE ${VELMORA_JNI_INCLUDE_DIRS})
    target_link_libraries(velmora_regarrays_probe PRIVATE velmora::common)
    velmora_warnings(velmora_regarrays_probe)
    add_test(NAME platform.jvm.RegistryArraysReachJava
        COMMAND "${VELMORA_JAVA_HOME}/bin/java" -cp ${reg_jvm_classes} velmoratest.RegArraysCheck
            $<TARGET_FILE:velmora_regarrays_probe>)
    set_tests_properties(platform.jvm.RegistryArraysReachJava PROPERTIES TIMEOUT 120)
endif()
