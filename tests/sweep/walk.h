#pragma once

#include <string>

/// The call of an operation that fails in a walk, and whether all behind it fail too.
struct Fault {
  std::string operation;
  int nth = 0; // 1 is the first; 0: none fails
  bool forever = false;
};

/// Goes through a whole life of the library in this process, with a fault in it, and looks at what it did, told and
/// left behind: start and preload, open, operate, an editor's events, a picture in place of another, a close, a crash,
/// an editor that can't be reached and is ended, teardown, and the same again with what the first engine left behind.
/// Empty, or what went wrong, or kUnstoppable where the fault takes the only brake or the stop signal of a thread away,
/// which on purpose nothing makes up for: such a walk opens and operates once more, and ends there, with threads that run
/// on. `*fired` tells whether the fault came about.
std::string Walk(const Fault& fault, bool* fired);

/// The names that a walk without a fault asks the libraries for, one on each line, in order.
std::string EntriesOfWalk();
