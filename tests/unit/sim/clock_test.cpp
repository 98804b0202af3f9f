#include "platform/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "platform/process.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/world.h"

namespace {

class SimClock : public testing::Test {
protected:
  sim::World m_world;
};

std::int64_t Join(const platform::FileTime& time) {
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.high) << 32) | time.low);
}

platform::FileTime Split(std::int64_t steps) {
  return {static_cast<std::uint32_t>(static_cast<std::uint64_t>(steps)),
          static_cast<std::uint32_t>(static_cast<std::uint64_t>(steps) >> 32)};
}

TEST_F(SimClock, AStoppedClockMovesOnlyByHand) {
  sim::SetClockSpeed(0);
  const std::uint64_t before = platform::GetTickCount64();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(platform::GetTickCount64(), before);
  sim::AdvanceMs(1234);
  EXPECT_EQ(platform::GetTickCount64(), before + 1234);
}

TEST_F(SimClock, AClockStoppedAtAFullMinuteShowsTheSameTimesHoweverLongTheMachineTook) {
  sim::AdvanceMs(90'000);
  sim::StopAtFullMinute();
  EXPECT_EQ(sim::NowMs(), 120'000u);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(sim::NowMs(), 120'000u);
  sim::StopAtFullMinute();
  EXPECT_EQ(sim::NowMs(), 180'000u);
}

TEST_F(SimClock, AFastClockShortensSleepsAndKeepsTheirSimulatedLength) {
  sim::SetClockSpeed(10000);
  const std::uint64_t before = platform::GetTickCount64();
  const auto real = std::chrono::steady_clock::now();
  platform::Sleep(100000);
  EXPECT_GE(platform::GetTickCount64() - before, 100000u);
  EXPECT_LT(std::chrono::steady_clock::now() - real, std::chrono::seconds(50));
}

TEST_F(SimClock, AnAdvanceEndsASleepOfAStoppedClock) {
  sim::SetClockSpeed(0);
  std::thread sleeper([] { platform::Sleep(60000); });
  ASSERT_TRUE(sim::WaitFor([] { return sim::LiveThreads() == 1; }));
  sim::AdvanceMs(60000);
  // The sleep may have begun only after the first step.
  std::thread pusher([] {
    sim::WaitFor([] {
      sim::AdvanceMs(60000);
      return sim::LiveThreads() == 0;
    });
  });
  sleeper.join();
  pusher.join();
  EXPECT_GE(sim::NowMs(), 60000u);
}

TEST_F(SimClock, WhatPassesEndsAWaitOfThatLengthWhateverElseEndsWithin) {
  constexpr std::uint32_t kFirstMs = 60'000;
  constexpr std::uint32_t kSecondMs = 70'000;
  for (int i = 0; i < 20; ++i) { // each time with other fractions of a millisecond
    sim::SetClockSpeed(1);
    std::thread first([] { platform::Sleep(kFirstMs); });
    EXPECT_TRUE(sim::WaitFor([] { return sim::SomeoneWaitsFor(kFirstMs); }));
    sim::SetClockSpeed(0);
    std::thread second([] { platform::Sleep(kSecondMs); });
    EXPECT_TRUE(sim::WaitFor([] { return sim::SomeoneWaitsFor(kSecondMs); }));
    EXPECT_TRUE(sim::LetPass(kSecondMs));
    EXPECT_FALSE(sim::SomeoneWaitsFor(kSecondMs));
    sim::AdvanceMs(kSecondMs); // lets it go where it did not
    first.join();
    second.join();
  }
}

TEST_F(SimClock, TheShortTickCountWraps) {
  sim::SetClockSpeed(0);
  sim::SetTickCount64(0xFFFFFFFFull);
  EXPECT_EQ(platform::GetTickCount(), 0xFFFFFFFFu);
  sim::AdvanceMs(1);
  EXPECT_EQ(platform::GetTickCount(), 0u);
  EXPECT_EQ(platform::GetTickCount64(), 0x100000000ull);
}

TEST_F(SimClock, LocalTimeIsUtcPlusTheZone) {
  sim::SetClockSpeed(0);
  sim::SetTimeZone(90);
  sim::SetUtc(sim::StepsOf({2026, 12, 0, 31, 23, 0, 59, 7}));
  const platform::SystemTime now = platform::GetLocalTime();
  EXPECT_EQ(now.year, 2027);
  EXPECT_EQ(now.month, 1);
  EXPECT_EQ(now.day, 1);
  EXPECT_EQ(now.dayOfWeek, 5); // a Friday
  EXPECT_EQ(now.hour, 0);
  EXPECT_EQ(now.minute, 30);
  EXPECT_EQ(now.second, 59);
  EXPECT_EQ(now.milliseconds, 7);
}

TEST_F(SimClock, FileTimesSplitIntoTheCalendar) {
  platform::SystemTime parts{};
  ASSERT_TRUE(platform::FileTimeToSystemTime(Split(0), &parts));
  EXPECT_EQ(parts.year, 1601);
  EXPECT_EQ(parts.month, 1);
  EXPECT_EQ(parts.day, 1);
  EXPECT_EQ(parts.dayOfWeek, 1); // a Monday
  // The first moment of 1970, a value that is well known.
  ASSERT_TRUE(platform::FileTimeToSystemTime(Split(116444736000000000), &parts));
  EXPECT_EQ(parts.year, 1970);
  EXPECT_EQ(parts.month, 1);
  EXPECT_EQ(parts.day, 1);
  EXPECT_EQ(parts.dayOfWeek, 4); // a Thursday
  EXPECT_EQ(sim::StepsOf({1970, 1, 0, 1, 0, 0, 0, 0}), 116444736000000000);
}

TEST_F(SimClock, EveryDayOfFourHundredYearsComesBack) {
  constexpr std::int64_t kDay = 864000000000;
  for (std::int64_t day = 0; day < 146097 + 366; ++day) {
    platform::SystemTime parts{};
    ASSERT_TRUE(platform::FileTimeToSystemTime(Split(day * kDay + 36'123'0000), &parts));
    ASSERT_EQ(sim::StepsOf(parts), day * kDay + 36'123'0000) << "day " << day;
  }
}

TEST_F(SimClock, ANegativeFileTimeIsRefused) {
  platform::SystemTime parts{};
  EXPECT_FALSE(platform::FileTimeToSystemTime(Split(-1), &parts));
}

TEST_F(SimClock, FileTimesTakeTheZoneToo) {
  sim::SetTimeZone(-120);
  platform::FileTime local{};
  ASSERT_TRUE(platform::FileTimeToLocalFileTime(Split(sim::StepsOf({2026, 3, 0, 1, 1, 0, 0, 0})), &local));
  EXPECT_EQ(Join(local), sim::StepsOf({2026, 2, 0, 28, 23, 0, 0, 0}));
}

} // namespace
