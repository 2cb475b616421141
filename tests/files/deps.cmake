# The write-filter tests load a management library of the project's own ("ewfapi.dll",
# Windows only) from a folder of its own, so that the other programs in bin/ still find
# no filter.
if(WIN32)
    add_library(velmora_fake_ewfapi SHARED ${CMAKE_CURRENT_SOURCE_DIR}/files/fake_ewfapi/FakeEwfApi.cpp)
    target_include_directories(velmora_fake_ewfapi PRIVATE ${PROJECT_SOURCE_DIR}/src)
    set_target_properties(velmora_fake_ewfapi PROPERTIES PREFIX "" OUTPUT_NAME ewfapi
        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/ewf-fake)
    velmora_warnings(velmora_fake_ewfapi)
    add_dependencies(${exe} velmora_fake_ewfapi)
endif()
