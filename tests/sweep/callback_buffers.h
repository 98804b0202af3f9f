#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The buffers that the library makes for the browser's callbacks. It takes them from malloc, and nothing else that is
// linked in does, so counting there sees each of them, also those that no callback gets.
namespace buffers {

/// Buffers made and freed since the program began.
std::size_t Made();
std::size_t Freed();

/// Whether an address is such a buffer, not freed yet.
bool IsLive(const void* buffer);

/// The buffers that live now, and their texts. No thread of the library may be making one.
std::vector<const char*> Live();
std::vector<std::string> LiveTexts();

/// Those that live and that no earlier call gave, in the order of their making.
std::vector<const char*> TakeFresh();

/// Frees all that live, which nobody else holds any more. They don't count as freed.
void DropLive();

} // namespace buffers
