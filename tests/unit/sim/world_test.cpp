#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/clock.h"
#include "platform/file.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/process.h"
#include "tests/sim/registry.h"
#include "tests/sim/window.h"

namespace {

using namespace platform;

class SimWorld : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(SimWorld, AResetForgetsEverything) {
  sim::AddFile(L"C:\\a", "x");
  sim::SetDword(kHkeyCurrentUser, L"A", L"x", 1);
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  const Window window = sim::MakeWindow();
  const Handle event = CreateEventW(false, false);
  sim::FailAlways("CreateEventW");
  sim::SetClockSpeed(0);
  sim::Reset();
  EXPECT_FALSE(sim::FileExists(L"C:\\a"));
  EXPECT_FALSE(sim::KeyExists(kHkeyCurrentUser, L"A"));
  EXPECT_FALSE(sim::IsRunning(pid));
  EXPECT_FALSE(IsWindow(window));
  EXPECT_FALSE(SetEvent(event));
  EXPECT_EQ(sim::OpenHandles(), 0);
  EXPECT_EQ(sim::CallCount("CreateEventW"), 0);
  EXPECT_TRUE(CloseHandle(CreateEventW(false, false)));
  EXPECT_TRUE(sim::WaitFor([] { return sim::NowMs() > 0; }));
}

TEST_F(SimWorld, TimersRunAtTheirTimeAndInOrder) {
  sim::SetClockSpeed(0);
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  std::atomic<int> turn{0};
  sim::After(200, [&] { second = ++turn; });
  sim::After(100, [&] { first = ++turn; });
  sim::AdvanceMs(150);
  EXPECT_TRUE(sim::WaitFor([&] { return first != 0; }));
  EXPECT_EQ(second, 0);
  sim::AdvanceMs(50);
  EXPECT_TRUE(sim::WaitFor([&] { return second != 0; }));
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 2);
}

TEST_F(SimWorld, ATimerMayStartAnother) {
  sim::SetClockSpeed(100);
  std::atomic<bool> done{false};
  sim::After(10, [&] { sim::After(10, [&] { done = true; }); });
  EXPECT_TRUE(sim::WaitFor([&] { return done.load(); }));
}

TEST_F(SimWorld, AResetWaitsForTheThreadsOfTheOldWorld) {
  std::atomic<bool> ended{false};
  std::atomic<bool> began{false};
  std::thread thread([&] {
    GetTickCount();
    began = true;
    Sleep(100);
    ended = true;
  });
  EXPECT_TRUE(sim::WaitFor([&] { return began.load(); }));
  EXPECT_EQ(sim::LiveThreads(), 1);
  sim::Reset();
  EXPECT_TRUE(ended);
  thread.join();
  EXPECT_EQ(sim::LiveThreads(), 0);
}

TEST_F(SimWorld, ManyThreadsShareOneWorld) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  const Handle mutex = CreateMutexW(false, L"shared");
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(WaitForSingleObject(mutex, kInfinite), 0u);
        const Handle file = CreateFileW(L"C:\\shared", kGenericWrite, kFileShareRead | kFileShareWrite, kOpenAlways, 0);
        SetFilePointer(file, 0, kFileEnd);
        std::uint32_t done = 0;
        EXPECT_TRUE(WriteFile(file, "line\n", 5, &done));
        EXPECT_TRUE(CloseHandle(file));
        EXPECT_TRUE(ReleaseMutex(mutex));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sim::FileBytes(L"C:\\shared").size(), 5u * kThreads * kRounds);
  CloseHandle(mutex);
  EXPECT_EQ(sim::OpenHandles(), 0);
}

TEST_F(SimWorld, AThreadIdIsChosenForOneThreadAlone) {
  const auto idOfANewThread = [] {
    std::uint32_t id = 0;
    std::thread([&id] { id = platform::GetCurrentThreadId(); }).join();
    return id;
  };
  sim::SetNextThreadId(4816);
  EXPECT_NE(platform::GetCurrentThreadId(), 4816u); // this one had its own before
  EXPECT_EQ(idOfANewThread(), 4816u);
  EXPECT_GE(idOfANewThread(), 7000u);
  sim::SetNextThreadId(4816);
  sim::Reset();
  EXPECT_GE(idOfANewThread(), 7000u);
}

} // namespace
