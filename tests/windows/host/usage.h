#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

// What this process holds on to. Counted by walking through it: not every system keeps counters.
namespace testhost {

struct Usage {
  std::uint64_t heapBytes = 0;        // handed out by all heaps
  std::uint64_t heapBlocks = 0;       // handed out by all heaps
  std::uint64_t privateBytes = 0;     // committed and this process's own
  std::size_t threads = 0;            // that run
  std::map<std::string, int> handles; // how many are open, by the type of their object
};

Usage MeasureUsage();

/// Closes the handles of this process that were opened to look at a process which has ended by now, if they were there
/// at the last call too, and gives how many that were. For one thread. Some systems go on listing a dead process for as long as a handle to it is open anywhere.
std::size_t CloseHandlesToTheDead();

} // namespace testhost
