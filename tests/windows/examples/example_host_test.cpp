#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using namespace sdktest;
using Json = nlohmann::json;

constexpr DWORD kExitLimitMs = 120000;
constexpr DWORD kTurnLimitMs = 240000;
constexpr DWORD kNoExit = 0xFFFFFFFF;

/// The example host knows no registry of a test's own: hosts at work side by side would take over each other's waiting
/// editors. One test at a time has its turn, from before its folder is made to after its editors have ended.
class Turn {
protected:
  Turn() : m_mutex(CreateMutexW(nullptr, FALSE, L"vexel-examplehost-test")) {
    const DWORD result = WaitForSingleObject(m_mutex, kTurnLimitMs);
    EXPECT_TRUE(result == WAIT_OBJECT_0 || result == WAIT_ABANDONED) << result;
  }
  ~Turn() {
    ReleaseMutex(m_mutex);
    CloseHandle(m_mutex);
  }

private:
  HANDLE m_mutex;
};

class ExampleHost : private Turn, public SdkTest {
protected:
  ExampleHost() {
    Folder().AddAll();
    Folder().Add(L"examplehost.exe");
  }

  /// Runs the host with these arguments to its end and gives its exit code. Its standard output is in Lines() then.
  /// With `last` it takes commands from standard input, and is told to leave when it has printed a line that holds this.
  DWORD Run(const std::wstring& arguments, const std::string& last = "") {
    // A file, as the editors that wait on would hold a pipe open.
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const HANDLE output = CreateFileW(OutputFile().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    HANDLE input = nullptr;
    HANDLE commands = nullptr;
    EXPECT_TRUE(CreatePipe(&input, &commands, &inherited, 0));
    EXPECT_TRUE(SetHandleInformation(commands, HANDLE_FLAG_INHERIT, 0));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION child{};
    std::wstring command = L"\"" + Folder().Path() + L"examplehost.exe\" " + arguments;
    const bool isStarted = CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                          Folder().Path().c_str(), &startup, &child) != 0;
    CloseHandle(input);
    CloseHandle(output);
    if (!isStarted) {
      ADD_FAILURE() << "not started: " << GetLastError();
      CloseHandle(commands);
      return kNoExit;
    }
    if (!last.empty()) {
      EXPECT_TRUE(WaitFor([&] {
        return WaitForSingleObject(child.hProcess, 0) == WAIT_OBJECT_0 || Contains(ReadFileBytes(OutputFile()), last);
      })) << "not printed: "
          << last;
      constexpr char kExit[] = "exit\n";
      DWORD written = 0;
      WriteFile(commands, kExit, sizeof(kExit) - 1, &written, nullptr);
    }
    DWORD code = kNoExit;
    EXPECT_EQ(WaitForSingleObject(child.hProcess, kExitLimitMs), WAIT_OBJECT_0) << "it does not end";
    GetExitCodeProcess(child.hProcess, &code);
    CloseHandle(commands);
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return code;
  }

  /// The printed lines. Each has to be an object with a time.
  std::vector<Json> Lines() const {
    std::vector<Json> lines;
    for (const std::string& line : ReadLines(OutputFile())) {
      Json json = Json::parse(line, nullptr, false);
      EXPECT_TRUE(json.is_object() && json.contains("t") && json["t"].is_number_integer()) << line.substr(0, 400);
      lines.push_back(std::move(json));
    }
    return lines;
  }

  std::wstring OutputFile() const { return m_output; }

private:
  std::wstring m_output = Folder().Path() + L"output.txt";
};

/// How many lines carry an SDK's or editor's event of the id with this "param".
std::ptrdiff_t CountParams(const std::vector<Json>& lines, int id, const std::string& param) {
  return std::count_if(lines.begin(), lines.end(), [&](const Json& line) {
    return line.is_object() && line.value("id", 0) == id && line.contains("event") && line["event"].is_object() &&
           line["event"].value("param", "") == param;
  });
}

TEST_F(ExampleHost, ShowsTwoPicturesAndLeaves) {
  Folder().Add(L"pictures\\mountain-lake.png");
  Folder().Add(L"pictures\\sailing-boat.tif");
  EXPECT_EQ(Run(L"--script \"shown;exit\" mountain-lake.png sailing-boat.tif"), 0U);
  const std::vector<Json> lines = Lines();
  for (const int id : {1, 2}) {
    EXPECT_EQ(CountParams(lines, id, "open_pic_process_success"), 1) << id;
    EXPECT_EQ(CountParams(lines, id, "picture_shown"), 1) << id;
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const Json& line) {
      return line.is_object() && line.value("action", "") == "open" && line.value("id", 0) == id &&
             line["result"] == true;
    })) << id;
  }
}

TEST_F(ExampleHost, SaysByItsExitCodeThatAPictureWasNotShown) {
  WriteFileBytes(Folder().Path() + L"broken.png", "no picture");
  EXPECT_EQ(Run(L"--script \"shown;exit\" broken.png"), 1U);
  EXPECT_EQ(CountParams(Lines(), 1, "open_pic_fail"), 1);
}

// The tests' windows have no pixels, so the screen stays bare however well the picture is shown.
TEST_F(ExampleHost, SaysByItsExitCodeThatTheScreenStaysBare) {
  Folder().Add(L"pictures\\mountain-lake.png");
  EXPECT_EQ(Run(L"--shot shot.png mountain-lake.png"), 1U);
  EXPECT_EQ(CountParams(Lines(), 1, "picture_shown"), 1);
  EXPECT_FALSE(ReadFileBytes(Folder().Path() + L"shot.png").empty());
}

TEST_F(ExampleHost, PictureThatIsNotThereIsAUsageError) {
  EXPECT_EQ(Run(L"--script \"shown;exit\" nowhere.png"), 2U);
  EXPECT_TRUE(Lines().empty());
}

struct DeepText {
  const char* name;
  std::string text;
};

void PrintTo(const DeepText& text, std::ostream* out) { *out << text.name; }

class DeepTexts : public ExampleHost, public ::testing::WithParamInterface<DeepText> {};

TEST_P(DeepTexts, AreSurvivedAndPrintedAsStrings) {
  const std::string& deep = GetParam().text;
  const std::wstring file = Folder().Path() + L"events.txt";
  WriteFileBytes(file, deep + "\n{\"type\":\"custom_message\",\"param\":\"after\"}\n");
  Folder().Add(L"pictures\\lone-tree.bmp");
  SetEnvironmentVariableW(kZooVariable, (L"events=@" + file).c_str());
  const DWORD code = Run(L"--script shown --stdin lone-tree.bmp", "\"after\"");
  SetEnvironmentVariableW(kZooVariable, nullptr);
  EXPECT_EQ(code, 0U);
  const std::vector<Json> lines = Lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [&](const Json& line) {
                            return line.is_object() && line.contains("event") && line["event"].is_string() &&
                                   line["event"].get_ref<const std::string&>() == deep;
                          }),
            1);
  EXPECT_EQ(CountParams(lines, 1, "after"), 1);
}

constexpr std::size_t kDepth = 100000;

INSTANTIATE_TEST_SUITE_P(ExampleHost, DeepTexts,
                         ::testing::Values(DeepText{"Whole", std::string(kDepth, '[') + std::string(kDepth, ']')},
                                           DeepText{"Unclosed", std::string(kDepth, '[')},
                                           // Closing brackets that close nothing hide the depth from a plain count.
                                           DeepText{"BehindAString", "[\"" + std::string(kDepth, ']') + "\"," +
                                                                         std::string(kDepth, '[') +
                                                                         std::string(kDepth, ']') + "]"}),
                         [](const ::testing::TestParamInfo<DeepText>& text) { return std::string(text.param.name); });

} // namespace
