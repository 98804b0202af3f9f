#pragma once

#include "platform/registry.h"

#include <cstdint>

namespace vx {

/// One open registry key, closed when the object dies. A local of one thread.
class KRegKey {
public:
  KRegKey() noexcept = default;
  ~KRegKey();
  KRegKey(const KRegKey&) = delete;
  KRegKey& operator=(const KRegKey&) = delete;

  /// Closes the key held so far and opens `path` under `root`. With `openOnly` 0 a missing key is made and opened with
  /// every right, otherwise it is only ever opened. True when the key is open.
  bool Open(platform::RegistryKey root, const wchar_t* path, std::int32_t openOnly) noexcept;

  /// Closes the key, if there is one.
  void Close() noexcept;

  /// Reads a 32-bit number; an empty name is the key's default value. True when `*out` was written: a value that is
  /// missing, of another type or too long leaves it alone.
  bool QueryDword(const wchar_t* name, std::uint32_t* out) const noexcept;

private:
  platform::RegistryKey m_key = nullptr;
};

} // namespace vx
