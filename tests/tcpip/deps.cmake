# The settings documents are also read back by expat, natively.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(EXPAT REQUIRED)
    target_link_libraries(${exe} PRIVATE EXPAT::EXPAT)
    target_compile_definitions(${exe} PRIVATE VELMORA_TEST_EXPAT)
endif()
