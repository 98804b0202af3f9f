#pragma once

#include "platform/text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

// Text between its wide and its narrow form, and the few questions that are asked of wide text. No state, any thread.
namespace vx {

/// The whole of `text`, NUL units included, in a code page; a unit that has no form there is replaced. Empty when
/// `text` is, and when the system refuses.
/// @throws std::bad_alloc
std::string WideToMultiByte(const std::wstring& text, std::uint32_t codePage);

/// WideToMultiByte with UTF-8.
std::string WideToUtf8(const std::wstring& text);

/// The whole of `text`, NUL bytes included, from a code page; bad UTF-8 becomes U+FFFD. Empty when `text` is, and when
/// the system refuses.
/// @throws std::bad_alloc
std::wstring MultiByteToWide(const std::string& text, std::uint32_t codePage);

/// Folds to lower case in place, unit by unit, as the runtime does; ASCII letters always.
void ToLower(std::wstring& text) noexcept;

/// Whether two texts have the same length and the same units after folding.
bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right) noexcept;

/// The decimal number at the start of NUL-terminated text: white space and one sign are accepted before it, and it ends
/// at the first other character. 0 without a number and for null; a number beyond 32 bits becomes the nearest one
/// within.
std::int32_t DecimalToInt(const wchar_t* text) noexcept;

/// The system could not convert a text.
class TextError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

namespace detail {

inline constexpr std::size_t kInlineElements = 128;

/// Room for a conversion's result: on the stack while it fits, else on the heap.
template <typename Element> class ConversionBuffer {
public:
  /// Makes room for `count` elements. What was there is lost.
  /// @throws std::bad_alloc; the room is then as before
  Element* Reserve(std::size_t count) {
    if (count > m_capacity) {
      m_heap = std::make_unique_for_overwrite<Element[]>(count);
      m_capacity = count;
    }
    return Data();
  }
  [[nodiscard]] Element* Data() noexcept { return m_heap != nullptr ? m_heap.get() : m_inline.data(); }
  [[nodiscard]] const Element* Data() const noexcept { return m_heap != nullptr ? m_heap.get() : m_inline.data(); }
  [[nodiscard]] std::size_t Capacity() const noexcept { return m_capacity; }

private:
  std::array<Element, kInlineElements> m_inline;
  std::unique_ptr<Element[]> m_heap;
  std::size_t m_capacity = kInlineElements;
};

} // namespace detail

/// NUL-terminated wide text in a code page, converted once and kept. Short texts take no heap.
class NarrowText {
public:
  /// Converts `text` up to its first NUL. A null text gives a null result.
  /// @throws TextError when the system refuses, std::bad_alloc
  NarrowText(const wchar_t* text, std::uint32_t codePage);
  NarrowText(const NarrowText&) = delete;
  NarrowText& operator=(const NarrowText&) = delete;

  /// The converted text with its terminator, owned by this object; null for a null source.
  [[nodiscard]] const char* Get() const noexcept { return m_isNull ? nullptr : m_buffer.Data(); }

  /// Its length in bytes, the terminator not counted.
  [[nodiscard]] std::size_t Length() const noexcept { return m_length; }

private:
  detail::ConversionBuffer<char> m_buffer;
  std::size_t m_length = 0;
  bool m_isNull = true;
};

/// NUL-terminated narrow text as wide text, converted once and kept. Short texts take no heap.
class WideText {
public:
  /// Converts `text` up to its first NUL. A null text gives a null result.
  /// @throws TextError when the system refuses, std::bad_alloc
  WideText(const char* text, std::uint32_t codePage);
  WideText(const WideText&) = delete;
  WideText& operator=(const WideText&) = delete;

  /// The converted text with its terminator, owned by this object; null for a null source.
  [[nodiscard]] const wchar_t* Get() const noexcept { return m_isNull ? nullptr : m_buffer.Data(); }

  /// Its length in 16-bit units, the terminator not counted.
  [[nodiscard]] std::size_t Length() const noexcept { return m_length; }

private:
  detail::ConversionBuffer<wchar_t> m_buffer;
  std::size_t m_length = 0;
  bool m_isNull = true;
};

} // namespace vx
