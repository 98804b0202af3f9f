#include "tests/windows/tools/vexelctl_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using namespace toolstest;

constexpr wchar_t kSwitchesKey[] = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";

TEST_F(Vexelctl, LogJoinsWhatBelongsToOneWindow) {
  MakeLog();
  const Result result = Run(L"log --json --id 1 " + LogFile());
  ASSERT_EQ(result.code, 0U) << result.err;
  bool hasOpen = false;
  bool hasStart = false;
  for (const Json& line : JsonLines(result.out)) {
    hasOpen = hasOpen || line.value("operation", "") == "open";
    hasStart = hasStart || line.at("message").get<std::string>().starts_with("Process: ") ||
               line.at("message").get<std::string>().starts_with("done. pid=");
    EXPECT_NE(line.value("operation", ""), "preload");
  }
  EXPECT_TRUE(hasOpen);
  EXPECT_TRUE(hasStart);
  EXPECT_EQ(Run(L"log --id 77 " + LogFile()).code, 1U);
}

TEST_F(Vexelctl, LogFollowsWhatIsAdded) {
  const std::string first =
      "[11   |2026-11-13 03:10:44|   INFO|a.cpp:1] OperatorThreadFun data.m_op = SDK_PreLoadProcess\r\n";
  const std::string second =
      "[11   |2026-11-13 03:10:45|   INFO|a.cpp:1] OperatorThreadFun data.m_op = SDK_OPEN data.m_id=5\r\n";
  WriteFileBytes(File(L"live.log"), first + second.substr(0, 30));
  bool isFirstAlone = false;
  bool isSecondShown = false;
  std::thread writer([&] {
    isFirstAlone = WaitFor([this] { return ReadLines(File(L"out.txt")).size() == 1; });
    std::ofstream(std::filesystem::path(File(L"live.log")), std::ios::binary | std::ios::app) << second.substr(30);
    isSecondShown = WaitFor([this] { return Contains(ReadFileBytes(File(L"out.txt")), "data.m_id=5"); });
    for (const Program& program : ProgramsUnder(m_folder.Path())) {
      EndProgram(program.pid);
    }
  });
  const Result result = Run(L"log --follow --for 100 live.log");
  writer.join();
  EXPECT_TRUE(isFirstAlone);
  EXPECT_TRUE(isSecondShown);
  EXPECT_EQ(ReadLines(File(L"out.txt")).size(), 2U) << result.out;
}

TEST_F(Vexelctl, LogFollowsAFileWhoseFirstLineIsHalfWritten) {
  const std::string line =
      "[11   |2026-11-13 03:10:44|   INFO|a.cpp:1] OperatorThreadFun data.m_op = SDK_PreLoadProcess\r\n";
  WriteFileBytes(File(L"live.log"), line.substr(0, 30));
  const HANDLE process = Start(L"log --follow live.log", "", L"");
  ASSERT_NE(process, nullptr);
  // It has read the half line, and goes on.
  EXPECT_EQ(WaitForSingleObject(process, 1000), static_cast<DWORD>(WAIT_TIMEOUT)) << ReadFileBytes(File(L"err.txt"));
  std::ofstream(std::filesystem::path(File(L"live.log")), std::ios::binary | std::ios::app) << line.substr(30);
  EXPECT_TRUE(WaitFor([this] { return ReadLines(File(L"out.txt")).size() == 1; }));
  TerminateProcess(process, 0);
  CloseHandle(process);
}

TEST_F(Vexelctl, LogFollowsForAGivenTime) {
  WriteFileBytes(File(L"live.log"), "[11   |2026-11-13 03:10:44|   INFO|a.cpp:1] OperatorThreadFun x\r\n");
  const Result result = Run(L"log --follow --for 1 live.log");
  EXPECT_EQ(result.code, 0U) << result.err;
  EXPECT_EQ(Lines(result.out).size(), 1U) << result.out;
}

TEST_F(Vexelctl, LogSaysWhatIsWrongWithItsFile) {
  MakeLog();
  WriteFileBytes(File(L"none.log"), "this is\nno log\n");
  WriteFileBytes(File(L"empty.log"), "");
  const std::string whole = ReadFileBytes(File(LogFile()));
  WriteFileBytes(File(L"half.log"), whole.substr(0, whole.size() - 20));
  ExpectRefused(L"log nosuch.log", 3, "there is no file 'nosuch.log'");
  ExpectRefused(L"log none.log", 3, "is no log of the SDK");
  ExpectRefused(L"log empty.log", 3, "is empty");
  ExpectRefused(L"log .", 3, "is a folder");
  ExpectRefused(L"log vexelsdk.dll", 3, "is no log of the SDK");
  ExpectRefused(L"log --follow --for 1 none.log", 3, "is no log of the SDK");
  ExpectRefused(L"log half.log", 4, "ends in the middle of line");
  EXPECT_GT(Lines(Run(L"log half.log").out).size(), 5U);
  WriteFileBytes(File(L"begun.log"), whole.substr(0, 30));
  WriteFileBytes(File(L"word.log"), "word");
  ExpectRefused(L"log begun.log", 4, "ends in the middle of line 1");
  ExpectRefused(L"log word.log", 3, "is no log of the SDK");
  ExpectRefused(L"log --follow --for 1 word.log", 3, "is no log of the SDK");
  ExpectRefused(L"log --run 99 " + LogFile(), 1, "no line of the log fits");
  ExpectRefused(L"timeline --run 99 -o a.svg " + LogFile(), 1, "there is no run 99");
}

TEST_F(Vexelctl, LogShowsWhatEditorsSayAndTheConsoleObeysNone) {
  WriteFileBytes(
      File(L"odd.log"),
      "[11   |2026-11-13 03:10:44|   INFO|a.cpp:1] VexelSDKHelper::GetOperator data=\x1b[31m\n\x1b[2Jrest\r\n");
  const Result text = Run(L"log odd.log");
  EXPECT_EQ(text.code, 0U) << text.err;
  EXPECT_EQ(text.out.find('\x1b'), std::string::npos) << text.out;
  EXPECT_TRUE(Contains(text.out, "[2Jrest")) << text.out;
  const std::vector<Json> lines = JsonLines(Run(L"log --json odd.log").out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_FALSE(lines[0].contains("continued"));
  EXPECT_EQ(lines[1].at("continued"), true);
  EXPECT_EQ(lines[1].at("message"), "\x1b[2Jrest");
}

TEST_F(Vexelctl, TimelineDrawsARealRun) {
  MakeLog();
  const Result picture = Run(L"timeline " + LogFile() + L" -o life.svg");
  EXPECT_EQ(picture.code, 0U) << picture.err;
  EXPECT_TRUE(Contains(picture.out, "life.svg: 1 window, ")) << picture.out;
  const std::string svg = ReadFileBytes(File(L"life.svg"));
  EXPECT_TRUE(Contains(svg, "window, id 1"));
  EXPECT_TRUE(Contains(svg, "sent close"));
  const Result trace = Run(L"timeline --json " + LogFile() + L" -o life.json");
  EXPECT_EQ(trace.code, 0U) << trace.err;
  EXPECT_EQ(Json::parse(trace.out).at("windows"), 1);
  const Json events = Json::parse(ReadFileBytes(File(L"life.json"))).at("traceEvents");
  EXPECT_TRUE(std::any_of(events.begin(), events.end(),
                          [](const Json& event) { return event.at("ph") == "X" && event.at("name") == "opening"; }));
}

TEST_F(Vexelctl, TimelineSaysWhatItCannotDraw) {
  WriteFileBytes(File(L"none.log"), "this is\nno log\n");
  WriteFileBytes(File(L"quiet.log"), "[4816 |2026-11-13 03:10:44|  ERROR|a.cpp:1] Other line\r\n");
  ExpectRefused(L"timeline none.log -o a.svg", 3, "is no log of the SDK");
  ExpectRefused(L"timeline quiet.log -o a.svg", 3, "nothing to draw");
  ExpectRefused(L"timeline quiet.log -o a.pdf", 2, "must end in .svg");
  ExpectRefused(L"timeline nosuch.log -o a.svg", 3, "there is no file");
  EXPECT_FALSE(FileExists(File(L"a.svg")));
  WriteFileBytes(File(L"begun.log"),
                 "[11   |2026-11-13 03:10:44|   INFO|a.cpp:1] VexelSDKThread::DoOperator m_op(SDK_Operator)=3, m_id=1, "
                 "m_pid=0\r\n");
  EXPECT_EQ(Run(L"timeline begun.log -o .svg").code, 0U);
  EXPECT_TRUE(FileExists(File(L".svg")));
}

TEST_F(Vexelctl, SwitchesGivesTheSdksAnswers) {
  RegDeleteKeyW(HKEY_CURRENT_USER, kSwitchesKey);
  const Json without = Json::parse(Run(L"switches --json").out);
  EXPECT_EQ(without.at("IsSupportPreview"), false);
  EXPECT_EQ(without.at("GetSwitchValue").at("OpenPIC_enable"), -101);
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kSwitchesKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  const DWORD one = 1;
  RegSetValueExW(key, L"OpenPIC_enable", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof one);
  RegSetValueExW(key, L"words", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"1"), 4);
  RegSetValueExW(key, L"", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof one);
  RegCloseKey(key);
  const Json with = Json::parse(Run(L"switches --json").out);
  const Json asked = Json::parse(Run(L"switches --json nosuch").out);
  const std::string all = Run(L"switches").out;
  const std::string words = Run(L"switches WORDS").out;
  const std::string doctor = Finding(DoctorFindings(L"", 0), "switches").at("text");
  RegDeleteKeyW(HKEY_CURRENT_USER, kSwitchesKey);
  EXPECT_EQ(with.at("IsSupportPreview"), true);
  EXPECT_EQ(with.at("IsPreviewValid"), true);
  EXPECT_EQ(with.at("GetSwitchValue").at("OpenPIC_enable"), 1);
  EXPECT_EQ(with.at("GetSwitchValue").at("words"), -1);
  EXPECT_EQ(asked.at("GetSwitchValue"), (Json{{"nosuch", -1}}));
  EXPECT_TRUE(Contains(doctor, "OpenPIC_enable = 1, words = the text \"1\"")) << doctor;
  EXPECT_TRUE(Contains(all, "(default) = 1\n")) << all;
  EXPECT_TRUE(Contains(words, "WORDS = -1  (stored as -1, or not as a REG_DWORD)")) << words;
}

TEST_F(Vexelctl, ExtensionsAreThoseOfTheSdk) {
  const std::vector<std::string> lines = Lines(Run(L"extensions").out);
  ASSERT_EQ(lines.size(), 98U);
  EXPECT_EQ(lines.front(), "jpg");
  EXPECT_EQ(lines.back(), "g4");
  EXPECT_EQ(Json::parse(Run(L"extensions --json").out).at("count"), 98);
}

TEST_F(Vexelctl, ALibraryOfAnotherVersionIsRefused) {
  std::string bytes = ReadFileBytes(File(L"vexelsdk.dll"));
  const std::string signature("\xBD\x04\xEF\xFE", 4);
  const std::size_t at = bytes.find(signature);
  ASSERT_NE(at, std::string::npos);
  std::filesystem::create_directory(File(L"two"));
  bytes[at + 10] = 2; // the first number of the file version
  WriteFileBytes(File(L"two\\vexelsdk.dll"), bytes);
  ExpectRefused(L"extensions --sdk two", 3, "is version 2.0.0, and this program needs 1.0 or a later 1.x");
  ExpectRefused(L"open --sdk two a.bmp", 3, "is version 2.0.0");
  EXPECT_EQ(Finding(DoctorFindings(L"--sdk two", 1), "sdk").at("grade"), "problem");
  ExpectRefused(L"switches --sdk nosuch", 3, "does not exist");
  ExpectRefused(L"switches --sdk a.bmp", 3, "is no library");
  ExpectRefused(L"switches --sdk vpipearm64.dll", 3, "no library of this SDK");
}

TEST_F(Vexelctl, ACommandLineThatMakesNoSenseIsRefused) {
  ExpectRefused(L"frob", 2, "'frob' is no command");
  ExpectRefused(L"log", 2, "file is required");
  ExpectRefused(L"open --type x a.bmp", 2, "--type");
  ExpectRefused(L"open nosuch.png", 3, "there is no picture 'nosuch.png'");
  ExpectRefused(L"doctor --host nosuch.exe", 3, "there is no program 'nosuch.exe'");
  ExpectRefused(L"doctor --host a.bmp", 3, "'a.bmp' is no program");
  ExpectRefused(L"open", 2, "no picture was named");
  EXPECT_FALSE(FileExists(File(L"log"))) << "the library has been started for nothing";
  EXPECT_TRUE(ProgramsUnder(m_folder.Path()).empty());
  ExpectRefused(L"open --app 7 a.bmp", 2, "'7' is no program: write 1 or 2");
  ExpectRefused(L"open --for inf a.bmp", 2, "'inf' is no number of seconds");
  ExpectRefused(L"open --limit -1 a.bmp", 2, "'-1' is no number of seconds");
  ExpectRefused(L"log --for 2 a.log", 2, "--for requires --follow");
  ExpectRefused(L"log --run -3 a.log", 2, "--run: '-3' is no number from 1 on (--help tells");
  ExpectRefused(L"timeline --run x -o a.svg a.log", 2, "--run: 'x' is no number from 1 on (--help tells");
  ExpectRefused(L"", 2, "a command is missing");
}

TEST_F(Vexelctl, EachCommandHasHelpWithTheExitCodes) {
  for (const wchar_t* const command :
       {L"", L"open ", L"doctor ", L"log ", L"timeline ", L"switches ", L"extensions "}) {
    const Result result = Run(std::wstring(command) + L"--help");
    EXPECT_EQ(result.code, 0U) << Utf8(command);
    EXPECT_TRUE(Contains(result.out, "Usage: vexelctl")) << result.out;
    EXPECT_TRUE(Contains(result.out, "Exit codes:")) << result.out;
    EXPECT_TRUE(Contains(result.out, "--color WHEN")) << result.out;
    EXPECT_EQ(result.err, "");
  }
  EXPECT_EQ(Lines(Run(L"--version").out), std::vector<std::string>{"vexelctl 1.0.0"});
  EXPECT_EQ(Run(L"").code, 2U);
}

TEST_F(Vexelctl, ColoursComeOnlyWhenAPersonLooksOrAsks) {
  EXPECT_EQ(Run(L"doctor").out.find('\x1b'), std::string::npos);
  EXPECT_NE(Run(L"doctor --color always").out.find('\x1b'), std::string::npos);
}

} // namespace
