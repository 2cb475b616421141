# Installs headers, both libraries, a CMake package (find_package(VelmoraCommon), target
# velmora::common) and, off Windows, a pkg-config file.
include(CMakePackageConfigHelpers)
set(velmora_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VelmoraCommon)

install(TARGETS velmora_common velmora_vre EXPORT VelmoraCommonTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/velmora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT VelmoraCommonTargets NAMESPACE velmora:: DESTINATION ${velmora_cmake_dir})

configure_package_config_file(cmake/VelmoraCommonConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VelmoraCommonConfig.cmake INSTALL_DESTINATION ${velmora_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmoraCommonConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmoraCommonConfig.cmake
    ${PROJECT_BINARY_DIR}/VelmoraCommonConfigVersion.cmake DESTINATION ${velmora_cmake_dir})

if(NOT WIN32)
    # Relocatable: the prefix is found from where the .pc file lies.
    file(RELATIVE_PATH velmora_pc_up /r/${CMAKE_INSTALL_LIBDIR}/pkgconfig /r)
    configure_file(cmake/velmora-common.pc.in ${PROJECT_BINARY_DIR}/velmora-common.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/velmora-common.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
