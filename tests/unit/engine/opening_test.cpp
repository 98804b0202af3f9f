#include "foundation/logger.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/unit/engine/engine_test.h"
#include "tests/unit/log_lines.h"
#include "tests/unit/number_behind.h"

#include <algorithm>

namespace {

constexpr wchar_t kConfigFile[] = L"C:\\Users\\Tester\\AppData\\Local\\norvelVexel\\config_temp.ini";

// Texts of the switches that they name, in base64.
constexpr wchar_t kAppType2[] = L"L2FwcHR5cGU6Mg=="; // /apptype:2
constexpr wchar_t kAppType9[] = L"L2FwcHR5cGU6OQ=="; // /apptype:9

std::string ConfigText() { return sim::FileBytes(kConfigFile); }

bool Holds(const std::vector<std::string>& lines, const std::string& part) {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.find(part) != std::string::npos; });
}

class Opening : public EngineTest {
protected:
  Opening() { sim::InstallEditors(); }
};

TEST_F(Opening, TheFirstPreloadStartsTheLauncherThenTheEditor) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const auto started = sim::StartedPrograms();
  ASSERT_EQ(started.size(), 2u);
  EXPECT_EQ(started[0].commandText, L"\"C:\\Vexel\\webvexlaunch.exe\" /vexelsdk");
  EXPECT_EQ(started[1].commandText, L"\"C:\\Vexel\\vxpixeleditor.exe\" /vexelsdk");
  EXPECT_EQ(ConfigText(), "\xEF\xBB\xBF[common]\r\npid=" + std::to_string(started[1].pid) +
                              "\r\npreview_pid=" + std::to_string(started[0].pid) + "\r\n");
  Preload();
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 2); // the slots are full
  EXPECT_EQ(Probe().Links(), 2u);
}

TEST_F(Opening, AFailedFirstPreloadIsTriedOnceMoreInTheSameRecordEditorFirst) {
  sim::FailNth("CreateProcessW", 1, sim::kForever, 5);
  Preload();
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(sim::CallCount("CreateProcessW"), 4);
  sim::ClearFaults();
  Preload();
  ASSERT_TRUE(DrainQueue());
  const auto started = sim::StartedPrograms();
  ASSERT_EQ(started.size(), 2u);
  EXPECT_EQ(started[0].path, sim::kEditorPath); // a refill takes them the other way round
  EXPECT_EQ(started[1].path, sim::kLauncherPath);
}

TEST_F(Opening, AnOpenTakesThePreloadedProcessAndRefillsTheSlot) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t preloaded = sim::StartedPrograms()[0].pid;
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_EQ(Pid(id), preloaded);
  EXPECT_EQ(Events(), (std::vector{EventText(id, preloaded, "custom_message", "open_pic_process_success"),
                                   EventText(id, preloaded, "custom_message", "open_pic_success")}));
  EXPECT_EQ(Received(preloaded),
            (std::vector<std::string>{
                "{\"id\":1,\"open_type\":0,\"param\":\"\",\"path\":\"C:\\\\a.png\",\"process_id\":" +
                std::to_string(preloaded) + ",\"recover\":false,\"status\":true,\"tabwnd\":4097,\"type\":\"open\"}"}));
  ASSERT_EQ(StartedPrograms(), 3); // the refill
  EXPECT_NE(ConfigText().find("preview_pid=" + std::to_string(sim::StartedPrograms()[2].pid)), std::string::npos);
}

TEST_F(Opening, TheFirstOpenWithAnEmptySlotStartsAProcessThatIsNotOnFile) {
  LogAt(vx::LOG_INFO);
  sim::FailNth("CreateProcessW", 2, sim::kForever); // no refill, so the file shows what the open left
  const std::int32_t id = OpenAndWait(kWindow);
  ASSERT_EQ(StartedPrograms(), 1);
  EXPECT_EQ(Pid(id), StartedPids()[0]);
  EXPECT_TRUE(Holds(LogLines(), "VexelSDKThread::HandleOpenProcess Invalid Old Process"));
  EXPECT_TRUE(Holds(LogLines(), "VexelSDKThread::HandleOpenProcess nAppType=1, pName=webvexlaunch.exe"));
  EXPECT_TRUE(Holds(LogLines(), "VexelSDKThread::HandleOpenProcess Use Process " + std::to_string(Pid(id))));
  EXPECT_NE(ConfigText().find("preview_pid=0\r\n"), std::string::npos) << ConfigText();
}

TEST_F(Opening, TheApplicationTypeChoosesTheProgram) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::int32_t id = OpenAndWait(kWindow, L"C:\\a.png", kAppType2);
  EXPECT_EQ(Pid(id), StartedPids()[1]);
}

TEST_F(Opening, AnApplicationTypeWithNoProgramIsSilence) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::int32_t id = OpenAndWait(kWindow, L"C:\\a.png", kAppType9);
  EXPECT_EQ(Pid(id), 0u);
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(StartedPrograms(), 2);
}

TEST_F(Opening, EachOpenTellsTheNumberAndTheProgramThatItStandsFor) {
  LogAt(vx::LOG_INFO);
  sim::FailAlways("CreateProcessW", 5);
  const struct {
    const wchar_t* param;
    const char* told;
  } rows[] = {
      {L"", "nAppType=1, pName=webvexlaunch.exe"},
      {L"not base64", "nAppType=1, pName=webvexlaunch.exe"},
      {kAppType2, "nAppType=2, pName=vxpixeleditor.exe"},
      {kAppType9, "nAppType=9, pName="},
      {L"L2FwcHR5cGU6eA==", "nAppType=0, pName="},                                      // /apptype:x
      {L"L2FwcHR5cGU6LTc=", "nAppType=-7, pName="},                                     // /apptype:-7
      {L"L1BpY19QYXJhbTpMMkZ3Y0hSNWNHVTZNZz09", "nAppType=2, pName=vxpixeleditor.exe"}, // /Pic_Param: around kAppType2
  };
  std::vector<std::string> expected;
  for (const auto& row : rows) {
    expected.push_back(std::string("INFO VexelSDKThread::HandleOpenProcess ") + row.told);
    OpenAndWait(kWindow, L"C:\\a.png", row.param);
  }
  std::vector<std::string> told;
  for (const std::string& line : ::LogLines(L"C:\\Host\\log\\browser.vexelsdk.dll.log")) {
    if (line.find("nAppType=") != std::string::npos) {
      told.push_back(line);
    }
  }
  EXPECT_EQ(told, expected);
}

TEST_F(Opening, AFailedStartIsSilenceAndALaterOpenTriesAgain) {
  LogAt(vx::LOG_INFO);
  sim::FailAlways("CreateProcessW", 5);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_EQ(Pid(id), 0u);
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(Holds(LogLines(), "VexelSdkProcessUtil::CreateProcessBy CreateProcessW failed: 5"));
  sim::ClearFaults();
  EXPECT_EQ(OpenAndWait(kWindow), id);
  EXPECT_NE(Pid(id), 0u);
}

TEST_F(Opening, TheInnerParameterTravelsInPlaceOfTheOuter) {
  // "/pic_param:L2FwcHR5cGU6Mg==": the inner text selects the program.
  constexpr wchar_t kOuter[] = L"L3BpY19wYXJhbTpMMkZ3Y0hSNWNHVTZNZz09";
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::int32_t id = OpenAndWait(kWindow, L"C:\\a.png", kOuter);
  EXPECT_EQ(Pid(id), StartedPids()[1]);
  EXPECT_NE(Received(Pid(id), 1).front().find("\"param\":\"L2FwcHR5cGU6Mg==\""), std::string::npos);
}

TEST_F(Opening, ASecondPictureInTheWindowReplacesTheProcess) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t old = Pid(id);
  EXPECT_EQ(OpenAndWait(kWindow, L"C:\\b.png"), id);
  EXPECT_NE(Pid(id), old);
  EXPECT_EQ(Received(old, 2).back(), "{\"closeall\":false,\"id\":1,\"operator\":0,\"process_id\":" +
                                         std::to_string(old) + ",\"status\":false,\"type\":\"close\"}");
  EXPECT_FALSE(Probe().GetHelperByPid(old)->IsReading());
  EXPECT_FALSE(Engine()->IsExited(old));
  EXPECT_EQ(Probe().IdOfPid(0), id);
  EXPECT_TRUE(Probe().KillList().empty());
}

TEST_F(Opening, AReplacedProcessThatNeverConnectedIsEnded) {
  LogAt(vx::LOG_INFO);
  const std::int32_t id = OpenAndWait(kWindow);
  // A link that is there and not connected: a preloaded process, bound by hand.
  const std::uint32_t waiting = StartedPids().back();
  sim::ServePipe(waiting, false);
  Probe().BindIdToPid(id, waiting);
  Probe().GetHelperByPid(waiting)->StopConnect();
  OpenAndWait(kWindow, L"C:\\b.png");
  EXPECT_TRUE(Engine()->IsExited(waiting));
  EXPECT_TRUE(Probe().KillList().contains(waiting));
}

TEST_F(Opening, APreloadedProcessThatDiedIsNotUsedAndNotListed) {
  LogAt(vx::LOG_INFO);
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t dead = StartedPids()[0];
  sim::EndProcess(dead);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_TRUE(Holds(LogLines(), "Preload Process Invalid. m_id=1, pid=" + std::to_string(dead)));
  EXPECT_NE(Pid(id), dead);
  EXPECT_NE(Pid(id), 0u);
  EXPECT_TRUE(Probe().KillList().empty());
}

TEST_F(Opening, APreloadedProcessThatIsNotElevatedEnoughIsEnded) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t plain = StartedPids()[0];
  sim::SetUserAdmin(true);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_NE(Pid(id), plain);
  EXPECT_TRUE(Probe().KillList().contains(plain));
}

TEST_F(Opening, ASavedProcessThatStillRunsIsTakenOver) {
  const std::uint32_t saved = sim::StartProcess(sim::kLauncherPath);
  sim::AttachEditor(saved);
  sim::AddFile(kConfigFile, "[common]\r\npreview_pid=" + std::to_string(saved) + "\r\n");
  Preload();
  ASSERT_TRUE(DrainQueue());
  ASSERT_EQ(StartedPrograms(), 1);
  EXPECT_EQ(sim::StartedPrograms()[0].path, sim::kEditorPath);
  EXPECT_EQ(Pid(OpenAndWait(kWindow)), saved);
}

TEST_F(Opening, ASavedProcessThatIsAForeignProgramIsLeftAlone) {
  const std::uint32_t foreign = sim::StartProcess(L"C:\\Other\\program.exe");
  sim::AddFile(kConfigFile, "[common]\r\npreview_pid=" + std::to_string(foreign) + "\r\n");
  Preload();
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 2);
  EXPECT_TRUE(sim::IsRunning(foreign));
  EXPECT_TRUE(Probe().KillList().empty());
}

TEST_F(Opening, AProcessOfAPidThatCameBackGetsALinkOfItsOwn) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  const auto earlier = Probe().GetHelperByPid(pid);
  sim::EndProcess(pid);
  Probe().SetClosing(id);
  for (const std::uint32_t waiting : sim::RunningPids(sim::kLauncherPath)) {
    sim::EndProcess(waiting); // so that the next open starts one
  }
  sim::SetNextPid(pid);
  const std::int32_t next = OpenAndWait(kWindow);
  ASSERT_EQ(Pid(next), pid);
  EXPECT_NE(Probe().GetHelperByPid(pid), earlier);
  EXPECT_FALSE(Engine()->IsFinished(next));
  SendAndWait(pid, "from the new one");
  EXPECT_TRUE(WaitForEvent("from the new one"));
}

TEST_F(Opening, WithoutThePipeLibraryTheBrowserHearsOfSuccessAllTheSame) {
  sim::RemovePath(sim::kPipeLibraryPath);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_NE(Pid(id), 0u);
  EXPECT_EQ(Probe().Links(), 0u);
  EXPECT_EQ(Events(), (std::vector{EventText(id, Pid(id), "custom_message", "open_pic_process_success"),
                                   EventText(id, Pid(id), "custom_message", "open_pic_success")}));
}

TEST_F(Opening, AnIdThatFinishesDuringTheStartGivesItsProcessUp) {
  sim::Program slow;
  slow.editor = sim::EditorScript{};
  slow.startMs = 30000;
  sim::InstallProgram(sim::kLauncherPath, slow);
  const std::int32_t id = Open(kWindow);
  ASSERT_TRUE(sim::WaitFor([&] { return sim::SomeoneWaitsFor(slow.startMs); }));
  Probe().SetFinished(id);
  sim::AdvanceMs(slow.startMs);
  sim::SetClockSpeed(100); // the next one in the slot is as slow
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t pid = StartedPids()[0];
  EXPECT_EQ(Pid(id), 0u);
  EXPECT_TRUE(sim::WaitFor([pid] { return !sim::IsRunning(pid); }));
  EXPECT_TRUE(Events().empty()); // the failure travels with process id 0, which leads nowhere
}

TEST_F(Opening, TheFailureReachesTheLastIdThatWasBoundToNoProcess) {
  const std::int32_t witness = OpenAndWait(kOtherWindow);
  Probe().BindIdToPid(witness, 0);
  sim::Program slow;
  slow.editor = sim::EditorScript{};
  slow.startMs = 30000;
  sim::InstallProgram(sim::kLauncherPath, slow);
  sim::EndProcess(StartedPids().back()); // and the one in the slot is no use
  sim::EndProcess(StartedPids()[1]);
  const std::int32_t id = Open(kWindow);
  ASSERT_TRUE(sim::WaitFor([&] { return sim::SomeoneWaitsFor(slow.startMs); }));
  Probe().SetFinished(id);
  sim::AdvanceMs(slow.startMs);
  sim::SetClockSpeed(100); // the next one in the slot is as slow
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Holds(Events(), EventText(id, 0, "custom_message", "open_pic_process_fail")));
}

TEST_F(Opening, AProcessThatNeverServesIsEndedWhenTheWaitIsOver) {
  LogAt(vx::LOG_INFO);
  sim::EditorScript mute;
  mute.serves = false;
  sim::InstallEditors(mute);
  sim::SetClockSpeed(200);
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_GT(NumberBehind(sim::FileBytes(L"C:\\Host\\log\\browser.vexelsdk.dll.log"),
                         "VexelSDKHelper::ConnectServer failure. is_stop=0, duration="),
            100000u);
  EXPECT_EQ(Events(), (std::vector{EventText(id, pid, "custom_message", "open_pic_process_success")}));
  EXPECT_TRUE(sim::WaitFor([pid] { return !sim::IsRunning(pid); }));
}

TEST_F(Opening, AWriteThatFailsFinishesTheIdAndLeavesTheProcess) {
  sim::EditorStep step;
  step.when = "\"type\":\"open\"";
  step.answer = sim::Answer::kNull;
  sim::EditorScript script;
  script.steps.push_back(step);
  sim::InstallEditors(script);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_TRUE(Probe().KillList().empty());
  EXPECT_TRUE(sim::IsRunning(Pid(id)));
  EXPECT_EQ(Events(), (std::vector{EventText(id, Pid(id), "custom_message", "open_pic_process_success")}));
}

TEST_F(Opening, AnOpenForAClosingWindowGetsANewId) {
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  const std::int32_t next = OpenAndWait(kWindow);
  EXPECT_EQ(next, id + 1);
  EXPECT_TRUE(Engine()->IsClosing(id));
}

TEST_F(Opening, TeardownRunsAQueuedOpenAndLeavesItsProcess) {
  for (int i = 0; i < 10; ++i) {
    Engine()->DoOperator(RecordOf(SDK_NONE, 0));
  }
  Open(kWindow);
  VexelSDKThread::DestroyInstance(Engine());
  ASSERT_GE(StartedPrograms(), 1);
  EXPECT_TRUE(sim::IsRunning(StartedPids()[0]));
  EXPECT_EQ(Received(StartedPids()[0], 1).size(), 1u); // the open, and no close
  EXPECT_EQ(sim::LiveServers(), 0);
  EXPECT_EQ(sim::OpenConnections(), 0);
}

class Closing : public Opening {};

TEST_F(Closing, WithoutUnsavedChangesClearsTheCallbackAndSendsTheClose) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::size_t events = Events().size();
  SDK_OperatorData close = RecordOf(SDK_CLOSE, id);
  close.m_closeAll = true;
  EXPECT_FALSE(Engine()->DoOperator(close));
  EXPECT_TRUE(Engine()->IsClosing(id));
  EXPECT_FALSE(Engine()->IsFinished(id));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Received(Pid(id), 2).back(), "{\"closeall\":true,\"id\":1,\"operator\":0,\"process_id\":" +
                                             std::to_string(Pid(id)) + ",\"status\":true,\"type\":\"close\"}");
  EXPECT_EQ(Events().size(), events); // the success behind it finds no callback
  EXPECT_FALSE(Probe().GetHelperByPid(Pid(id))->IsReading());
}

TEST_F(Closing, TwiceSendsASecondClose) {
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Received(Pid(id), 3).size(), 3u);
}

TEST_F(Closing, OnUnsavedChangesWaitsForTheUser) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  SendAndWait(pid, R"({"type":"edit","status":true})");
  ASSERT_TRUE(WaitForEvent(R"("type":"edit")"));
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  EXPECT_FALSE(Engine()->IsClosing(id));
  EXPECT_TRUE(Engine()->IsModifyClose(id));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Probe().GetHelperByPid(pid)->IsReading());
  SendAndWait(pid, R"({"type":"cancel_process_exit"})");
  EXPECT_FALSE(Engine()->IsModifyClose(id));
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id))); // alive again
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  SendAndWait(pid, R"({"type":"finish_operator"})");
  ASSERT_TRUE(WaitForEvent("finish_operator")); // the browser is still subscribed
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)));
}

TEST_F(Closing, WhileTheLinkConnectsMakesItGiveUp) {
  LogAt(vx::LOG_INFO);
  sim::EditorScript mute;
  mute.serves = false;
  sim::InstallEditors(mute);
  const std::int32_t id = Open(kWindow);
  ASSERT_TRUE(WaitForEvent("open_pic_process_success"));
  const std::uint32_t pid = Pid(id);
  ASSERT_TRUE(sim::WaitFor([pid] { return sim::ConnectAttempts(pid) > 0; }));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  EXPECT_TRUE(Engine()->IsClosing(id));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_TRUE(Holds(LogLines(), "VexelSDKThread::DoOperator helper is connecting. pid=" + std::to_string(pid)));
  EXPECT_TRUE(Holds(LogLines(), "failure. is_stop=1"));
  EXPECT_TRUE(Probe().KillList().contains(pid));
}

TEST_F(Closing, AnEditorThatDiesDuringTheConnectEndsItAtOnce) {
  LogAt(vx::LOG_INFO);
  sim::EditorScript mute;
  mute.serves = false;
  sim::InstallEditors(mute);
  const std::int32_t id = Open(kWindow);
  ASSERT_TRUE(WaitForEvent("open_pic_process_success"));
  sim::CrashProcess(Pid(id));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_TRUE(Holds(LogLines(), "failure. is_stop=0"));
  EXPECT_LT(sim::NowMs(), 60000u); // and not after a hundred seconds
}

} // namespace
