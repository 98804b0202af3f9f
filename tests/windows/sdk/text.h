#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sdktest {

/// Waits until `isTrue` gives true, looking every 10 ms. False after a limit that no healthy run comes near.
bool WaitFor(const std::function<bool()>& isTrue);

std::string Utf8(const std::wstring& text);
std::wstring Wide(const std::string& text);

/// Base64 text of the bytes of `text`, as 16-bit units, the way a browser writes the open parameter.
std::wstring Base64(const std::string& text);

/// The number behind the first occurrence of `label` in `text`; -1 when the label is not there.
std::int64_t NumberAfter(const std::string& text, const std::string& label);

bool Contains(const std::string& text, const std::string& part);

/// The bytes of a file, also while others have it open. Empty when there is none.
std::string ReadFileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
bool FileExists(const std::wstring& path);

/// The lines of a file without their ends, LF or CR LF. What follows the last end is no line yet.
std::vector<std::string> ReadLines(const std::wstring& path);

/// A picture of four pixels, as the bytes of a BMP file.
std::string SmallPicture();

} // namespace sdktest
