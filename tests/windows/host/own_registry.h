#pragma once

#include <string>

namespace testhost {

/// Lets the keys "user" and "machine" under `key`, a path under HKEY_CURRENT_USER, stand for HKEY_CURRENT_USER and
/// HKEY_LOCAL_MACHINE in this process from now on. They must exist. Call it before anything reads the registry.
bool UseOwnRegistry(const std::string& key);

} // namespace testhost
