#pragma once

#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/test_folder.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

namespace toolstest {

using namespace sdktest;
using Json = nlohmann::json;

inline constexpr DWORD kLimitMs = 120000;

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

inline std::vector<std::string> Lines(const std::string& text) {
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
    const bool isStarted = CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                          m_folder.Path().c_str(), &startup, &process) != 0;
    const DWORD error = GetLastError();
    for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) {
      CloseHandle(handle);
    }
    if (!isStarted) {
      ADD_FAILURE() << "vexelctl did not start, error " << error;
      return nullptr;
    }
    CloseHandle(process.hThread);
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
    const Result result = Run(L"open --limit 100 a.bmp", "expect open_pic_success\nclose\n");
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

inline std::vector<Json> JsonLines(const std::string& text) {
  std::vector<Json> lines;
  for (const std::string& line : Lines(text)) {
    lines.push_back(Json::parse(line, nullptr, false));
    EXPECT_TRUE(lines.back().is_object()) << line;
  }
  return lines;
}

} // namespace toolstest
