#include "public/vexelsdk/cmd_line_parser.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/reference.h"
#include "tests/sim/world.h"

namespace {

void CheckSwitches(const CCmdLineParser& parser, const fuzz::Switches& expected) {
  for (const auto& [name, value] : expected) {
    const wchar_t* const found = parser.GetVal(name.c_str());
    fuzz::Check(found != nullptr && parser.HasKey(name.c_str()), "a switch of the text is found");
    fuzz::Check(found == value, "a switch has the value of its first occurrence");
    const std::wstring other = name + L"?";
    fuzz::Check(parser.HasKey(other.c_str()) == expected.contains(other), "a switch that was not given is not found");
  }
  fuzz::Check(!parser.HasKey(L""), "no switch has an empty name");
}

} // namespace

// The first byte chooses whether case counts, the rest is the text. It is read as the rule says, a second time with the
// same result, and from the parser's own memory too.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const bool caseSensitive = (input.Byte() & 1) != 0;
  const std::wstring text = sim::Wide(input.Rest());
  const fuzz::Switches expected = fuzz::ReadSwitches(text, caseSensitive);

  CCmdLineParser parser(nullptr, caseSensitive);
  fuzz::Check(parser.Parse(text.c_str()) == !expected.empty(), "the result says whether there is a switch");
  CheckSwitches(parser, expected);
  fuzz::Check(!parser.Parse(nullptr), "no text has no switch");
  CheckSwitches(parser, expected);
  fuzz::Check(parser.Parse(text.c_str()) == !expected.empty(), "a second parse has the same result");
  CheckSwitches(parser, expected);
  CheckSwitches(CCmdLineParser(text.c_str(), caseSensitive), expected);

  if (!expected.empty()) {
    const auto& [name, value] = *expected.begin();
    const std::wstring inner = value; // the parser's own copy goes while it is read
    parser.Parse(parser.GetVal(name.c_str()));
    CheckSwitches(parser, fuzz::ReadSwitches(inner, caseSensitive));
  }
  return 0;
}
