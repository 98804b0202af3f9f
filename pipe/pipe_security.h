#pragma once

#include <windows.h>

#include <cstddef>

namespace vpipe {

/// Who may open a server's pipe: the user of this process and the system's own account, nobody else, whatever a parent
/// would hand down. Not copyable, as the descriptor points into the object.
class PipeSecurity {
public:
  PipeSecurity() = default;
  PipeSecurity(const PipeSecurity&) = delete;
  PipeSecurity& operator=(const PipeSecurity&) = delete;

  /// Builds the descriptor. Returns a system error code, 0 for success.
  DWORD Build();

  /// What to make the pipe with, once built; handles made with it are not inherited. Valid as long as the object.
  SECURITY_ATTRIBUTES* Attributes() { return &m_attributes; }

private:
  static constexpr std::size_t kSidBytes = 68; // SECURITY_MAX_SID_SIZE

  alignas(8) unsigned char m_user[sizeof(TOKEN_USER) + kSidBytes]{};
  alignas(8) unsigned char m_system[kSidBytes]{};
  alignas(8) unsigned char m_acl[sizeof(ACL) + 2 * (sizeof(ACCESS_ALLOWED_ACE) + kSidBytes)]{};
  SECURITY_DESCRIPTOR m_descriptor{};
  SECURITY_ATTRIBUTES m_attributes{};
};

} // namespace vpipe
