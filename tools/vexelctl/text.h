#pragma once

#include <string>
#include <string_view>

// Small questions asked of UTF-8 text. Any thread, no state.
namespace vexelctl {

/// Whether the bytes are valid UTF-8.
bool IsUtf8(std::string_view text);

/// Undoes the log's widening of narrow text, which turns each byte beyond ASCII into a letter of its own: the text with
/// those letters joined again, or the text as it is when it holds nothing to join.
std::string MendWidened(std::string_view text);

/// The text with the letters that mean something in XML written as entities, and control letters as blanks.
std::string XmlEscaped(std::string_view text);

/// The text for a console: control letters and what is no UTF-8 as the letter that stands for the unknown, tabs as blanks.
std::string Printable(std::string_view text);

/// At most `length` letters of a UTF-8 text, the last one an ellipsis when it was cut. `length` is at least 1.
std::string Shortened(std::string_view text, std::size_t length);

/// Whether the brackets of a JSON text could nest deeper than those of any message, which comes from outside and may nest
/// as it likes: what walks through such a value runs out of stack. Counts the opening ones.
bool IsNestedDeep(std::string_view json);

/// The text without blanks, tabs and line ends at both ends.
std::string_view Trimmed(std::string_view text);

} // namespace vexelctl
