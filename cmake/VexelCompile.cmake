# A sanitizer reaches everything that is linked together, GoogleTest included. Its checks mislead the compiler's analysis
# of null and unset values, whose findings count in the plain build.
set(VEXELSDK_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them; for Windows only undefined")
if(VEXELSDK_SANITIZE AND WIN32)
  # No runtime library of the sanitizers is there: a breach ends the process at once, and the test with it.
  add_compile_options(-fsanitize=${VEXELSDK_SANITIZE} $<$<CXX_COMPILER_ID:Clang>:-fsanitize-trap=all>
                      $<$<CXX_COMPILER_ID:GNU>:-fsanitize-undefined-trap-on-error>)
elseif(VEXELSDK_SANITIZE)
  # Objects of the pipe library come from another compiler: their tables carry no type that could be checked.
  add_compile_options(-fsanitize=${VEXELSDK_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VEXELSDK_SANITIZE})
endif()
option(VEXELSDK_FUZZERS "Build the fuzzers, which needs clang; for the native build" OFF)
if(VEXELSDK_FUZZERS)
  if(WIN32 OR NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VEXELSDK_FUZZERS needs clang and the native build")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
option(VEXELSDK_COVERAGE "Count which lines and branches run; for the native build with GCC" OFF)

# One place for what every target of this project is compiled and linked with: link to vexel_compile.
add_library(vexel_compile INTERFACE)
target_include_directories(vexel_compile INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(vexel_compile INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wcast-align -Wformat=2 -Werror
  # GCC 12 sees overlaps in std::string's own code that are not there.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # No folder of the build machine in a product, and the same bytes from any folder. A coverage report finds its sources
  # by these names.
  $<$<NOT:$<BOOL:${VEXELSDK_COVERAGE}>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>)
if(VEXELSDK_SANITIZE)
  target_compile_options(vexel_compile INTERFACE
    -Wno-null-dereference $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
if(VEXELSDK_COVERAGE)
  # Threads count the same lines: plain counters would lose some of them.
  target_compile_options(vexel_compile INTERFACE --coverage -fprofile-update=atomic -fprofile-abs-path)
  target_link_options(vexel_compile INTERFACE --coverage)
endif()
if(WIN32)
  target_compile_definitions(vexel_compile INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00 WINVER=0x0A00)
  # The runtime goes in: a product needs nothing beside the system's own DLLs.
  target_link_options(vexel_compile INTERFACE -static $<$<CONFIG:Release>:-s>
    -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # The symbols go into a PDB beside each binary, which itself carries none. The binary names the PDB's content, so the
    # PDB too holds no folder of the build machine: the compiler's wrapper takes the sysroot by this link.
    file(CREATE_LINK ${VEXEL_SYSROOT} ${CMAKE_BINARY_DIR}/sysroot SYMBOLIC)
    target_compile_options(vexel_compile INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:-g -gcodeview
      -gno-codeview-command-line -ffile-compilation-dir=.>)
    target_link_options(vexel_compile INTERFACE -Wl,--pdb= -Wl,-Xlink=-pdbaltpath:%_PDB% -Wl,-Xlink=-pdbsourcepath:.)
  endif()
endif()

# vexel_add_exports(TARGET FILE): what a DLL exports. The linker gets a copy in the build folder, by its relative name: a
# PDB keeps the linker's command line, and with it every folder that is named there.
function(vexel_add_exports target file)
  configure_file(${file} ${CMAKE_CURRENT_BINARY_DIR}/${file} COPYONLY)
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${file})
endfunction()
