// The picture editor of the examples. One source, two programs: the SDK starts one of them for each application type.

#include "examples/common/drawing.h"
#include "examples/common/text.h"
#include "examples/editor/editor.h"
#include "examples/editor/event_channel.h"
#include "examples/editor/operator_channel.h"
#include "examples/editor/operator_message.h"
#include "examples/editor/pipe_library.h"
#include "examples/editor/zoo.h"

#include <chrono>
#include <cstdlib>
#include <cwchar>
#include <optional>
#include <thread>
#include <utility>

namespace {

using namespace example;

constexpr int kExitUsage = 1;
constexpr int kExitNotServing = 2;

constexpr std::chrono::milliseconds kLastEventsLimit{2000};
constexpr std::chrono::milliseconds kLastReplyPause{50};
constexpr DWORD kEndLimitMs = 5000;

/// Without another way out: the process ends when the time is over, whatever its other threads hang in.
DWORD WINAPI EndGuardThreadFun(void*) {
  Sleep(kEndLimitMs);
  TerminateProcess(GetCurrentProcess(), 0);
  return 0;
}

void AppendLine(const std::wstring& path, const char* text) {
  // Opened for appending alone: a line from each of several editors goes to the end as a whole.
  const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    const std::string line = std::string(text) + "\n";
    DWORD written = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(file);
  }
}

EditorOptions ReadOptions() {
  EditorOptions options;
  const std::wstring idle = Environment(L"VEXEL_EDITOR_IDLE_MS");
  if (!idle.empty()) {
    options.idleMs = std::wcstol(idle.c_str(), nullptr, 10);
    options.idleMs = options.idleMs < 0 ? 0 : options.idleMs;
  }
  const std::wstring answer = Environment(L"VEXEL_EDITOR_ANSWER");
  if (answer == L"save") {
    options.answer = Answer::kSave;
  } else if (answer == L"discard") {
    options.answer = Answer::kDiscard;
  } else if (answer == L"cancel") {
    options.answer = Answer::kCancel;
  }
  options.snapshot =
      ToWide(Replaced(ToUtf8(Environment(L"VEXEL_EDITOR_SNAPSHOT")), "%PID%", std::to_string(GetCurrentProcessId())));
  return options;
}

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, char*, int) {
  if (std::wcsstr(GetCommandLineW(), L"/vexelsdk") == nullptr) {
    MessageBoxW(nullptr, L"This program shows pictures for a browser, which starts it.", L"Picture editor", MB_OK);
    return kExitUsage;
  }
  const Zoo zoo = ParseZoo(ToUtf8(Environment(L"VEXEL_EDITOR_ZOO")), ToUtf8(FileName(ProgramPath())));
  if (zoo.dieAtStart) {
    Crash();
  }
  SetProcessDPIAware();

  const DrawingSession drawing;
  PipeLibrary library;
  if (!drawing.IsReady() || !library.Load()) {
    return kExitNotServing;
  }
  const std::wstring trace = Environment(L"VEXEL_EDITOR_TRACE");
  EventChannel events(library, EventPipeName());
  Editor editor(events, zoo, ReadOptions());
  if (!editor.Create()) {
    return kExitNotServing;
  }

  std::optional<OperatorChannel> operators;
  operators.emplace(library, [&](const char* text) {
    if (!trace.empty()) {
      AppendLine(trace, text);
    }
    if (zoo.hang) {
      Sleep(INFINITE);
    }
    if (zoo.slowMs > 0) {
      Sleep(static_cast<DWORD>(zoo.slowMs));
    }
    OperatorMessage message;
    if (ParseOperatorMessage(text, &message)) {
      if (zoo.dieOnOpen && message.type == "open") {
        Crash();
      }
      editor.Hand(std::move(message));
    }
  });
  if (!zoo.neverServe && !operators->Start("vexel_browser_editor_" + std::to_string(GetCurrentProcessId()))) {
    return kExitNotServing;
  }
  events.Start();
  editor.Run();

  if (const HANDLE guard = CreateThread(nullptr, 0, &EndGuardThreadFun, nullptr, 0, nullptr); guard != nullptr) {
    CloseHandle(guard);
  }
  events.Finish(kLastEventsLimit);
  // The reply to the close is written when its handler has returned; releasing the server cuts it off.
  std::this_thread::sleep_for(kLastReplyPause);
  operators.reset();
  return 0;
}
