#include "public/vexelsdk/open_param.h"

#include "foundation/base64.h"
#include "foundation/text_codecs.h"
#include "platform/text.h"
#include "public/vexelsdk/cmd_line_parser.h"

#include <algorithm>

namespace {

constexpr std::int32_t kDefaultAppType = 1;
constexpr const wchar_t* kInnerParam = L"pic_param";
constexpr const wchar_t* kAppType = L"apptype";

std::wstring DecodeText(const std::wstring& encoded) {
  const std::string base64 = vx::WideToUtf8(encoded);
  std::string bytes = vx::Base64Decode(base64.data(), base64.size());
  // Text ends at its first NUL; what an encoder padded behind it is none of it.
  bytes.resize(std::min(bytes.find('\0'), bytes.size()));
  return vx::MultiByteToWide(bytes, platform::kCodePageUtf8);
}

} // namespace

std::int32_t DecodeOpenParam(std::wstring& param) {
  std::wstring text = DecodeText(param);
  CCmdLineParser parser;
  parser.Parse(text.c_str());
  if (parser.HasKey(kInnerParam)) {
    param = parser.GetVal(kInnerParam);
    // The inner switches stand behind the outer ones, and the first of a name counts.
    text += L' ';
    text += DecodeText(param);
    parser.Parse(text.c_str());
  }
  return parser.HasKey(kAppType) ? vx::DecimalToInt(parser.GetVal(kAppType)) : kDefaultAppType;
}
