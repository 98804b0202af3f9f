#include "tests/windows/host/own_registry.h"

#include <windows.h>

namespace testhost {
namespace {

HKEY Open(const std::string& path) {
  HKEY key = nullptr;
  return RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, KEY_ALL_ACCESS, &key) == ERROR_SUCCESS ? key : nullptr;
}

} // namespace

bool UseOwnRegistry(const std::string& key) {
  const HKEY user = Open(key + "\\user");
  const HKEY machine = Open(key + "\\machine");
  return user != nullptr && machine != nullptr && RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine) == ERROR_SUCCESS &&
         RegOverridePredefKey(HKEY_CURRENT_USER, user) == ERROR_SUCCESS;
}

} // namespace testhost
