#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "pipe/text_scan.h"

// What goes over the wire, in both directions: frames, each a payload length in 4 bytes, little-endian, and the
// payload. A payload is a text of 1 to kMaxTextBytes bytes with no NUL in it; whether it is valid UTF-8 is the
// receiver's affair.
namespace vpipe {

inline constexpr std::size_t kFrameHeaderBytes = 4;
inline constexpr std::size_t kMaxTextBytes = 16u * 1024 * 1024;

// What a buffer starts with. Links outlive their editors, so it starts small: several buffers are held for each editor
// that there ever was.
inline constexpr std::size_t kInitialBufferBytes = 4u * 1024;

// What a buffer may keep while it waits for the next message: the frame of a text of 64 KiB and of one of 1 MiB goes in,
// so that such texts take one read each.
inline constexpr std::size_t kKeptBufferBytes = 1024u * 1024 + 64u * 1024;

/// Whether `text` may travel: 1 to kMaxTextBytes bytes and no NUL.
inline bool IsSendable(std::string_view text) {
  return !text.empty() && text.size() <= kMaxTextBytes && !HoldsNul(text.data(), text.size());
}

/// Builds frames in one buffer that is used again and again. One thread at a time.
class FrameEncoder {
public:
  /// Builds the frame of `text`. False when the text is not sendable; the frame is then empty. The text may not lie in
  /// this encoder's own buffer. Throws std::bad_alloc.
  bool Encode(std::string_view text) {
    m_size = 0;
    if (!IsSendable(text)) {
      return false;
    }
    EncodeSendable(text);
    return true;
  }

  /// The same for a text that is known to be sendable, without another look at it.
  void EncodeSendable(std::string_view text) {
    m_size = 0;
    const std::size_t size = kFrameHeaderBytes + text.size();
    if (size > m_capacity || (m_capacity > kKeptBufferBytes && size <= kKeptBufferBytes)) {
      Resize(std::max(size, kInitialBufferBytes));
    }
    const auto length = static_cast<std::uint32_t>(text.size());
    for (std::size_t i = 0; i < kFrameHeaderBytes; ++i) {
      m_buffer[i] = static_cast<char>(static_cast<unsigned char>(length >> (8 * i)));
    }
    std::memcpy(m_buffer.get() + kFrameHeaderBytes, text.data(), text.size());
    m_size = size;
  }

  /// The frame that Encode built; valid until the next Encode.
  std::string_view Frame() const { return {m_buffer.get(), m_size}; }

  /// Bytes held from the heap.
  std::size_t Capacity() const { return m_capacity; }

private:
  void Resize(std::size_t capacity) {
    m_buffer.reset();
    m_capacity = 0;
    m_buffer.reset(new char[capacity]);
    m_capacity = capacity;
  }

  std::unique_ptr<char[]> m_buffer;
  std::size_t m_capacity = 0;
  std::size_t m_size = 0;
};

/// Takes frames out of a stream that arrives in chunks of any size. The owner reads into Prepare, tells Commit how much
/// came, and calls Next until it needs more. Texts are given out in place, without a copy. One thread at a time.
class FrameDecoder {
public:
  enum class Status {
    kNeedMore, ///< no whole frame has arrived
    kMessage,  ///< a text was given out
    kBroken,   ///< the stream is not one of frames; nothing after this point has a meaning
  };

  struct Space {
    char* data;
    std::size_t size; ///< bytes, at least 1
  };

  /// Room for the next chunk. Ends the life of the text that Next gave out. Grows with what has arrived, never with
  /// what a header only announces. Throws std::bad_alloc.
  Space Prepare() {
    RestoreByte();
    if (m_begin == m_end) {
      m_begin = m_end = 0;
      DropLargeBuffer();
    }
    if (m_capacity == 0) {
      Grow(kInitialBufferBytes);
    }
    if (m_begin > 0 && m_begin + Wanted() > m_capacity) {
      std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
      m_end -= m_begin;
      m_begin = 0;
    }
    if (m_end == m_capacity) {
      const std::size_t wanted = Wanted();
      Grow(wanted > m_capacity ? std::min(2 * m_capacity, wanted) : 2 * m_capacity);
    }
    return {m_buffer.get() + m_end, m_capacity - m_end};
  }

  /// Says that the first `bytes` of what Prepare gave now hold data.
  void Commit(std::size_t bytes) { m_end += bytes; }

  /// Gives out the oldest whole frame's text, followed by a NUL; it is valid until the next Prepare, Next or Reset.
  /// A length of 0 or over the limit and a NUL inside of a text break the stream, for good.
  Status Next(std::string_view* text) {
    RestoreByte();
    if (m_broken) {
      return Status::kBroken;
    }
    const std::size_t have = m_end - m_begin;
    if (have < kFrameHeaderBytes) {
      return Status::kNeedMore;
    }
    const std::size_t length = Length();
    if (length == 0 || length > kMaxTextBytes) {
      m_broken = true;
      return Status::kBroken;
    }
    if (have - kFrameHeaderBytes < length) {
      return Status::kNeedMore;
    }
    char* payload = m_buffer.get() + m_begin + kFrameHeaderBytes;
    if (HoldsNul(payload, length)) {
      m_broken = true;
      return Status::kBroken;
    }
    m_begin += kFrameHeaderBytes + length;
    // The NUL may fall on the next frame's first byte, which waits in m_saved.
    m_hasSaved = m_begin < m_end;
    if (m_hasSaved) {
      m_saved = payload[length];
    }
    payload[length] = '\0';
    *text = {payload, length};
    return Status::kMessage;
  }

  /// Bytes that have arrived and were not given out.
  std::size_t Buffered() const { return m_end - m_begin; }

  /// Bytes held from the heap, but for the one kept for a NUL.
  std::size_t Capacity() const { return m_capacity; }

  /// Forgets all that has arrived, for a new stream. A buffer of ordinary size stays.
  void Reset() {
    m_begin = m_end = 0;
    m_hasSaved = false;
    m_broken = false;
    DropLargeBuffer();
  }

private:
  std::size_t Length() const {
    std::size_t length = 0;
    for (std::size_t i = 0; i < kFrameHeaderBytes; ++i) {
      length |= static_cast<std::size_t>(static_cast<unsigned char>(m_buffer[m_begin + i])) << (8 * i);
    }
    return length;
  }

  // The bytes that the oldest frame takes, as far as that is known.
  std::size_t Wanted() const {
    if (m_end - m_begin < kFrameHeaderBytes) {
      return kFrameHeaderBytes;
    }
    return kFrameHeaderBytes + std::min(Length(), kMaxTextBytes);
  }

  void RestoreByte() {
    if (m_hasSaved) {
      m_buffer[m_begin] = m_saved;
      m_hasSaved = false;
    }
  }

  // Only while nothing is buffered.
  void DropLargeBuffer() {
    if (m_capacity > kKeptBufferBytes) {
      m_buffer.reset();
      m_capacity = 0;
    }
  }

  void Grow(std::size_t capacity) {
    // One byte more than is ever read into: the place for the NUL of a text that ends the buffer.
    std::unique_ptr<char[]> buffer(new char[capacity + 1]);
    if (m_end > m_begin) {
      std::memcpy(buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
    }
    m_end -= m_begin;
    m_begin = 0;
    m_buffer = std::move(buffer);
    m_capacity = capacity;
  }

  std::unique_ptr<char[]> m_buffer;
  std::size_t m_capacity = 0;
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
  char m_saved = 0;
  bool m_hasSaved = false;
  bool m_broken = false;
};

} // namespace vpipe
