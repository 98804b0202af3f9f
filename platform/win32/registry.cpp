#include "platform/registry.h"

#include <windows.h>

namespace platform {

std::int32_t RegOpenKeyW(RegistryKey root, const wchar_t* path, RegistryKey* key) {
  return ::RegOpenKeyW(static_cast<HKEY>(root), path, reinterpret_cast<HKEY*>(key));
}

std::int32_t RegOpenKeyExW(RegistryKey root, const wchar_t* path, std::uint32_t access, RegistryKey* key) {
  return ::RegOpenKeyExW(static_cast<HKEY>(root), path, 0, access, reinterpret_cast<HKEY*>(key));
}

std::int32_t RegCreateKeyExW(RegistryKey root, const wchar_t* path, std::uint32_t access, RegistryKey* key,
                             std::uint32_t* disposition) {
  DWORD made = 0;
  const LONG result = ::RegCreateKeyExW(static_cast<HKEY>(root), path, 0, nullptr, 0, access, nullptr,
                                        reinterpret_cast<HKEY*>(key), &made);
  *disposition = made;
  return result;
}

std::int32_t RegQueryValueExW(RegistryKey key, const wchar_t* name, std::uint32_t* type, void* data,
                              std::uint32_t* size) {
  DWORD kind = 0;
  DWORD bytes = *size;
  const LONG result =
      ::RegQueryValueExW(static_cast<HKEY>(key), name, nullptr, &kind, static_cast<BYTE*>(data), &bytes);
  *size = bytes;
  if (type != nullptr) {
    *type = kind;
  }
  return result;
}

std::int32_t RegCloseKey(RegistryKey key) { return ::RegCloseKey(static_cast<HKEY>(key)); }

} // namespace platform
