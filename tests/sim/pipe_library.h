#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tests/sim/editor.h"

// The simulated pipe library, for the sources of the simulated platform. All need the mutex.
namespace sim::internal {

/// The five entries by name.
std::map<std::string, void*> PipeLibraryEntries();

/// A process begins to be an editor.
void BeginEditor(std::uint32_t pid, const EditorScript& script);

/// A process ends: its pipes break.
void EndEditor(std::uint32_t pid);

} // namespace sim::internal
