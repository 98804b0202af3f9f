#pragma once

#include "platform/types.h"

// The registry. Each call returns 0 or a system error code and leaves the last error alone. None blocks for long.
namespace platform {

/// Predefined roots.
inline const RegistryKey kHkeyCurrentUser = reinterpret_cast<RegistryKey>(static_cast<std::intptr_t>(-2147483647));
inline const RegistryKey kHkeyLocalMachine = reinterpret_cast<RegistryKey>(static_cast<std::intptr_t>(-2147483646));

inline constexpr std::uint32_t kRegDword = 4;
inline constexpr std::uint32_t kKeyRead = 0x20019;
inline constexpr std::uint32_t kKeyAllAccess = 0xF003F;

/// Opens an existing key with the default access. The caller closes `*key`.
std::int32_t RegOpenKeyW(RegistryKey root, const wchar_t* path, RegistryKey* key);

/// Opens an existing key with the access asked for. The caller closes `*key`.
std::int32_t RegOpenKeyExW(RegistryKey root, const wchar_t* path, std::uint32_t access, RegistryKey* key);

/// Opens a key, making it when it is missing: no class, options 0, default security. The caller closes `*key`.
std::int32_t RegCreateKeyExW(RegistryKey root, const wchar_t* path, std::uint32_t access, RegistryKey* key,
                             std::uint32_t* disposition);

/// Reads a value of at most `*size` bytes into `data`; an empty or null name is the key's default value. `type` may be
/// null. On return `*size` is the value's size. 2 when there is none, 234 when it does not fit.
std::int32_t RegQueryValueExW(RegistryKey key, const wchar_t* name, std::uint32_t* type, void* data,
                              std::uint32_t* size);

/// Gives a key back.
std::int32_t RegCloseKey(RegistryKey key);

} // namespace platform
