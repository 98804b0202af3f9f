#pragma once

#include <cstddef>
#include <string_view>

namespace vx {

/// A function's qualified name as NUL-terminated wide text, made by the compiler.
template <std::size_t kSize> struct FunctionName {
  wchar_t text[kSize] = {};
};

namespace detail {

/// Where the name lies in a pretty signature: [begin, end).
struct NameSpan {
  std::size_t begin;
  std::size_t end;
};

constexpr bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$';
}

constexpr bool StartsAt(std::string_view text, std::size_t at, std::string_view word) {
  return text.substr(at, word.size()) == word;
}

/// The index behind the bracket that closes the one at `at`.
constexpr std::size_t SkipBrackets(std::string_view text, std::size_t at) {
  std::size_t depth = 0;
  for (; at < text.size(); ++at) {
    if (text[at] == '(' || text[at] == '{') {
      ++depth;
    } else if ((text[at] == ')' || text[at] == '}') && --depth == 0) {
      return at + 1;
    }
  }
  return at;
}

/// The first parameter list ends the name; the last blank, "*" or "&" before it, outside of template arguments, begins
/// it. What follows the list is a qualifier, template arguments, or a lambda inside the function.
constexpr NameSpan FindName(std::string_view pretty) {
  std::size_t begin = 0;
  std::size_t angles = 0;
  std::size_t at = 0;
  while (at < pretty.size()) {
    const char c = pretty[at];
    const bool atWord = at == 0 || !IsNameCharacter(pretty[at - 1]);
    if (StartsAt(pretty, at, "{anonymous}::") || StartsAt(pretty, at, "(anonymous namespace)::")) {
      at = SkipBrackets(pretty, at) + 2;
      continue;
    }
    if (atWord && (StartsAt(pretty, at, "decltype(") || StartsAt(pretty, at, "decltype ("))) {
      at = SkipBrackets(pretty, at);
      continue;
    }
    if (angles == 0 && atWord && StartsAt(pretty, at, "operator") &&
        (at + 8 >= pretty.size() || !IsNameCharacter(pretty[at + 8]))) {
      // An operator's own symbol may hold any of the characters that matter here.
      const std::size_t symbol = at + 8;
      const std::size_t from = StartsAt(pretty, symbol, "()") ? symbol + 2 : symbol;
      const std::size_t list = pretty.find('(', from);
      return {begin, list == std::string_view::npos ? pretty.size() : list};
    }
    if (c == '<') {
      ++angles;
    } else if (c == '>') {
      angles -= angles > 0 ? 1 : 0;
    } else if (angles == 0 && c == '(') {
      return {begin, at};
    } else if (angles == 0 && (c == ' ' || c == '*' || c == '&')) {
      begin = at + 1;
    } else if (angles > 0 && c == '(') {
      at = SkipBrackets(pretty, at);
      continue;
    }
    ++at;
  }
  return {begin, pretty.size()};
}

} // namespace detail

/// The qualified name in a compiler's pretty signature, without return type, parameters, qualifiers and unnamed
/// namespaces; a lambda goes by the function around it.
template <std::size_t kSize> consteval FunctionName<kSize> QualifiedFunctionName(const char (&signature)[kSize]) {
  const std::string_view pretty(signature, kSize - 1);
  const detail::NameSpan span = detail::FindName(pretty);
  FunctionName<kSize> name;
  std::size_t length = 0;
  for (std::size_t at = span.begin; at < span.end;) {
    if (detail::StartsAt(pretty, at, "{anonymous}::") || detail::StartsAt(pretty, at, "(anonymous namespace)::")) {
      at = detail::SkipBrackets(pretty, at) + 2;
    } else {
      name.text[length] = static_cast<wchar_t>(static_cast<unsigned char>(pretty[at]));
      ++length;
      ++at;
    }
  }
  return name;
}

} // namespace vx
