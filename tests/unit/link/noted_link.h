#pragma once

#include "foundation/logger.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "tests/unit/link/noted_library.h"
#include "tests/unit/log_lines.h"
#include "vexelsdk/link/vexel_sdk_helper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

/// A link to one running editor over a library that notes its calls, while the clock stands.
class NotedLink : public testing::Test {
protected:
  NotedLink() {
    vx::ResetLogger({});
    sim::SetClockSpeed(0);
  }
  ~NotedLink() override { vx::ResetLogger({}); }

  static SDK_OperatorData RecordOf(SDK_Operator op, std::int32_t id = 3) {
    SDK_OperatorData record;
    record.m_op = op;
    record.m_id = id;
    return record;
  }

  static std::vector<std::string> Log() { return LogLines(L"C:\\Host\\log\\browser.vexelsdk.dll.log"); }

  std::string PidText() const { return std::to_string(m_pid); }
  std::string EditText(int id) const {
    return "{\"id\":" + std::to_string(id) + ",\"process_id\":" + PidText() + R"(,"status":true,"type":"edit"})";
  }

  /// Writes on a thread of its own, as the engine does, and lets the time of its pauses pass.
  static bool Write(VexelSDKHelper& helper, const SDK_OperatorData& record, bool* sent) {
    bool accepted = false;
    std::atomic<bool> done{false};
    int pauses = sim::CallCount("Sleep");
    std::thread writer([&] {
      accepted = helper.WriteOperator(record, sent);
      done.store(true, std::memory_order_release);
    });
    const bool ended = sim::WaitFor([&] {
      if (const int begun = sim::CallCount("Sleep"); begun != pauses) {
        pauses = begun;
        sim::LetPass(kStepMs);
      }
      return done.load(std::memory_order_acquire);
    });
    if (!ended) {
      ADD_FAILURE() << "the operator has not come back";
      sim::SetClockSpeed(1000);
    }
    writer.join();
    return accepted;
  }

  static constexpr std::uint64_t kStepMs = 1000;

  sim::World m_world;
  NotedLibrary m_library;
  std::uint32_t m_pid = sim::StartProcess(sim::kEditorPath);
};
