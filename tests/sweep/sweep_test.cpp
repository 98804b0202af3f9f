#include "tests/sim/faults.h"
#include "tests/sweep/child_runs.h"
#include "tests/sweep/walk.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// Each platform operation in turn: a whole life with its first, second, ... call failing, once and for good, until a
// run has no failure left to inject. Each walk is a process of its own.

namespace {

constexpr int kAtOnce = 3;
constexpr int kSeconds = 120; // a child that takes longer hangs

/// The calls of GetProcAddress that look for what a pipe library has to have when it has the entry for connecting: the
/// contract says so, and nothing looks twice.
std::set<int> EntriesTakenForGranted() {
  std::set<int> calls;
  ChildRuns children(1, kSeconds);
  children.UntilNothingFires([](int) -> ChildRuns::Body { return [](bool*) { return EntriesOfWalk(); }; },
                             [&calls](int, const ChildResult& result) {
                               std::istringstream names(result.text);
                               int call = 0;
                               for (std::string name; std::getline(names, name);) {
                                 ++call;
                                 if (name == "CltDisConnect" || name == "CltComunicate") {
                                   calls.insert(call);
                                 }
                               }
                             },
                             1);
  EXPECT_FALSE(calls.empty());
  return calls;
}

/// What a life has no use for: nothing below the exports deletes the log, asks for a folder of another user, makes a
/// registry key, or calls what is looked for in PSAPI only to know the library.
bool IsOutOfUse(const std::string& operation) {
  static const std::set<std::string>& names =
      *new std::set<std::string>{"DeleteFileW",          "SHGetFolderPathW", "RegCreateKeyExW",   "EnumProcessModules",
                                 "EnumProcessModulesEx", "EnumProcesses",    "GetModuleBaseNameW"};
  return names.contains(operation);
}

/// Whose failing takes a thread's only brake or its stop away.
bool CanTakeAStop(const std::string& operation, bool forever) {
  return operation == "CreateEventW" || operation == "SetEvent" || (operation == "WaitForSingleObject" && forever);
}

class Sweep : public testing::TestWithParam<std::string> {
protected:
  static void FailEachCall(bool forever) {
    const std::string operation = GetParam();
    ChildRuns children(kAtOnce, kSeconds);
    const std::set<int> granted = operation == "GetProcAddress" ? EntriesTakenForGranted() : std::set<int>();
    int faults = 0;
    int unstoppable = 0;
    children.UntilNothingFires(
        [&](int nth) -> ChildRuns::Body {
          return [=](bool* fired) {
            *fired = granted.contains(nth);
            return *fired ? std::string() : Walk({operation, nth, forever}, fired);
          };
        },
        [&](int nth, const ChildResult& result) {
          EXPECT_EQ(result.end, ChildResult::End::kPassed)
              << operation << ", call " << nth << (forever ? " and all behind it" : "") << ": "
              << (result.end == ChildResult::End::kHung ? "hangs; " : "") << result.text;
          faults += result.fired && !granted.contains(nth) ? 1 : 0;
          unstoppable += result.unstoppable ? 1 : 0;
        });
    std::printf("%-28s %4d walks with %s, %d of them with a thread that can't be stopped\n", operation.c_str(), faults,
                forever ? "a call and all behind it failing" : "a call failing", unstoppable);
    EXPECT_EQ(unstoppable != 0, CanTakeAStop(operation, forever));
    EXPECT_EQ(faults == 0, IsOutOfUse(operation)) << "a walk that does not call it proves nothing";
  }
};

TEST_P(Sweep, OneCallFails) { FailEachCall(false); }

TEST_P(Sweep, AllCallsFailFromOneOn) { FailEachCall(true); }

/// All but one: a mutex that can't be given up stays with its thread, and the log waits without limit for whoever has
/// it.
std::vector<std::string> SweptOperations() {
  std::vector<std::string> operations = sim::FailableOperations();
  std::erase(operations, "ReleaseMutex");
  return operations;
}

INSTANTIATE_TEST_SUITE_P(Operations, Sweep, testing::ValuesIn(SweptOperations()), [](const auto& each) {
  std::string name = each.param;
  std::erase(name, ':');
  return name;
});

TEST(Life, GoesWellWithoutAFault) {
  ChildRuns children(1, kSeconds);
  children.UntilNothingFires(
      [](int) -> ChildRuns::Body { return [](bool* fired) { return Walk({}, fired); }; },
      [](int, const ChildResult& result) { EXPECT_EQ(result.end, ChildResult::End::kPassed) << result.text; });
}

} // namespace
