#include "tools/vexelctl/console.h"

#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <iostream>
#include <mutex>
#include <optional>

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 4
#endif

namespace vexelctl {
namespace {

bool g_hasColours = false;
std::mutex g_lock; // one writer at a time

// What StartConsole has found.
struct Found {
  UINT codePage = 0; // 0 without a console
  std::optional<DWORD> mode;
};
std::optional<Found> g_found;

bool IsWatched() {
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  return g_found->mode.has_value() && SetConsoleMode(output, *g_found->mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

// A line that is typed: its bytes would be in the console's input code page, its letters are not.
bool ReadTypedLine(std::string* line) {
  static std::wstring rest; // what was read behind the line's end
  std::wstring text;
  for (;;) {
    if (const std::size_t end = rest.find(L'\n'); end != std::wstring::npos) {
      text = rest.substr(0, end);
      rest.erase(0, end + 1);
      break;
    }
    wchar_t part[512];
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    if (ReadConsoleW(GetStdHandle(STD_INPUT_HANDLE), part, static_cast<DWORD>(std::size(part)), &count, nullptr) == 0) {
      return false;
    }
    if (count == 0 && GetLastError() != ERROR_OPERATION_ABORTED) { // which it is behind Ctrl+C
      return false;
    }
    rest.append(part, count);
  }
  if (!text.empty() && text.front() == L'\x1A') { // Ctrl+Z
    return false;
  }
  *line = ToUtf8(text);
  return true;
}

void Write(std::FILE* stream, std::string_view text) {
  const std::lock_guard<std::mutex> guard(g_lock);
  const HANDLE console = GetStdHandle(stream == stdout ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  if (DWORD mode = 0; GetConsoleMode(console, &mode) != 0) {
    // As letters: the runtime may hand bytes on one by one, which tears a letter of several apart.
    const std::wstring letters = ToWide(text);
    for (std::size_t at = 0; at < letters.size();) {
      const auto size = static_cast<DWORD>(std::min<std::size_t>(letters.size() - at, 8000));
      DWORD done = 0;
      if (WriteConsoleW(console, letters.data() + at, size, &done, nullptr) == 0 || done == 0) {
        return;
      }
      at += done;
    }
    return;
  }
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

} // namespace

void StartConsole(const std::string& when) {
  _setmode(_fileno(stdout), _O_BINARY); // the same bytes into a file as into a pipe
  if (!g_found.has_value()) {
    g_found.emplace();
    g_found->codePage = GetConsoleOutputCP();
    DWORD mode = 0;
    if (GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0) {
      g_found->mode = mode;
    }
  }
  SetConsoleOutputCP(CP_UTF8);
  const bool isWatched = IsWatched();
  g_hasColours =
      when == "always" || (when == "auto" && isWatched && GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) == 0);
}

void EndConsole() {
  if (!g_found.has_value()) {
    return;
  }
  if (g_found->mode.has_value()) {
    SetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), *g_found->mode);
  }
  if (g_found->codePage != 0) {
    SetConsoleOutputCP(g_found->codePage);
  }
}

bool IsTyped() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

bool ReadLine(std::string* line) {
  if (!(IsTyped() ? ReadTypedLine(line) : static_cast<bool>(std::getline(std::cin, *line)))) {
    return false;
  }
  line->resize(std::min(line->find('\r'), line->size()));
  return true;
}

std::string Painted(Colour colour, std::string_view text) {
  if (!g_hasColours || colour == Colour::kNone) {
    return std::string(text);
  }
  const char* code = "0";
  switch (colour) {
  case Colour::kRed:
    code = "31";
    break;
  case Colour::kGreen:
    code = "32";
    break;
  case Colour::kYellow:
    code = "33";
    break;
  case Colour::kBlue:
    code = "36";
    break;
  case Colour::kGrey:
    code = "90";
    break;
  case Colour::kBold:
    code = "1";
    break;
  case Colour::kNone:
    break;
  }
  return std::string("\x1b[") + code + "m" + std::string(text) + "\x1b[0m";
}

void PrintLine(std::string_view line) { Write(stdout, std::string(line) + "\n"); }

void PrintText(std::string_view text) { Write(stdout, text); }

void Warn(const std::string& sentence) { Write(stderr, "vexelctl: " + sentence + "\n"); }

int Fail(const std::string& sentence, int code) {
  Warn(sentence);
  return code;
}

} // namespace vexelctl
