#include "platform/file.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/sync.h"
#include "tests/unit/foundation/simulated_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Words = std::vector<std::string>;

constexpr std::uint32_t kShareBoth = platform::kFileShareRead | platform::kFileShareWrite;

using LogSharing = test::SimulatedLog;

TEST_F(LogSharing, AStatementWaitsForTheLockWithoutLimitAndGoesBehindWhatCameMeanwhile) {
  sim::SetClockSpeed(0);
  test::Log("1");
  sim::ForeignMutex held(test::kLogLock);
  const int conversions = sim::CallCount("WideCharToMultiByte");
  const int seeks = sim::CallCount("SetFilePointer");
  const int waits = sim::CallCount("WaitForSingleObject");
  std::atomic<bool> ended{false};
  std::thread writer([&ended] {
    test::Log("3");
    ended = true;
  });
  EXPECT_TRUE(sim::WaitFor([&] { return ended || sim::CallCount("WaitForSingleObject") > waits; }));
  sim::AdvanceMs(1000ull * 60 * 60 * 24 * 365);
  EXPECT_TRUE(sim::WaitForRest());
  EXPECT_FALSE(ended);
  EXPECT_EQ(sim::CallCount("WideCharToMultiByte"), conversions + 1); // the lock is not held for that
  EXPECT_EQ(sim::CallCount("SetFilePointer"), seeks);
  EXPECT_EQ(test::LoggedWords(), (Words{"1"}));
  sim::AppendToFile(test::kLogPath, "2\r\n");
  held.Release();
  writer.join();
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "2", "3"}));
}

TEST_F(LogSharing, AWriterThatDiedWithTheLockDoesNotStopTheOthers) {
  test::Log("1");
  sim::ForeignMutex(test::kLogLock).Abandon();
  test::Log("2");
  EXPECT_FALSE(sim::MutexIsOwned(test::kLogLock));
  test::Log("3");
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "2", "3"}));
}

TEST_F(LogSharing, AWaitOrReleaseThatFailsCostsNoLine) {
  for (const char* operation : {"WaitForSingleObject", "ReleaseMutex"}) {
    sim::FailAlways(operation);
    test::Log(operation);
    test::Log(operation);
    EXPECT_EQ(sim::FaultsFired(operation), 3) << operation; // the start's and two lines'
    sim::ClearFaults();
    vx::ResetLogger({});
  }
  EXPECT_EQ(test::LoggedWords(), (Words{"WaitForSingleObject", "WaitForSingleObject", "ReleaseMutex", "ReleaseMutex"}));
}

TEST_F(LogSharing, OtherProcessesHoldTheFileTogetherWithThisOne) {
  std::optional<sim::ForeignFile> before(std::in_place, test::kLogPath, platform::kGenericWrite, kShareBoth);
  test::Log("1");
  const platform::Handle after = platform::CreateFileW(test::kLogPath, platform::kGenericRead | platform::kGenericWrite,
                                                       kShareBoth, platform::kOpenExisting, 0);
  EXPECT_NE(after, platform::kInvalidHandle);
  before.reset();
  test::Log("2");
  EXPECT_TRUE(platform::CloseHandle(after));
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "2"}));
}

TEST_F(LogSharing, AFileThatAnotherKeepsForItselfIsWaitedForByNoStatement) {
  {
    const sim::ForeignFile held(test::kLogPath, platform::kGenericWrite, 0);
    test::Log("lost");
    EXPECT_EQ(vx::log_init_state.load(), 0);
  }
  test::Log("kept");
  EXPECT_EQ(test::LoggedWords(), (Words{"kept"}));
}

TEST_F(LogSharing, AFileThatAnotherEmptiedIsGoneOnWithAtItsNewEnd) {
  test::Log("1");
  sim::AddFile(test::kLogPath, "");
  test::Log("2");
  test::Log("3");
  EXPECT_EQ(test::LoggedWords(), (Words{"2", "3"}));
}

} // namespace
