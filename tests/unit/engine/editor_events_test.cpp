#include "tests/sim/debug.h"
#include "tests/sim/faults.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>

namespace {

class EditorEvents : public EngineTest {
protected:
  EditorEvents() { sim::InstallEditors(); }

  /// Opens and forgets the events of the open.
  std::int32_t OpenQuietly() {
    const std::int32_t id = OpenAndWait(kWindow);
    EXPECT_TRUE(WaitForEvents(2));
    m_seen = Events().size();
    return id;
  }

  std::vector<std::string> NewEvents() {
    const auto events = Events();
    return {events.begin() + static_cast<std::ptrdiff_t>(m_seen), events.end()};
  }

private:
  std::size_t m_seen = 0;
};

TEST_F(EditorEvents, ReachTheCallbackUnchangedInTheOrderOfTheEditor) {
  const std::uint32_t pid = Pid(OpenQuietly());
  const std::vector<std::string> texts{"not json", "[1,2]", "{\"type\":\"x\",\"param\":\"\xC3\xA4\"}", "not json"};
  for (const std::string& text : texts) {
    ASSERT_TRUE(sim::SendEvent(pid, text));
  }
  ASSERT_TRUE(WaitForEvents(2 + texts.size()));
  EXPECT_EQ(NewEvents(), texts);
  EXPECT_TRUE(LastCallSawFreeLocks());
}

TEST_F(EditorEvents, GoToTheDebuggerWithALineEnd) {
  const std::uint32_t pid = Pid(OpenQuietly());
  SendAndWait(pid, "shown");
  ASSERT_TRUE(WaitForEvents(3));
  std::string all;
  for (const std::string& text : sim::DebugTexts()) {
    all += text;
  }
  EXPECT_EQ(all, "shown\n"); // and the SDK's own events do not go there
}

TEST_F(EditorEvents, OfAnExitAreKeptFromTheBrowser) {
  const std::int32_t id = OpenQuietly();
  Probe().SetModifyClose(id);
  SendAndWait(Pid(id), R"({"type":"process_exit","process_id":4242})");
  EXPECT_TRUE(Engine()->IsExited(4242)); // the process that the text names
  EXPECT_FALSE(Engine()->IsExited(Pid(id)));
  EXPECT_FALSE(Engine()->IsModifyClose(id));
  EXPECT_TRUE(NewEvents().empty());
}

TEST_F(EditorEvents, OfAnExitWithoutAUsableProcessAreDroppedWithoutEffect) {
  const std::int32_t id = OpenQuietly();
  Probe().SetModifyClose(id);
  SendAndWait(Pid(id), R"({"type":"process_exit"})");
  SendAndWait(Pid(id), R"({"type":"process_exit","process_id":"x"})");
  EXPECT_TRUE(Engine()->IsModifyClose(id));
  EXPECT_TRUE(NewEvents().empty());
}

TEST_F(EditorEvents, OfTheEndFinishTheIdAndReachTheBrowser) {
  const std::int32_t id = OpenQuietly();
  SendAndWait(Pid(id), R"({"type":"finish_operator","id":1})");
  EXPECT_EQ(NewEvents(), std::vector<std::string>{R"({"type":"finish_operator","id":1})"});
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_OPERATE, id)));
}

TEST_F(EditorEvents, FromAProcessWithoutAnIdBelongToIdZero) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t waiting = StartedPids()[0];
  EXPECT_EQ(Probe().IdOfPid(waiting), -1);
  SendAndWait(waiting, R"({"type":"finish_operator"})");
  EXPECT_EQ(Probe().IdOfPid(waiting), 0);
  EXPECT_TRUE(Engine()->IsFinished(0));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_PreLoadProcess, 0))); // and with it every preload
  EXPECT_TRUE(Events().empty());
}

TEST_F(EditorEvents, FindNobodyAfterTheCallbackWasCleared) {
  const std::int32_t id = OpenQuietly();
  Engine()->SetCallback(id, nullptr, nullptr);
  SendAndWait(Pid(id), "lost");
  EXPECT_TRUE(NewEvents().empty());
  EXPECT_TRUE(sim::DebugTexts().empty());
}

TEST_F(EditorEvents, GoToTheLaterOfTwoCallbacks) {
  static int later;
  later = 0;
  const std::int32_t id = OpenQuietly();
  Engine()->SetCallback(
      id,
      [](char* text, void*) {
        FreeCallbackText(text);
        ++later;
      },
      this);
  SendAndWait(Pid(id), "new");
  EXPECT_EQ(later, 1);
  EXPECT_TRUE(NewEvents().empty());
}

TEST_F(EditorEvents, AreDeliveredWithNullUserDataWhereTheSdksOwnAreNot) {
  static int calls;
  calls = 0;
  const std::int32_t id = OpenQuietly();
  Engine()->SetCallback(
      id,
      [](char* text, void* data) {
        EXPECT_EQ(data, nullptr);
        EXPECT_STREQ(text, "plain");
        FreeCallbackText(text);
        ++calls;
      },
      nullptr);
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Received(Pid(id), 2).size(), 2u);
  SendAndWait(Pid(id), "plain");
  EXPECT_EQ(calls, 1);
}

TEST_F(EditorEvents, TheSdksOwnMakeNoEntryForAnUnknownProcess) {
  Probe().SendBrowserMessage(1, 31337, "custom_message", "x");
  EXPECT_EQ(Probe().IdOfPid(31337), -1);
}

TEST_F(EditorEvents, ThatProbeAreDropped) {
  const std::uint32_t pid = Pid(OpenQuietly());
  SendAndWait(pid, R"({"type":"other","param":"a testserver b"})");
  EXPECT_TRUE(NewEvents().empty());
}

TEST_F(EditorEvents, OfAFloodAllArriveInOrder) {
  constexpr int kTexts = 300;
  const std::uint32_t pid = Pid(OpenQuietly());
  ASSERT_TRUE(sim::Flood(pid, kTexts, "event "));
  ASSERT_TRUE(WaitForEvents(2 + kTexts));
  const auto events = NewEvents();
  ASSERT_EQ(events.size(), static_cast<std::size_t>(kTexts));
  for (int i = 0; i < kTexts; ++i) {
    EXPECT_EQ(events[static_cast<std::size_t>(i)], "event " + std::to_string(i));
  }
}

TEST_F(EditorEvents, OfHugeOrDeeplyNestedTextGoOnAsTheyCame) {
  const std::uint32_t pid = Pid(OpenQuietly());
  const std::string deep(100000, '[');
  const std::string huge = "{\"type\":\"x\",\"param\":\"" + std::string(1 << 20, 'y') + "\"}";
  ASSERT_TRUE(sim::SendEvent(pid, deep));
  ASSERT_TRUE(sim::SendEvent(pid, huge));
  ASSERT_TRUE(WaitForEvents(4));
  EXPECT_EQ(NewEvents(), (std::vector<std::string>{deep, huge}));
}

TEST_F(EditorEvents, ACallbackMayCallTheEngine) {
  const std::int32_t id = OpenQuietly();
  OnEvent([id](const std::string&) {
    Engine()->SetCallback(id, nullptr, nullptr);
    Engine()->DoOperator(RecordOf(SDK_SETPOS, id));
    Engine()->AllocateEditorId(kOtherWindow);
  });
  SendAndWait(Pid(id), "call back");
  EXPECT_EQ(Received(Pid(id), 2).size(), 2u);
}

TEST_F(EditorEvents, AnEditNotesTheUnsavedState) {
  const std::int32_t id = OpenQuietly();
  const auto link = Probe().GetHelperByPid(Pid(id));
  SendAndWait(Pid(id), R"({"type":"edit","status":true})");
  EXPECT_TRUE(link->IsModify());
  SendAndWait(Pid(id), R"({"type":"edit","status":"no"})");
  EXPECT_TRUE(link->IsModify());
  SendAndWait(Pid(id), R"({"type":"edit","status":false})");
  EXPECT_FALSE(link->IsModify());
  EXPECT_EQ(NewEvents().size(), 3u); // each reached the browser as well
}

} // namespace
