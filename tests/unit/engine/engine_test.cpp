#include "tests/unit/engine/engine_test.h"

#include "foundation/logger.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/sync.h"

#include <algorithm>
#include <sstream>

EngineTest::EngineTest() {
  vx::ResetLogger({});
  LogAt(vx::LOG_WARNING);
}

EngineTest::~EngineTest() {
  sim::SetClockSpeed(20); // a teardown waits for what is queued, which takes time
  VexelSDKThread::DestroyInstance(VexelSDKThread::GetInstance());
  vx::ResetLogger({});
}

void EngineTest::LogAt(std::int32_t level) {
  vx::EnsureLoggerReady();
  vx::SetMinLogLevel(level);
}

void EngineTest::Record(char* text, void* data) {
  auto* const test = static_cast<EngineTest*>(data);
  const std::string event = text;
  FreeCallbackText(text);
  const bool free = Probe().MutexesAreFree();
  std::function<void(const std::string&)> action;
  {
    const std::lock_guard lock(test->m_lock);
    test->m_events.push_back(event);
    test->m_sawFreeLocks = free;
    action = test->m_onEvent;
  }
  if (action) {
    action(event);
  }
}

void EngineTest::OnEvent(std::function<void(const std::string&)> action) {
  const std::lock_guard lock(m_lock);
  m_onEvent = std::move(action);
}

std::vector<std::string> EngineTest::Events() {
  const std::lock_guard lock(m_lock);
  return m_events;
}

bool EngineTest::WaitForEvents(std::size_t count) {
  return sim::WaitFor([&] { return Events().size() >= count; });
}

bool EngineTest::WaitForEvent(const std::string& part) {
  return sim::WaitFor([&] {
    for (const std::string& event : Events()) {
      if (event.find(part) != std::string::npos) {
        return true;
      }
    }
    return false;
  });
}

bool EngineTest::LastCallSawFreeLocks() {
  const std::lock_guard lock(m_lock);
  return m_sawFreeLocks;
}

bool EngineTest::DrainQueue() {
  return sim::WaitFor([] { return Probe().OperatorIsIdle(); });
}

bool EngineTest::StopIdle() {
  // Before its first wait a rest does not count the thread.
  if (!DrainQueue() || !sim::WaitFor([] { return sim::SomeoneWaitsOnAWord(); })) {
    return false;
  }
  sim::SetClockSpeed(0);
  return sim::WaitForRest();
}

bool EngineTest::HoldQueue() {
  constexpr std::int32_t kNobody = 0x7000; // an id that nothing else uses; its record has no effect but the pause
  if (!StopIdle()) {
    return false;
  }
  Engine()->DoOperator(RecordOf(SDK_NONE, kNobody));
  return sim::WaitFor([] { return Probe().Queued() == 0; });
}

bool EngineTest::ReleaseQueue() {
  sim::SetClockSpeed(1);
  return DrainQueue();
}

bool EngineTest::WatchesStand() {
  return sim::WaitFor(
      [] { return sim::SomeoneWaitsFor(10) && sim::SomeoneWaitsFor(2000) && sim::SomeoneWaitsFor(5000); });
}

SDK_OperatorData EngineTest::RecordOf(SDK_Operator op, std::int32_t id) {
  SDK_OperatorData record;
  record.m_op = op;
  record.m_id = id;
  return record;
}

std::string EngineTest::EventText(std::int32_t id, std::uint32_t pid, const std::string& type,
                                  const std::string& param) {
  return "{\"id\":" + std::to_string(id) + ",\"param\":\"" + param + "\",\"process_id\":" + std::to_string(pid) +
         ",\"status\":true,\"type\":\"" + type + "\"}";
}

std::int32_t EngineTest::Open(platform::Window window, const std::wstring& path, const std::wstring& param) {
  SDK_OperatorData record = RecordOf(SDK_OPEN, Engine()->AllocateEditorId(window));
  record.m_tabwnd = window;
  record.m_path = path;
  record.m_param = param;
  Engine()->SetCallback(record.m_id, Recorder(), this);
  Engine()->DoOperator(record);
  Preload();
  return record.m_id;
}

std::int32_t EngineTest::OpenAndWait(platform::Window window, const std::wstring& path, const std::wstring& param) {
  const std::int32_t id = Open(window, path, param);
  EXPECT_TRUE(DrainQueue());
  return id;
}

void EngineTest::Preload() { Engine()->DoOperator(RecordOf(SDK_PreLoadProcess, 0)); }

std::vector<std::string> EngineTest::Received(std::uint32_t pid, std::size_t count) {
  EXPECT_TRUE(sim::WaitFor([&] { return sim::ReceivedTexts(pid).size() >= count; }));
  std::vector<std::string> texts;
  for (const sim::ReceivedText& received : sim::ReceivedTexts(pid)) {
    texts.push_back(received.text);
  }
  return texts;
}

void EngineTest::SendAndWait(std::uint32_t pid, const std::string& text) {
  ASSERT_TRUE(sim::SendEvent(pid, text));
  ASSERT_TRUE(sim::FlushEvents(pid));
  // Passes of the message thread behind the arrival, the first of which may have begun before it: with an empty queue
  // nobody else sleeps.
  ASSERT_TRUE(DrainQueue());
  const int before = sim::CallCount("Sleep");
  ASSERT_TRUE(sim::WaitFor([&] { return sim::CallCount("Sleep") >= before + 5; }));
}

std::vector<std::uint32_t> EngineTest::StartedPids() {
  std::vector<std::uint32_t> pids;
  for (const sim::StartedProgram& program : sim::StartedPrograms()) {
    pids.push_back(program.pid);
  }
  return pids;
}

std::vector<std::string> EngineTest::LogLines() {
  std::vector<std::string> lines;
  std::istringstream file(sim::FileBytes(L"C:\\Host\\log\\browser.vexelsdk.dll.log"));
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line.substr(std::min(line.find("] ") + 2, line.size())));
    if (!lines.back().empty() && lines.back().back() == '\r') {
      lines.back().pop_back();
    }
  }
  return lines;
}

std::vector<std::string> EngineTest::LogLinesOf(const std::string& function) {
  std::vector<std::string> lines;
  for (const std::string& line : LogLines()) {
    if (line.starts_with(function + " ")) {
      lines.push_back(line);
    }
  }
  return lines;
}

bool EngineTest::WaitForLog(const std::string& part) {
  return sim::WaitFor([&] {
    const std::vector<std::string> lines = LogLines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.find(part) != std::string::npos; });
  });
}
