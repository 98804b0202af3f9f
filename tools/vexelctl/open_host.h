#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <windows.h>

#include "tools/vexelctl/close_gate.h"
#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/open_output.h"
#include "tools/vexelctl/script.h"
#include "tools/vexelctl/sdk_library.h"

namespace vexelctl {

// One window and its id.
struct Picture {
  HWND window = nullptr;
  std::int64_t openedAt = 0; // of the latest OpenEditor
  bool hasOpenOutcome = false;
  std::int64_t settledAt = 0; // by when the editor has told whether it shows the picture, if it tells
  bool isTold = false;        // it has
  bool isShown = false;       // "open_pic_success" has come for an open
  bool isFailed = false;
  bool isClosed = false;       // CloseEditor has been called, or the id is finished
  bool asksUser = false;       // the close waits for the user
  bool isLate = false;         // the limit, or that the SDK has given it up, has been told
  std::int64_t overSince = -1; // the SDK says that the id is over
};

/// A host in a console: opens pictures in windows of its own, prints what the SDK reports, and does what standard input
/// asks for. The main thread owns it; the SDK's threads and that of the input hand over through the queues under m_lock.
class OpenHost {
public:
  OpenHost(const OpenOptions& options, const SdkLibrary& sdk)
      : m_options(options), m_sdk(sdk), m_output(options.isJson) {}

  /// Prepares the windows, the record and Ctrl+C. False when that fails, which has been said.
  bool CreateClass();

  /// Makes a window for a picture. Null when that fails: there is no display.
  HWND MakeWindow(const std::wstring& path);

  /// Opens a picture in a window.
  void OpenIn(HWND window, const std::wstring& path);

  /// Runs until the input, the time or the person ends it; closes what is open and ends the SDK. The exit code.
  int Run();

  // From any thread.
  void TakeLine(std::string line);
  void EndOfInput();
  /// Counts at once, also while a command waits. False when it has been called before.
  bool Interrupt();
  void TakeEvent(HostEvent event);
  std::int64_t Now() const { return m_output.Now(); }

private:
  void Handle(const HostEvent& event);
  void HandleEvents();
  void HandleLines();
  void Execute(const Command& command);
  std::vector<std::int32_t> Targets(const Command& command);
  void AskClose(std::int32_t id, bool closeAll);
  void CloseNow(std::int32_t id, bool closeAll);
  void DropWindow(std::int32_t id, Picture& picture);
  void CheckLimits();
  bool IsSettled() const;
  bool IsAllClosed();
  void BeginEnd(const char* why);
  void Record(const std::string& line);
  void BeginRecord();
  void EndSdk();
  int Finish();
  std::wstring Param() const;

  const OpenOptions& m_options;
  const SdkLibrary& m_sdk;
  const OpenOutput m_output;
  HANDLE m_wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  CloseGate m_gate;
  std::map<std::int32_t, Picture> m_pictures;
  std::int32_t m_lastId = 0;
  bool m_isStarted = false; // the SDK has been started: before the first open there is no need
  bool m_isEnding = false;
  std::int64_t m_endingSince = 0;
  bool m_hasFailed = false;
  bool m_hasCommand = false; // one has come that makes sense
  std::FILE* m_record = nullptr;
  std::int64_t m_recordedAt = 0;
  // What holds up the commands that follow.
  std::int64_t m_waitUntil = -1;
  std::string m_expected;
  std::deque<std::int32_t> m_expectedIds; // that it has not come for yet
  std::int64_t m_expectUntil = -1;
  std::map<std::int32_t, std::deque<std::string>> m_unexpected; // events since the id's last command, for "expect"

  std::mutex m_lock; // guards what follows
  std::deque<HostEvent> m_events;
  std::deque<std::string> m_lines;
  bool m_isInputOver = false;
  bool m_isInterrupted = false;
};

} // namespace vexelctl
