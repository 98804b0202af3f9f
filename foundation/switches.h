#pragma once

#include <cstdint>

// The browser's feature switches of the current user. The browser writes them, this library only reads. Any thread.
namespace vx {

/// Whether the switch "OpenPIC_enable" is the number 1.
bool IsSupportPreview();

/// The switch `name` (UTF-8; empty is the key's default value) as a signed number; -100 for a null name, -101 when the
/// switches' key does not open, -1 when the value is missing or no 32-bit number. A stored value is returned as it is,
/// also one of these three.
/// @throws std::bad_alloc
std::int32_t GetSwitchValue(const char* name);

} // namespace vx
