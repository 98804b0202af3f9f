#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>

namespace {

/// The process that a window had when another picture comes.
class ReplacedProcess : public EngineTest {
protected:
  ReplacedProcess() { sim::InstallEditors(); }

  bool Heard(const std::string& part) {
    const auto events = Events();
    return std::any_of(events.begin(), events.end(),
                       [&](const std::string& event) { return event.find(part) != std::string::npos; });
  }
};

TEST_F(ReplacedProcess, IsHeardNoMoreThoughItHasUnsavedChanges) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t old = Pid(id);
  SendAndWait(old, R"({"type":"edit","status":true})");
  ASSERT_TRUE(Probe().GetHelperByPid(old)->IsModify());
  OpenAndWait(kWindow, L"C:\\b.png");
  SendAndWait(old, "late text");
  SendAndWait(old, "{\"type\":\"process_exit\",\"process_id\":" + std::to_string(old) + "}");
  SendAndWait(old, R"({"type":"finish_operator"})");
  EXPECT_FALSE(Heard("late text"));
  EXPECT_FALSE(Heard("finish_operator"));
  EXPECT_FALSE(Engine()->IsExited(old));
  EXPECT_FALSE(Engine()->IsFinished(id));
  SendAndWait(Pid(id), "the new one");
  EXPECT_TRUE(Heard("the new one"));
}

TEST_F(ReplacedProcess, ThatDoesNotTakeItsCloseIsLeftToItself) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t old = Pid(id);
  sim::FailNth("CltComunicate", 1);
  OpenAndWait(kWindow, L"C:\\b.png");
  ASSERT_EQ(sim::FaultsFired("CltComunicate"), 1);
  EXPECT_NE(Pid(id), old);
  EXPECT_NE(Pid(id), 0u);
  EXPECT_FALSE(Engine()->IsFinished(id));
  EXPECT_FALSE(Engine()->IsExited(old));
  EXPECT_TRUE(Probe().KillList().empty());
  EXPECT_TRUE(Heard(EventText(id, Pid(id), "custom_message", "open_pic_success")));
}

TEST_F(ReplacedProcess, ThatDiedUnconnectedIsMarkedAndNotListed) {
  OpenAndWait(kOtherWindow); // and behind it a process waits in each slot
  const std::uint32_t waiting = StartedPids().back();
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  Probe().BindIdToPid(id, waiting);
  sim::EndProcess(waiting);
  OpenAndWait(kWindow);
  EXPECT_TRUE(Engine()->IsExited(waiting));
  EXPECT_TRUE(Probe().KillList().empty());
  EXPECT_FALSE(Engine()->IsFinished(id));
  EXPECT_NE(Pid(id), waiting);
}

TEST_F(ReplacedProcess, WithoutALinkIsToldNothingAndKeepsNoTrace) {
  sim::RemovePath(sim::kPipeLibraryPath);
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t old = Pid(id);
  OpenAndWait(kWindow, L"C:\\b.png");
  EXPECT_NE(Pid(id), old);
  EXPECT_NE(Pid(id), 0u);
  EXPECT_EQ(Probe().IdOfPid(0), -1); // the id was never bound to no process
  EXPECT_TRUE(sim::AllReceivedTexts().empty());
  EXPECT_FALSE(Engine()->IsExited(old));
}

TEST_F(ReplacedProcess, IsLeftBeforeItIsTold) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t old = Pid(id);
  std::uint32_t boundTo = old;
  sim::EditorScript script;
  script.handler = [&boundTo, id](std::uint32_t, const std::string&) {
    boundTo = Pid(id);
    return sim::EditorStep{};
  };
  sim::AttachEditor(old, script);
  OpenAndWait(kWindow, L"C:\\b.png");
  ASSERT_EQ(Received(old, 2).size(), 2u);
  EXPECT_EQ(boundTo, 0u);
}

} // namespace
