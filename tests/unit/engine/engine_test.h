#pragma once

#include "tests/sim/editor.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "tests/unit/engine/engine_probe.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// One engine in a fresh simulated world. The log is at WARNING, so that a close without a link takes its quiet way,
/// until a test asks for INFO. Events of the ids that are registered with Recorder() are kept in order.
class EngineTest : public testing::Test {
protected:
  static constexpr platform::Window kWindow = 0x1001; // numbers of windows that no test looks at
  static constexpr platform::Window kOtherWindow = 0x1002;

  EngineTest();
  ~EngineTest() override;

  /// The engine, built at the first call and again after a teardown. The fixture keeps no reference of its own.
  static std::shared_ptr<VexelSDKThread> Engine() { return VexelSDKThread::GetInstance(); }
  static EngineProbe Probe() { return EngineProbe(Engine()); }

  /// A callback for SetCallback, to be registered with `this` as its user data.
  static BrowserCallback Recorder() { return &EngineTest::Record; }
  /// What else the callback does, on the engine's thread.
  void OnEvent(std::function<void(const std::string&)> action);
  std::vector<std::string> Events();
  /// Whether that many events have come, waiting for them.
  bool WaitForEvents(std::size_t count);
  /// Whether an event has come that holds that text, waiting for it.
  bool WaitForEvent(const std::string& part);
  /// Whether none of the engine's locks was held during the last callback.
  bool LastCallSawFreeLocks();

  /// Opens a picture for a window, registered with Recorder(), and queues the preload behind it. Returns the id.
  std::int32_t Open(platform::Window window, const std::wstring& path = L"C:\\a.png", const std::wstring& param = {});
  /// Open, and waits until the queue is empty. Returns the id; its process is Pid(id).
  std::int32_t OpenAndWait(platform::Window window, const std::wstring& path = L"C:\\a.png",
                           const std::wstring& param = {});
  static std::uint32_t Pid(std::int32_t id) { return Probe().GetPidById(id); }
  /// The texts that an editor has received, waiting until there are `count`.
  static std::vector<std::string> Received(std::uint32_t pid, std::size_t count = 0);
  /// Sends an editor's text and waits until the message thread has taken it.
  void SendAndWait(std::uint32_t pid, const std::string& text);
  static int StartedPrograms() { return static_cast<int>(sim::StartedPrograms().size()); }
  static std::vector<std::uint32_t> StartedPids();
  static void Preload();

  /// Waits until everything queued has been run.
  static bool DrainQueue();
  /// Stops the clock with the queue empty and the operator thread waiting for a record, so that it takes the next one at
  /// once. False when the thread is not free.
  static bool StopIdle();
  /// Stops the clock with the operator thread in its pause, so that what is queued from now on stays in the queue. False
  /// when the thread is not free.
  static bool HoldQueue();
  /// Lets the clock run again, and waits until everything queued has been run.
  static bool ReleaseQueue();
  /// Whether the threads that wait for time have come to their first wait, waiting for it. Before that a rest of the
  /// world does not count them.
  static bool WatchesStand();

  static SDK_OperatorData RecordOf(SDK_Operator op, std::int32_t id);
  static std::string EventText(std::int32_t id, std::uint32_t pid, const std::string& type, const std::string& param);

  /// The texts of the log's lines so far, without their headers.
  static std::vector<std::string> LogLines();
  static bool WaitForLog(const std::string& part);
  /// Those of the log's lines that a function has written, by its name as the lines have it.
  static std::vector<std::string> LogLinesOf(const std::string& function);
  static void LogAt(std::int32_t level);

private:
  static void Record(char* text, void* data);

  sim::World m_world;
  std::mutex m_lock; // guards what follows
  std::vector<std::string> m_events;
  std::function<void(const std::string&)> m_onEvent;
  bool m_sawFreeLocks = false;
};
