#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

// The registry as a test sets it up. Keys and value names ignore case; a missing key is made with its parents.
namespace sim {

void SetDword(platform::RegistryKey root, const std::wstring& key, const std::wstring& name, std::uint32_t value);

/// A text value (REG_SZ): UTF-16 with its terminator, two bytes for each unit.
void SetText(platform::RegistryKey root, const std::wstring& key, const std::wstring& name, const std::wstring& value);

/// A value of any type and any bytes.
void SetBytes(platform::RegistryKey root, const std::wstring& key, const std::wstring& name, std::uint32_t type,
              const std::string& bytes);

void AddKey(platform::RegistryKey root, const std::wstring& key);
void DeleteValue(platform::RegistryKey root, const std::wstring& key, const std::wstring& name);

/// Removes a key with all below it.
void DeleteKey(platform::RegistryKey root, const std::wstring& key);

bool KeyExists(platform::RegistryKey root, const std::wstring& key);

/// Opening the key with any of those rights gives error 5 from now on; 0 lifts it.
void DenyKey(platform::RegistryKey root, const std::wstring& key, std::uint32_t rights);

} // namespace sim
