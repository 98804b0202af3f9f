#include "foundation/ini_wrapper.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/reference.h"
#include "tests/sim/file.h"
#include "tests/sim/text.h"
#include "tests/sim/world.h"

#include <algorithm>
#include <map>
#include <memory>

namespace {

using vx::ini::KIniWrapper;

constexpr const wchar_t* kFile = L"C:\\ini\\a.ini";
constexpr const wchar_t* kCopy = L"C:\\ini\\b.ini";

struct Model {
  std::map<std::wstring, std::map<std::wstring, std::wstring>> sections;

  bool operator==(const Model&) const = default;
};

bool IsSpace(wchar_t unit) { return std::iswspace(static_cast<std::wint_t>(unit)) != 0; }

std::wstring WithoutBlanks(std::wstring text, bool left, bool right) {
  while (left && !text.empty() && text.front() == L' ') {
    text.erase(0, 1);
  }
  while (right && !text.empty() && text.back() == L' ') {
    text.pop_back();
  }
  return text;
}

/// The model of a text, line by line. False at the first bad one.
bool ReadModel(const std::wstring& text, Model& model, std::wstring& section) {
  std::size_t at = text.find(L'[');
  if (at == std::wstring::npos) {
    return false;
  }
  while (at < text.size()) {
    const std::size_t end = std::min(text.find(L'\n', at), text.size());
    std::wstring line = text.substr(at, end - at);
    at = end + 1;
    while (!line.empty() && IsSpace(line.front())) {
      line.erase(0, 1);
    }
    while (!line.empty() && IsSpace(line.back())) {
      line.pop_back();
    }
    if (line.empty()) {
      continue;
    }
    if (line.front() == L'[' && line.back() == L']') {
      const std::wstring name = WithoutBlanks(line.substr(1, line.size() - 2), true, true);
      if (name.empty()) {
        return false;
      }
      section = name;
      continue;
    }
    const std::size_t equals = line.find(L'=');
    const std::wstring key = equals == std::wstring::npos ? L"" : WithoutBlanks(line.substr(0, equals), false, true);
    if (key.empty()) {
      return false;
    }
    model.sections[fuzz::Folded(section)][fuzz::Folded(key)] = WithoutBlanks(line.substr(equals + 1), true, false);
  }
  return true;
}

std::wstring TextOf(const Model& model) {
  std::wstring text;
  for (const auto& [section, keys] : model.sections) {
    text.append(L"[").append(section).append(L"]\r\n");
    for (const auto& [key, value] : keys) {
      text.append(key).append(L"=").append(value).append(L"\r\n");
    }
  }
  return text;
}

std::wstring TextOf(KIniWrapper& ini) {
  std::wstring text = L"old";
  fuzz::Check(ini.BuildText(text), "a text can always be built");
  return text;
}

void CheckNumbers(const KIniWrapper& ini, const Model& model) {
  for (const auto& [section, keys] : model.sections) {
    for (const auto& [key, value] : keys) {
      fuzz::Check(ini.GetInt(section, key, 77) == fuzz::ReadNumber(value),
                  "a value reads as the number it begins with");
    }
    fuzz::Check(ini.GetInt(section, L"no\nkey", 77) == 77, "a missing key reads as the default");
  }
  fuzz::Check(ini.GetInt(L"no\nsection", L"k", 78) == 78, "a missing section reads as the default");
}

std::wstring DecodeFile(const std::string& bytes, std::int32_t encoding) {
  switch (encoding) {
  case vx::ini::INI_ANSI: {
    std::wstring text;
    for (const char c : bytes.substr(0, bytes.find('\0'))) {
      text += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return text; // but for the range that the caller has left out
  }
  case vx::ini::INI_UTF8:
    return sim::internal::DecodeUtf8(std::string_view(bytes).substr(0, bytes.find('\0')));
  case vx::ini::INI_UTF16: {
    std::wstring text;
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
      const unsigned high = at + 1 < bytes.size() ? static_cast<unsigned char>(bytes[at + 1]) : 0u;
      const auto unit = static_cast<wchar_t>(static_cast<unsigned char>(bytes[at]) | high << 8);
      if (unit == 0) {
        break;
      }
      text += unit;
    }
    return text;
  }
  default:
    return {};
  }
}

/// The body that a save in an encoding leaves, and whether it says all of the text.
std::string BodyOf(const std::wstring& text, std::int32_t encoding, bool& whole) {
  whole = true;
  std::string body;
  if (encoding == vx::ini::INI_UTF16) {
    for (const wchar_t unit : text) {
      body += static_cast<char>(unit & 0xFF);
      body += static_cast<char>(unit >> 8 & 0xFF);
    }
    return body;
  }
  body = sim::internal::EncodeUtf8(text);
  if (body.size() + 1 > 2 * (text.size() + 1)) { // one pass into two bytes for each unit
    body.clear();
  }
  whole = sim::internal::DecodeUtf8(body) == text; // a half of a pair has no UTF-8 form
  return body;
}

void CheckSave(KIniWrapper& ini, const Model& model, std::int32_t encoding) {
  const std::wstring text = TextOf(model);
  bool whole = true;
  const std::string mark = encoding == vx::ini::INI_UTF16 ? "\xFF\xFE" : "\xEF\xBB\xBF";
  const std::string body = BodyOf(text, encoding, whole);
  fuzz::Check(ini.Save(kCopy, static_cast<vx::ini::IniEncoding>(encoding)), "a save succeeds");
  fuzz::Check(sim::FileBytes(kCopy) == mark + body, "a file holds its mark and the text");
  KIniWrapper copy;
  fuzz::Check(copy.Load(kCopy, static_cast<vx::ini::IniEncoding>(encoding), 0), "what was saved loads");
  // Keys without a section are saved under "[]", which ends the parse.
  if (whole && !model.sections.contains(L"")) {
    fuzz::Check(TextOf(copy) == text, "what was saved comes back");
  }
}

} // namespace

// The first byte chooses the encoding (1 to 3, or none) and whether it is parsed twice, the rest is a file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static int count = 0;
  if (count++ % 1024 == 0) { // the simulated system remembers each open
    static std::unique_ptr<sim::World> world;
    world.reset();
    world = std::make_unique<sim::World>();
    sim::AddFolder(L"C:\\ini");
  }
  fuzz::Input input(data, size);
  const std::uint8_t choice = input.Byte();
  const std::int32_t encoding = choice % 4;
  std::string bytes(input.Rest());
  if (encoding == vx::ini::INI_ANSI) { // where a code page and Unicode agree
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xE0) == 0x80; }, '~');
  }
  sim::AddFile(kFile, bytes);
  std::wstring text = DecodeFile(bytes, encoding);
  std::replace(text.begin(), text.end(), L'\r', L'\n');
  Model model;
  std::wstring section;
  ReadModel(text, model, section);

  KIniWrapper ini;
  for (int turn = 0; turn <= choice / 128; ++turn) {
    if (turn != 0) { // the section of the last line still counts for keys without one
      model = {};
      ReadModel(text, model, section);
    }
    fuzz::Check(ini.Load(kFile, static_cast<vx::ini::IniEncoding>(encoding), 0), "a file loads, however it parses");
  }
  fuzz::Check(TextOf(ini) == TextOf(model), "the model is that of the lines above the first bad one");
  CheckNumbers(ini, model);
  CheckSave(ini, model, vx::ini::INI_UTF8);
  CheckSave(ini, model, vx::ini::INI_UTF16);

  // The same text without a file, as it stands.
  KIniWrapper direct;
  Model directModel;
  std::wstring directSection;
  const std::wstring wide = sim::Wide(input.Rest());
  fuzz::Check(direct.ParseText(wide) == ReadModel(wide, directModel, directSection), "a bad line is told");
  fuzz::Check(TextOf(direct) == TextOf(directModel), "a text has the model of its lines");
  return 0;
}
