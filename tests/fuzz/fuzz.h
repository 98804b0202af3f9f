#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// What every fuzzer is made of: the entry, the checks, and how bytes become what is wanted.

/// One input of `size` bytes. 0, always; a broken promise ends the program. One thread.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the program with `promise` when it does not hold.
inline void Check(bool holds, const char* promise) {
  if (!holds) {
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
  }
}

/// An input, taken from the front.
class Input {
public:
  Input(const std::uint8_t* data, std::size_t size) : m_rest(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool IsEmpty() const { return m_rest.empty(); }

  /// The next byte, 0 at the end.
  std::uint8_t Byte() {
    if (m_rest.empty()) {
      return 0;
    }
    const auto byte = static_cast<std::uint8_t>(m_rest.front());
    m_rest.remove_prefix(1);
    return byte;
  }

  /// All up to the next `end`, which goes as well; all of it without one.
  std::string_view Until(char end) {
    const std::size_t at = m_rest.find(end);
    const std::string_view piece = m_rest.substr(0, at);
    m_rest.remove_prefix(at == std::string_view::npos ? m_rest.size() : at + 1);
    return piece;
  }

  /// Whatever is left.
  [[nodiscard]] std::string_view Rest() const { return m_rest; }

private:
  std::string_view m_rest;
};

} // namespace fuzz
