#include "foundation/reg_key.h"

#include "platform/types.h"

namespace vx {

KRegKey::~KRegKey() { Close(); }

bool KRegKey::Open(platform::RegistryKey root, const wchar_t* path, std::int32_t openOnly) noexcept {
  Close();
  platform::RegistryKey key = nullptr;
  std::uint32_t disposition = 0;
  const std::int32_t result = openOnly != 0
                                  ? platform::RegOpenKeyW(root, path, &key)
                                  : platform::RegCreateKeyExW(root, path, platform::kKeyAllAccess, &key, &disposition);
  if (result != 0) {
    return false;
  }
  m_key = key;
  return true;
}

void KRegKey::Close() noexcept {
  if (m_key != nullptr) {
    platform::RegCloseKey(m_key);
  }
  m_key = nullptr;
}

bool KRegKey::QueryDword(const wchar_t* name, std::uint32_t* out) const noexcept {
  if (m_key == nullptr) {
    return false;
  }
  std::uint32_t value = 0;
  std::uint32_t type = 0;
  std::uint32_t size = sizeof value;
  if (platform::RegQueryValueExW(m_key, name, &type, &value, &size) != 0 || type != platform::kRegDword) {
    return false;
  }
  *out = value;
  return true;
}

} // namespace vx
