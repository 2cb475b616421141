# Installs headers, both libraries, a CMake package (find_package(VelmoraCommon), target
# velmora::common) and, off Windows, a pkg-config file. Components, one per Debian package:
# "runtime" the shared libraries, "dev" what building against them needs.
include(CMakePackageConfigHelpers)
set(velmora_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VelmoraCommon)

install(TARGETS velmora_common velmora_vre EXPORT VelmoraCommonTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY include/velmora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(EXPORT VelmoraCommonTargets NAMESPACE velmora:: DESTINATION ${velmora_cmake_dir}
    COMPONENT dev)

configure_package_config_file(cmake/VelmoraCommonConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VelmoraCommonConfig.cmake INSTALL_DESTINATION ${velmora_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmoraCommonConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmoraCommonConfig.cmake
    ${PROJECT_BINARY_DIR}/VelmoraCommonConfigVersion.cmake DESTINATION ${velmora_cmake_dir}
    COMPONENT dev)

if(NOT WIN32)
    # Relocatable by default: the prefix is found from where the .pc file lies, so that a
    # tree installed anywhere works. A distribution package states its prefix instead, so
    # that pkg-config prints the plain system directories (and leaves them out of flags).
    option(VELMORA_PC_RELOCATABLE "pkg-config file finds its prefix from where it lies" ON)
    if(VELMORA_PC_RELOCATABLE)
        file(RELATIVE_PATH velmora_pc_up /r/${CMAKE_INSTALL_LIBDIR}/pkgconfig /r)
        set(velmora_pc_prefix "\${pcfiledir}/${velmora_pc_up}")
    else()
        set(velmora_pc_prefix ${CMAKE_INSTALL_PREFIX})
    endif()
    configure_file(cmake/velmora-common.pc.in ${PROJECT_BINARY_DIR}/velmora-common.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/velmora-common.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endif()
