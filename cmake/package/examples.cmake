# The example host and the example editors, built against this package alone:
#   cmake -S examples -B build-examples -DCMAKE_BUILD_TYPE=Release
# All programs and the DLLs that they need end up in build-examples/bin.
cmake_minimum_required(VERSION 3.20)
project(vexelsdk_examples LANGUAGES C CXX RC)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

find_package(vexelsdk REQUIRED CONFIG PATHS ${CMAKE_CURRENT_LIST_DIR}/.. NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)

add_library(vexel_compile INTERFACE)
target_include_directories(vexel_compile INTERFACE ${CMAKE_CURRENT_LIST_DIR}/.. ${CMAKE_CURRENT_LIST_DIR}/../include)
target_compile_definitions(vexel_compile INTERFACE
  UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00 WINVER=0x0A00)
if(MINGW)
  target_link_options(vexel_compile INTERFACE -static)
endif()
add_library(vexel_json INTERFACE)
target_include_directories(vexel_json SYSTEM INTERFACE ${CMAKE_CURRENT_LIST_DIR}/third_party)

# The libraries come ready: to build them is to put them beside the programs.
foreach(_library vexelsdk vpipearm64)
  set(_target ${_library})
  if(_library STREQUAL vpipearm64)
    set(_target vpipe)
  endif()
  add_custom_target(${_target}
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${VEXELSDK_BIN_DIR}/${_library}.dll ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endforeach()
file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})

foreach(_part "" _MAJOR _MINOR _PATCH)
  set(PROJECT_VERSION${_part} ${vexelsdk_VERSION${_part}})
endforeach()
include(${CMAKE_CURRENT_LIST_DIR}/cmake/VexelVersion.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/programs.cmake)
