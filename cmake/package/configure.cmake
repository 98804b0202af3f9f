# cmake -DVERSION=... -DSOURCE=... -DDESTINATION=... -P configure.cmake: writes the files that find_package reads.
include(CMakePackageConfigHelpers)
# Both processors that the library is built for have pointers of this size.
set(CMAKE_SIZEOF_VOID_P 8)
configure_file(${SOURCE}/vexelsdkConfig.cmake.in ${DESTINATION}/vexelsdkConfig.cmake @ONLY)
write_basic_package_version_file(${DESTINATION}/vexelsdkConfigVersion.cmake
                                 VERSION ${VERSION} COMPATIBILITY SameMajorVersion)
