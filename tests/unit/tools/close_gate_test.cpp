#include "tools/vexelctl/close_gate.h"

#include <gtest/gtest.h>

namespace {

using vexelctl::CloseGate;

TEST(CloseGate, ACloseBeforeItsProcessIsHeldAndGoesOutWithIt) {
  CloseGate gate;
  gate.OnOpen(1);
  EXPECT_FALSE(gate.IsReady(1));
  EXPECT_EQ(gate.Ask(1, true, true), CloseGate::Answer::kHeld);
  ASSERT_EQ(gate.Held().size(), 1U);
  const auto closes = gate.OnProcessSuccess(1);
  ASSERT_EQ(closes.size(), 1U);
  EXPECT_EQ(closes[0].id, 1);
  EXPECT_TRUE(closes[0].closeAll);
  EXPECT_TRUE(gate.Held().empty());
  EXPECT_TRUE(gate.OnProcessSuccess(1).empty());
}

TEST(CloseGate, ACloseBehindItsProcessGoesOutAtOnce) {
  CloseGate gate;
  gate.OnOpen(1);
  EXPECT_TRUE(gate.OnProcessSuccess(1).empty());
  EXPECT_EQ(gate.Ask(1, false, true), CloseGate::Answer::kNow);
}

TEST(CloseGate, AnIdThatIsOpenedAgainWaitsForBoth) {
  CloseGate gate;
  gate.OnOpen(1);
  gate.OnOpen(1);
  EXPECT_EQ(gate.Ask(1, false, true), CloseGate::Answer::kHeld);
  EXPECT_TRUE(gate.OnProcessSuccess(1).empty());
  EXPECT_EQ(gate.OnProcessSuccess(1).size(), 1U);
}

TEST(CloseGate, AnIdThatWasNeverGivenOutIsNeverClosed) {
  CloseGate gate;
  EXPECT_EQ(gate.Ask(7, false, true), CloseGate::Answer::kUnknown);
  EXPECT_TRUE(gate.Held().empty());
  EXPECT_TRUE(gate.OnProcessSuccess(7).empty());
}

TEST(CloseGate, WithoutThePipeLibraryNothingIsClosed) {
  CloseGate gate;
  gate.OnOpen(1);
  gate.OnProcessSuccess(1);
  EXPECT_EQ(gate.Ask(1, false, false), CloseGate::Answer::kNoLink);
}

TEST(CloseGate, IdsDoNotMix) {
  CloseGate gate;
  gate.OnOpen(1);
  gate.OnOpen(2);
  EXPECT_EQ(gate.Ask(1, false, true), CloseGate::Answer::kHeld);
  EXPECT_TRUE(gate.OnProcessSuccess(2).empty());
  EXPECT_TRUE(gate.IsReady(2));
  EXPECT_FALSE(gate.IsReady(1));
}

} // namespace
