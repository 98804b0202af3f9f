#include "tools/vexelctl/param_check.h"

#include "foundation/base64.h"
#include "foundation/text_codecs.h"
#include "platform/text.h"
#include "public/vexelsdk/cmd_line_parser.h"

namespace vexelctl {

const char* const kNoSwitches = "the parameter is no base64 text with switches: it counts as none";

bool HoldsSwitches(const std::string& param) {
  const std::string bytes = vx::Base64Decode(param.data(), param.size());
  return CCmdLineParser().Parse(vx::MultiByteToWide(bytes.c_str(), platform::kCodePageUtf8).c_str());
}

} // namespace vexelctl
