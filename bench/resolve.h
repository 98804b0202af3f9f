#pragma once

#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

/// Ends the program with the last error: a benchmark goes on with everything or not at all.
[[noreturn]] inline void Fail(const char* what) {
  std::fprintf(stderr, "%s: error %lu\n", what, GetLastError());
  std::exit(1);
}

/// Finds a library's function by its name, or ends the program.
template <typename Function> void Resolve(HMODULE module, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  if (*function == nullptr) {
    Fail(name);
  }
}

} // namespace bench
