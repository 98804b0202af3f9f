#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace example {

/// The pixels of a part of the screen, row by row; empty when they cannot be read.
std::vector<std::uint32_t> ReadScreen(const RECT& area);

/// Saves a part of the screen as a PNG file. False when that failed. Blocks for the file.
bool SaveScreen(const RECT& area, const std::wstring& path);

} // namespace example
