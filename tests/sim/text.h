#pragma once

#include <string>
#include <string_view>

// The conversions behind the platform's, on whole texts.
namespace sim::internal {

/// UTF-16 to UTF-8; a surrogate without its partner becomes U+FFFD.
std::string EncodeUtf8(std::wstring_view text);

/// UTF-8 to UTF-16; each longest piece that begins no valid sequence becomes one U+FFFD.
std::wstring DecodeUtf8(std::string_view bytes);

} // namespace sim::internal
