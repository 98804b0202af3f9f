#include "tests/windows/host/commands.h"

#include "tests/windows/host/events.h"
#include "tests/windows/host/process_probe.h"
#include "tests/windows/host/sdk_library.h"
#include "tests/windows/host/stage.h"
#include "tests/windows/host/usage.h"
#include "tests/windows/host/wire.h"

#include <windows.h>

#include <cstdlib>
#include <exception>
#include <map>
#include <optional>
#include <thread>
#include <vector>

namespace testhost {
namespace {

using Arguments = std::vector<std::string>;

/// What stands behind the end of a buffer, and in what has not been written.
constexpr wchar_t kUntouched = 0xCDCD;

std::int64_t Number(const Arguments& arguments, std::size_t index) {
  return std::strtoll(arguments.at(index).c_str(), nullptr, 10);
}

std::int32_t Int(const Arguments& arguments, std::size_t index) {
  return static_cast<std::int32_t>(Number(arguments, index));
}

bool Bool(const Arguments& arguments, std::size_t index) { return Number(arguments, index) != 0; }

HWND Window(const Arguments& arguments, std::size_t index) {
  return reinterpret_cast<HWND>(static_cast<std::intptr_t>(Number(arguments, index)));
}

std::string Value(std::int64_t value) { return "value " + std::to_string(value); }

std::string Utf8(const std::wstring& text) {
  const int units = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), units, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), units, narrow.data(), size, nullptr, nullptr);
  return narrow;
}

const wchar_t* Pointer(const std::optional<std::wstring>& text) { return text ? text->c_str() : nullptr; }

/// load PATH: how many of the sixteen functions were found, -1 when the library does not load.
std::string Load(const Arguments& a) { return Value(LoadSdk(wire::Decode(a.at(1)).value_or(L""))); }

std::string Unload(const Arguments&) { return Value(UnloadSdk()); }

std::string Init(const Arguments&) { return Value(LoadedSdk().init(nullptr)); }

std::string UnInit(const Arguments&) { return Value(LoadedSdk().unInit()); }

/// window: the handle of a new window.
std::string MakeWindow(const Arguments&) { return Value(reinterpret_cast<std::intptr_t>(CreateStageWindow())); }

std::string EndWindow(const Arguments& a) { return Value(DestroyStageWindow(Window(a, 1))); }

std::string ExStyle(const Arguments& a) { return Value(GetWindowLongPtrW(Window(a, 1), GWL_EXSTYLE)); }

/// open WINDOW PATH TYPE PARAM [MODE]: the id; with a mode the callback is registered in the same breath.
std::string Open(const Arguments& a) {
  const auto path = wire::Decode(a.at(2));
  const auto param = wire::Decode(a.at(4));
  const std::int32_t id = LoadedSdk().openEditor(Pointer(path), Window(a, 1), Int(a, 3), Pointer(param));
  if (a.size() > 5 && id > 0 && !Register(id, a[5])) {
    return "err mode";
  }
  return Value(id);
}

/// openclose WINDOW PATH: an open and a close with nothing in between.
std::string OpenClose(const Arguments& a) {
  const auto path = wire::Decode(a.at(2));
  const std::int32_t id = LoadedSdk().openEditor(Pointer(path), Window(a, 1), 0, nullptr);
  Register(id, "on");
  const bool waits = LoadedSdk().closeEditor(id, false);
  return Value(id) + " " + std::to_string(waits);
}

std::string Callback(const Arguments& a) { return Register(Int(a, 1), a.at(2)) ? "ok" : "err mode"; }

std::string Close(const Arguments& a) { return Value(LoadedSdk().closeEditor(Int(a, 1), a.size() > 2 && Bool(a, 2))); }

std::string IsClose(const Arguments& a) { return Value(LoadedSdk().isClose(Int(a, 1))); }

std::string FullScreen(const Arguments& a) {
  LoadedSdk().fullScreen(Int(a, 1), Bool(a, 2));
  return "ok";
}

std::string SetPos(const Arguments& a) {
  LoadedSdk().setWindowsPos(Int(a, 1), Int(a, 2), Int(a, 3), Int(a, 4), Int(a, 5));
  return "ok";
}

std::string Theme(const Arguments& a) {
  LoadedSdk().changeThemeMode(Bool(a, 1));
  return "ok";
}

std::string Operate(const Arguments& a) { return Value(LoadedSdk().operatePic(Int(a, 1), Int(a, 2))); }

std::string Command(const Arguments& a) { return Value(LoadedSdk().doBrowserCommand(Int(a, 1), Int(a, 2))); }

/// extensions SIZE|null: the result, how many units were written, and the text up to its terminator.
std::string Extensions(const Arguments& a) {
  if (a.at(1) == "null") {
    return Value(LoadedSdk().getExtensions(nullptr, VEXELSDK_EXTENSIONS_SIZE)) + " 0 @null";
  }
  const std::size_t size = static_cast<std::size_t>(Number(a, 1));
  std::vector<wchar_t> buffer(size + VEXELSDK_EXTENSIONS_SIZE, kUntouched);
  const std::int32_t fits = LoadedSdk().getExtensions(buffer.data(), static_cast<std::uint32_t>(size));
  std::size_t written = buffer.size();
  while (written > 0 && buffer[written - 1] == kUntouched) {
    --written;
  }
  const std::wstring text = written == 0 ? std::wstring() : std::wstring(buffer.data());
  return Value(fits) + " " + std::to_string(written) + " " + wire::Encode(text);
}

std::string Switch(const Arguments& a) {
  const auto name = wire::Decode(a.at(1));
  return Value(name ? LoadedSdk().getSwitchValue(Utf8(*name).c_str()) : LoadedSdk().getSwitchValue(nullptr));
}

/// preview: IsPreviewValid, IsSupportPreview.
std::string Preview(const Arguments&) {
  return Value(LoadedSdk().isPreviewValid()) + " " + std::to_string(LoadedSdk().isSupportPreview());
}

std::string Pause(const Arguments& a) {
  Sleep(static_cast<DWORD>(Number(a, 1)));
  return "ok";
}

std::string CloseHandles(const Arguments& a) {
  return Value(static_cast<std::int64_t>(CloseHandlesTo(static_cast<std::uint32_t>(Number(a, 1)))));
}

/// reap: closes the handles left over from looks at processes that have ended, and gives how many.
std::string Reap(const Arguments&) { return Value(static_cast<std::int64_t>(CloseHandlesToTheDead())); }

/// usage: what this process holds: "value HEAP-BYTES HEAP-BLOCKS PRIVATE-BYTES THREADS", then TYPE=COUNT for handles.
std::string ShowUsage(const Arguments&) {
  const Usage usage = MeasureUsage();
  std::string answer = Value(static_cast<std::int64_t>(usage.heapBytes)) + " " + std::to_string(usage.heapBlocks) +
                       " " + std::to_string(usage.privateBytes) + " " + std::to_string(usage.threads);
  for (const auto& [type, count] : usage.handles) {
    answer += " " + type + "=" + std::to_string(count);
  }
  return answer;
}

/// mutexes: how many handles of this process are open to the SDK's named mutex.
std::string Mutexes(const Arguments&) { return Value(static_cast<std::int64_t>(CountInstanceMutexes())); }

/// setenv NAME TEXT: for this process and what it starts from now on.
std::string SetEnvironment(const Arguments& a) {
  const std::wstring name(a.at(1).begin(), a.at(1).end());
  return SetEnvironmentVariableW(name.c_str(), Pointer(wire::Decode(a.at(2)))) ? "ok" : "err setenv";
}

/// release: gives back what the mode "hold" has kept. How many buffers were received and given back so far.
std::string Release(const Arguments&) {
  const BufferCounts counts = ReleaseHeld();
  return Value(static_cast<std::int64_t>(counts.received)) + " " + std::to_string(counts.released);
}

std::string EndBlock(const Arguments&) {
  Unblock();
  return "ok";
}

std::string Faults(const Arguments&) {
  WatchFaults();
  return "ok";
}

/// The calls of one of the threads of "crowd": how many results were not the right ones.
int CallAll(std::int32_t id, int rounds) {
  const Sdk& sdk = LoadedSdk();
  int wrong = 0;
  for (int round = 0; round < rounds; ++round) {
    std::vector<wchar_t> extensions(VEXELSDK_EXTENSIONS_SIZE);
    wrong += sdk.getExtensions(extensions.data(), VEXELSDK_EXTENSIONS_SIZE) == 1 ? 0 : 1;
    wrong += sdk.openEditor(nullptr, nullptr, 0, nullptr) == VEXELSDK_INVALID_ID ? 0 : 1;
    wrong += sdk.isPreviewValid() ? 0 : 1;
    wrong += sdk.getSwitchValue(nullptr) == VEXELSDK_SWITCH_NO_NAME ? 0 : 1;
    wrong += sdk.isClose(id) ? 1 : 0;
    wrong += sdk.operatePic(id, round) ? 0 : 1;
    wrong += sdk.doBrowserCommand(id, round) ? 0 : 1;
    wrong += Register(id, "on") ? 0 : 1;
    sdk.isSupportPreview();
    sdk.fullScreen(id, false);
    sdk.setWindowsPos(id, round, round, round, round);
    if (round == 0) {
      sdk.changeThemeMode(true); // a record for every id, so once is plenty
    }
    sdk.releaseCallbackData(nullptr);
  }
  return wrong;
}

/// crowd THREADS ROUNDS FIRST-ID: calls the exports from many threads at once, each on an id of its own.
std::string Crowd(const Arguments& a) {
  const std::size_t count = static_cast<std::size_t>(Number(a, 1));
  const int rounds = Int(a, 2);
  const std::int32_t firstId = Int(a, 3);
  std::vector<int> wrong(count);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back(
        [&wrong, i, firstId, rounds] { wrong[i] = CallAll(firstId + static_cast<std::int32_t>(i), rounds); });
  }
  int sum = 0;
  for (std::size_t i = 0; i < count; ++i) {
    threads[i].join();
    sum += wrong[i];
  }
  return Value(sum);
}

/// crowdopen THREADS: opens from many threads at once, each for a window handle of its own that no window has; the ids.
std::string CrowdOpen(const Arguments& a) {
  const std::size_t count = static_cast<std::size_t>(Number(a, 1));
  std::vector<std::int32_t> ids(count);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back([&ids, i] {
      // No application type has this number, so no program is started for it.
      ids[i] = LoadedSdk().openEditor(L"", reinterpret_cast<VexelWindow>(0x10000 + i), 0, L"L2FwcHR5cGU6OTk=");
    });
  }
  std::string answer = "value";
  for (std::size_t i = 0; i < count; ++i) {
    threads[i].join();
    answer += " " + std::to_string(ids[i]);
  }
  return answer;
}

/// quit [CODE]: ends the host in the ordinary way, without a teardown of the SDK.
std::string Quit(const Arguments& a) { std::exit(a.size() > 1 ? Int(a, 1) : 0); }

const std::map<std::string, std::string (*)(const Arguments&)>& Commands() {
  static const std::map<std::string, std::string (*)(const Arguments&)> kCommands{
      {"load", &Load},
      {"unload", &Unload},
      {"init", &Init},
      {"uninit", &UnInit},
      {"window", &MakeWindow},
      {"destroywindow", &EndWindow},
      {"exstyle", &ExStyle},
      {"open", &Open},
      {"openclose", &OpenClose},
      {"callback", &Callback},
      {"close", &Close},
      {"isclose", &IsClose},
      {"fullscreen", &FullScreen},
      {"setpos", &SetPos},
      {"theme", &Theme},
      {"operate", &Operate},
      {"command", &Command},
      {"extensions", &Extensions},
      {"switch", &Switch},
      {"preview", &Preview},
      {"sleep", &Pause},
      {"killhandles", &CloseHandles},
      {"mutexes", &Mutexes},
      {"reap", &Reap},
      {"usage", &ShowUsage},
      {"setenv", &SetEnvironment},
      {"release", &Release},
      {"unblock", &EndBlock},
      {"watchfaults", &Faults},
      {"crowd", &Crowd},
      {"crowdopen", &CrowdOpen},
      {"quit", &Quit},
  };
  return kCommands;
}

} // namespace

std::string Obey(const std::string& line) {
  const Arguments arguments = wire::Words(line);
  const auto found = Commands().find(arguments.empty() ? std::string() : arguments[0]);
  if (found == Commands().end()) {
    return "err unknown command";
  }
  try {
    return found->second(arguments);
  } catch (const std::exception& error) {
    return std::string("err ") + error.what();
  }
}

} // namespace testhost
