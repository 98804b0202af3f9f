#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexelctl {

/// One value under the key of the browser's feature switches.
struct SwitchValue {
  std::string name;
  std::string text; // what is stored, for people
  bool isNumber;    // a REG_DWORD, which alone counts
  std::uint32_t number;
};

struct SwitchValues {
  bool hasKey = false;
  std::vector<SwitchValue> values;
};

extern const wchar_t* const kSwitchesKey;

/// Reads all values of the switches' key. Any thread.
SwitchValues ReadSwitchValues();

} // namespace vexelctl
