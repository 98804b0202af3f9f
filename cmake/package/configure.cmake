# cmake -DVERSION=... -DARCH=x64|arm64 -DSOURCE=... -DDESTINATION=... -P configure.cmake: writes the files that
# find_package reads.
include(CMakePackageConfigHelpers)
# Both processors that the library is built for have pointers of this size.
set(CMAKE_SIZEOF_VOID_P 8)
foreach(_file Config ConfigVersion)
  configure_file(${SOURCE}/vexelsdk${_file}.cmake.in ${DESTINATION}/vexelsdk${_file}.cmake @ONLY)
endforeach()
write_basic_package_version_file(${DESTINATION}/vexelsdkVersion.cmake VERSION ${VERSION} COMPATIBILITY SameMajorVersion)
