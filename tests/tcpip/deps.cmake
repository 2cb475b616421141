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
