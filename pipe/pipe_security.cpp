#include "pipe/pipe_security.h"

#include "pipe/unique_handle.h"

namespace vpipe {
namespace {

// Writing includes making further instances, which the server itself needs.
constexpr DWORD kAccess = FILE_GENERIC_READ | FILE_GENERIC_WRITE;

} // namespace

DWORD PipeSecurity::Build() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
    return GetLastError();
  }
  const UniqueHandle tokenOwner(token);
  DWORD size = sizeof m_user;
  if (!GetTokenInformation(token, TokenUser, m_user, sizeof m_user, &size)) {
    return GetLastError();
  }
  const PSID user = reinterpret_cast<TOKEN_USER*>(m_user)->User.Sid;
  size = sizeof m_system;
  auto* acl = reinterpret_cast<ACL*>(m_acl);
  if (!CreateWellKnownSid(WinLocalSystemSid, nullptr, m_system, &size) ||
      !InitializeAcl(acl, sizeof m_acl, ACL_REVISION) || !AddAccessAllowedAce(acl, ACL_REVISION, kAccess, user) ||
      !AddAccessAllowedAce(acl, ACL_REVISION, kAccess, m_system) ||
      !InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION) ||
      !SetSecurityDescriptorDacl(&m_descriptor, TRUE, acl, FALSE) ||
      !SetSecurityDescriptorControl(&m_descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED)) {
    return GetLastError();
  }
  m_attributes.nLength = sizeof m_attributes;
  m_attributes.lpSecurityDescriptor = &m_descriptor;
  m_attributes.bInheritHandle = FALSE;
  return ERROR_SUCCESS;
}

} // namespace vpipe
