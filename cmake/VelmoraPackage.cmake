# CPack: three Debian packages from the install components, or one ZIP of everything for
# the Windows cross build. scripts/package.sh drives both.
#   libvelmora-common0      "runtime": the two shared libraries
#   libvelmora-common-dev   "dev": headers, import links, CMake package, pkg-config file
#   velmorad                "daemon": the daemon, its service unit, its default settings
set(CPACK_PACKAGE_NAME velmora-common)
set(CPACK_PACKAGE_VENDOR "Velmora")
set(CPACK_PACKAGE_CONTACT "Velmora platform developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-win64)
    set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
    include(CPack)
    return()
endif()

set(velmora_runtime_package libvelmora-common${PROJECT_VERSION_MAJOR})
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
if(VELMORA_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL daemon)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Dependencies on system libraries come from dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${velmora_runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Velmora platform common library
The native utility library of the Velmora platform (libvelmora-common) and the runtime \
core it stands on (libvelmora-vre).")
# A shlibs file in every package with shared libraries (only this one), so that
# dpkg-shlibdeps knows for programs built against them which package they need.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvelmora-common-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "Velmora platform common library: development files
Headers, the CMake package (find_package(VelmoraCommon), target velmora::common) and the \
pkg-config file (velmora-common) of the Velmora platform common library.")
# Headers and libraries must come from the same build.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${velmora_runtime_package} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME velmorad)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DAEMON_DESCRIPTION "Velmora platform daemon
Serves the Velmora platform's HTTP interface: status, ping, log levels and the host's \
network settings. Comes with a systemd unit (velmorad.service, not enabled on install) \
and its settings in /etc/velmorad/velmorad.properties, a conffile.")
set(VELMORAD_CONFIG ${CMAKE_INSTALL_FULL_SYSCONFDIR}/velmorad/velmorad.properties)
configure_file(${PROJECT_SOURCE_DIR}/packaging/deb/conffiles.in
    ${PROJECT_BINARY_DIR}/packaging/daemon/conffiles @ONLY)
foreach(script postinst prerm postrm)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/deb/velmorad.${script}
        ${PROJECT_BINARY_DIR}/packaging/daemon/${script} COPYONLY)
endforeach()
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packaging/daemon/conffiles
    ${PROJECT_BINARY_DIR}/packaging/daemon/postinst ${PROJECT_BINARY_DIR}/packaging/daemon/prerm
    ${PROJECT_BINARY_DIR}/packaging/daemon/postrm)

# velmorad needs this project's own libraries, which are not installed while it is packaged:
# dpkg-shlibdeps finds them in the build tree and learns from a shlibs.local file, written
# into the daemon's staging area before packaging, which package provides them (the same
# lines that the runtime package's shlibs file carries).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(velmora_shlibs "")
foreach(lib velmora-common velmora-vre)
    string(APPEND velmora_shlibs
        "lib${lib} ${PROJECT_VERSION_MAJOR} ${velmora_runtime_package} (= ${PROJECT_VERSION})\n")
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/packaging/deb/ShlibsLocal.cmake.in
    ${PROJECT_BINARY_DIR}/packaging/ShlibsLocal.cmake @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_BINARY_DIR}/packaging/ShlibsLocal.cmake)

include(CPack)
