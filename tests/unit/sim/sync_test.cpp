#include "platform/sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/process.h"
#include "tests/sim/clock.h"
#include "tests/sim/handles.h"
#include "tests/sim/process.h"
#include "tests/sim/sync.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

constexpr std::uint32_t kTimeout = 0x102;
constexpr std::uint32_t kAbandoned = 0x80;
constexpr std::uint32_t kFailed = 0xFFFFFFFF;

class SimSync : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(SimSync, AnAutomaticEventWakesOneWaitAndAManualOneAll) {
  const Handle automatic = CreateEventW(false, true);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), 0u);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), kTimeout);
  EXPECT_TRUE(SetEvent(automatic));
  EXPECT_TRUE(SetEvent(automatic)); // signalled already: the second adds nothing
  EXPECT_EQ(WaitForSingleObject(automatic, kInfinite), 0u);
  EXPECT_EQ(WaitForSingleObject(automatic, 1), kTimeout);
  const Handle manual = CreateEventW(true, false);
  SetEvent(manual);
  EXPECT_EQ(WaitForSingleObject(manual, 0), 0u);
  EXPECT_EQ(WaitForSingleObject(manual, 0), 0u);
  CloseHandle(automatic);
  CloseHandle(manual);
}

TEST_F(SimSync, EachSignalOfAnAutomaticEventEndsOneOfManyWaits) {
  const Handle event = CreateEventW(false, false);
  std::atomic<int> woken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(WaitForSingleObject(event, kInfinite), 0u);
      ++woken;
    });
  }
  for (int i = 1; i <= 4; ++i) {
    SetEvent(event);
    EXPECT_TRUE(sim::WaitFor([&] { return woken == i; }));
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  CloseHandle(event);
}

TEST_F(SimSync, AWaitLastsItsSimulatedTime) {
  sim::SetClockSpeed(1000);
  const Handle event = CreateEventW(false, false);
  const std::uint64_t before = sim::NowMs();
  EXPECT_EQ(WaitForSingleObject(event, 5000), kTimeout);
  EXPECT_GE(sim::NowMs() - before, 5000u);
  CloseHandle(event);
}

TEST_F(SimSync, AMutexBelongsToItsThread) {
  const Handle mutex = CreateMutexW(false, nullptr);
  EXPECT_EQ(WaitForSingleObject(mutex, kInfinite), 0u);
  EXPECT_EQ(WaitForSingleObject(mutex, kInfinite), 0u); // again by its owner
  std::thread([&] {
    EXPECT_EQ(WaitForSingleObject(mutex, 0), kTimeout);
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(GetLastError(), 288u);
  }).join();
  EXPECT_TRUE(ReleaseMutex(mutex));
  std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex, 0), kTimeout); }).join();
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_FALSE(ReleaseMutex(mutex));
  std::thread([&] {
    EXPECT_EQ(WaitForSingleObject(mutex, 0), 0u);
    EXPECT_TRUE(ReleaseMutex(mutex));
  }).join();
  CloseHandle(mutex);
}

TEST_F(SimSync, AThreadThatEndsAbandonsItsMutexes) {
  const Handle mutex = CreateMutexW(false, nullptr);
  std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex, 0), 0u); }).join();
  EXPECT_EQ(WaitForSingleObject(mutex, kInfinite), kAbandoned);
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_EQ(WaitForSingleObject(mutex, 0), 0u); // it is told once
  EXPECT_TRUE(ReleaseMutex(mutex));
  CloseHandle(mutex);
}

TEST_F(SimSync, AMutexNameStandsForOneMutex) {
  const Handle first = CreateMutexW(true, L"Global\\C:/a/b.log");
  EXPECT_EQ(GetLastError(), 0u);
  const Handle second = CreateMutexW(true, L"Global\\C:/a/b.log");
  EXPECT_EQ(GetLastError(), 183u);
  EXPECT_NE(first, second);
  EXPECT_EQ(sim::MutexNames(), (std::vector<std::wstring>{L"Global\\C:/a/b.log"}));
  EXPECT_TRUE(sim::MutexIsOwned(L"Global\\C:/a/b.log"));
  EXPECT_TRUE(ReleaseMutex(second)); // one mutex, owned once: the second creation took nothing
  EXPECT_FALSE(ReleaseMutex(first));
  CloseHandle(first);
  EXPECT_EQ(sim::MutexNames().size(), 1u);
  CloseHandle(second);
  EXPECT_TRUE(sim::MutexNames().empty());
  EXPECT_EQ(CreateMutexW(false, L"Global\\C:\\a"), nullptr);
  EXPECT_EQ(GetLastError(), 3u);
}

TEST_F(SimSync, AnotherProcessHoldsAndAbandonsANamedMutex) {
  const Handle mutex = CreateMutexW(false, L"m");
  {
    sim::ForeignMutex other(L"m");
    EXPECT_EQ(WaitForSingleObject(mutex, 0), kTimeout);
    other.Release();
    EXPECT_EQ(WaitForSingleObject(mutex, 0), 0u);
    ReleaseMutex(mutex);
  }
  {
    sim::ForeignMutex other(L"m");
    other.Abandon();
  }
  EXPECT_EQ(WaitForSingleObject(mutex, 0), kAbandoned);
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST_F(SimSync, AProcessIsSignalledByItsEnd) {
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  const Handle process = OpenProcess(kProcessAllAccess, pid);
  EXPECT_EQ(WaitForSingleObject(process, 0), kTimeout);
  std::thread ender([&] { sim::EndProcess(pid); });
  EXPECT_EQ(WaitForSingleObject(process, kInfinite), 0u);
  ender.join();
  CloseHandle(process);
}

TEST_F(SimSync, WhatIsNoHandleFailsWith6) {
  const Handle event = CreateEventW(false, false);
  EXPECT_TRUE(CloseHandle(event));
  for (const Handle bad : {event, Handle(nullptr), kInvalidHandle}) {
    SetLastError(0);
    EXPECT_EQ(WaitForSingleObject(bad, 0), kFailed);
    EXPECT_EQ(GetLastError(), 6u);
    EXPECT_FALSE(SetEvent(bad));
    EXPECT_FALSE(ReleaseMutex(bad));
    EXPECT_FALSE(CloseHandle(bad));
  }
  EXPECT_EQ(sim::BadCloses(), 3);
  const Handle snapshot = CreateToolhelp32Snapshot(kSnapProcess, 0);
  EXPECT_EQ(WaitForSingleObject(snapshot, 0), kFailed);
  CloseHandle(snapshot);
}

TEST_F(SimSync, HandlesAreCountedByKind) {
  using sim::HandleKind;
  const Handle event = CreateEventW(false, false);
  const Handle mutex = CreateMutexW(false, nullptr);
  EXPECT_EQ(sim::OpenHandles(HandleKind::kEvent), 1);
  EXPECT_EQ(sim::OpenHandles(), 2);
  CloseHandle(event);
  EXPECT_EQ(sim::OpenHandles(HandleKind::kEvent), 0);
  EXPECT_EQ(sim::OpenedHandles(HandleKind::kEvent), 1);
  EXPECT_EQ(sim::ClosedHandles(HandleKind::kEvent), 1);
  EXPECT_EQ(sim::OpenHandles(HandleKind::kMutex), 1);
  CloseHandle(mutex);
}

TEST_F(SimSync, AllEventsCanBeSignalledFromOutside) {
  const Handle event = CreateEventW(false, false);
  std::thread waiter([&] { EXPECT_EQ(WaitForSingleObject(event, kInfinite), 0u); });
  sim::SignalAllEvents();
  waiter.join();
  CloseHandle(event);
}

TEST_F(SimSync, TheLastErrorBelongsToTheThread) {
  SetLastError(5);
  std::thread([] {
    EXPECT_EQ(GetLastError(), 0u);
    SetLastError(9);
  }).join();
  EXPECT_EQ(GetLastError(), 5u);
}

} // namespace
