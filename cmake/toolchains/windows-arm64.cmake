set(VEXEL_SYSROOT_ARCH arm64)
include(${CMAKE_CURRENT_LIST_DIR}/windows-clang.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine-run-arm64)
