#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/test_folder.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

using namespace sdktest;
using Json = nlohmann::json;

constexpr wchar_t kSwitchesKey[] = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";
constexpr DWORD kLimitMs = 120000;

// A variable of this process's environment, which its children inherit.
class Variable {
public:
  Variable(const wchar_t* name, const wchar_t* value) : m_name(name) { SetEnvironmentVariableW(name, value); }
  ~Variable() { SetEnvironmentVariableW(m_name, nullptr); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

private:
  const wchar_t* m_name;
};

struct Result {
  std::uint32_t code = 0;
  std::string out;
  std::string err;
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (line.ends_with('\r')) {
      line.pop_back();
    }
    lines.push_back(line);
  }
  return lines;
}

class Vexelctl : public ::testing::Test {
protected:
  Vexelctl() : m_idle(L"VEXEL_EDITOR_IDLE_MS", L"60000") {
    for (const wchar_t* const name :
         {L"vexelctl.exe", L"vexelsdk.dll", L"vpipearm64.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
      m_folder.Add(name);
    }
    WriteFileBytes(File(L"a.bmp"), SmallPicture());
    WriteFileBytes(File(L"b \u00FC.bmp"), SmallPicture());
  }

  std::wstring File(const std::wstring& name) const { return m_folder.Path() + name; }

  // Starts the tool in the folder. Its output goes through files: the editors hold a pipe open longer than the tool.
  // `name` begins the files' names.
  HANDLE Start(const std::wstring& arguments, const std::string& input, const std::wstring& name) {
    WriteFileBytes(File(name + L"in.txt"), input);
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const auto open = [&](const wchar_t* end, DWORD access, DWORD how) {
      return CreateFileW(File(name + end).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, how, 0,
                         nullptr);
    };
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = open(L"in.txt", GENERIC_READ, OPEN_EXISTING);
    startup.hStdOutput = open(L"out.txt", GENERIC_WRITE, CREATE_ALWAYS);
    startup.hStdError = open(L"err.txt", GENERIC_WRITE, CREATE_ALWAYS);
    std::wstring command = L"\"" + File(L"vexelctl.exe") + L"\" " + arguments;
    PROCESS_INFORMATION process{};
    if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, m_folder.Path().c_str(), &startup,
                       &process) == 0) {
      ADD_FAILURE() << "vexelctl did not start, error " << GetLastError();
      return nullptr;
    }
    for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError, process.hThread}) {
      CloseHandle(handle);
    }
    return process.hProcess;
  }

  Result Run(const std::wstring& arguments, const std::string& input = "") {
    const HANDLE process = Start(arguments, input, L"");
    Result result;
    if (process == nullptr) {
      return result;
    }
    if (WaitForSingleObject(process, kLimitMs) != WAIT_OBJECT_0) {
      ADD_FAILURE() << "vexelctl does not end: " << Utf8(arguments);
      TerminateProcess(process, 99);
      WaitForSingleObject(process, kLimitMs);
    }
    DWORD code = 0;
    GetExitCodeProcess(process, &code);
    CloseHandle(process);
    result.code = code;
    result.out = ReadFileBytes(File(L"out.txt"));
    result.err = ReadFileBytes(File(L"err.txt"));
    return result;
  }

  // A run that has to be refused with one sentence.
  void ExpectRefused(const std::wstring& arguments, std::uint32_t code, const std::string& part) {
    const Result result = Run(arguments);
    EXPECT_EQ(result.code, code) << Utf8(arguments);
    const std::vector<std::string> lines = Lines(result.err);
    ASSERT_EQ(lines.size(), 1U) << result.err;
    EXPECT_TRUE(lines[0].starts_with("vexelctl: ")) << lines[0];
    EXPECT_TRUE(Contains(lines[0], part)) << lines[0];
  }

  std::wstring LogFile() const { return L"log\\vexelctl.vexelsdk.dll.log"; }

  // Opens a picture, waits until it is shown, and closes it: a log to work on.
  void MakeLog() {
    const Result result = Run(L"open a.bmp", "expect open_pic_success\nclose\n");
    ASSERT_EQ(result.code, 0U) << result.out << result.err;
    ASSERT_TRUE(FileExists(File(LogFile())));
  }

  Json DoctorFindings(const std::wstring& arguments, std::uint32_t code) {
    const Result result = Run(L"doctor --json " + arguments);
    EXPECT_EQ(result.code, code) << result.out;
    const Json json = Json::parse(result.out, nullptr, false);
    EXPECT_TRUE(json.is_object()) << result.out;
    return json.is_object() ? json.at("findings") : Json::array();
  }

  static Json Finding(const Json& findings, const std::string& topic) {
    for (const Json& finding : findings) {
      if (finding.at("topic") == topic) {
        return finding;
      }
    }
    ADD_FAILURE() << "no finding about " << topic << " in " << findings.dump(1);
    return Json{{"grade", ""}, {"text", ""}, {"remedy", ""}};
  }

  Variable m_idle;
  TestFolder m_folder;
};

std::vector<Json> JsonLines(const std::string& text) {
  std::vector<Json> lines;
  for (const std::string& line : Lines(text)) {
    lines.push_back(Json::parse(line, nullptr, false));
    EXPECT_TRUE(lines.back().is_object()) << line;
  }
  return lines;
}

TEST_F(Vexelctl, OpenPrintsEachEventWithIdTimeAndThread) {
  const Result result =
      Run(L"open --json a.bmp \"b \u00FC.bmp\"",
          "@1 expect open_pic_success\n@2 expect open_pic_success\n@1 operate 4\n@2 fullscreen off\nquit\n");
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
}

TEST_F(Vexelctl, OpenKeepsACloseBackUntilTheProcessIsThere) {
  const Result result = Run(L"open --json a.bmp", "close\nexpect open_pic_process_success\nquit\n");
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

TEST_F(Vexelctl, OpenClosesNothingWithoutThePipeLibrary) {
  std::filesystem::remove(File(L"vpipearm64.dll"));
  const Result result = Run(L"open a.bmp", "expect open_pic_process_success\nclose\n");
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
  const Result result = Run(L"open no.bmp", "expect open_pic_fail\n");
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
  const Result result = Run(L"open --json a.bmp", script);
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "\"call\":\"operate 1\",\"result\":true")) << result.out;
  EXPECT_TRUE(Contains(result.out, "\"call\":\"close\",\"result\":false")) << result.out;
}

TEST_F(Vexelctl, OpenSendsOneCloseToAnEditorThatAsksItsUser) {
  const Result result =
      Run(L"open --json --limit 2 a.bmp", "expect open_pic_success\noperate 1\nexpect \"edit\"\nclose\n");
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
  const Result result = Run(L"open --param ??? a.bmp");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the parameter is no base64 text with switches: it counts as none")) << result.out;
  EXPECT_FALSE(Contains(Run(L"open --app 2 a.bmp").out, "base64"));
  EXPECT_EQ(Finding(DoctorFindings(L"--param ???", 0), "parameter").at("grade"), "note");
}

TEST_F(Vexelctl, OpenTellsOfAnEditorThatIsLostOnTheWay) {
  const Variable zoo(L"VEXEL_EDITOR_ZOO", L"crash_after_open=300");
  const Result result = Run(L"open a.bmp", "expect open_pic_success\nwait 3000\noperate 4\nwait 4000\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the SDK has given the id up") || Contains(result.out, "run_error crash"))
      << result.out;
}

TEST_F(Vexelctl, OpenTellsOfAnEditorThatDoesNotAnswer) {
  const Variable zoo(L"VEXEL_EDITOR_ZOO", L"never_serve");
  const Result result = Run(L"open --limit 2 a.bmp", "expect open_pic_success\n");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "no event with 'open_pic_success' has come")) << result.out;
  EXPECT_TRUE(Contains(result.out, "2 s without \"open_pic_success\"")) << result.out;
}

TEST_F(Vexelctl, OpenTellsOfAProgramThatCannotStart) {
  std::filesystem::remove(File(L"vxpixeleditor.exe"));
  const Result result = Run(L"open --limit 2 --app 2 a.bmp");
  EXPECT_EQ(result.code, 1U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "2 s without a process")) << result.out;
  EXPECT_TRUE(Contains(result.out, "left without a close")) << result.out;
}

TEST_F(Vexelctl, OpenRecordsWhatCanBeReplayed) {
  const Result first = Run(L"open --record run.txt a.bmp", "expect open_pic_success\n@1 operate 5\nquit\n");
  ASSERT_EQ(first.code, 0U) << first.out << first.err;
  const std::string recorded = ReadFileBytes(File(L"run.txt"));
  EXPECT_TRUE(Contains(recorded, "\n@1 operate 5\n")) << recorded;
  const Result again = Run(L"open a.bmp", recorded);
  EXPECT_EQ(again.code, 0U) << again.out << again.err;
  EXPECT_TRUE(Contains(again.out, "operate 5")) << again.out;
}

TEST_F(Vexelctl, OpenSaysWhichCommandMakesNoSenseAndGoesOn) {
  const Result result = Run(L"open a.bmp", "frob\n@9 close\nopen nosuch.png\nexpect open_pic_success\n");
  EXPECT_EQ(result.code, 1U);
  EXPECT_EQ(Lines(result.err),
            (std::vector<std::string>{"vexelctl: 'frob' is no command; 'help' lists them", "vexelctl: there is no id 9",
                                      "vexelctl: there is no picture 'nosuch.png'"}));
  EXPECT_TRUE(Contains(result.out, "open_pic_success")) << result.out;
}

TEST_F(Vexelctl, OpenLeavesAfterItsTime) {
  const Result result = Run(L"open --for 2 a.bmp");
  EXPECT_EQ(result.code, 0U) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "the time is over")) << result.out;
}

TEST_F(Vexelctl, DoctorFindsNothingWrongWithAWholeInstallation) {
  const Json findings = DoctorFindings(L"", 0);
  for (const char* const topic : {"sdk", "pipe library", "webvexlaunch.exe", "vxpixeleditor.exe", "log level",
                                  "log file", "elevation", "first open"}) {
    EXPECT_EQ(Finding(findings, topic).at("grade"), "ok") << topic;
  }
  EXPECT_TRUE(Contains(Finding(findings, "log file").at("text"), "not there yet"));
  EXPECT_FALSE(std::filesystem::exists(File(L"log"))) << "the doctor leaves nothing behind";
}

TEST_F(Vexelctl, DoctorNamesEachMissingFileWithARemedy) {
  WriteFileBytes(File(L"vpipearm64.dll"), ReadFileBytes(File(L"vpipearm64.dll")).substr(0, 2000));
  const Json damaged = DoctorFindings(L"", 1);
  EXPECT_EQ(std::count_if(damaged.begin(), damaged.end(),
                          [](const Json& finding) {
                            return finding.at("topic") == "pipe library" && finding.at("grade") == "note";
                          }),
            1)
      << damaged.dump(1);
  std::filesystem::remove(File(L"vpipearm64.dll"));
  std::filesystem::remove(File(L"webvexlaunch.exe"));
  const Json findings = DoctorFindings(L"", 1);
  for (const char* const topic : {"pipe library", "webvexlaunch.exe", "first open"}) {
    EXPECT_EQ(Finding(findings, topic).at("grade"), "problem") << topic;
    EXPECT_NE(Finding(findings, topic).value("remedy", ""), "") << topic;
  }
  EXPECT_EQ(Finding(findings, "vxpixeleditor.exe").at("grade"), "ok");
}

TEST_F(Vexelctl, DoctorKnowsTheOrderInWhichThePipeLibraryIsSought) {
  std::filesystem::create_directory(File(L"host"));
  std::filesystem::copy_file(File(L"webvexlaunch.exe"), File(L"host\\browser.exe"));
  const std::string beside = Finding(DoctorFindings(L"--host host\\browser.exe", 0), "pipe library").at("text");
  EXPECT_TRUE(beside.starts_with(Utf8(File(L"vpipearm64.dll")))) << beside;
  EXPECT_LT(beside.find("host\\, then"), beside.size()) << beside;
  std::filesystem::copy_file(File(L"vpipearm64.dll"), File(L"host\\vpipearm64.dll"));
  const Json findings = DoctorFindings(L"--host host\\browser.exe", 0);
  const std::string first = Finding(findings, "pipe library").at("text");
  EXPECT_TRUE(first.starts_with(Utf8(File(L"host\\vpipearm64.dll")))) << first;
  EXPECT_TRUE(Contains(Finding(findings, "log file").at("text"), "host\\log\\browser.vexelsdk.dll.log"));
}

TEST_F(Vexelctl, DoctorSaysWhichSavedProcessWouldBeTakenOver) {
  MakeLog();
  const std::string waiting = Finding(DoctorFindings(L"", 0), "saved preview_pid").at("text");
  EXPECT_TRUE(Contains(waiting, "would be taken over as the waiting webvexlaunch.exe")) << waiting;
  const std::uint32_t pid = static_cast<std::uint32_t>(std::stoul(waiting));
  // The same ids, seen from an installation elsewhere.
  std::filesystem::create_directory(File(L"other"));
  for (const wchar_t* const name : {L"vexelsdk.dll", L"vpipearm64.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
    std::filesystem::copy_file(File(name), File(std::wstring(L"other\\") + name));
  }
  const std::string foreign = Finding(DoctorFindings(L"--sdk other", 0), "saved preview_pid").at("text");
  EXPECT_TRUE(Contains(foreign, "would not be taken over: it runs ")) << foreign;
  EndProgram(pid);
  ASSERT_TRUE(WaitFor([&] {
    return Contains(Finding(DoctorFindings(L"", 0), "saved preview_pid").at("text"),
                    "would not be taken over: no such process");
  }));
}

TEST_F(Vexelctl, ASecondHostBesideOneThatRunsIsFoundAndItsCloseIsExplained) {
  const HANDLE first = Start(L"open --for 3600 a.bmp", "", L"first-");
  ASSERT_NE(first, nullptr);
  CloseHandle(first); // it ends with the folder
  ASSERT_TRUE(WaitFor([this] { return Contains(ReadFileBytes(File(L"first-out.txt")), " open_pic_success"); }));
  // The place of the process that the first host has opened with is filled anew, and served by it.
  Json saved;
  ASSERT_TRUE(WaitFor([&] {
    const Json findings = Json::parse(Run(L"doctor --json").out).at("findings");
    saved = Finding(findings, "saved preview_pid");
    return saved.at("grade") == "problem";
  })) << saved;
  EXPECT_TRUE(Contains(saved.at("text"), "another host serves it")) << saved;
  EXPECT_NE(saved.value("remedy", ""), "");
  EXPECT_EQ(Finding(DoctorFindings(L"", 1), "first open").at("grade"), "problem");

  const Result second = Run(L"open a.bmp", "expect open_pic_process_success\nwait 500\nclose\n");
  EXPECT_EQ(second.code, 1U) << second.out << second.err;
  const std::vector<std::string> lines = Lines(second.err);
  ASSERT_EQ(lines.size(), 1U) << second.err;
  EXPECT_TRUE(lines[0].starts_with("vexelctl: the close met id 1 without a link, which ends a host")) << lines[0];
  EXPECT_TRUE(Contains(second.out, "open_pic_process_success")) << second.out;
}

TEST_F(Vexelctl, DoctorFindsAProgramThatCannotStart) {
  const std::string whole = ReadFileBytes(File(L"webvexlaunch.exe"));
  WriteFileBytes(File(L"webvexlaunch.exe"), whole.substr(0, 2000));
  const Json cut = Finding(DoctorFindings(L"", 1), "webvexlaunch.exe");
  EXPECT_EQ(cut.at("grade"), "problem");
  EXPECT_TRUE(Contains(cut.at("text"), "cannot be loaded, error ")) << cut;

  std::string foreign = whole;
  const auto header = static_cast<unsigned char>(foreign.at(0x3C)) +
                      static_cast<std::size_t>(static_cast<unsigned char>(foreign.at(0x3D))) * 256;
  foreign.at(header + 4) = '\xC4'; // a processor of another family
  foreign.at(header + 5) = '\x01';
  WriteFileBytes(File(L"webvexlaunch.exe"), foreign);
  const Json other = Finding(DoctorFindings(L"", 1), "webvexlaunch.exe");
  EXPECT_EQ(other.at("grade"), "problem");
  EXPECT_TRUE(Contains(other.at("text"), "is built for machine 452, and this machine takes ")) << other;
  EXPECT_NE(other.value("remedy", ""), "");
}

TEST_F(Vexelctl, DoctorLooksAtTheParameter) {
  const std::string none = Finding(DoctorFindings(L"--param " + Base64("/apptype:7"), 1), "first open").at("text");
  EXPECT_TRUE(Contains(none, "application type 7, which is no program")) << none;
  const std::string second = Finding(DoctorFindings(L"--param " + Base64("/apptype:2"), 0), "first open").at("text");
  EXPECT_TRUE(Contains(second, "vxpixeleditor.exe")) << second;
}

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
  RegCloseKey(key);
  const Json with = Json::parse(Run(L"switches --json").out);
  const Json asked = Json::parse(Run(L"switches --json nosuch").out);
  const std::string doctor = Finding(DoctorFindings(L"", 0), "switches").at("text");
  RegDeleteKeyW(HKEY_CURRENT_USER, kSwitchesKey);
  EXPECT_EQ(with.at("IsSupportPreview"), true);
  EXPECT_EQ(with.at("IsPreviewValid"), true);
  EXPECT_EQ(with.at("GetSwitchValue").at("OpenPIC_enable"), 1);
  EXPECT_EQ(with.at("GetSwitchValue").at("words"), -1);
  EXPECT_EQ(asked.at("GetSwitchValue"), (Json{{"nosuch", -1}}));
  EXPECT_TRUE(Contains(doctor, "OpenPIC_enable = 1, words = the text \"1\"")) << doctor;
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
  ExpectRefused(L"open", 2, "no picture was named");
  ExpectRefused(L"open --app 7 a.bmp", 2, "'7' is no program: write 1 or 2");
  ExpectRefused(L"open --for inf a.bmp", 2, "'inf' is no number of seconds");
  ExpectRefused(L"open --limit -1 a.bmp", 2, "'-1' is no number of seconds");
  ExpectRefused(L"log --for 2 a.log", 2, "--for requires --follow");
  ExpectRefused(L"log --run -3 a.log", 2, "--run");
  ExpectRefused(L"", 2, "a command is missing");
}

TEST_F(Vexelctl, EachCommandHasHelpWithTheExitCodes) {
  for (const wchar_t* const command :
       {L"", L"open ", L"doctor ", L"log ", L"timeline ", L"switches ", L"extensions "}) {
    const Result result = Run(std::wstring(command) + L"--help");
    EXPECT_EQ(result.code, 0U) << Utf8(command);
    EXPECT_TRUE(Contains(result.out, "Usage: vexelctl")) << result.out;
    EXPECT_TRUE(Contains(result.out, "Exit codes:")) << result.out;
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
