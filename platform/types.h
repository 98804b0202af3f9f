#pragma once

#include <cstddef>
#include <cstdint>

// The words that every door to the operating system shares. Text is UTF-16: a wchar_t holds one 16-bit code unit
// on every build, also where the type itself is wider.
namespace platform {

using Handle = void*;      // a kernel object, null or kInvalidHandle when there is none
using Module = void*;      // a loaded library or the executable
using RegistryKey = void*; // an open key or one of the predefined roots
using Window = std::uintptr_t;

inline const Handle kInvalidHandle = reinterpret_cast<Handle>(static_cast<std::intptr_t>(-1));

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFFu; // a wait without a limit, in milliseconds
inline constexpr std::uint32_t kMaxPath = 260;          // 16-bit units, terminator included

inline constexpr std::uint32_t kErrorSuccess = 0;
inline constexpr std::uint32_t kErrorFileExists = 80;
inline constexpr std::uint32_t kErrorInsufficientBuffer = 122;
inline constexpr std::uint32_t kErrorAlreadyExists = 183;

} // namespace platform
