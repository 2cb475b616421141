# The settings documents are also read back by expat, natively.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(EXPAT REQUIRED)
    target_link_libraries(${exe} PRIVATE EXPAT::EXPAT)
    target_compile_definitions(${exe} PRIVATE VELMORA_TEST_EXPAT)
endif()
# The Windows settings tests reach the back-end seams in src/tcpip/win32/ and ask IP Helper
# themselves to compare with what the library reports.
target_include_directories(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/src)
if(WIN32)
    target_link_libraries(${exe} PRIVATE iphlpapi ws2_32 advapi32)
endif()
# The real back ends again under older Windows versions that Wine pretends to be.
find_program(VELMORA_PYTHON3 NAMES python3)
if(CMAKE_CROSSCOMPILING AND WIN32 AND VELMORA_PYTHON3)
    add_test(NAME tcpip.realBackEndsUnderOlderWindows
        COMMAND ${VELMORA_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/tcpip/wine_versions.py
            --launcher ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${exe}>)
    set_tests_properties(tcpip.realBackEndsUnderOlderWindows PROPERTIES TIMEOUT 600)
endif()
# A program that only exits with 42: the command runner must never start it from the
# current directory or PATH in place of a system tool.
if(WIN32)
    add_executable(velmora_exit_probe ${CMAKE_CURRENT_SOURCE_DIR}/tcpip/probe/exit_probe.cpp)
    add_dependencies(${exe} velmora_exit_probe)
endif()
