#include "tools/vexelctl/console.h"

#include <windows.h>

#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <mutex>

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 4
#endif

namespace vexelctl {
namespace {

bool g_hasColours = false;
std::mutex g_lock; // one writer at a time

bool IsWatched() {
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  return GetConsoleMode(output, &mode) != 0 && SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

void Write(std::FILE* stream, std::string_view text) {
  const std::lock_guard<std::mutex> guard(g_lock);
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

} // namespace

void StartConsole(const std::string& when) {
  _setmode(_fileno(stdout), _O_BINARY); // the same bytes into a file as into a pipe
  SetConsoleOutputCP(CP_UTF8);
  const bool isWatched = IsWatched();
  g_hasColours =
      when == "always" || (when == "auto" && isWatched && GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) == 0);
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
