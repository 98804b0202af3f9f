#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/sdk_library.h"
#include "tools/vexelctl/switch_values.h"
#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <nlohmann/json.hpp>

namespace vexelctl {
namespace {

std::string Meaning(std::int32_t value, bool isThere) {
  if (value == VEXELSDK_SWITCH_NO_KEY && !isThere) {
    return "the switches' key is missing";
  }
  if (value == VEXELSDK_SWITCH_UNREADABLE) {
    return isThere ? "stored as -1, or not as a REG_DWORD" : "there is no such switch";
  }
  return "";
}

} // namespace

int RunSwitches(const QuestionOptions& options) {
  SdkLibrary sdk;
  std::string error;
  if (!sdk.Load(LibraryPath(options.sdk), &error)) {
    return Fail(error, kExitInput);
  }
  const SwitchValues stored = ReadSwitchValues();
  std::vector<std::string> names = options.names;
  if (names.empty()) {
    for (const SwitchValue& value : stored.values) {
      names.push_back(value.name);
    }
    if (names.empty()) {
      names.emplace_back("OpenPIC_enable");
    }
  }
  const bool isSupported = sdk.isSupportPreview();
  const bool isValid = sdk.isPreviewValid();
  nlohmann::ordered_json json;
  json["IsSupportPreview"] = isSupported;
  json["IsPreviewValid"] = isValid;
  json["key"] = std::string("HKEY_CURRENT_USER\\") + ToUtf8(kSwitchesKey);
  json["keyExists"] = stored.hasKey;
  json["GetSwitchValue"] = nlohmann::ordered_json::object();
  if (!options.isJson) {
    PrintLine(std::string("IsSupportPreview  ") +
              Painted(isSupported ? Colour::kGreen : Colour::kYellow, isSupported ? "true" : "false"));
    PrintLine(std::string("IsPreviewValid    ") +
              Painted(isValid ? Colour::kGreen : Colour::kYellow, isValid ? "true" : "false"));
  }
  for (const std::string& name : names) {
    const std::int32_t value = sdk.getSwitchValue(name.c_str());
    json["GetSwitchValue"][name] = value;
    if (!options.isJson) {
      bool isThere = false;
      for (const SwitchValue& entry : stored.values) {
        isThere = isThere ||
                  CompareStringOrdinal(ToWide(entry.name).c_str(), -1, ToWide(name).c_str(), -1, TRUE) == CSTR_EQUAL;
      }
      const std::string meaning = Meaning(value, isThere);
      PrintLine("GetSwitchValue    " + (name.empty() ? "(default)" : name) + " = " + std::to_string(value) +
                (meaning.empty() ? "" : Painted(Colour::kGrey, "  (" + meaning + ")")));
    }
  }
  if (options.isJson) {
    PrintLine(json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  }
  return kExitFine;
}

} // namespace vexelctl
