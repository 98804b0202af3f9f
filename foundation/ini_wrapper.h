#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace vx::ini {

/// How a file holds its text. Any other number reads as no text and writes none.
enum IniEncoding : std::int32_t {
  INI_ANSI = 1,  // the thread's ANSI code page, no byte order mark
  INI_UTF8 = 2,  // written with a byte order mark
  INI_UTF16 = 3, // little-endian, written with a byte order mark
};

/// Looks at the bytes of a file (`size` bytes); 0 refuses them.
using DataCheck = std::int32_t (*)(const void* bytes, std::uint32_t size);

/// Makes an empty file together with its missing folders. 0, or a negative HRESULT: 0x80070057 for a null path and for
/// one without a backslash, the system's error otherwise, also when the file is there already. Any thread.
std::int32_t CreateEmptyFile(const wchar_t* path);

/// A small ini file, held whole as a sorted model. Section names and keys fold to lower case, values stay as they are.
/// A parse begins at the first "[" and ends without an error at the first line that is neither a section nor a key.
/// There are no comments. A section without keys does not exist.
///
/// An object belongs to one thread. Only the operations that touch a file block. Beside what is said below, any
/// operation may throw std::bad_alloc.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // the two slots are the whole table, and objects live on the stack
class KIniWrapper {
public:
  KIniWrapper() = default;
  ~KIniWrapper() = default;

  /// Adds to the model what wide text says. False when the text has no "[" or the parse met a bad line; what stood
  /// above that line is in the model.
  virtual bool ParseText(const std::wstring& text);

  /// Replaces `out` by the model's text: sections and keys in order, lines ended by CR LF. True.
  virtual bool BuildText(std::wstring& out);

  /// Replaces the model by a file of at most 2 MiB. True when the file was read, also when its text parsed badly.
  /// A missing file, with `createIfMissing` other than 0, is made empty instead: the model is left alone and the result
  /// is that of the making. `validator`, which may be null, can refuse the raw bytes; the model is then empty.
  bool Load(const wchar_t* path, IniEncoding encoding, std::int32_t createIfMissing, DataCheck validator = nullptr);

  /// Replaces a file by the model's text. True when every byte was written; on false the file may be empty or cut.
  /// `filter`, which may be null, can refuse the bytes behind the byte order mark. Text whose narrow form needs more
  /// than two bytes for each unit is dropped, and the result is still true.
  bool Save(const wchar_t* path, IniEncoding encoding, DataCheck filter = nullptr);

  /// The value as a decimal number, 0 when it starts with none, `defaultValue` when the section lacks the key.
  [[nodiscard]] std::int32_t GetInt(const std::wstring& section, const std::wstring& key,
                                    std::int32_t defaultValue) const;

  /// Sets a value to a decimal number.
  void SetInt(const std::wstring& section, const std::wstring& key, std::int32_t value);

  /// Sets a value. Folds `section` and `key` to lower case in place. Names are not checked. True.
  bool SetValue(std::wstring& section, std::wstring& key, const std::wstring& value);

  /// Empties the model.
  void Clear() noexcept;

private:
  using KeyMap = std::map<std::wstring, std::wstring>;

  bool ParseLine(std::wstring_view line);

  std::wstring m_section; // the section being parsed, kept from line to line
  std::map<std::wstring, KeyMap> m_sections;
};
#pragma GCC diagnostic pop

} // namespace vx::ini
