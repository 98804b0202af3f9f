#include "tests/sim/registry.h"

#include <cstring>
#include <map>
#include <memory>

#include "tests/sim/kernel.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::int32_t kSuccess = 0;
constexpr std::int32_t kMoreData = 234;
constexpr std::uint32_t kBadPath = 161;
constexpr std::uint32_t kKeyDeleted = 1018;
constexpr std::uint32_t kQueryRight = 1;
constexpr std::uint32_t kCreateSubKeyRight = 4;
constexpr std::uint32_t kMaximumAllowed = 0x02000000;
constexpr std::uint32_t kRegSz = 1;

struct Value {
  std::uint32_t type = 0;
  std::string bytes;
};

struct Key {
  std::map<std::wstring, Value> values; // by folded name
  std::uint32_t denied = 0;
};

class OpenKey final : public Object {
public:
  explicit OpenKey(std::wstring keyPath) : Object(HandleKind::kRegistryKey), path(std::move(keyPath)) {}
  const std::wstring path;
};

// All keys by folded path, in which the root is a number.
using Keys = std::map<std::wstring, Key>;

Keys& TheKeys() {
  static Keys& keys = *new Keys;
  return keys;
}

bool IsRoot(platform::RegistryKey key) {
  return key == platform::kHkeyCurrentUser || key == platform::kHkeyLocalMachine;
}

std::wstring Join(const std::wstring& base, const std::wstring& path) {
  std::wstring rest = Fold(path);
  while (!rest.empty() && rest.back() == L'\\') {
    rest.pop_back();
  }
  return rest.empty() ? base : base + L"\\" + rest;
}

std::wstring RootPath(platform::RegistryKey root) { return root == platform::kHkeyCurrentUser ? L"hkcu" : L"hklm"; }

std::wstring PathOf(platform::RegistryKey root, const std::wstring& key) {
  if (!IsRoot(root)) {
    Die("tests name registry keys from one of the predefined roots");
  }
  return Join(RootPath(root), key);
}

bool Exists(const std::wstring& path) { return path.find(L'\\') == std::wstring::npos || TheKeys().contains(path); }

void Make(const std::wstring& path) {
  for (std::size_t at = path.find(L'\\'); at != std::wstring::npos; at = path.find(L'\\', at + 1)) {
    TheKeys()[path.substr(0, at)];
  }
  TheKeys()[path];
}

std::uint32_t DeniedFor(const std::wstring& path) {
  const auto place = TheKeys().find(path);
  return place == TheKeys().end() ? 0 : place->second.denied;
}

bool Refused(const std::wstring& path, std::uint32_t access) {
  const std::uint32_t denied = DeniedFor(path);
  return (denied & access) != 0 || (denied != 0 && (access & kMaximumAllowed) != 0);
}

// The path of a key that a call names, or a system error code.
std::int32_t Locate(platform::RegistryKey root, const wchar_t* path, std::wstring* full) {
  std::wstring base;
  if (IsRoot(root)) {
    base = RootPath(root);
  } else {
    const auto open = FindHandle<OpenKey>(root, HandleKind::kRegistryKey);
    if (open == nullptr) {
      return static_cast<std::int32_t>(kInvalidHandleValue);
    }
    base = open->path;
  }
  if (path != nullptr && path[0] == L'\\') {
    return static_cast<std::int32_t>(kBadPath);
  }
  *full = Join(base, path == nullptr ? L"" : path);
  return kSuccess;
}

std::int32_t Open(platform::RegistryKey root, const wchar_t* path, std::uint32_t access, platform::RegistryKey* key) {
  *key = nullptr;
  std::wstring full;
  const std::int32_t located = Locate(root, path, &full);
  if (located != kSuccess) {
    return located;
  }
  if (!Exists(full)) {
    return static_cast<std::int32_t>(kFileNotFound);
  }
  if (Refused(full, access)) {
    return static_cast<std::int32_t>(kAccessDenied);
  }
  *key = AddHandle(std::make_shared<OpenKey>(full), access);
  return kSuccess;
}

} // namespace

void internal::ResetRegistry() { TheKeys().clear(); }

void SetBytes(platform::RegistryKey root, const std::wstring& key, const std::wstring& name, std::uint32_t type,
              const std::string& bytes) {
  const Lock lock = TakeLock();
  const std::wstring path = PathOf(root, key);
  Make(path);
  TheKeys()[path].values[Fold(name)] = {type, bytes};
}

void SetDword(platform::RegistryKey root, const std::wstring& key, const std::wstring& name, std::uint32_t value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  SetBytes(root, key, name, platform::kRegDword, bytes);
}

void SetText(platform::RegistryKey root, const std::wstring& key, const std::wstring& name, const std::wstring& value) {
  std::string bytes;
  for (const wchar_t unit : value + L'\0') {
    bytes.push_back(static_cast<char>(static_cast<std::uint32_t>(unit) & 0xFF));
    bytes.push_back(static_cast<char>((static_cast<std::uint32_t>(unit) >> 8) & 0xFF));
  }
  SetBytes(root, key, name, kRegSz, bytes);
}

void AddKey(platform::RegistryKey root, const std::wstring& key) {
  const Lock lock = TakeLock();
  Make(PathOf(root, key));
}

void DeleteValue(platform::RegistryKey root, const std::wstring& key, const std::wstring& name) {
  const Lock lock = TakeLock();
  const auto place = TheKeys().find(PathOf(root, key));
  if (place != TheKeys().end()) {
    place->second.values.erase(Fold(name));
  }
}

void DeleteKey(platform::RegistryKey root, const std::wstring& key) {
  const Lock lock = TakeLock();
  const std::wstring path = PathOf(root, key);
  std::erase_if(TheKeys(),
                [&](const auto& item) { return item.first == path || item.first.starts_with(path + L"\\"); });
}

bool KeyExists(platform::RegistryKey root, const std::wstring& key) {
  const Lock lock = TakeLock();
  return Exists(PathOf(root, key));
}

void DenyKey(platform::RegistryKey root, const std::wstring& key, std::uint32_t rights) {
  const Lock lock = TakeLock();
  const std::wstring path = PathOf(root, key);
  Make(path);
  TheKeys()[path].denied = rights;
}

} // namespace sim

namespace platform {

using namespace sim::internal;
using sim::HandleKind;

namespace {

std::int32_t Code(std::uint32_t error) { return static_cast<std::int32_t>(error); }

} // namespace

std::int32_t RegOpenKeyW(RegistryKey root, const wchar_t* path, RegistryKey* key) {
  const Call call("RegOpenKeyW");
  if (const auto error = call.FailsWith(kAccessDenied)) {
    return Code(*error);
  }
  // Without a path this call hands the root itself back, and opens nothing.
  if (path == nullptr || path[0] == 0) {
    *key = root;
    return 0;
  }
  return sim::Open(root, path, sim::kMaximumAllowed, key);
}

std::int32_t RegOpenKeyExW(RegistryKey root, const wchar_t* path, std::uint32_t access, RegistryKey* key) {
  const Call call("RegOpenKeyExW");
  if (const auto error = call.FailsWith(kAccessDenied)) {
    return Code(*error);
  }
  return sim::Open(root, path, access, key);
}

std::int32_t RegCreateKeyExW(RegistryKey root, const wchar_t* path, std::uint32_t access, RegistryKey* key,
                             std::uint32_t* disposition) {
  const Call call("RegCreateKeyExW");
  if (const auto error = call.FailsWith(kAccessDenied)) {
    return Code(*error);
  }
  std::wstring full;
  if (const std::int32_t located = sim::Locate(root, path, &full); located != 0) {
    return located;
  }
  *disposition = 2; // opened
  if (!sim::Exists(full)) {
    std::wstring parent = full.substr(0, full.rfind(L'\\'));
    while (!sim::Exists(parent)) {
      parent.resize(parent.rfind(L'\\'));
    }
    if (sim::Refused(parent, sim::kCreateSubKeyRight)) {
      return Code(kAccessDenied);
    }
    sim::Make(full);
    *disposition = 1; // made
  }
  return sim::Open(root, path, access, key);
}

std::int32_t RegQueryValueExW(RegistryKey key, const wchar_t* name, std::uint32_t* type, void* data,
                              std::uint32_t* size) {
  const Call call("RegQueryValueExW");
  if (const auto error = call.FailsWith(kAccessDenied)) {
    return Code(*error);
  }
  std::wstring path;
  if (sim::IsRoot(key)) {
    path = sim::RootPath(key);
  } else {
    std::uint32_t access = 0;
    const auto open = FindHandle<sim::OpenKey>(key, HandleKind::kRegistryKey, &access);
    if (open == nullptr) {
      return Code(kInvalidHandleValue);
    }
    if ((access & (sim::kQueryRight | sim::kMaximumAllowed)) == 0) {
      return Code(kAccessDenied);
    }
    path = open->path;
    if (!sim::Exists(path)) {
      return Code(sim::kKeyDeleted);
    }
  }
  const auto place = sim::TheKeys().find(path);
  if (place == sim::TheKeys().end()) {
    return Code(kFileNotFound);
  }
  const auto value = place->second.values.find(Fold(name == nullptr ? L"" : name));
  if (value == place->second.values.end()) {
    return Code(kFileNotFound);
  }
  if (type != nullptr) {
    *type = value->second.type;
  }
  const std::uint32_t room = *size;
  const std::string& bytes = value->second.bytes;
  *size = static_cast<std::uint32_t>(bytes.size());
  if (data == nullptr) {
    return 0;
  }
  if (bytes.size() > room) {
    return sim::kMoreData;
  }
  std::memcpy(data, bytes.data(), bytes.size());
  return 0;
}

std::int32_t RegCloseKey(RegistryKey key) {
  const Call call("RegCloseKey");
  if (const auto error = call.FailsWith(kInvalidHandleValue)) {
    return Code(*error);
  }
  if (sim::IsRoot(key)) {
    return 0;
  }
  if (FindHandle<Object>(key, HandleKind::kRegistryKey) == nullptr) {
    CountBadClose();
    return Code(kInvalidHandleValue);
  }
  DropHandle(key);
  return 0;
}

} // namespace platform
