#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <string>
#include <vector>

namespace {

using namespace sdktest;

class Opening : public SdkTest {
protected:
  std::wstring ProgramOf(std::uint32_t pid) {
    for (const Program& program : ProgramsUnder(Folder().Path())) {
      if (program.pid == pid) {
        return program.name;
      }
    }
    return L"none";
  }
};

TEST_F(Opening, TellsOfTheProcessAndThenOfTheOpen) {
  StartHost();
  const Opened opened = OpenAndWait();
  const std::vector<Event> events = Host().Events(opened.id);
  ASSERT_GE(events.size(), 2U);
  const std::string pid = std::to_string(opened.pid);
  EXPECT_EQ(events[0].text, R"({"id":1,"param":"open_pic_process_success","process_id":)" + pid +
                                R"(,"status":true,"type":"custom_message"})");
  EXPECT_EQ(Host().WaitForEvent(1, kOpenSuccess).text,
            R"({"id":1,"param":"open_pic_success","process_id":)" + pid + R"(,"status":true,"type":"custom_message"})");
  EXPECT_EQ(ProgramOf(opened.pid), L"webvexlaunch.exe");
}

TEST_F(Opening, TakesTheProcessThatWaits) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  const std::uint32_t editor = WaitForPreload(2);
  EXPECT_EQ(ProgramOf(launcher), L"webvexlaunch.exe");
  EXPECT_EQ(ProgramOf(editor), L"vxpixeleditor.exe");
  EXPECT_EQ(OpenAndWait().pid, launcher);
  EXPECT_FALSE(Folder().LogWith("HandleOpenProcess Reset PreLoad").empty());
}

TEST_F(Opening, RefillsThePlaceOfTheProcessThatWasTaken) {
  StartHost();
  Host().Ask("init");
  WaitForPreload(2);
  const Opened opened = OpenAndWait();
  const std::uint32_t successor = WaitForPreload(3);
  EXPECT_NE(successor, opened.pid);
  EXPECT_EQ(ProgramOf(successor), L"webvexlaunch.exe");
  EXPECT_FALSE(Folder().LogWith("preload process not exist, create. name=webvexlaunch.exe").empty());
  EXPECT_EQ(OpenAndWait().pid, successor);
}

TEST_F(Opening, FirstOpenWithoutInitStartsAProcessOfItsOwn) {
  StartHost();
  const Opened opened = OpenAndWait();
  WaitForLog("Invalid Old Process");
  const std::uint32_t launcher = WaitForPreload(1);
  EXPECT_NE(launcher, opened.pid);
}

TEST_F(Opening, ApplicationTypeTwoIsTheEditor) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t editor = WaitForPreload(2);
  const Opened opened = OpenAndWait(Base64("/apptype:2"));
  EXPECT_EQ(opened.pid, editor);
  EXPECT_EQ(ProgramOf(opened.pid), L"vxpixeleditor.exe");
}

TEST_F(Opening, UnknownApplicationTypeIsPassedOverInSilence) {
  StartHost();
  const std::int32_t unknown = Open(Host().Ask("window"), Picture(), Base64("/apptype:99"));
  OpenAndWait(); // behind it in the queue
  EXPECT_TRUE(Host().Events(unknown).empty());
  EXPECT_FALSE(Folder().LogWith("nAppType=99, pName=").empty());
  EXPECT_FALSE(Folder().LogWith("CreateProcessW failed: ").empty());
  EXPECT_EQ(Host().Ask("isclose " + std::to_string(unknown)), 0);
}

TEST_F(Opening, SecondPictureInAWindowReplacesTheEditor) {
  StartHost();
  const Opened first = OpenAndWait();
  const ProgramHandle old(first.pid);
  const Opened second = OpenAndWaitIn(first.window);
  EXPECT_EQ(second.id, first.id);
  EXPECT_NE(second.pid, first.pid);
  EXPECT_EQ(WaitForReceived({"\"type\":\"close\""}), R"({"closeall":false,"id":1,"operator":0,"process_id":)" +
                                                         std::to_string(first.pid) +
                                                         R"(,"status":false,"type":"close"})");
  EXPECT_TRUE(old.WaitForEnd());
  EXPECT_EQ(Host().Ask("operate 1 6"), 1);
  WaitForReceived({"\"type\":\"operator\"", "\"process_id\":" + std::to_string(second.pid)});
}

TEST_F(Opening, ReplacedEditorIsNotAskedAboutUnsavedChanges) {
  StartHost();
  const Opened first = OpenAndWait();
  Modify(first);
  const ProgramHandle old(first.pid);
  OpenAndWaitIn(first.window);
  EXPECT_TRUE(old.WaitForEnd());
  EXPECT_EQ(Host().CountEvents(first.id, "finish_operator"), 0U);
}

TEST_F(Opening, OperationBeforeTheProcessIsBoundIsLost) {
  StartHost();
  const std::int64_t window = Host().Ask("window");
  Host().Begin("open " + std::to_string(window) + " " + wire::Encode(Picture()) + " 0 @null on");
  Host().Begin("command 1 5");
  Host().EndBegun();
  Host().EndBegun();
  Host().WaitForEvent(1, kOpenSuccess);
  Host().Ask("command 1 6");
  WaitForReceived({"browser_command", "\"operator\":6"});
  for (const std::string& text : Received()) {
    EXPECT_FALSE(Contains(text, "\"operator\":5")) << text;
  }
}

TEST_F(Opening, EveryOperationIsReportedAsAnOpen) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Do("setpos 1 0 0 10 10");
  Host().Do("fullscreen 1 0");
  Host().Do("theme 1");
  Host().Do("command 1 1");
  Host().WaitForEvent(opened.id, kOpenSuccess, 5);
}

TEST_F(Opening, RegistrationWithoutUserDataGetsTheEditorsTextsAlone) {
  StartHost({{kZooVariable, L"events={\"type\":\"hello\"}"}});
  Open(Host().Ask("window"), Picture(), L"", "nodata");
  Host().WaitForEvent(0, "hello");
  EXPECT_EQ(Host().CountEvents(0, kProcessSuccess), 0U);
  EXPECT_EQ(Host().CountEvents(0, kOpenSuccess), 0U);
}

TEST_F(Opening, LaterRegistrationReplacesTheEarlier) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Do("callback 1 nodata");
  const std::size_t before = Host().Events(opened.id).size();
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  Host().WaitForEvent(0, "\"edit\"");
  EXPECT_EQ(Host().Events(opened.id).size(), before);
}

TEST_F(Opening, EditorKilledWhileItWaitedIsReplacedByANewOne) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  WaitForPreload(2);
  Kill(launcher);
  const Opened opened = OpenAndWait();
  EXPECT_NE(opened.pid, launcher);
  EXPECT_FALSE(
      Folder().LogWith("HandleOpenProcess Preload Process Invalid. m_id=1, pid=" + std::to_string(launcher)).empty());
  EXPECT_FALSE(Folder().LogWith("IsProcessValid process is not running, pid=" + std::to_string(launcher)).empty());
}

TEST_F(Opening, MissingProgramsAreMetWithSilence) {
  KeepFolderBare();
  for (const wchar_t* const name : {L"testhost.exe", L"vexelsdk.dll", L"vpipearm64.dll"}) {
    Folder().Add(name);
  }
  StartHost();
  Host().Ask("init");
  Open(Host().Ask("window"), Picture());
  Open(Host().Ask("window"), Picture(), Base64("/apptype:2"));
  WaitForLog("CreateProcessW failed: 2", 3);
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_TRUE(Host().Events().empty());
}

TEST_F(Opening, MissingPipeLibraryIsNotTold) {
  KeepFolderBare();
  for (const wchar_t* const name : {L"testhost.exe", L"vexelsdk.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
    Folder().Add(name);
  }
  StartHost();
  const Opened opened = OpenAndWait();
  EXPECT_EQ(opened.id, 1);
  EXPECT_TRUE(Received().empty());
}

TEST_F(Opening, PipeLibraryBesideTheSdkIsFound) {
  KeepFolderBare();
  Folder().Add(L"testhost.exe");
  for (const wchar_t* const name : {L"vexelsdk.dll", L"vpipearm64.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
    Folder().Add(name, L"sdk\\");
  }
  StartHost({}, L"sdk\\vexelsdk.dll");
  const Opened opened = OpenAndWait();
  WaitForReceived({"\"type\":\"open\"", std::to_string(opened.pid)});
  EXPECT_FALSE(Folder().Log().empty()) << "the log lies beside the host";
}

TEST_F(Opening, SecondHostTakesOverWhatTheFirstLeftWaiting) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  const std::uint32_t editor = WaitForPreload(2);
  Host().Begin("quit");
  EXPECT_EQ(Host().WaitForExit(), 0U);
  const std::string saved = ReadFileBytes(Folder().SavedPidsFile());
  EXPECT_EQ(saved, "\xEF\xBB\xBF[common]\r\npid=" + std::to_string(editor) +
                       "\r\npreview_pid=" + std::to_string(launcher) + "\r\n");

  StartHost();
  Host().Ask("init");
  EXPECT_EQ(WaitForPreload(3), launcher);
  EXPECT_EQ(WaitForPreload(4), editor);
  EXPECT_EQ(OpenAndWait().pid, launcher);
  EXPECT_EQ(OpenAndWait(Base64("/apptype:2")).pid, editor);
}

TEST_F(Opening, ProcessInUseIsNotOnFile) {
  StartHost();
  Host().Ask("init");
  WaitForPreload(2);
  const Opened opened = OpenAndWait();
  const std::uint32_t successor = WaitForPreload(3);
  const std::string saved = ReadFileBytes(Folder().SavedPidsFile());
  EXPECT_FALSE(Contains(saved, "preview_pid=" + std::to_string(opened.pid)));
  EXPECT_TRUE(Contains(saved, "preview_pid=" + std::to_string(successor) + "\r\n")) << saved;
}

TEST_F(Opening, SavedIdOfAForeignProgramIsRefused) {
  StartHost();
  const std::string own = std::to_string(GetCurrentProcessId());
  WriteFileBytes(Folder().SavedPidsFile(), "[common]\r\npid=" + own + "\r\npreview_pid=" + own + "\r\n");
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  EXPECT_NE(launcher, GetCurrentProcessId());
  EXPECT_EQ(ProgramOf(launcher), L"webvexlaunch.exe");
  EXPECT_FALSE(Folder().LogWith("IsProcessValid process path not match, pid=" + own).empty());
}

} // namespace
