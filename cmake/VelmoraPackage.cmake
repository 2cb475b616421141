# CPack makes the Windows archive (a ZIP of everything the cross build installs); the
# Debian packages come from debian/ (dpkg-buildpackage). scripts/package.sh drives both.
if(NOT WIN32)
    return()
endif()
set(CPACK_PACKAGE_NAME velmora-common)
set(CPACK_PACKAGE_VENDOR "Velmora")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-win64)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
include(CPack)
