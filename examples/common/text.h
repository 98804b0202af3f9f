#pragma once

#include <string>
#include <string_view>

// Text conversions and the process's surroundings, shared by the example programs. All functions may be called from any
// thread and keep nothing.
namespace example {

/// UTF-16 to UTF-8. What is no valid text becomes the replacement character.
std::string ToUtf8(std::wstring_view text);

/// UTF-8 to UTF-16. What is no valid text becomes the replacement character.
std::wstring ToWide(std::string_view text);

/// The value of an environment variable, empty when it is not set.
std::wstring Environment(const wchar_t* name);

/// The full path of this program.
std::wstring ProgramPath();

/// The part of a path behind its last separator.
std::wstring FileName(const std::wstring& path);

/// The part of a path up to and with its last separator, empty when there is none.
std::wstring Folder(const std::wstring& path);

/// A copy of the text with each occurrence of `what` replaced.
std::string Replaced(std::string text, std::string_view what, std::string_view with);

} // namespace example
