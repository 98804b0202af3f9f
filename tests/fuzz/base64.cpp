#include "foundation/base64.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/reference.h"

#include <memory>

// Any bytes decode as the rule says, into the room that is promised and not a byte beyond it; what was encoded comes
// back.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string expected = fuzz::DecodeBase64(text);
  fuzz::Check(vx::Base64Decode(text.data(), size) == expected, "text decodes by the rule");

  const std::size_t room = size / 4 * 3;
  const std::unique_ptr<unsigned char[]> output(new unsigned char[room]); // no byte more: the sanitizer watches its end
  const std::size_t count = vx::Base64DecodeBlock(output.get(), text.data(), size, vx::Base64DecodeTable);
  fuzz::Check(count == expected.size(), "the block counts what the text decodes to");
  fuzz::Check(std::string_view(reinterpret_cast<const char*>(output.get()), count) == expected,
              "the block holds what the text decodes to");

  const std::string encoded = fuzz::EncodeBase64(text);
  fuzz::Check(vx::Base64Decode(encoded.data(), encoded.size()) == text, "what was encoded comes back");
  return 0;
}
