#include "foundation/logger.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>
#include <functional>

namespace {

constexpr wchar_t kConfigFile[] = L"C:\\Users\\Tester\\AppData\\Local\\norvelVexel\\config_temp.ini";
constexpr wchar_t kLauncher[] = L"webvexlaunch.exe";
constexpr wchar_t kEditor[] = L"vxpixeleditor.exe";
constexpr wchar_t kAppType9[] = L"L2FwcHR5cGU6OQ=="; // /apptype:9

class PreloadSlots : public EngineTest {
protected:
  PreloadSlots() { sim::InstallEditors(); }

  static std::uint32_t Slot(const wchar_t* name) { return Probe().PreloadPids()[name]; }
  static bool FileHolds(const std::string& line) {
    return sim::FileBytes(kConfigFile).find("\r\n" + line + "\r\n") != std::string::npos;
  }
  static void PreloadAndWait() {
    Preload();
    ASSERT_TRUE(DrainQueue());
  }
};

TEST_F(PreloadSlots, KeepADeadProcessUntilAnOpenWantsIt) {
  PreloadAndWait();
  const std::uint32_t dead = StartedPids()[0];
  sim::EndProcess(dead);
  PreloadAndWait();
  EXPECT_EQ(StartedPrograms(), 2);
  EXPECT_EQ(Slot(kLauncher), dead);
  EXPECT_TRUE(FileHolds("preview_pid=" + std::to_string(dead)));
}

TEST_F(PreloadSlots, AreEmptiedBeforeTheirProcessIsTested) {
  PreloadAndWait();
  sim::EndProcess(StartedPids()[0]);
  sim::FailAlways("CreateProcessW", 5);
  OpenAndWait(kWindow);
  EXPECT_EQ(Slot(kLauncher), 0u);
  EXPECT_TRUE(FileHolds("preview_pid=0"));
  EXPECT_EQ(Slot(kEditor), StartedPids()[1]); // the other program's is not touched
  EXPECT_TRUE(Events().empty());
}

TEST_F(PreloadSlots, KeepTheProcessThatTheIdComesFromWhenNoOtherStarts) {
  PreloadAndWait();
  const std::uint32_t slot = StartedPids()[0];
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  Probe().BindIdToPid(id, slot);
  sim::FailAlways("CreateProcessW", 5);
  EXPECT_EQ(OpenAndWait(kWindow), id);
  EXPECT_EQ(Pid(id), 0u);
  EXPECT_EQ(Slot(kLauncher), slot);
  EXPECT_TRUE(FileHolds("preview_pid=" + std::to_string(slot)));
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(OpenAndWait(kWindow), id); // the id has no process now, so the slot's serves
  EXPECT_EQ(Pid(id), slot);
  EXPECT_EQ(Slot(kLauncher), 0u);
}

TEST_F(PreloadSlots, LoseTheProcessThatTheIdComesFromToTheStartOfAnother) {
  PreloadAndWait();
  const std::uint32_t slot = StartedPids()[0];
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  Probe().BindIdToPid(id, slot);
  OpenAndWait(kWindow);
  ASSERT_EQ(StartedPrograms(), 4);
  EXPECT_EQ(Pid(id), StartedPids()[2]);
  EXPECT_EQ(Slot(kLauncher), StartedPids()[3]); // refilled, as an empty one
  EXPECT_TRUE(sim::IsRunning(slot));
  EXPECT_TRUE(Probe().KillList().empty());
}

TEST_F(PreloadSlots, OfAnOpenOfTheOtherProgramStay) {
  PreloadAndWait();
  OpenAndWait(kWindow);
  EXPECT_EQ(Slot(kEditor), StartedPids()[1]);
  EXPECT_EQ(StartedPrograms(), 3);
}

TEST_F(PreloadSlots, GetAnEntryWithoutANameForATypeWithNoProgram) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t old = Pid(id);
  EXPECT_FALSE(Probe().PreloadPids().contains(L""));
  OpenAndWait(kWindow, L"C:\\b.png", kAppType9);
  ASSERT_TRUE(Probe().PreloadPids().contains(L""));
  EXPECT_EQ(Slot(L""), 0u);
  EXPECT_EQ(Pid(id), 0u); // the process that it had is closed all the same
  EXPECT_NE(Received(old, 2).back().find("\"type\":\"close\""), std::string::npos);
  EXPECT_EQ(Events().size(), 2u);
}

TEST_F(PreloadSlots, HoldAProcessWithoutALinkAndAnOpenTakesIt) {
  sim::RemovePath(sim::kPipeLibraryPath);
  PreloadAndWait();
  const std::uint32_t waiting = StartedPids()[0];
  EXPECT_EQ(Slot(kLauncher), waiting);
  EXPECT_EQ(Probe().Links(), 0u);
  EXPECT_FALSE(FileHolds("preview_pid=" + std::to_string(waiting))); // without a link it is not on file
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_EQ(Pid(id), waiting);
  EXPECT_EQ(Events(), (std::vector{EventText(id, waiting, "custom_message", "open_pic_process_success"),
                                   EventText(id, waiting, "custom_message", "open_pic_success")}));
}

struct SavedCase {
  const char* name;
  const wchar_t* path; // what the saved process runs
  bool alive;
  bool elevated;
  bool admin;
  bool taken;
};

class SavedProcess : public PreloadSlots, public testing::WithParamInterface<SavedCase> {};

TEST_P(SavedProcess, IsTakenOverOnlyWhenItIsUsableAndElseLeftAlone) {
  const SavedCase& each = GetParam();
  sim::ProcessSpec spec;
  spec.path = each.path;
  spec.elevated = each.elevated;
  const std::uint32_t saved = sim::StartProcess(spec);
  if (!each.alive) {
    sim::EndProcess(saved);
  }
  sim::SetUserAdmin(each.admin);
  sim::AddFile(kConfigFile, "[common]\r\npid=" + std::to_string(saved) + "\r\n");
  PreloadAndWait();
  EXPECT_EQ(StartedPrograms(), each.taken ? 1 : 2);
  EXPECT_EQ(Slot(kEditor) == saved, each.taken);
  EXPECT_NE(Slot(kEditor), 0u);
  EXPECT_EQ(Probe().GetHelperByPid(saved) != nullptr, each.taken);
  EXPECT_TRUE(FileHolds("pid=" + std::to_string(Slot(kEditor))));
  EXPECT_EQ(sim::IsRunning(saved), each.alive);
  EXPECT_TRUE(Probe().KillList().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Each, SavedProcess,
    testing::Values(SavedCase{"Usable", sim::kEditorPath, true, false, false, true},
                    SavedCase{"Ended", sim::kEditorPath, false, false, false, false},
                    SavedCase{"AForeignProgram", L"C:\\Other\\program.exe", true, false, false, false},
                    SavedCase{"TheOtherProgram", sim::kLauncherPath, true, false, false, false},
                    SavedCase{"NotElevatedUnderAnAdministrator", sim::kEditorPath, true, false, true, false},
                    SavedCase{"ElevatedUnderAnAdministrator", sim::kEditorPath, true, true, true, true}),
    [](const auto& each) { return each.param.name; });

/// The lines of the operator thread's choice, whole and in order.
class OpeningLog : public PreloadSlots {
protected:
  OpeningLog() { LogAt(vx::LOG_INFO); }

  static std::vector<std::string> Lines() {
    std::vector<std::string> lines = LogLines();
    std::erase_if(lines, [](const std::string& line) {
      return !line.starts_with("VexelSDKThread::") || line.starts_with("VexelSDKThread::DoOperator") ||
             line.starts_with("VexelSDKThread::OperatorThreadFun") || line.starts_with("OperatorThreadFun");
    });
    return lines;
  }
  static std::string Started(std::size_t index) { return std::to_string(StartedPids().at(index)); }
  static std::string Missing(const std::string& name) {
    return "VexelSDKThread::PreloadIfMissing preload process not exist, create. name=" + name;
  }
  static std::string Done(const std::string& pid) { return "VexelSDKThread::CreatePreLoadProcess done. pid=" + pid; }
  static std::string Open(const std::string& phrase) { return "VexelSDKThread::HandleOpenProcess " + phrase; }
};

TEST_F(OpeningLog, OfAFirstOpenTellsOfNoOldProcessAndOfTheFirstPreload) {
  OpenAndWait(kWindow);
  EXPECT_EQ(Lines(), (std::vector{Open("nAppType=1, pName=webvexlaunch.exe"), Open("Invalid Old Process"),
                                  Open("Use Process " + Started(0)), Done(Started(1)), Done(Started(2))}));
}

TEST_F(OpeningLog, OfAnOpenThatTakesTheWaitingProcessTellsOfTheRefill) {
  PreloadAndWait();
  OpenAndWait(kWindow);
  EXPECT_EQ(Lines(), (std::vector{Done(Started(0)), Done(Started(1)), Open("nAppType=1, pName=webvexlaunch.exe"),
                                  Open("Reset PreLoad"), Open("Use Process " + Started(0)), Missing("webvexlaunch.exe"),
                                  Done(Started(2))}));
}

TEST_F(OpeningLog, OfAWaitingProcessThatDiedTellsWhoseItWouldHaveBeen) {
  PreloadAndWait();
  sim::EndProcess(StartedPids()[0]);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_EQ(Lines(), (std::vector{Done(Started(0)), Done(Started(1)), Open("nAppType=1, pName=webvexlaunch.exe"),
                                  Open("Reset PreLoad"),
                                  Open("Preload Process Invalid. m_id=" + std::to_string(id) + ", pid=" + Started(0)),
                                  Open("Use Process " + Started(2)), Missing("webvexlaunch.exe"), Done(Started(3))}));
}

TEST_F(OpeningLog, OfStartsThatFailEndsBeforeTheUse) {
  sim::FailAlways("CreateProcessW", 5);
  PreloadAndWait();
  OpenAndWait(kWindow);
  const std::vector<std::string> refill{Missing("vxpixeleditor.exe"), Done("0"), Missing("webvexlaunch.exe"),
                                        Done("0")};
  std::vector<std::string> expected{Done("0"), Done("0")};
  expected.insert(expected.end(), refill.begin(), refill.end());
  expected.push_back(Open("nAppType=1, pName=webvexlaunch.exe"));
  expected.push_back(Open("Invalid Old Process"));
  expected.insert(expected.end(), refill.begin(), refill.end());
  EXPECT_EQ(Lines(), expected);
}

TEST_F(OpeningLog, OfATypeWithNoProgramHasNoName) {
  PreloadAndWait();
  OpenAndWait(kWindow, L"C:\\a.png", kAppType9);
  EXPECT_EQ(Lines(),
            (std::vector{Done(Started(0)), Done(Started(1)), Open("nAppType=9, pName="), Open("Invalid Old Process")}));
}

TEST_F(OpeningLog, OfAnIdThatFinishedDuringTheStartUsesProcessZero) {
  sim::Program slow;
  slow.editor = sim::EditorScript{};
  slow.startMs = 30000;
  sim::InstallProgram(sim::kLauncherPath, slow);
  const std::int32_t id = EngineTest::Open(kWindow);
  ASSERT_TRUE(sim::WaitFor([&] { return sim::SomeoneWaitsFor(slow.startMs); }));
  Probe().SetFinished(id);
  sim::AdvanceMs(slow.startMs);
  ASSERT_TRUE(WaitForLog("Use Process"));
  EXPECT_EQ(Lines()[2], Open("Use Process 0"));
  sim::SetClockSpeed(100); // the refill starts slowly, too
  EXPECT_TRUE(DrainQueue());
}

/// What keeps the operator thread busy for that long, and nobody else.
struct SlowCase {
  const char* name;
  std::function<void(sim::Program&)> slow;
};

constexpr std::uint32_t kSlowMs = 30000;

class SlowEditor : public PreloadSlots, public testing::WithParamInterface<SlowCase> {};

TEST_P(SlowEditor, IsWaitedForWithNoLockHeld) {
  sim::Program program;
  program.editor = sim::EditorScript{};
  GetParam().slow(program);
  sim::InstallProgram(sim::kLauncherPath, program);
  EngineTest::Open(kWindow);
  ASSERT_TRUE(sim::WaitFor([] { return sim::SomeoneWaitsFor(kSlowMs); }));
  ASSERT_TRUE(WatchesStand());
  sim::SetClockSpeed(0);
  ASSERT_TRUE(sim::WaitForRest());
  EXPECT_TRUE(Probe().MutexesAreFree());
  EXPECT_TRUE(sim::SomeoneWaitsFor(kSlowMs));
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, Engine()->AllocateEditorId(kOtherWindow))));
  sim::SetClockSpeed(200);
  EXPECT_TRUE(DrainQueue());
}

INSTANTIATE_TEST_SUITE_P(
    Each, SlowEditor,
    testing::Values(SlowCase{"AtItsStart", [](sim::Program& program) { program.startMs = kSlowMs; }},
                    SlowCase{"AtItsConnection", [](sim::Program& program) { program.editor->connectMs = kSlowMs; }},
                    SlowCase{"AtItsAnswer",
                             [](sim::Program& program) {
                               sim::EditorStep step;
                               step.delayMs = kSlowMs;
                               program.editor->steps.push_back(step);
                             }}),
    [](const auto& each) { return each.param.name; });

} // namespace
