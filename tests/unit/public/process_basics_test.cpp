#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include "foundation/paths.h"
#include "platform/process.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace VexelSdkProcessUtil {
namespace {

TEST(ProcessBasics, FirstLookupsMayRace) {
  const std::uint32_t pid = platform::GetCurrentProcessId();
  std::atomic<bool> go{false};
  std::vector<std::wstring> paths(8);
  std::vector<std::thread> threads;
  for (std::wstring& path : paths) {
    threads.emplace_back([&path, &go, pid] {
      while (!go.load(std::memory_order_acquire)) {
        std::this_thread::yield();
      }
      path = GetProcessPath(pid);
    });
  }
  go.store(true, std::memory_order_release);
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::wstring own = vx::GetModuleFilePath(nullptr);
  ASSERT_NE(own, L"");
  for (const std::wstring& path : paths) {
    EXPECT_TRUE(IsSamePath(path, own)) << testing::PrintToString(path);
  }
}

TEST(ProcessBasics, ThisProcessIsValidUnderItsOwnPathOnly) {
  const std::uint32_t pid = platform::GetCurrentProcessId();
  const std::wstring own = vx::GetModuleFilePath(nullptr);
  EXPECT_TRUE(IsProcessValid(pid, own));
  EXPECT_FALSE(IsProcessValid(pid, own + L"x"));
  EXPECT_FALSE(IsProcessValid(pid, L""));
}

TEST(ProcessBasics, IdZeroIsNoProcess) {
  const std::wstring own = vx::GetModuleFilePath(nullptr);
  EXPECT_FALSE(IsProcessValid(0, own));
  EXPECT_FALSE(IsProcessUsable(0, own));
}

TEST(ProcessBasics, AnIdThatNobodyHasIsNothing) {
  constexpr std::uint32_t kNobody = 0x7FFFFFF0;
  EXPECT_EQ(GetProcessPath(kNobody), L"");
  EXPECT_EQ(GetProcessCreateTime(kNobody), 0u);
  EXPECT_FALSE(IsProcessElevated(kNobody));
  EXPECT_FALSE(IsProcessValid(kNobody, vx::GetModuleFilePath(nullptr)));
}

TEST(ProcessBasics, NoPathIsNotRunning) {
  EXPECT_EQ(IsPathRunning(nullptr, 1), 0);
  EXPECT_EQ(IsPathRunning(L"", 1), 0);
  EXPECT_EQ(IsPathRunning(L"C:\\nowhere\\nothing.exe", 1), 0);
  EXPECT_EQ(IsPathRunning(std::wstring(100000, L'a').c_str(), 1), 0);
}

TEST(ProcessBasics, CreationTimeIsStable) {
  const std::uint32_t pid = platform::GetCurrentProcessId();
  const std::uint64_t created = GetProcessCreateTime(pid);
  EXPECT_NE(created, 0u);
  EXPECT_EQ(GetProcessCreateTime(pid), created);
}

} // namespace
} // namespace VexelSdkProcessUtil
