#include "tests/sim/debug.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/debug.h"
#include "tests/sim/core.h"

namespace sim {

using namespace internal;

namespace {

struct Debug {
  std::vector<std::string> texts;
  int breaks = 0;
  std::vector<std::uint32_t> exits;
  ExitAction action = ExitAction::kEndProgram;
  std::function<void()> look;
};

Debug& TheDebug() {
  static Debug& debug = *new Debug;
  return debug;
}

} // namespace

void internal::ResetDebug() { TheDebug() = Debug(); }

std::vector<std::string> DebugTexts() {
  const Lock lock = TakeLock();
  return TheDebug().texts;
}

int DebugBreaks() {
  const Lock lock = TakeLock();
  return TheDebug().breaks;
}

void SetExitAction(ExitAction action) {
  const Lock lock = TakeLock();
  TheDebug().action = action;
}

void AtExitNow(std::function<void()> look) {
  const Lock lock = TakeLock();
  TheDebug().look = std::move(look);
}

std::vector<std::uint32_t> ExitStatuses() {
  const Lock lock = TakeLock();
  return TheDebug().exits;
}

} // namespace sim

namespace platform {

void OutputDebugStringA(const char* text) {
  const sim::internal::Call call("OutputDebugStringA");
  sim::TheDebug().texts.emplace_back(text == nullptr ? "" : text);
}

void DebugBreak() {
  const sim::internal::Call call("DebugBreak");
  ++sim::TheDebug().breaks;
}

void ExitNow(std::uint32_t status) {
  sim::ExitAction action;
  std::function<void()> look;
  {
    const sim::internal::Call call("ExitNow");
    sim::TheDebug().exits.push_back(status);
    action = sim::TheDebug().action;
    look = sim::TheDebug().look;
  }
  if (action == sim::ExitAction::kThrow) {
    throw sim::ProcessExit{status};
  }
  if (look) {
    look();
  }
  std::fprintf(stderr, "simulated platform: ExitNow(%u)\n", status);
  std::fflush(stderr);
  std::_Exit(static_cast<int>(status));
}

} // namespace platform
