#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <regex>
#include <string>
#include <vector>

namespace {

using namespace sdktest;

class Log : public SdkTest {};

const std::string kLine =
    R"(\[\d+ *\|\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\|(   INFO|WARNING|  ERROR)\|\w+\.(cpp|h):\d+\] \S+ .*)";

TEST_F(Log, LiesInTheFolderOfTheHostUnderBothNames) {
  StartHost();
  Host().Ask("init");
  WaitForPreload(2);
  EXPECT_TRUE(FileExists(Folder().Path() + L"log\\testhost.vexelsdk.dll.log"));
}

TEST_F(Log, EveryLineHasTheOneForm) {
  StartHost();
  OpenAndWait();
  WaitForPreload(2);
  const std::vector<std::string> lines = Folder().Log();
  EXPECT_GT(lines.size(), 10U);
  const std::regex form(kLine);
  for (const std::string& line : lines) {
    EXPECT_TRUE(std::regex_match(line, form)) << line;
  }
}

TEST_F(Log, LinesEndWithCrLfAndTheFileHasNoByteOrderMark) {
  StartHost();
  OpenAndWait();
  Host().Ask("uninit");
  const std::string bytes = ReadFileBytes(Folder().LogFile());
  ASSERT_GT(bytes.size(), 2U);
  EXPECT_EQ(bytes[0], '[');
  EXPECT_EQ(bytes.substr(bytes.size() - 2), "\r\n");
  for (std::size_t at = bytes.find('\n'); at != std::string::npos; at = bytes.find('\n', at + 1)) {
    ASSERT_EQ(bytes[at - 1], '\r');
  }
}

TEST_F(Log, NamesTheFunctionThatSpeaks) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Ask("operate " + std::to_string(opened.id) + " 6");
  Host().WaitForEvent(opened.id, kOpenSuccess, 2);
  const std::string pid = std::to_string(opened.pid);
  for (const std::string& text : {
           std::string("] VexelSDKThread::DoOperator m_op(SDK_Operator)=3, m_id=1, m_pid=0"),
           std::string("] VexelSDKThread::DoOperator m_op(SDK_Operator)=16, m_id=1, m_pid=0"),
           std::string("] OperatorThreadFun data.m_op = SDK_PreLoadProcess"),
           std::string("] OperatorThreadFun data.m_op = SDK_OPEN data.m_id=1"),
           std::string("] VexelSDKThread::HandleOpenProcess nAppType=1, pName=webvexlaunch.exe"),
           std::string("] VexelSDKThread::HandleOpenProcess Invalid Old Process"),
           "] VexelSDKThread::HandleOpenProcess Use Process " + pid,
           std::string("] VexelSDKHelper::ConnectServer success. duration="),
           std::string("] VexelSDKHelper::WriteOperator data={"),
           std::string("] VexelSDKHelper::WriteOperator respon="),
       }) {
    EXPECT_FALSE(Folder().LogWith(text).empty()) << text;
  }
}

TEST_F(Log, FolderThatCannotBeMadeKeepsItSilent) {
  WriteFileBytes(Folder().Path() + L"log", "in the way");
  StartHost();
  const Opened opened = OpenAndWait();
  EXPECT_GT(opened.pid, 0U);
  EXPECT_EQ(Host().Ask("close " + std::to_string(opened.id)), 0);
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_EQ(ReadFileBytes(Folder().Path() + L"log"), "in the way");
}

TEST_F(Log, FolderMadeLaterBringsItBack) {
  WriteFileBytes(Folder().Path() + L"log", "in the way");
  StartHost();
  OpenAndWait();
  ASSERT_TRUE(DeleteFileW((Folder().Path() + L"log").c_str()));
  ASSERT_TRUE(CreateDirectoryW((Folder().Path() + L"log").c_str(), nullptr));
  Host().Ask("operate 1 6");
  WaitForLog("m_op(SDK_Operator)=16");
}

TEST_F(Log, LevelTwoLeavesOutInformation) {
  QuietLog();
  StartHostWithZoo(L"never_serve");
  const std::int64_t window = Host().Ask("window");
  const std::int32_t id = Open(window, Picture());
  Host().WaitForEvent(id, kProcessSuccess);
  WaitForLog("VexelSDKHelper::ConnectServer try failure. last_error=");
  Host().Ask("close " + std::to_string(id));
  WaitForLog("failure. is_stop=1");
  EXPECT_TRUE(Folder().LogWith("|   INFO|").empty());
}

TEST_F(Log, LevelAboveFourMeansInformation) {
  Folder().SetRegistryNumber(L"machine", kLogLevelKey, L"LogLevel", 7);
  StartHost();
  Host().Ask("init");
  WaitForPreload(2);
  EXPECT_FALSE(Folder().LogWith("|   INFO|").empty());
}

} // namespace
