#pragma once

#include <map>
#include <string>

/// Reads switches such as `-name`, `/name:value` and `/name:"a value"` from a text. The first occurrence of a name
/// stands; free-standing words are dropped. An object belongs to one thread.
class CCmdLineParser {
public:
  /// Parses `text` at once unless it is null.
  explicit CCmdLineParser(const wchar_t* text = nullptr, bool caseSensitive = false);
  virtual ~CCmdLineParser();

  /// Replaces what is stored by the switches in `text`. True when there is at least one; null changes nothing and gives
  /// false.
  bool Parse(const wchar_t* text);

  /// Whether the text had a switch of that name.
  bool HasKey(const wchar_t* name) const;

  /// The value of a switch, an empty text when it has none; null when there is no such switch. The text stays the
  /// parser's and is good until the next Parse.
  const wchar_t* GetVal(const wchar_t* name) const;

private:
  void StoreSwitch(std::wstring name, const std::wstring& value);
  void FoldName(std::wstring& name) const;

  std::wstring m_sCmdLine;
  std::map<std::wstring, std::wstring> m_ValsMap;
  bool m_bCaseSensitive;
};
