#include "tests/months/driver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

constexpr std::uint64_t kTestSeeds = 6; // of each test, one of them with a crowd; two tests can run at the same time
constexpr int kTestSteps = 1500;
constexpr int kSoakSteps = 3000;

/// A run of one seed. Prints the seed, so that a failure can be replayed, whatever its end.
bool RunSeed(std::uint64_t seed, int steps, Figures& sum) {
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  std::fflush(stdout);
  MonthsDriver driver(seed);
  const bool held = driver.Run(steps);
  sum.Add(driver.Seen());
  std::printf("trace %016llx\n", static_cast<unsigned long long>(driver.Seen().trace));
  if (!held) {
    std::printf("seed %llu failed at %s\nreplay: months --seed %llu --steps %d\n",
                static_cast<unsigned long long>(seed), driver.Wrong().c_str(), static_cast<unsigned long long>(seed),
                steps);
  }
  return held;
}

TEST(MonthsReplay, ARunOfASeedIsTheSameEachTime) {
  std::string seen;
  for (int run = 0; run < 2; ++run) {
    Figures figures;
    ASSERT_TRUE(RunSeed(3, 400, figures));
    const std::string text = figures.Text() + ", trace " + std::to_string(figures.trace);
    EXPECT_TRUE(seen.empty() || seen == text) << seen << "\n" << text;
    seen = text;
  }
}

class Months : public testing::TestWithParam<std::uint64_t> {};

TEST_P(Months, HoldWhatMustAlwaysBeTrue) {
  Figures sum;
  for (std::uint64_t seed = GetParam(); seed < GetParam() + kTestSeeds; ++seed) {
    Figures figures;
    EXPECT_TRUE(RunSeed(seed, kTestSteps, figures));
    // A run in which nothing happens proves nothing.
    EXPECT_GT(figures.received, 100u) << "seed " << seed;
    EXPECT_GT(figures.dropped, 100u) << "seed " << seed;
    EXPECT_GT(figures.events, 100u) << "seed " << seed;
    EXPECT_GT(figures.crashes, 0u) << "seed " << seed;
    EXPECT_GT(figures.deliberate, 0u) << "seed " << seed;
    sum.Add(figures);
  }
  std::printf("%s\n", sum.Text().c_str());
  // What not every seed brings about.
  EXPECT_GT(sum.engines, sum.seeds);
  EXPECT_GT(sum.kills, 0u);
  EXPECT_GT(sum.reusedPids, sum.reusedListed);
  EXPECT_GT(sum.reusedListed, 0u);
  EXPECT_GT(sum.clockTurns, 0u);
  EXPECT_GE(sum.mostWindows, 1000u);
  EXPECT_GE(sum.mostEditors, 200u);
}

INSTANTIATE_TEST_SUITE_P(FromSeed, Months, testing::Values(1, 1 + kTestSeeds), testing::PrintToStringParamName());

std::optional<double> NumberArgument(int argc, char** argv, const char* name) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) {
      return std::strtod(argv[i + 1], nullptr);
    }
  }
  return std::nullopt;
}

/// `--seed S` runs that seed, `--minutes N` goes on with the seeds behind it (or behind one drawn from the time) for so
/// long, and `--steps N` sets the length of each.
int Soak(std::optional<double> seed, std::optional<double> minutes, int steps) {
  const auto begin = std::chrono::steady_clock::now();
  const auto limit = begin + std::chrono::duration<double>(minutes.value_or(0) * 60);
  std::uint64_t next =
      seed.has_value()
          ? static_cast<std::uint64_t>(*seed)
          : static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1));
  Figures sum;
  bool held = true;
  do {
    held = RunSeed(next++, steps, sum);
  } while (held && std::chrono::steady_clock::now() < limit);
  std::printf("%s\n", sum.Text().c_str());
  return held ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const auto seed = NumberArgument(argc, argv, "--seed");
  const auto minutes = NumberArgument(argc, argv, "--minutes");
  if (seed.has_value() || minutes.has_value()) {
    return Soak(seed, minutes, static_cast<int>(NumberArgument(argc, argv, "--steps").value_or(kSoakSteps)));
  }
  return RUN_ALL_TESTS();
}
