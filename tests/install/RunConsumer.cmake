# Script mode: install, then build and run the consumer both ways.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# find_package
if(TOOLCHAIN)
    run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build -G ${GENERATOR}
        -DVelmoraCommon_DIR=${prefix}/lib/cmake/VelmoraCommon -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}
        -DCMAKE_EXE_LINKER_FLAGS=-static)
    run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
    file(GLOB dlls ${prefix}/bin/*.dll)
    file(COPY ${dlls} DESTINATION ${WORK_DIR}/cmake-build)
    run(${EMULATOR} ${WORK_DIR}/cmake-build/consumer.exe)
else()
    run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build -G ${GENERATOR}
        -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX})
    run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
    run(${WORK_DIR}/cmake-build/consumer)
endif()
if(NOT last_output MATCHES "consumer ok")
    message(FATAL_ERROR "consumer printed: ${last_output}")
endif()
if(TOOLCHAIN)
    return()
endif()

# pkg-config, with the installed tree moved elsewhere: the .pc file must be relocatable.
file(RENAME ${prefix} ${WORK_DIR}/moved)
file(GLOB_RECURSE pc_files ${WORK_DIR}/moved/*/velmora-common.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run(pkg-config --cflags --libs velmora-common)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
string(REGEX MATCH "-L[^ ;]+" libdir "${flags}")
string(SUBSTRING "${libdir}" 2 -1 libdir)
run(${CXX} -std=c++17 ${CONSUMER_DIR}/main.cpp ${flags} -pthread -o ${WORK_DIR}/pc-consumer)
set(ENV{LD_LIBRARY_PATH} ${libdir})
run(${WORK_DIR}/pc-consumer)
if(NOT last_output MATCHES "consumer ok")
    message(FATAL_ERROR "pkg-config consumer printed: ${last_output}")
endif()
