#include "tests/windows/sdk/sdk_test.h"

#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <algorithm>

namespace sdktest {
namespace {

constexpr int kExports = 16;
/// An editor without work ends itself after this time, should a test be cut off before it ends them.
constexpr wchar_t kIdleMs[] = L"180000";

bool IsListed(std::uint32_t pid) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process != nullptr) {
    CloseHandle(process);
  }
  return process != nullptr;
}

} // namespace

SdkTest::SdkTest() : m_picture(m_folder.Path() + L"picture.bmp") { WriteFileBytes(m_picture, SmallPicture()); }

SdkTest::~SdkTest() { m_host.reset(); }

HostProcess& SdkTest::StartHost(const std::map<std::wstring, std::wstring>& environment, const std::wstring& library) {
  if (!m_isBare) {
    m_folder.AddAll();
    m_isBare = true; // filled now; a second host shares it
  }
  std::map<std::wstring, std::wstring> variables = environment;
  variables[L"VEXEL_EDITOR_TRACE"] = m_folder.Path() + L"received.txt";
  variables.emplace(L"VEXEL_EDITOR_IDLE_MS", kIdleMs);
  m_host.reset();
  m_host = std::make_unique<HostProcess>(m_folder, variables);
  EXPECT_EQ(m_host->Ask("load " + wire::Encode(m_folder.Path() + library)), kExports);
  return *m_host;
}

HostProcess& SdkTest::StartHostWithZoo(const std::wstring& zoo) { return StartHost({{kZooVariable, zoo}}); }

void SdkTest::QuietLog() { m_folder.SetRegistryNumber(L"machine", kLogLevelKey, L"LogLevel", 2); }

std::int32_t SdkTest::Open(std::int64_t window, const std::wstring& path, const std::wstring& param,
                           const std::string& mode) {
  return static_cast<std::int32_t>(Host().Ask("open " + std::to_string(window) + " " + wire::Encode(path) + " 0 " +
                                              wire::Encode(param) + " " + mode));
}

Opened SdkTest::OpenAndWait(const std::wstring& param) { return OpenAndWaitIn(Host().Ask("window"), param); }

Opened SdkTest::OpenAndWaitIn(std::int64_t window, const std::wstring& param) {
  // A window keeps its id, and with it the events of an earlier open.
  const std::size_t before = Host().Events().size();
  const std::int32_t id = Open(window, m_picture, param);
  std::optional<Event> bound;
  bool isSent = false;
  EXPECT_TRUE(WaitFor([&] {
    const std::vector<Event> events = Host().Events();
    bound.reset();
    for (std::size_t i = before; i < events.size() && !isSent; ++i) {
      if (events[i].id == id && events[i].IsParam("open_pic_process_success")) {
        bound = events[i];
      }
      isSent = bound.has_value() && events[i].id == id && events[i].IsParam("open_pic_success");
    }
    return isSent;
  })) << "the picture was not opened";
  const std::int64_t pid = bound.has_value() ? NumberAfter(bound->text, "\"process_id\":") : 0;
  return {window, id, static_cast<std::uint32_t>(pid)};
}

void SdkTest::Modify(const Opened& opened) {
  EXPECT_EQ(Host().Ask("operate " + std::to_string(opened.id) + " 1"), 1);
  Host().WaitForEvent(opened.id, "\"edit\"");
}

std::string SdkTest::WaitForLog(const std::string& part, std::size_t count) {
  std::string line;
  EXPECT_TRUE(WaitFor([&] {
    const std::vector<std::string> lines = m_folder.LogWith(part);
    if (lines.size() < count) {
      return false;
    }
    line = lines[count - 1];
    return true;
  })) << "no log line "
      << part;
  return line;
}

std::uint32_t SdkTest::WaitForPreload(std::size_t count) {
  return static_cast<std::uint32_t>(NumberAfter(WaitForLog("done. pid=", count), "done. pid="));
}

void SdkTest::WaitUntilUnlisted(std::uint32_t pid) {
  EXPECT_TRUE(WaitFor([&] { return !IsRunning(pid); })) << "the process lives on: " << pid;
  EXPECT_TRUE(WaitFor([&] {
    Host().Ask("killhandles " + std::to_string(pid));
    return !IsListed(pid);
  })) << "still listed: "
      << pid;
}

void SdkTest::Kill(std::uint32_t pid) {
  EndProgram(pid);
  WaitUntilUnlisted(pid);
}

std::vector<std::string> SdkTest::Received() const { return ReadLines(m_folder.Path() + L"received.txt"); }

std::string SdkTest::WaitForReceived(const std::vector<std::string>& parts) {
  std::string text;
  EXPECT_TRUE(WaitFor([&] {
    for (const std::string& line : Received()) {
      if (std::all_of(parts.begin(), parts.end(), [&](const std::string& part) { return Contains(line, part); })) {
        text = line;
        return true;
      }
    }
    return false;
  })) << "not received: "
      << ::testing::PrintToString(parts);
  return text;
}

} // namespace sdktest
