#include "public/vexelsdk/cmd_line_parser.h"

#include "foundation/text_codecs.h"

#include <utility>

CCmdLineParser::CCmdLineParser(const wchar_t* text, bool caseSensitive) : m_bCaseSensitive(caseSensitive) {
  if (text != nullptr) {
    Parse(text);
  }
}

CCmdLineParser::~CCmdLineParser() = default;

bool CCmdLineParser::Parse(const wchar_t* text) {
  if (text == nullptr) {
    return false;
  }
  // The copy is what gets scanned: `text` may be a value of this parser.
  m_sCmdLine = text;
  m_ValsMap.clear();

  const std::wstring& line = m_sCmdLine;
  std::size_t cur = 0;
  while (cur < line.size()) {
    const std::size_t mark = line.find_first_of(L"-/", cur);
    if (mark == std::wstring::npos || mark + 1 == line.size()) {
      break;
    }
    const std::size_t name = mark + 1;
    const std::size_t nameEnd = line.find_first_of(L" :", name);
    if (nameEnd == std::wstring::npos) {
      StoreSwitch(line.substr(name), {});
      break;
    }
    if (line[nameEnd] == L' ' || nameEnd + 1 == line.size()) {
      StoreSwitch(line.substr(name, nameEnd - name), {});
      cur = nameEnd + 1;
      continue;
    }

    std::size_t val = nameEnd + 1;
    const bool quoted = line[val] == L'"';
    if (quoted) {
      ++val;
    }
    const std::size_t valEnd = line.find(quoted ? L'"' : L' ', val);
    if (valEnd == std::wstring::npos) {
      StoreSwitch(line.substr(name, nameEnd - name), line.substr(val));
      break;
    }
    StoreSwitch(line.substr(name, nameEnd - name), line.substr(val, valEnd - val));
    cur = valEnd + 1;
  }
  return !m_ValsMap.empty();
}

bool CCmdLineParser::HasKey(const wchar_t* name) const { return GetVal(name) != nullptr; }

const wchar_t* CCmdLineParser::GetVal(const wchar_t* name) const {
  if (name == nullptr) {
    return nullptr;
  }
  std::wstring key = name;
  FoldName(key);
  const auto found = m_ValsMap.find(key);
  return found == m_ValsMap.end() ? nullptr : found->second.c_str();
}

void CCmdLineParser::StoreSwitch(std::wstring name, const std::wstring& value) {
  if (name.empty()) {
    return;
  }
  FoldName(name);
  m_ValsMap.try_emplace(std::move(name), value);
}

void CCmdLineParser::FoldName(std::wstring& name) const {
  if (!m_bCaseSensitive) {
    vx::ToLower(name);
  }
}
