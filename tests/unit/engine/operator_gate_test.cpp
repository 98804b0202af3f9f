#include "foundation/logger.h"
#include "include/vexelsdk.h"
#include "tests/sim/clock.h"
#include "tests/sim/file.h"
#include "tests/unit/engine/engine_test.h"

#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kNoProcess = 777; // a pid that nothing runs under
constexpr char kDoOperator[] = "VexelSDKThread::DoOperator";

VexelWindow Handle(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

std::string OperatorLine(std::int32_t op, std::int32_t id, std::uint32_t pid) {
  return "VexelSDKThread::DoOperator m_op(SDK_Operator)=" + std::to_string(op) + ", m_id=" + std::to_string(id) +
         ", m_pid=" + std::to_string(pid);
}

class GateTest : public EngineTest {
protected:
  GateTest() { sim::InstallEditors(); }

  /// An id whose editor is connected.
  std::int32_t Connected() { return OpenAndWait(m_nextWindow++); }

  /// An id whose editor holds unsaved changes.
  std::int32_t Modified() {
    const std::int32_t id = Connected();
    SendAndWait(Pid(id), R"({"type":"edit","status":true})");
    return id;
  }

  /// An id whose process has a link that is not connected yet.
  std::int32_t Connecting() {
    Preload();
    EXPECT_TRUE(DrainQueue());
    const std::int32_t id = Registered();
    EXPECT_TRUE(Probe().BindIdToPid(id, StartedPids().back()));
    return id;
  }

  /// An id that is bound to a process without a link.
  std::int32_t WithoutLink() {
    const std::int32_t id = Registered();
    EXPECT_TRUE(Probe().BindIdToPid(id, kNoProcess));
    return id;
  }

  /// An id that was given out and no more.
  std::int32_t Registered() {
    const std::int32_t id = Engine()->AllocateEditorId(m_nextWindow++);
    Engine()->SetCallback(id, Recorder(), this);
    return id;
  }

  std::int32_t Finished() {
    const std::int32_t id = Connected();
    Probe().SetFinished(id);
    return id;
  }

private:
  platform::Window m_nextWindow = 0x2000;
};

struct GateRow {
  const char* name;
  SDK_Operator op;
  std::int32_t (GateTest::*make)();
  bool result;
  bool queued;
  bool closing;
  bool finished;
  bool asksTheUser;
  bool subscribed;
};

void PrintTo(const GateRow& row, std::ostream* out) { *out << row.name; }

/// The fixture's makers under a name that a table may use.
class Makers : public GateTest {
public:
  static constexpr auto kConnected = &Makers::Connected;
  static constexpr auto kModified = &Makers::Modified;
  static constexpr auto kConnecting = &Makers::Connecting;
  static constexpr auto kWithoutLink = &Makers::WithoutLink;
  static constexpr auto kRegistered = &Makers::Registered;
  static constexpr auto kFinished = &Makers::Finished;
};

class Gate : public GateTest, public testing::WithParamInterface<GateRow> {};

TEST_P(Gate, GivesQueuesAndMarksAsItsRowSays) {
  const GateRow& row = GetParam();
  const std::int32_t id = (this->*row.make)();
  ASSERT_TRUE(HoldQueue());
  const auto before = Engine()->CopyIdToPid();
  SDK_OperatorData record = RecordOf(row.op, id);
  record.m_pid = 4711; // what the caller puts here plays no part
  EXPECT_EQ(Engine()->DoOperator(record), row.result);
  const auto queued = Probe().QueuedRecords();
  ASSERT_EQ(queued.size(), row.queued ? 1u : 0u);
  if (row.queued) {
    EXPECT_EQ(queued[0].m_op, row.op);
    EXPECT_EQ(queued[0].m_id, id);
    EXPECT_EQ(queued[0].m_pid, Pid(id));
  } else {
    EXPECT_EQ(Engine()->CopyIdToPid(), before);
  }
  EXPECT_EQ(Engine()->IsClosing(id), row.closing);
  EXPECT_EQ(Engine()->IsFinished(id), row.finished);
  EXPECT_EQ(Engine()->IsModifyClose(id), row.asksTheUser);
  const auto callback = Probe().CallbackOf(id);
  ASSERT_TRUE(callback.has_value()); // a clear leaves the entry
  EXPECT_EQ(callback->first, row.subscribed ? Recorder() : nullptr);
  EXPECT_EQ(callback->second, row.subscribed ? this : nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Each, Gate,
    testing::
        Values( //                  op              id                    result queued closing finished asks subscribed
            GateRow{"CloseOfAFinishedId", SDK_CLOSE, Makers::kFinished, false, false, false, true, false, true},
            GateRow{"MoveOfAFinishedId", SDK_SETPOS, Makers::kFinished, false, false, false, true, false, true},
            GateRow{"OpenOfAFinishedId", SDK_OPEN, Makers::kFinished, false, false, false, true, false, true},
            GateRow{"CloseWithoutAProcess", SDK_CLOSE, Makers::kRegistered, false, false, true, true, false, false},
            GateRow{"CloseWithoutALink", SDK_CLOSE, Makers::kWithoutLink, false, false, true, true, false, false},
            GateRow{"CloseWhileConnecting", SDK_CLOSE, Makers::kConnecting, false, false, true, false, false, false},
            GateRow{"CloseOnUnsavedChanges", SDK_CLOSE, Makers::kModified, true, true, false, false, true, true},
            GateRow{"Close", SDK_CLOSE, Makers::kConnected, false, true, true, false, false, false},
            GateRow{"MoveWithoutAProcess", SDK_SETPOS, Makers::kRegistered, true, true, false, false, false, true},
            GateRow{"MoveWithoutALink", SDK_SETPOS, Makers::kWithoutLink, true, true, false, false, false, true},
            GateRow{"MoveWhileConnecting", SDK_SETPOS, Makers::kConnecting, true, true, false, false, false, true},
            GateRow{"MoveOnUnsavedChanges", SDK_SETPOS, Makers::kModified, true, true, false, false, false, true},
            GateRow{"OtherClose", SDK_CLOSE_ALT, Makers::kModified, true, true, false, false, false, true},
            GateRow{"Move", SDK_SETPOS, Makers::kConnected, true, true, false, false, false, true},
            GateRow{"Open", SDK_OPEN, Makers::kConnected, true, true, false, false, false, true},
            GateRow{"Nothing", SDK_NONE, Makers::kConnected, true, true, false, false, false, true}),
    [](const auto& row) { return std::string(row.param.name); });

using GateQueue = GateTest;

TEST_F(GateQueue, ARecordGoesToTheProcessThatTheIdHadWhenItWasQueued) {
  const std::int32_t id = Connected();
  const std::uint32_t first = Pid(id);
  const std::uint32_t other = Pid(Connected());
  ASSERT_TRUE(HoldQueue());
  SDK_OperatorData record = RecordOf(SDK_SETPOS, id);
  record.m_pid = other;
  EXPECT_TRUE(Engine()->DoOperator(record));
  EXPECT_TRUE(Probe().BindIdToPid(id, other));
  ASSERT_TRUE(ReleaseQueue());
  EXPECT_EQ(Received(first).size(), 2u);
  EXPECT_EQ(Received(other).size(), 1u);
}

TEST_F(GateQueue, AnOperationRightBehindAFirstOpenReachesNoEditor) {
  ASSERT_TRUE(HoldQueue());
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  SetWindowsPos(id, 1, 2, 3, 4);
  ASSERT_TRUE(ReleaseQueue());
  EXPECT_EQ(Received(Pid(id)).size(), 1u); // the open
  EXPECT_EQ(sim::AllReceivedTexts().size(), 1u);
}

TEST_F(GateQueue, AnOperationRightBehindALaterOpenGoesToTheEditorThatIsReplaced) {
  const std::int32_t id = Connected();
  const std::uint32_t old = Pid(id);
  ASSERT_TRUE(HoldQueue());
  EXPECT_EQ(OpenEditor(L"C:\\b.png", Handle(0x2000), 0, nullptr), id);
  SetWindowsPos(id, 1, 2, 3, 4);
  ASSERT_TRUE(ReleaseQueue());
  ASSERT_NE(Pid(id), old);
  EXPECT_EQ(Received(Pid(id)).size(), 1u);
  const auto texts = Received(old);
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_NE(texts[1].find("\"type\":\"close\""), std::string::npos);
  EXPECT_NE(texts[2].find("\"type\":\"setpos\""), std::string::npos);
}

TEST_F(GateQueue, ACloseRightBehindItsOpenLeavesThePreloadAlone) {
  ASSERT_TRUE(HoldQueue());
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  SetBrowserCallback(id, Recorder(), this);
  EXPECT_FALSE(CloseEditor(id, false));
  EXPECT_TRUE(IsClose(id));
  ASSERT_TRUE(ReleaseQueue());
  EXPECT_EQ(StartedPrograms(), 2); // one waiting process of each program
  EXPECT_EQ(Pid(id), 0u);
  EXPECT_TRUE(sim::AllReceivedTexts().empty());
  EXPECT_TRUE(Events().empty());
}

TEST_F(GateQueue, HostCallsReturnWhileAnEditorDoesNotAnswer) {
  constexpr std::uint32_t kSilence = 60000;
  sim::EditorStep slow;
  slow.when = "\"type\":\"setpos\"";
  slow.delayMs = kSilence;
  sim::EditorScript script;
  script.steps.push_back(slow);
  sim::InstallEditors(script);
  const std::int32_t id = Connected();
  const std::int32_t other = Connected();
  const std::uint32_t otherPid = Pid(other);
  ASSERT_TRUE(StopIdle());
  SetWindowsPos(id, 1, 2, 3, 4);
  ASSERT_TRUE(sim::WaitFor([] { return sim::SomeoneWaitsFor(kSilence); }));
  EXPECT_EQ(OpenEditor(L"C:\\c.png", Handle(kOtherWindow), 0, nullptr), other + 1);
  EXPECT_TRUE(OperatePic(id, 1));
  EXPECT_TRUE(DoBrowserCommand(id, 1));
  FullScreen(id, true);
  EXPECT_FALSE(CloseEditor(id, false));
  EXPECT_TRUE(IsClose(id));
  EXPECT_EQ(Probe().Queued(), 6u); // with the preload behind the open
  // The editors' own texts go on arriving.
  ASSERT_TRUE(sim::SendEvent(otherPid, "meanwhile"));
  ASSERT_TRUE(sim::FlushEvents(otherPid));
  ASSERT_TRUE(sim::LetPass(20));
  EXPECT_EQ(Events().back(), "meanwhile");
  EXPECT_EQ(Probe().Queued(), 6u);
  sim::SetClockSpeed(200);
  EXPECT_TRUE(DrainQueue());
}

class GateLog : public GateTest {
protected:
  GateLog() { LogAt(vx::LOG_INFO); }
};

TEST_F(GateLog, TellsEachOperatorWithTheProcessIdOfTheCaller) {
  SDK_OperatorData record = RecordOf(SDK_SETPOS, 6);
  record.m_pid = 4294967295u;
  Engine()->DoOperator(record);
  Engine()->DoOperator(RecordOf(SDK_CHANGE_THEME, -1));
  EXPECT_EQ(LogLinesOf(kDoOperator), (std::vector{OperatorLine(7, 6, 4294967295u), OperatorLine(22, -1, 0)}));
}

TEST_F(GateLog, SaysNothingOfAFinishedId) {
  Probe().SetFinished(6);
  ASSERT_TRUE(HoldQueue());
  const auto before = LogLines();
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 6)));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, 6)));
  EXPECT_EQ(LogLines(), before);
}

TEST_F(GateLog, SaysNothingOfARecordThatTheLoopDrops) {
  ASSERT_TRUE(HoldQueue());
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  Probe().SetFinished(id);
  ASSERT_TRUE(ReleaseQueue());
  EXPECT_EQ(LogLinesOf("OperatorThreadFun"),
            (std::vector<std::string>{"OperatorThreadFun data.m_op = SDK_PreLoadProcess"}));
}

TEST_F(GateLog, TellsWhatTheLoopStarts) {
  const std::int32_t id = Connected();
  SetWindowsPos(id, 1, 2, 3, 4);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(LogLinesOf("OperatorThreadFun"),
            (std::vector<std::string>{"OperatorThreadFun data.m_op = SDK_OPEN data.m_id=1",
                                      "OperatorThreadFun data.m_op = SDK_PreLoadProcess"}));
}

TEST_F(GateLog, TellsWhatACloseFinds) {
  const std::int32_t plain = Connected();
  const std::int32_t modified = Modified();
  const std::int32_t connecting = Connecting();
  const std::size_t before = LogLinesOf(kDoOperator).size();
  ASSERT_TRUE(HoldQueue());
  for (const std::int32_t id : {plain, modified, connecting}) {
    Engine()->DoOperator(RecordOf(SDK_CLOSE, id));
  }
  auto lines = LogLinesOf(kDoOperator);
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before) + 1); // and the line of the hold
  EXPECT_EQ(lines,
            (std::vector{OperatorLine(4, plain, 0), OperatorLine(4, modified, 0),
                         std::string("VexelSDKThread::DoOperator helper is modify."), OperatorLine(4, connecting, 0),
                         "VexelSDKThread::DoOperator helper is connecting. pid=" + std::to_string(Pid(connecting))}));
}

TEST_F(GateLog, StandsAtInformationAndIsSilentAboveIt) {
  const std::int32_t id = Modified();
  EXPECT_TRUE(CloseEditor(id, false));
  ASSERT_TRUE(DrainQueue());
  std::size_t counted = 0;
  std::string file = sim::FileBytes(L"C:\\Host\\log\\browser.vexelsdk.dll.log");
  for (const char* const name : {"] VexelSDKThread::DoOperator ", "] OperatorThreadFun "}) {
    for (std::size_t at = file.find(name); at != std::string::npos; at = file.find(name, at + 1)) {
      const std::size_t start = file.rfind('\n', at) + 1; // 0 for the first line
      EXPECT_NE(file.substr(start, at - start).find("|   INFO|"), std::string::npos) << file.substr(start, at - start);
      ++counted;
    }
  }
  EXPECT_EQ(counted, 6u); // open, preload, close and its branch; what the loop says of the first two
  LogAt(vx::LOG_WARNING);
  const auto before = LogLines();
  SetWindowsPos(id, 1, 2, 3, 4);
  Preload();
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(LogLines(), before);
}

/// What a close without a link leaves behind where it faults, as an exit code.
class NullLink : public GateTest {
public:
  void TestBody() override {
    LogAt(vx::LOG_INFO);
    id = Engine()->AllocateEditorId(kWindow);
    Engine()->SetCallback(id, Recorder(), this);
    self = this;
    std::signal(SIGSEGV, &NullLink::Judge);
    Engine()->DoOperator(RecordOf(SDK_CLOSE, id));
    std::_Exit(kReturned);
  }

  static constexpr int kAsItShould = 7;
  static constexpr int kReturned = 1;
  static constexpr int kWrongLines = 2;
  static constexpr int kWrongMarks = 3;

private:
  /// On the thread that faults, which holds no lock there.
  static void Judge(int) {
    if (LogLinesOf(kDoOperator) != std::vector{OperatorLine(4, self->id, 0)}) {
      std::_Exit(kWrongLines);
    }
    const bool marked = Engine()->IsClosing(self->id) || Engine()->IsFinished(self->id) ||
                        Probe().CallbackOf(self->id)->first == nullptr || Probe().Queued() != 0;
    std::_Exit(marked ? kWrongMarks : kAsItShould);
  }

  static NullLink* self;
  std::int32_t id = 0;
};

NullLink* NullLink::self = nullptr;

TEST(GateDeath, ACloseWithoutALinkFaultsInTheLogLineBeforeItMarksAnything) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(NullLink().TestBody(), testing::ExitedWithCode(NullLink::kAsItShould), "");
}

} // namespace
