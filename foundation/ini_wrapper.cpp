#include "foundation/ini_wrapper.h"

#include "foundation/text_codecs.h"
#include "foundation/unique_handle.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/text.h"

#include <algorithm>
#include <cwctype>
#include <vector>

namespace vx::ini {
namespace {

constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057u);
constexpr std::uint32_t kLargestFile = 2097152;    // bytes
constexpr std::size_t kLongestBody = 0x3FFFFFFF;   // units that a narrow body no longer takes
constexpr std::size_t kNarrowBytesForEachUnit = 2; // of a body; what needs more is dropped

constexpr unsigned char kUtf8Mark[] = {0xEF, 0xBB, 0xBF};
constexpr unsigned char kUtf16Mark[] = {0xFF, 0xFE};

std::int32_t HresultFromError(std::uint32_t error) {
  const auto value = static_cast<std::int32_t>(error);
  return value <= 0 ? value : static_cast<std::int32_t>((error & 0xFFFF) | 0x80070000u);
}

/// The whole file with two zero bytes behind it. False when it can't be read whole or is too large.
bool ReadRawFile(const wchar_t* path, std::vector<char>& bytes, std::uint32_t& size) {
  const UniqueFile file(
      platform::CreateFileW(path, platform::kGenericRead, platform::kFileShareRead, platform::kOpenExisting, 0));
  if (!file) {
    return false;
  }
  std::uint32_t high = 0;
  size = platform::GetFileSize(file.Get(), &high);
  if (high != 0 || size > kLargestFile) {
    return false;
  }
  bytes.assign(size + 2, '\0');
  std::uint32_t done = 0;
  return platform::ReadFile(file.Get(), bytes.data(), size, &done) && done == size;
}

/// Little-endian units up to the first zero one, whatever the width of wchar_t.
std::wstring TextFromUnits(const std::vector<char>& bytes) {
  std::wstring text;
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    const auto low = static_cast<unsigned char>(bytes[at]);
    const auto high = static_cast<unsigned char>(bytes[at + 1]);
    if (low == 0 && high == 0) {
      break;
    }
    text += static_cast<wchar_t>(low | high << 8);
  }
  return text;
}

std::string UnitsFromText(const std::wstring& text) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  for (const wchar_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8 & 0xFF);
  }
  return bytes;
}

std::wstring Decode(const std::vector<char>& bytes, IniEncoding encoding) {
  switch (encoding) {
  case INI_ANSI:
    return WideText(bytes.data(), platform::kCodePageThreadAnsi).Get();
  case INI_UTF8:
    return WideText(bytes.data(), platform::kCodePageUtf8).Get();
  case INI_UTF16:
    return TextFromUnits(bytes);
  }
  return {};
}

/// One pass into two bytes for each unit, the terminator included; nothing when that does not suffice.
std::string NarrowBody(const std::wstring& text, std::uint32_t codePage) {
  if (text.size() >= kLongestBody) {
    return {};
  }
  const std::size_t units = std::char_traits<wchar_t>::length(text.c_str()) + 1;
  std::string bytes(units * kNarrowBytesForEachUnit, '\0');
  const int written = platform::WideCharToMultiByte(codePage, text.c_str(), static_cast<int>(units), bytes.data(),
                                                    static_cast<int>(bytes.size()));
  bytes.resize(written > 0 ? static_cast<std::size_t>(written) - 1 : 0);
  return bytes;
}

std::string Encode(const std::wstring& text, IniEncoding encoding) {
  switch (encoding) {
  case INI_ANSI:
    return NarrowBody(text, platform::kCodePageThreadAnsi);
  case INI_UTF8:
    return NarrowBody(text, platform::kCodePageUtf8);
  case INI_UTF16:
    return UnitsFromText(text);
  }
  return {};
}

bool WriteAll(platform::Handle file, const void* data, std::size_t size) {
  std::uint32_t done = 0;
  return platform::WriteFile(file, data, static_cast<std::uint32_t>(size), &done) && done == size;
}

bool WriteMark(platform::Handle file, IniEncoding encoding) {
  switch (encoding) {
  case INI_UTF8:
    return WriteAll(file, kUtf8Mark, sizeof kUtf8Mark);
  case INI_UTF16:
    return WriteAll(file, kUtf16Mark, sizeof kUtf16Mark);
  case INI_ANSI:
    break;
  }
  return true;
}

bool IsSpace(wchar_t unit) { return std::iswspace(static_cast<std::wint_t>(unit)) != 0; }

bool IsBlank(wchar_t unit) { return unit == L' '; }

template <typename Test> std::wstring_view TrimLeft(std::wstring_view text, Test test) {
  while (!text.empty() && test(text.front())) {
    text.remove_prefix(1);
  }
  return text;
}

template <typename Test> std::wstring_view TrimRight(std::wstring_view text, Test test) {
  while (!text.empty() && test(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

template <typename Test> std::wstring_view Trim(std::wstring_view text, Test test) {
  return TrimRight(TrimLeft(text, test), test);
}

/// What one line says: a section, or a key with its value.
struct SplitText {
  std::wstring_view section;
  std::wstring_view key;
  std::wstring_view value;
};

bool SplitLine(std::wstring_view line, SplitText& parts) {
  parts = {};
  if (line.front() == L'[' && line.back() == L']') {
    parts.section = Trim(line.substr(1, line.size() - 2), IsBlank);
    return !parts.section.empty();
  }
  const std::size_t equals = line.find(L'=');
  if (equals == std::wstring_view::npos) {
    return false;
  }
  // Only blanks go: a tab beside "=" belongs to its side.
  parts.key = TrimRight(line.substr(0, equals), IsBlank);
  parts.value = TrimLeft(line.substr(equals + 1), IsBlank);
  return !parts.key.empty();
}

} // namespace

std::int32_t CreateEmptyFile(const wchar_t* path) {
  if (path == nullptr) {
    return kInvalidArgument;
  }
  const std::wstring text = path;
  const std::size_t separator = text.rfind(L'\\');
  if (separator == std::wstring::npos) {
    return kInvalidArgument;
  }
  const int made = platform::SHCreateDirectoryExW(text.substr(0, separator).c_str());
  if (made != 0 && made != static_cast<int>(platform::kErrorFileExists) &&
      made != static_cast<int>(platform::kErrorAlreadyExists)) {
    return HresultFromError(static_cast<std::uint32_t>(made));
  }
  const UniqueFile file(platform::CreateFileW(path, platform::kGenericRead | platform::kGenericWrite,
                                              platform::kFileShareRead | platform::kFileShareWrite,
                                              platform::kCreateNew, platform::kFileAttributeNormal));
  return file ? 0 : HresultFromError(platform::GetLastError());
}

bool KIniWrapper::ParseText(const std::wstring& text) {
  std::wstring_view rest = text;
  const std::size_t first = rest.find(L'[');
  if (first == std::wstring_view::npos) {
    return false;
  }
  rest.remove_prefix(first);
  while (!rest.empty()) {
    const std::size_t end = rest.find(L'\n');
    const std::size_t size = end == std::wstring_view::npos ? rest.size() : end + 1;
    if (!ParseLine(rest.substr(0, size))) {
      return false;
    }
    rest.remove_prefix(size);
  }
  return true;
}

bool KIniWrapper::BuildText(std::wstring& out) {
  out.clear();
  for (const auto& [section, keys] : m_sections) {
    out.append(L"[").append(section).append(L"]\r\n");
    for (const auto& [key, value] : keys) {
      out.append(key).append(L"=").append(value).append(L"\r\n");
    }
  }
  return true;
}

bool KIniWrapper::Load(const wchar_t* path, IniEncoding encoding, std::int32_t createIfMissing, DataCheck validator) {
  if (createIfMissing != 0 && (path == nullptr || !platform::PathFileExistsW(path))) {
    return CreateEmptyFile(path) >= 0;
  }
  Clear();
  std::vector<char> bytes;
  std::uint32_t size = 0;
  if (path == nullptr || !ReadRawFile(path, bytes, size)) {
    return false;
  }
  if (validator != nullptr && validator(bytes.data(), size) == 0) {
    return false;
  }
  std::wstring text;
  try {
    text = Decode(bytes, encoding);
  } catch (const TextError&) {
    return false; // a file is no reason to throw at the caller
  }
  std::replace(text.begin(), text.end(), L'\r', L'\n');
  ParseText(text); // a bad line ends the parse, not the load
  return true;
}

bool KIniWrapper::Save(const wchar_t* path, IniEncoding encoding, DataCheck filter) {
  const UniqueFile file(path == nullptr ? platform::kInvalidHandle
                                        : platform::CreateFileW(path, platform::kGenericWrite, platform::kFileShareRead,
                                                                platform::kCreateAlways, 0));
  if (!file) {
    return false;
  }
  std::wstring text;
  BuildText(text);
  if (!WriteMark(file.Get(), encoding)) {
    return false;
  }
  const std::string body = Encode(text, encoding);
  if (filter != nullptr && filter(body.data(), static_cast<std::uint32_t>(body.size())) == 0) {
    return false;
  }
  return WriteAll(file.Get(), body.data(), body.size());
}

std::int32_t KIniWrapper::GetInt(const std::wstring& section, const std::wstring& key,
                                 std::int32_t defaultValue) const {
  std::wstring foldedSection = section;
  std::wstring foldedKey = key;
  ToLower(foldedSection);
  ToLower(foldedKey);
  const auto keys = m_sections.find(foldedSection);
  if (keys == m_sections.end()) {
    return defaultValue;
  }
  const auto value = keys->second.find(foldedKey);
  return value == keys->second.end() ? defaultValue : DecimalToInt(value->second.c_str());
}

void KIniWrapper::SetInt(const std::wstring& section, const std::wstring& key, std::int32_t value) {
  std::wstring ownSection = section;
  std::wstring ownKey = key;
  SetValue(ownSection, ownKey, std::to_wstring(value));
}

bool KIniWrapper::SetValue(std::wstring& section, std::wstring& key, const std::wstring& value) {
  ToLower(section);
  ToLower(key);
  const auto keys = m_sections.find(section);
  if (keys != m_sections.end()) {
    keys->second.insert_or_assign(key, value);
  } else {
    m_sections.emplace(section, KeyMap{{key, value}});
  }
  return true;
}

void KIniWrapper::Clear() noexcept { m_sections.clear(); }

bool KIniWrapper::ParseLine(std::wstring_view line) {
  line = Trim(Trim(line, IsSpace), IsBlank);
  if (line.empty()) {
    return true;
  }
  SplitText parts;
  if (!SplitLine(line, parts)) {
    return false;
  }
  if (!parts.section.empty()) {
    m_section = parts.section;
  }
  if (!parts.key.empty()) {
    std::wstring key(parts.key);
    SetValue(m_section, key, std::wstring(parts.value));
  }
  return true;
}

} // namespace vx::ini
