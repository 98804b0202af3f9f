#include "foundation/k_event.h"

#include "foundation/unique_handle.h"
#include "platform/error.h"
#include "platform/sync.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <utility>

namespace {

constexpr std::uint32_t kLong = 60000; // milliseconds

platform::Handle NewEvent(bool signalled = false) { return platform::CreateEventW(false, signalled); }

bool IsOpen(platform::Handle handle) { return platform::SetEvent(handle); }

static_assert(std::has_virtual_destructor_v<vx::KEvent>);
static_assert(!std::is_copy_constructible_v<vx::KEvent> && !std::is_move_constructible_v<vx::KEvent>);
static_assert(!std::is_copy_assignable_v<vx::KEvent> && !std::is_move_assignable_v<vx::KEvent>);
static_assert(sizeof(vx::KEvent) == 2 * sizeof(void*)); // its table and its handle

TEST(KEvent, WithoutAHandleRefusesAtOnce) {
  vx::KEvent event;
  EXPECT_EQ(event.Set(), -1);
  EXPECT_FALSE(event.WaitFor(platform::kInfinite));
}

TEST(KEvent, EachSignalIsTakenByOneWait) {
  vx::KEvent event;
  event.Attach(NewEvent());
  EXPECT_FALSE(event.WaitFor(0));
  EXPECT_EQ(event.Set(), 0);
  EXPECT_EQ(event.Set(), 0);
  EXPECT_TRUE(event.WaitFor(kLong));
  EXPECT_FALSE(event.WaitFor(0));
}

TEST(KEvent, WakesAnotherThread) {
  vx::KEvent event;
  event.Attach(NewEvent());
  bool woken = false;
  std::thread waiter([&] { woken = event.WaitFor(kLong); });
  EXPECT_EQ(event.Set(), 0);
  waiter.join();
  EXPECT_TRUE(woken);
}

TEST(KEvent, AttachClosesWhatWasHeld) {
  vx::KEvent event;
  const platform::Handle first = NewEvent();
  const platform::Handle second = NewEvent(true);
  event.Attach(first);
  event.Attach(second);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_TRUE(event.WaitFor(0));
}

TEST(KEvent, CloseMayBeRepeated) {
  vx::KEvent event;
  const platform::Handle handle = NewEvent();
  event.Attach(handle);
  event.Close();
  EXPECT_FALSE(IsOpen(handle));
  event.Close();
  EXPECT_EQ(event.Set(), -1);
}

TEST(KEvent, DiesWithItsHandle) {
  const platform::Handle handle = NewEvent();
  {
    vx::KEvent event;
    event.Attach(handle);
    EXPECT_TRUE(IsOpen(handle));
  }
  EXPECT_FALSE(IsOpen(handle));
}

TEST(KEvent, AClosedHandleFailsSetAndWait) {
  const platform::Handle handle = NewEvent();
  vx::KEvent event;
  event.Attach(handle);
  platform::CloseHandle(handle);
  EXPECT_EQ(event.Set(), -1);
  EXPECT_FALSE(event.WaitFor(kLong));
}

TEST(UniqueHandle, OwnsOneHandle) {
  const platform::Handle handle = NewEvent();
  {
    vx::UniqueHandle owner(handle);
    EXPECT_TRUE(owner);
    vx::UniqueHandle next(std::move(owner));
    EXPECT_FALSE(owner); // NOLINT(bugprone-use-after-move): an owner that gave its handle away is empty
    EXPECT_EQ(next.Get(), handle);
    next.Reset(handle);
    EXPECT_TRUE(IsOpen(handle));
  }
  EXPECT_FALSE(IsOpen(handle));
}

TEST(UniqueHandle, TakingAnotherClosesTheFirst) {
  const platform::Handle first = NewEvent();
  const platform::Handle second = NewEvent();
  vx::UniqueHandle owner(first);
  owner = vx::UniqueHandle(second);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_TRUE(IsOpen(second));
  *owner.Receive() = NewEvent();
  EXPECT_FALSE(IsOpen(second));
  const platform::Handle third = owner.Release();
  EXPECT_FALSE(owner);
  EXPECT_TRUE(IsOpen(third));
  EXPECT_TRUE(platform::CloseHandle(third));
}

TEST(UniqueHandle, EachKindHasItsOwnEmptyValue) {
  EXPECT_EQ(vx::UniqueHandle().Get(), nullptr);
  EXPECT_EQ(vx::UniqueFile().Get(), platform::kInvalidHandle);
  EXPECT_FALSE(vx::UniqueHandle(nullptr));
  EXPECT_FALSE(vx::UniqueFile(platform::kInvalidHandle));
}

TEST(UniqueHandle, AnEmptyOwnerClosesNothing) {
  platform::SetLastError(4711);
  { const vx::UniqueFile file; }
  { const vx::UniqueHandle handle; }
  EXPECT_EQ(platform::GetLastError(), 4711u);
}

} // namespace
