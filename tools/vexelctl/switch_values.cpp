#include "tools/vexelctl/switch_values.h"

#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <cstring>

namespace vexelctl {

const wchar_t* const kSwitchesKey = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";

SwitchValues ReadSwitchValues() {
  SwitchValues result;
  HKEY key = nullptr;
  if (RegOpenKeyW(HKEY_CURRENT_USER, kSwitchesKey, &key) != ERROR_SUCCESS) {
    return result;
  }
  result.hasKey = true;
  for (DWORD index = 0;; ++index) {
    std::wstring name(16384, L'\0');
    auto nameLength = static_cast<DWORD>(name.size());
    DWORD type = 0;
    std::vector<BYTE> data(4096);
    auto size = static_cast<DWORD>(data.size());
    const LSTATUS status = RegEnumValueW(key, index, name.data(), &nameLength, nullptr, &type, data.data(), &size);
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) {
      break;
    }
    name.resize(nameLength);
    SwitchValue value{ToUtf8(name), "", false, 0};
    if (type == REG_DWORD && status == ERROR_SUCCESS && size == sizeof value.number) {
      std::memcpy(&value.number, data.data(), sizeof value.number);
      value.isNumber = true;
      value.text = std::to_string(static_cast<std::int32_t>(value.number));
    } else if (type == REG_SZ && status == ERROR_SUCCESS) {
      const std::wstring text(reinterpret_cast<const wchar_t*>(data.data()), size / sizeof(wchar_t));
      value.text = "the text \"" + ToUtf8(text.c_str()) + "\"";
    } else {
      value.text = "a value of registry type " + std::to_string(type);
    }
    result.values.push_back(std::move(value));
  }
  RegCloseKey(key);
  return result;
}

} // namespace vexelctl
