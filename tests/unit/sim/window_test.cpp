#include "tests/sim/window.h"

#include <gtest/gtest.h>

#include "platform/error.h"
#include "tests/sim/clock.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

class SimWindow : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(SimWindow, TheStyleIsReplacedAndTheOldOneReturned) {
  const Window window = sim::MakeWindow(0x100);
  EXPECT_TRUE(IsWindow(window));
  EXPECT_EQ(GetWindowLongPtrW(window, kGwlExStyle), 0x100);
  EXPECT_EQ(SetWindowLongPtrW(window, kGwlExStyle, 0x120), 0x100);
  EXPECT_EQ(sim::ExStyle(window), 0x120);
  SetLastError(0);
  EXPECT_EQ(GetWindowLongPtrW(window, 5), 0);
  EXPECT_EQ(GetLastError(), 1413u);
}

TEST_F(SimWindow, ADestroyedWindowIsNone) {
  const Window window = sim::MakeWindow();
  sim::DestroyWindow(window);
  EXPECT_FALSE(IsWindow(window));
  SetLastError(0);
  EXPECT_EQ(SetWindowLongPtrW(window, kGwlExStyle, 1), 0);
  EXPECT_EQ(GetLastError(), 1400u);
  EXPECT_FALSE(IsWindow(0));
}

TEST_F(SimWindow, AWindowVanishesAfterSoManyLooks) {
  const Window window = sim::MakeWindow();
  sim::VanishAfterLooks(window, 2);
  EXPECT_TRUE(IsWindow(window));
  EXPECT_TRUE(IsWindow(window));
  EXPECT_FALSE(IsWindow(window));
}

TEST_F(SimWindow, AWindowEndsWithItsProcess) {
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  const Window theirs = sim::MakeWindow(0, pid);
  const Window ours = sim::MakeWindow();
  sim::CrashProcess(pid);
  EXPECT_FALSE(IsWindow(theirs));
  EXPECT_TRUE(IsWindow(ours));
}

TEST_F(SimWindow, ABusyThreadHoldsTheChangeUp) {
  sim::SetClockSpeed(1000);
  const Window window = sim::MakeWindow();
  sim::MakeBusy(window, 3000);
  const std::uint64_t before = sim::NowMs();
  SetWindowLongPtrW(window, kGwlExStyle, 32);
  EXPECT_GE(sim::NowMs() - before, 3000u);
  EXPECT_EQ(sim::ExStyle(window), 32);
}

TEST_F(SimWindow, AValueAskedForIsGiven) {
  EXPECT_EQ(sim::MakeWindow(0, 0, 0x1001), 0x1001u);
  EXPECT_TRUE(IsWindow(0x1001));
  EXPECT_NE(sim::MakeWindow(), 0x1001u);
}

} // namespace
