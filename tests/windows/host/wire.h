#pragma once

#include <optional>
#include <string>
#include <vector>

// The line protocol of the scripted host: a command is words separated by single blanks, and so is every answer. Text
// of any content travels as one word of plain ASCII.
namespace wire {

/// `text` as one word: each 16-bit unit that is not an ASCII letter, digit or one of "._-:/\\=" stands as "%XXXX" with
/// four hexadecimal digits, so lone surrogates survive. Null is "@null", an empty text "@empty".
std::string Encode(const wchar_t* text);
std::string Encode(const std::wstring& text);

/// The inverse of Encode; nothing for "@null".
std::optional<std::wstring> Decode(const std::string& word);

/// `text` as the rest of a line: backslash, CR and LF stand as "\\\\", "\\r" and "\\n".
std::string Escape(const std::string& text);

/// The inverse of Escape.
std::string Unescape(const std::string& text);

/// The words of a line.
std::vector<std::string> Words(const std::string& line);

} // namespace wire
