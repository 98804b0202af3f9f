#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/sdk_library.h"
#include "tools/vexelctl/windows_util.h"

#include <nlohmann/json.hpp>

namespace vexelctl {

int RunExtensions(const QuestionOptions& options) {
  SdkLibrary sdk;
  std::string error;
  if (!sdk.Load(LibraryPath(options.sdk), &error)) {
    return Fail(error, kExitInput);
  }
  // Room to spare: a later library of this version may know more.
  std::wstring list(8 * VEXELSDK_EXTENSIONS_SIZE, L'\0');
  if (sdk.getPicSupportFileExtensions(list.data(), static_cast<std::uint32_t>(list.size())) != 1) {
    return Fail("the library did not give its list", kExitProblem);
  }
  const std::string text = ToUtf8(list.c_str());
  std::vector<std::string> extensions;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('|', begin), text.size());
    extensions.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  if (options.isJson) {
    nlohmann::ordered_json json;
    json["count"] = extensions.size();
    json["extensions"] = extensions;
    PrintLine(json.dump());
    return kExitFine;
  }
  for (const std::string& extension : extensions) {
    PrintLine(extension);
  }
  return kExitFine;
}

} // namespace vexelctl
