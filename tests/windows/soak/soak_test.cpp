// For long runs these variables take the place of what the test does by itself:
// VEXEL_SOAK_WINDOWS, VEXEL_SOAK_CYCLES, VEXEL_SOAK_MINUTES, VEXEL_SOAK_SEED.

#include "tests/windows/sdk/log_lines.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"
#include "tests/windows/soak/driver.h"
#include "tests/windows/soak/usage.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace sdktest;
using namespace soak;

class Soak : public SdkTest {};

std::int64_t Setting(const char* name, std::int64_t otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr || *text == '\0' ? otherwise : std::strtoll(text, nullptr, 10);
}

/// What a link to a process holds until the teardown, each with some room.
constexpr std::int64_t kHandlesForEachProcess = 14;
constexpr std::int64_t kHeapForEachProcess = 18 * 1024; // with one worker that serves and one in reserve
constexpr std::int64_t kThreadsForEachProcess = 2;
/// What stays behind for each id: texts that found no callback, and the test host's own registration.
constexpr std::int64_t kLostForEachCycle = 2 * 1024;
/// An earlier link of a process id that came back is let go and never taken down.
constexpr std::int64_t kHandlesForEachReusedPid = 6;
constexpr std::int64_t kSomeHandles = 64;
constexpr std::int64_t kSomeHeap = 1024 * 1024;
constexpr std::int64_t kSomeThreads = 16;

constexpr int kLongRun = 200; // cycles; in a shorter run the quarters hold too few processes

/// Between the quarters of a long run nothing grows but what the links of new processes hold.
void CheckLevel(const std::vector<Driver::Mark>& marks) {
  if (marks.empty() || marks.back().cycles < kLongRun) {
    return;
  }
  for (std::size_t i = 1; i < marks.size(); ++i) {
    SCOPED_TRACE("quarter " + std::to_string(i + 1));
    const Usage& before = marks[i - 1].usage;
    const Usage& after = marks[i].usage;
    const std::int64_t processes = marks[i].processes - marks[i - 1].processes;
    const std::int64_t cycles = marks[i].cycles - marks[i - 1].cycles;
    EXPECT_LE(after.AllHandles() - before.AllHandles(), processes * kHandlesForEachProcess + kSomeHandles);
    EXPECT_LE(after.heapBytes - before.heapBytes,
              processes * kHeapForEachProcess + cycles * kLostForEachCycle + kSomeHeap / 4);
    EXPECT_LE(after.threads - before.threads, processes * kThreadsForEachProcess + kSomeThreads);
  }
}

/// The failures once more, behind all that was said in between.
void RepeatFailures() {
  const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result.total_part_count(); ++i) {
    if (const testing::TestPartResult& part = result.GetTestPartResult(i); part.failed()) {
      std::cout << "soak: failed: line " << part.line_number() << ": " << part.message() << std::endl;
    }
  }
}

TEST_F(Soak, EditorsThatDieHangAndFloodLeaveNothingUnknown) {
  Plan plan;
  plan.windows = static_cast<std::size_t>(Setting("VEXEL_SOAK_WINDOWS", 8));
  plan.cycles = static_cast<int>(Setting("VEXEL_SOAK_CYCLES", 30));
  plan.time = std::chrono::minutes(Setting("VEXEL_SOAK_MINUTES", 0));
  plan.seed = static_cast<std::uint32_t>(Setting("VEXEL_SOAK_SEED", 20261));
  std::cout << "soak: seed " << plan.seed << std::endl;

  // Hung ones end on their own only long after the run.
  StartHost({{L"VEXEL_EDITOR_IDLE_MS", L"7200000"}});
  const Usage bare = AskUsage(Host());
  EXPECT_EQ(Host().Ask("init"), 1);
  WaitForPreload(2);
  Driver driver(Host(), Folder(), plan);
  ASSERT_TRUE(driver.OpenAll());
  const Usage early = AskUsage(Host());
  driver.Run();
  ASSERT_FALSE(HasFailure()) << driver.Summary(); // what is left then says nothing
  driver.CheckReports();
  driver.CheckLeftBehind();
  CheckLevel(driver.Marks());

  const Usage late = AskUsage(Host());
  const std::int64_t processes = static_cast<std::int64_t>(driver.Processes()) + 2;
  EXPECT_LE(late.AllHandles() - bare.AllHandles(), processes * kHandlesForEachProcess + kSomeHandles);
  EXPECT_LE(late.heapBytes - bare.heapBytes,
            processes * kHeapForEachProcess + driver.Cycles() * kLostForEachCycle + kSomeHeap);
  EXPECT_LE(late.threads - bare.threads, processes * kThreadsForEachProcess + kSomeThreads);

  EXPECT_EQ(Host().Ask("uninit"), 1);
  Host().Ask("reap");
  Host().Ask("reap");
  const Usage rest = AskUsage(Host());
  EXPECT_LE(rest.OwnHandles() - bare.OwnHandles(), driver.ReusedPids() * kHandlesForEachReusedPid + kSomeHandles);
  EXPECT_LE(rest.threads - bare.threads, kSomeThreads);
  EXPECT_LE(rest.heapBytes - bare.heapBytes, driver.Cycles() * kLostForEachCycle + kSomeHeap);

  std::cout << driver.Summary() << "\nsoak: bare:     " << Describe(bare) << "\nsoak: all open: " << Describe(early)
            << "\nsoak: late:     " << Describe(late) << "\nsoak: each process: "
            << DescribeGrowth(early, late, processes - static_cast<std::int64_t>(plan.windows))
            << "\nsoak: after the teardown: " << Describe(rest) << std::endl;

  EXPECT_EQ(BrokenLine(ReadFileBytes(Folder().LogFile())), "");
  // The host is whole: it opens a picture with a fresh engine.
  EXPECT_EQ(OpenAndWait().id, 1);
  RepeatFailures();
}

} // namespace
