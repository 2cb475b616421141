# The writer's output is checked against expat, a parser written elsewhere; expat is
# linked only in the native build.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(EXPAT REQUIRED)
    target_sources(${exe} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/xml/interop/ExpatInteropTest.cpp)
    target_link_libraries(${exe} PRIVATE EXPAT::EXPAT)
endif()
