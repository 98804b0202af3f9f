#include "pipe/frame.h"
#include "tests/fuzz/fuzz.h"

#include <vector>

namespace {

using vpipe::FrameDecoder;
using Status = FrameDecoder::Status;

struct Decoded {
  std::vector<std::string> texts;
  bool broken = false;
  std::size_t left = 0; // bytes that wait for the rest of their frame

  bool operator==(const Decoded&) const = default;
};

/// The whole stream at once.
Decoded DecodeWhole(std::string_view stream) {
  Decoded decoded;
  while (stream.size() >= vpipe::kFrameHeaderBytes) {
    std::size_t length = 0;
    for (std::size_t i = vpipe::kFrameHeaderBytes; i-- > 0;) {
      length = length * 256 + static_cast<unsigned char>(stream[i]);
    }
    if (length == 0 || length > vpipe::kMaxTextBytes) {
      decoded.broken = true;
      break;
    }
    const std::string_view payload = stream.substr(vpipe::kFrameHeaderBytes);
    if (payload.size() < length) {
      break;
    }
    if (payload.substr(0, length).find('\0') != std::string_view::npos) {
      decoded.broken = true;
      break;
    }
    decoded.texts.emplace_back(payload.substr(0, length));
    stream = payload.substr(length);
  }
  decoded.left = decoded.broken ? 0 : stream.size();
  return decoded;
}

void TakeAll(FrameDecoder& decoder, Decoded& decoded) {
  std::string_view text;
  Status status = Status::kMessage;
  while ((status = decoder.Next(&text)) == Status::kMessage) {
    fuzz::Check(text.data()[text.size()] == '\0', "a text ends with NUL");
    decoded.texts.emplace_back(text);
  }
  decoded.broken = status == Status::kBroken;
  decoded.left = decoded.broken ? 0 : decoder.Buffered();
}

/// Cuts the stream into chunks of sizes that follow from `seed`, and looks for texts after some of them.
Decoded DecodeInChunks(FrameDecoder& decoder, std::string_view stream, std::uint32_t seed) {
  Decoded decoded;
  while (!stream.empty()) {
    seed = seed * 1664525u + 1013904223u;
    const std::size_t wanted = (seed >> 24) % 16 == 0 ? stream.size() : 1 + (seed >> 16) % 9;
    const FrameDecoder::Space space = decoder.Prepare();
    fuzz::Check(space.size > 0, "there is room for at least a byte");
    const std::size_t size = std::min({wanted, stream.size(), space.size});
    std::memcpy(space.data, stream.data(), size);
    decoder.Commit(size);
    stream.remove_prefix(size);
    if ((seed & 0x8000) != 0) {
      TakeAll(decoder, decoded);
    }
    fuzz::Check(decoder.Capacity() <= std::max(vpipe::kInitialBufferBytes, 4 * (decoder.Buffered() + 4)),
                "the buffer grows with what arrives and not with what is announced");
  }
  TakeAll(decoder, decoded);
  return decoded;
}

} // namespace

// The first four bytes choose how the stream is cut, the rest is the stream: however it is cut, the texts are the same.
// Then the stream is a text itself, and comes back from its own frame.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  std::uint32_t seed = 0;
  for (int i = 0; i < 4; ++i) {
    seed = seed << 8 | input.Byte();
  }
  const std::string_view stream = input.Rest();
  const Decoded expected = DecodeWhole(stream);
  FrameDecoder decoder;
  fuzz::Check(DecodeInChunks(decoder, stream, seed) == expected, "the texts do not depend on the chunks");
  decoder.Reset();
  fuzz::Check(decoder.Buffered() == 0, "nothing outlives a reset");
  fuzz::Check(DecodeInChunks(decoder, stream, ~seed) == expected, "a decoder can be used again");

  vpipe::FrameEncoder encoder;
  const bool sendable = !stream.empty() && stream.find('\0') == std::string_view::npos;
  fuzz::Check(encoder.Encode(stream) == sendable, "a text without NUL can be sent");
  decoder.Reset();
  const Decoded own = DecodeInChunks(decoder, encoder.Frame(), seed);
  fuzz::Check(own == (sendable ? Decoded{{std::string(stream)}, false, 0} : Decoded{}), "a text comes back whole");
  return 0;
}
