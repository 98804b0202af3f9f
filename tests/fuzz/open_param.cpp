#include "public/vexelsdk/open_param.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/reference.h"
#include "tests/sim/world.h"

namespace {

std::wstring Decoded(const std::wstring& param) {
  const std::string bytes = fuzz::DecodeBase64(sim::Narrow(param));
  return sim::Wide(std::string_view(bytes).substr(0, bytes.find('\0')));
}

void CheckParam(const std::wstring& sent) {
  std::wstring expected = sent;
  fuzz::Switches switches = fuzz::ReadSwitches(Decoded(sent));
  if (const auto inner = switches.find(L"pic_param"); inner != switches.end()) {
    expected = inner->second;
    // An open value of the outer text runs on into the inner one, so the whole is read once more.
    switches = fuzz::ReadSwitches(Decoded(sent) + L' ' + Decoded(expected));
  }
  const auto type = switches.find(L"apptype");
  const std::int32_t expectedType = type == switches.end() ? 1 : fuzz::ReadNumber(type->second);

  for (int turn = 0; turn < 2; ++turn) {
    std::wstring param = sent;
    fuzz::Check(DecodeOpenParam(param) == expectedType, "the application type is that of the switches");
    fuzz::Check(param == expected, "the parameter becomes the inner one, or stays");
  }
}

} // namespace

// The input is tried as the parameter itself, as the text of switches in it, and, cut at its first line end, as an outer
// text around an inner one.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  CheckParam(sim::Wide(input.Rest()));
  CheckParam(sim::Wide(fuzz::EncodeBase64(input.Rest())));

  const std::string outer(input.Until('\n'));
  CheckParam(sim::Wide(fuzz::EncodeBase64(outer + " /pic_param:" + fuzz::EncodeBase64(input.Rest()))));
  return 0;
}
