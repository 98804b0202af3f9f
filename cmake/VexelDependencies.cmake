# What is called and not written here: the JSON library, and GoogleTest for the tests.
if(NOT EXISTS ${VEXELSDK_JSON_INCLUDE_DIR}/nlohmann/json.hpp)
  message(FATAL_ERROR "nlohmann/json.hpp is not in ${VEXELSDK_JSON_INCLUDE_DIR}: run './dev build', or set "
                      "VEXELSDK_JSON_INCLUDE_DIR to the include folder of version 3.9.1")
endif()
file(STRINGS ${VEXELSDK_JSON_INCLUDE_DIR}/nlohmann/json.hpp _version REGEX "#define NLOHMANN_JSON_VERSION_(MAJOR|MINOR|PATCH)")
string(REGEX REPLACE "[^0-9;]" "" _version "${_version}")
if(NOT _version STREQUAL "3;9;1")
  message(FATAL_ERROR "nlohmann/json.hpp must be version 3.9.1, found ${_version}")
endif()
add_library(vexel_json INTERFACE)
target_include_directories(vexel_json SYSTEM INTERFACE ${VEXELSDK_JSON_INCLUDE_DIR})

if(VEXELSDK_TESTS)
  if(NOT EXISTS ${VEXELSDK_GTEST_DIR}/CMakeLists.txt)
    message(FATAL_ERROR "GoogleTest's sources are not in ${VEXELSDK_GTEST_DIR}: install the package googletest, or "
                        "set VEXELSDK_GTEST_DIR")
  endif()
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(BUILD_SHARED_LIBS OFF CACHE BOOL "" FORCE)
  add_subdirectory(${VEXELSDK_GTEST_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  include(GoogleTest)
endif()
