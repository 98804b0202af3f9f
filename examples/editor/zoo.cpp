#include "examples/editor/zoo.h"

#include "examples/common/text.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string_view>

namespace example {
namespace {

std::vector<std::string> Split(const std::string& text, std::string_view separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (true) {
    const std::size_t end = text.find(separator, begin);
    parts.push_back(text.substr(begin, end - begin));
    if (end == std::string::npos) {
      return parts;
    }
    begin = end + separator.size();
  }
}

std::vector<std::string> EventTexts(const std::string& value) {
  if (value.empty() || value[0] != '@') {
    return Split(value, "||");
  }
  std::vector<std::string> lines;
  std::ifstream file(ToWide(value.substr(1)).c_str(), std::ios::binary);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    lines.push_back(line);
  }
  return lines;
}

std::int32_t Number(const std::string& text) {
  const long number = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<std::int32_t>(std::clamp(number, 0L, 100000000L));
}

bool IsSameName(const std::string& a, const std::string& b) { return _stricmp(a.c_str(), b.c_str()) == 0; }

} // namespace

Zoo ParseZoo(const std::string& list, const std::string& programName) {
  Zoo zoo;
  for (std::string item : Split(list, ";")) {
    // A colon further on belongs to the value.
    const std::size_t colon = item.substr(0, item.find('=')).find(':');
    if (colon != std::string::npos) {
      if (!IsSameName(item.substr(0, colon), programName)) {
        continue;
      }
      item.erase(0, colon + 1);
    }
    const std::size_t equals = item.find('=');
    const std::string name = item.substr(0, equals);
    const std::string value = equals == std::string::npos ? std::string() : item.substr(equals + 1);
    if (name == "hang") {
      zoo.hang = true;
    } else if (name == "die_at_start") {
      zoo.dieAtStart = true;
    } else if (name == "die_on_open") {
      zoo.dieOnOpen = true;
    } else if (name == "die_mid_message") {
      zoo.dieMidMessage = true;
    } else if (name == "never_serve") {
      zoo.neverServe = true;
    } else if (name == "flood") {
      zoo.flood = Number(value);
    } else if (name == "slow") {
      zoo.slowMs = Number(value);
    } else if (name == "exit_after_open") {
      zoo.exitAfterOpenMs = Number(value);
    } else if (name == "crash_after_open") {
      zoo.crashAfterOpenMs = Number(value);
    } else if (name == "events") {
      zoo.events = EventTexts(value);
    }
  }
  return zoo;
}

void CrashInMidMessage(const std::string& pipeName) {
  const std::wstring path = L"\\\\.\\pipe\\" + ToWide(pipeName);
  const HANDLE pipe = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (pipe != INVALID_HANDLE_VALUE) {
    // A frame is its length in four bytes and the text; this one announces 100 bytes.
    constexpr char kHalf[] = "\x64\0\0\0{\"type\":\"custom_message\",\"par";
    DWORD written = 0;
    WriteFile(pipe, kHalf, sizeof(kHalf) - 1, &written, nullptr);
  }
  Crash();
}

void Crash() {
  TerminateProcess(GetCurrentProcess(), 3);
  std::_Exit(3);
}

} // namespace example
