#pragma once

#include <windows.h>

namespace vpipe {

/// The longest path of a pipe, prefix included, in 16-bit units.
inline constexpr int kMaxPipePath = 256;

/// Makes the system's path of the pipe `name` in `path`. False for a null, empty, too long or badly encoded name and
/// for one with a slash or backslash, which could lead out of the pipes' own folder.
bool MakePipePath(const char* name, wchar_t (&path)[kMaxPipePath + 1]);

} // namespace vpipe
