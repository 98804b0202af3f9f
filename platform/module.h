#pragma once

#include "platform/types.h"

// Loaded libraries and the executable.
namespace platform {

/// The library of that name if it is in the process already, else null with a last error. Adds no reference.
Module GetModuleHandleW(const wchar_t* name);

/// The module that holds `address`, null when none does. Adds no reference.
Module GetModuleHandleOfAddress(const void* address);

/// As above, and adds a reference that FreeLibrary gives back.
Module ReferenceModuleOfAddress(const void* address);

/// Loads a library, or adds a reference to it. Null on failure, with a last error. Blocks for the loader.
Module LoadLibraryW(const wchar_t* path);

/// The entry of that name, null when the module lacks it.
void* GetProcAddress(Module module, const char* name);

/// Gives a reference back. False on failure, with a last error.
bool FreeLibrary(Module module);

/// The full path of a module (null: the executable) into `size` 16-bit units. The units written without the
/// terminator, `size` when the path was cut, 0 on failure with a last error.
std::uint32_t GetModuleFileNameW(Module module, wchar_t* buffer, std::uint32_t size);

} // namespace platform
