// The example host: shows the pictures of its command line in tabs, through the SDK.

#include "examples/common/drawing.h"
#include "examples/common/text.h"
#include "examples/host/host.h"
#include "examples/host/output.h"
#include "examples/host/sdk.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <iostream>
#include <thread>
#include <utility>

namespace {

using namespace example;

constexpr int kExitNotShown = 1;
constexpr int kExitUsage = 2;

constexpr char kUsage[] =
    "usage: examplehost [OPTIONS] PICTURE...\n"
    "Shows each picture in a tab and prints every event as a line of JSON.\n"
    "  --shot FILE.png   when all pictures are shown and one is seen, save a screenshot and leave\n"
    "  --seconds N       leave after N seconds\n"
    "  --type N          the open type (1)\n"
    "  --param TEXT      the open parameter as it stands, base64 text\n"
    "  --app N           the open parameter that selects the program: 1 webvexlaunch.exe, 2 vxpixeleditor.exe\n"
    "  --script TEXT     commands, separated by ';'\n"
    "  --stdin           take commands from standard input, one in a line\n"
    "  --quiet           print no events\n"
    "Commands: rotate, left, flip, zoomin, zoomout, fit, saved, operate N, command N, theme, dark, light, fullscreen,\n"
    "  tab N, open PATH, reopen, close, isclose ID, move X Y W H, wait MS, shown, shot FILE.png, exit\n"
    "Keys: R L F rotate and flip, + - 0 zoom, S mark as saved, T theme, F11 full screen, Ctrl+Tab next tab,\n"
    "  Ctrl+W close the tab, Enter open a crashed picture again\n";

std::string Base64(const std::string& bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      out += i + j <= bytes.size() ? kLetters[group >> (18 - 6 * j) & 63] : '=';
    }
  }
  return out;
}

std::wstring FullPath(const std::wstring& path) {
  std::wstring full(32768, L'\0');
  const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  full.resize(length < full.size() ? length : 0);
  return full;
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

void SplitScript(const std::string& text, std::deque<std::string>* commands) {
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find(';', begin), text.size());
    commands->push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
}

/// Reads the command line. False with a sentence when it makes no sense.
bool ReadOptions(int count, wchar_t** arguments, HostOptions* options, bool* isQuiet, bool* isStdin,
                 std::string* error) {
  for (int i = 1; i < count; ++i) {
    const std::wstring argument = arguments[i];
    if (argument.rfind(L"--", 0) != 0) {
      const std::wstring path = FullPath(argument);
      if (!IsFile(path)) {
        *error = "there is no picture '" + ToUtf8(argument) + "'.";
        return false;
      }
      options->pictures.push_back(path);
      continue;
    }
    if (argument == L"--quiet") {
      *isQuiet = true;
      continue;
    }
    if (argument == L"--stdin") {
      *isStdin = true;
      continue;
    }
    if (i + 1 == count) {
      *error = "'" + ToUtf8(argument) + "' is no option, or lacks its value.";
      return false;
    }
    const std::wstring value = arguments[++i];
    if (argument == L"--shot") {
      options->shot = FullPath(value);
    } else if (argument == L"--seconds") {
      options->limitMs = std::wcstol(value.c_str(), nullptr, 10) * 1000LL;
    } else if (argument == L"--type") {
      options->openType = static_cast<std::int32_t>(std::wcstol(value.c_str(), nullptr, 10));
    } else if (argument == L"--param") {
      options->param = value;
      options->hasParam = true;
    } else if (argument == L"--app") {
      options->param = ToWide(Base64("/apptype:" + ToUtf8(value)));
      options->hasParam = true;
    } else if (argument == L"--script") {
      SplitScript(ToUtf8(value), &options->script);
    } else {
      *error = "'" + ToUtf8(argument) + "' is no option.";
      return false;
    }
  }
  return true;
}

int Fail(const std::string& sentence, int code) {
  std::fprintf(stderr, "examplehost: %s\n", sentence.c_str());
  return code;
}

} // namespace

int wmain(int count, wchar_t** arguments) {
  HostOptions options;
  Output output;
  bool isQuiet = false;
  bool isStdin = false;
  std::string error;
  if (!ReadOptions(count, arguments, &options, &isQuiet, &isStdin, &error)) {
    return Fail(error, kExitUsage);
  }
  if (options.pictures.empty() && options.script.empty() && !isStdin) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  output.SetQuiet(isQuiet);

  SetProcessDPIAware();
  Sdk sdk;
  if (!sdk.Load(&error)) {
    return Fail(error, kExitUsage);
  }
  const DrawingSession drawing;
  if (!drawing.IsReady()) {
    return Fail("GDI+ could not be started.", kExitUsage);
  }
  // Never destroyed: the thread that reads standard input has no end of its own.
  Host* host = new Host(sdk, output, std::move(options));
  if (!host->Create()) {
    return Fail("no window can be made: is there a display?", kExitUsage);
  }
  if (isStdin) {
    std::thread([host] {
      for (std::string line; std::getline(std::cin, line);) {
        host->Command(line.substr(0, line.find('\r')));
      }
    }).detach();
  }
  const bool isShown = host->Run();
  if (isStdin) {
    // That thread sits in a read and would hold up the runtime's end.
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), isShown ? 0 : kExitNotShown);
  }
  return isShown ? 0 : kExitNotShown;
}
