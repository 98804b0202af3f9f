#include "foundation/switches.h"

#include "foundation/reg_key.h"
#include "foundation/text_codecs.h"
#include "platform/registry.h"

namespace vx {
namespace {

constexpr const wchar_t* kSwitchKey = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";
constexpr std::int32_t kOpenOnly = 1; // the key is the browser's to make
constexpr std::int32_t kNullName = -100;
constexpr std::int32_t kNoKey = -101;
constexpr std::int32_t kNoValue = -1;

} // namespace

bool IsSupportPreview() {
  std::uint32_t value = 0;
  KRegKey key;
  if (key.Open(platform::kHkeyCurrentUser, kSwitchKey, kOpenOnly)) {
    key.QueryDword(L"OpenPIC_enable", &value);
  }
  return value == 1;
}

std::int32_t GetSwitchValue(const char* name) {
  if (name == nullptr) {
    return kNullName;
  }
  KRegKey key;
  if (!key.Open(platform::kHkeyCurrentUser, kSwitchKey, kOpenOnly)) {
    return kNoKey;
  }
  std::uint32_t value = 0;
  if (!key.QueryDword(MultiByteToWide(name, platform::kCodePageUtf8).c_str(), &value)) {
    return kNoValue;
  }
  return static_cast<std::int32_t>(value);
}

} // namespace vx
