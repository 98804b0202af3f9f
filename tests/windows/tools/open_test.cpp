#include "tests/windows/tools/vexelctl_fixture.h"

#include <filesystem>

namespace {

using namespace toolstest;

TEST_F(Vexelctl, OpenPrintsEachEventWithIdTimeAndThread) {
  const Result result = Run(L"open --limit 100 --json a.bmp \"b \u00FC.bmp\"",
                            "@all expect open_pic_success\n@1 operate 4\n@2 fullscreen off\nquit\n");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  int successes = 0;
  for (const Json& line : JsonLines(result.out)) {
    if (!line.contains("event")) {
      continue;
    }
    EXPECT_TRUE(line.at("id") == 1 || line.at("id") == 2);
    EXPECT_GT(line.at("thread").get<int>(), 0);
    EXPECT_GE(line.at("since").get<std::int64_t>(), 0);
    EXPECT_LE(line.at("since").get<std::int64_t>(), line.at("t").get<std::int64_t>());
    successes +=
        line.at("event").is_object() && line.at("event").value("param", "") == "open_pic_process_success" ? 1 : 0;
  }
  EXPECT_EQ(successes, 2);
  EXPECT_TRUE(Contains(result.out, "\"id\":1,\"call\":\"operate 4\"")) << result.out;
}

TEST_F(Vexelctl, OpenKeepsACloseBackUntilTheProcessIsThere) {
  const Result result = Run(L"open --limit 100 --json a.bmp", "close\nexpect open_pic_process_success\nquit\n");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  const std::size_t held = result.out.find("close kept back");
  const std::size_t came = result.out.find("open_pic_process_success\",\"process_id");
  const std::size_t closed = result.out.find("\"call\":\"close\"");
  ASSERT_NE(held, std::string::npos) << result.out;
  ASSERT_NE(came, std::string::npos) << result.out;
  ASSERT_NE(closed, std::string::npos) << result.out;
  EXPECT_LT(held, came);
  EXPECT_LT(came, closed);
}

TEST_F(Vexelctl, OpenGivesEachEventAsItCame) {
  const std::string deep(60000, '[');
  const std::string odd = R"({"type":"odd","a":1.10,"a":123456789012345678901234567890})";
  WriteFileBytes(File(L"events.txt"), odd + "\n" + deep + "\n");
  const Variable zoo(L"VEXEL_EDITOR_ZOO", (L"events=@" + File(L"events.txt")).c_str());
  const Result result = Run(L"open --limit 100 --json a.bmp", "expect \"odd\"\nexpect [[[\nquit\n");
  EXPECT_EQ(result.code, 0U) << result.out.substr(0, 3000) << result.err;
  bool isOddSeen = false;
  bool isDeepSeen = false;
  for (const Json& line : JsonLines(result.out)) {
    if (!line.contains("event")) {
      continue;
    }
    isOddSeen = isOddSeen || (line.at("text") == odd && line.at("event").is_object());
    isDeepSeen = isDeepSeen || (line.at("text") == deep && line.at("event") == deep);
  }
  EXPECT_TRUE(isOddSeen);
  EXPECT_TRUE(isDeepSeen);
}

TEST_F(Vexelctl, OpenClosesNothingWithoutThePipeLibrary) {
  std::filesystem::remove(File(L"vpipearm64.dll"));
  const Result result = Run(L"open --limit 100 a.bmp", "expect open_pic_process_success\nclose\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "close left out: without vpipearm64.dll")) << result.out;
}

TEST_F(Vexelctl, OpenTellsOfAPictureThatDoesNotCome) {
  const Variable zoo(L"VEXEL_EDITOR_ZOO", L"die_on_open");
  const Result result = Run(L"open a.bmp", "expect no such event\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the SDK has given the id up")) << result.out;
}

TEST_F(Vexelctl, OpenTellsOfAFileThatIsNoPicture) {
  WriteFileBytes(File(L"no.bmp"), "this is no picture");
  const Result result = Run(L"open --limit 100 no.bmp", "expect open_pic_fail\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the editor does not show the picture")) << result.out;
  EXPECT_FALSE(Contains(result.out, "has come")) << result.out;
}

TEST_F(Vexelctl, OpenRunsTheScriptOfTheDocument) {
  m_folder.Add(L"vexelctl.md");
  std::string script;
  bool isInside = false;
  for (const std::string& line : ReadLines(File(L"vexelctl.md"))) {
    isInside = line == "    # rotate.txt" || (isInside && line.starts_with("    "));
    script += isInside ? line.substr(4) + "\n" : "";
  }
  ASSERT_TRUE(Contains(script, "\nclose\n")) << script;
  const Result result = Run(L"open --limit 100 --json a.bmp", script);
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "\"call\":\"operate 1\",\"result\":true")) << result.out;
  EXPECT_TRUE(Contains(result.out, "\"call\":\"close\",\"result\":false")) << result.out;
}

TEST_F(Vexelctl, OpenSendsOneCloseToAnEditorThatAsksItsUser) {
  const Result result =
      Run(L"open --json --limit 20 a.bmp", "expect open_pic_success\noperate 1\nexpect \"edit\"\nclose\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  const std::string close = "\"call\":\"close\",\"result\":true";
  ASSERT_TRUE(Contains(result.out, close)) << result.out;
  EXPECT_EQ(result.out.find(close), result.out.rfind("\"call\":\"close\"")) << result.out;
  EXPECT_TRUE(Contains(result.out, "left open: its editor still asks its user")) << result.out;
}

TEST_F(Vexelctl, OpenWaitsForTheUsersAnswerToAClose) {
  const Variable answer(L"VEXEL_EDITOR_ANSWER", L"discard");
  const Result result = Run(L"open --limit 100 a.bmp", "expect open_pic_success\noperate 1\nexpect \"edit\"\nclose\n");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "finish_operator")) << result.out;
}

TEST_F(Vexelctl, OpenSaysThatAParameterHoldsNoSwitches) {
  const Result result = Run(L"open --limit 100 --param ??? a.bmp");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the parameter is no base64 text with switches: it counts as none")) << result.out;
  EXPECT_FALSE(Contains(Run(L"open --limit 100 --app 2 a.bmp").out, "base64"));
  EXPECT_EQ(Finding(DoctorFindings(L"--param ???", 0), "parameter").at("grade"), "note");
}

TEST_F(Vexelctl, OpenTellsOfAnEditorThatIsLostOnTheWay) {
  const Variable zoo(L"VEXEL_EDITOR_ZOO", L"crash_after_open=300");
  // Where each instruction is emulated, an editor needs seconds to die.
  const Result result =
      Run(L"open --limit 100 a.bmp",
          "expect open_pic_success\nwait 3000\noperate 4\nwait 5000\noperate 4\nwait 8000\noperate 4\n"
          "wait 1000\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the SDK has given the id up") || Contains(result.out, "run_error crash"))
      << result.out;
}

TEST_F(Vexelctl, OpenTellsOfAnEditorThatDoesNotAnswer) {
  const Variable zoo(L"VEXEL_EDITOR_ZOO", L"never_serve");
  const Result result = Run(L"open --limit 20 a.bmp", "expect open_pic_success\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "no event with 'open_pic_success' has come")) << result.out;
  EXPECT_TRUE(Contains(result.out, "20 s without \"open_pic_success\"")) << result.out;
}

TEST_F(Vexelctl, OpenTellsOfAProgramThatCannotStart) {
  std::filesystem::remove(File(L"vxpixeleditor.exe"));
  const Result result = Run(L"open --limit 2 --app 2 a.bmp");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "2 s without a process")) << result.out;
  EXPECT_TRUE(Contains(result.out, "left without a close")) << result.out;
}

TEST_F(Vexelctl, OpenTellsThatThereIsNoDisplay) {
  if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr) {
    GTEST_SKIP() << "Windows itself always has a display";
  }
  // A desktop whose driver does not exist. Its explorer hands on no exit code, so a script notes it down.
  WriteFileBytes(File(L"run.bat"), "@cd /d \"%~dp0\"\r\n"
                                   "@vexelctl.exe open a.bmp <nul >out.txt 2>err.txt\r\n"
                                   "@echo code %errorlevel%.>code.txt\r\n");
  const std::wstring name = L"vexel-test-" + std::to_wstring(GetCurrentProcessId());
  std::wstring command = L"explorer.exe /desktop=" + name + L",800x600,nosuch cmd.exe /c \"" + File(L"run.bat") + L"\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
      << GetLastError();
  EXPECT_TRUE(WaitFor([this] { return ReadLines(File(L"code.txt")).size() == 1; }));
  TerminateProcess(process.hProcess, 0);
  WaitForSingleObject(process.hProcess, kLimitMs);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  EXPECT_EQ(ReadLines(File(L"code.txt")), std::vector<std::string>{"code 3."});
  EXPECT_EQ(ReadLines(File(L"err.txt")),
            std::vector<std::string>{"vexelctl: no window can be made: is there a display?"});
  EXPECT_FALSE(FileExists(File(L"log"))) << "the library has not been started";
}

TEST_F(Vexelctl, OpenRecordsWhatCanBeReplayed) {
  const Result first = Run(L"open --limit 100 --record run.txt a.bmp", "expect open_pic_success\n@1 operate 5\nquit\n");
  ASSERT_EQ(first.code, 0U) << first.out << first.err;
  const std::string recorded = ReadFileBytes(File(L"run.txt"));
  EXPECT_TRUE(recorded.starts_with("# vexelctl open \"a.bmp\" --limit 100\n")) << recorded;
  EXPECT_TRUE(Contains(recorded, "\n@1 operate 5\n")) << recorded;
  const Result again = Run(L"open --limit 100 a.bmp", recorded);
  EXPECT_EQ(again.code, 0U) << again.out << again.err;
  EXPECT_TRUE(Contains(again.out, "operate 5")) << again.out;
}

TEST_F(Vexelctl, OpenSaysWhichCommandMakesNoSenseAndGoesOn) {
  const Result result = Run(L"open --limit 100 a.bmp", "frob\n@9 close\nopen nosuch.png\nexpect open_pic_success\n");
  EXPECT_EQ(result.code, 1U);
  EXPECT_EQ(Lines(result.err),
            (std::vector<std::string>{"vexelctl: 'frob' is no command; 'help' lists them", "vexelctl: there is no id 9",
                                      "vexelctl: there is no picture 'nosuch.png'"}));
  EXPECT_TRUE(Contains(result.out, "open_pic_success")) << result.out;
}

TEST_F(Vexelctl, OpenExpectsOfEachIdWhatItExpectsOfAll) {
  const Result result = Run(L"open --limit 3 a.bmp a.bmp", "@all expect no such event\ntheme dark\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "id 1  ! no event with 'no such event' has come")) << result.out;
  EXPECT_TRUE(Contains(result.out, "id 2  ! no event with 'no such event' has come")) << result.out;
  EXPECT_TRUE(Contains(result.out, " ms  > theme dark\n")) << result.out;
}

TEST_F(Vexelctl, OpenTakesTheWindowAwayWithItsPicture) {
  const Result result = Run(L"open --limit 100 a.bmp", "expect open_pic_success\nclose\nreplace a.bmp\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_EQ(Lines(result.err), std::vector<std::string>{"vexelctl: the window of id 1 is gone"});
}

TEST_F(Vexelctl, OpenLeavesAfterItsTime) {
  const Result result = Run(L"open --limit 100 --for 2 a.bmp");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the time is over")) << result.out;
}

} // namespace
