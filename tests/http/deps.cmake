# The HTTP tests talk over loopback pairs made by the networking tests' helpers.
target_sources(${exe} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/net/NetTestSupport.cpp)
target_include_directories(${exe} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/net)
