#include "platform/error.h"
#include "tests/sim/faults.h"
#include "tests/sim/module.h"
#include "tests/unit/link/noted_link.h"

#include <algorithm>

namespace {

/// A link that serves and has not connected.
class Connecting : public NotedLink {
protected:
  Connecting() { EXPECT_TRUE(m_helper.StartServer(m_pid)); }

  int Attempts() const { return m_library.Count("CltConnectServer"); }

  std::string Failed(const std::string& stopAndDuration) const {
    return "ERROR VexelSDKHelper::ConnectServer failure. " + stopAndDuration + ", pid=" + PidText();
  }
  std::string Refused(std::uint32_t error) const {
    return "ERROR VexelSDKHelper::ConnectServer try failure. last_error=" + std::to_string(error) +
           ", pid=" + PidText();
  }
  std::string Connected(const std::string& duration) const {
    return "INFO VexelSDKHelper::ConnectServer success. duration=" + duration + ", pid=" + PidText();
  }

  VexelSDKHelper m_helper;
};

TEST_F(Connecting, TriesEachTenMillisecondsAndLogsEachTryWithItsError) {
  std::vector<std::uint64_t> times;
  const std::uint64_t start = sim::NowMs();
  m_library.connect = [&]() -> std::uint32_t {
    times.push_back(sim::NowMs() - start);
    platform::SetLastError(230 + static_cast<std::uint32_t>(times.size()));
    return times.size() <= 3 ? 0 : NotedLibrary::kConnection;
  };
  m_library.communicate = [] {
    platform::SetLastError(4711);
    return "the reply";
  };
  bool sent = false;
  EXPECT_TRUE(Write(m_helper, RecordOf(SDK_EDIT), &sent));
  EXPECT_TRUE(sent);
  EXPECT_FALSE(m_helper.IsConnecting());
  EXPECT_EQ(times, (std::vector<std::uint64_t>{0, 10, 20, 30}));
  EXPECT_EQ(Log(), (std::vector<std::string>{Refused(231), Refused(232), Refused(233), Connected("30ms"),
                                             "INFO VexelSDKHelper::WriteOperator data=" + EditText(0),
                                             "INFO VexelSDKHelper::WriteOperator respon=the reply, last_error=4711"}));
}

TEST_F(Connecting, GoesOnAtTheLimitAndEndsBeyondItAndTheNextOperatorHasAFreshLimit) {
  m_library.connect = [&]() -> std::uint32_t {
    if (Attempts() == 1) {
      sim::AdvanceMs(99990); // so the next try falls on the hundredth second
    }
    platform::SetLastError(2);
    return 0;
  };
  bool sent = true;
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), &sent));
  EXPECT_FALSE(sent);
  EXPECT_TRUE(m_helper.IsConnecting());
  EXPECT_EQ(Attempts(), 2);
  EXPECT_EQ(Log(), (std::vector<std::string>{Refused(2), Refused(2), Failed("is_stop=0, duration=100010ms")}));
  EXPECT_TRUE(m_library.texts.empty());

  m_library.connect = [&]() -> std::uint32_t { return Attempts() < 4 ? 0 : NotedLibrary::kConnection; };
  EXPECT_TRUE(Write(m_helper, RecordOf(SDK_EDIT), &sent));
  EXPECT_TRUE(sent);
  EXPECT_EQ(Attempts(), 4);
  EXPECT_EQ(Log().at(4), Connected("10ms"));
}

TEST_F(Connecting, ATryOfMoreThanTwentyFourDaysCountsAsNoTime) {
  // The time that has passed is looked at as a signed number of 32 bits.
  m_library.connect = [&]() -> std::uint32_t {
    if (Attempts() > 1) {
      return NotedLibrary::kConnection;
    }
    sim::AdvanceMs(0x80000000u);
    return 0;
  };
  EXPECT_TRUE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(Attempts(), 2);
  EXPECT_EQ(Log().at(1), Connected("2147483658ms"));
}

TEST_F(Connecting, AnEditorThatDiesMeanwhileEndsItInTheNextPass) {
  m_library.connect = [&]() -> std::uint32_t {
    sim::CrashProcess(m_pid);
    platform::SetLastError(2);
    return 0;
  };
  bool sent = true;
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), &sent));
  EXPECT_FALSE(sent);
  EXPECT_TRUE(m_helper.IsConnecting());
  EXPECT_EQ(Attempts(), 1);
  EXPECT_EQ(Log(), (std::vector<std::string>{Refused(2), Failed("is_stop=0, duration=10ms")}));
}

TEST_F(Connecting, AnEditorThatIsGoneIsNotTriedAtAll) {
  sim::EndProcess(m_pid);
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(Attempts(), 0);
  EXPECT_EQ(Log(), std::vector<std::string>{Failed("is_stop=0, duration=0ms")});
}

TEST_F(Connecting, AStopEndsItInTheNextPassAndEveryLaterOneInTheFirst) {
  m_library.connect = [&]() -> std::uint32_t {
    m_helper.StopConnect();
    platform::SetLastError(2);
    return 0;
  };
  bool sent = true;
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), &sent));
  EXPECT_FALSE(sent);
  EXPECT_EQ(Log(), (std::vector<std::string>{Refused(2), Failed("is_stop=1, duration=10ms")}));
  const int looks = sim::CallCount("CreateToolhelp32Snapshot");
  sent = true;
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), &sent));
  EXPECT_FALSE(sent);
  EXPECT_TRUE(m_helper.IsConnecting());
  EXPECT_TRUE(m_helper.IsReading());
  EXPECT_EQ(Attempts(), 1);
  EXPECT_EQ(sim::CallCount("CreateToolhelp32Snapshot"), looks);
  EXPECT_EQ(Log().at(2), Failed("is_stop=1, duration=0ms"));
}

TEST_F(Connecting, AStopAfterTheConnectionChangesNothing) {
  EXPECT_TRUE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  m_helper.StopConnect();
  EXPECT_TRUE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(Attempts(), 1);
}

TEST_F(Connecting, EachAttemptBindsTheLibraryAnew) {
  const auto bound = [] {
    const std::vector<std::string> names = sim::RequestedEntries();
    return std::count(names.begin(), names.end(), "CltConnectServer");
  };
  EXPECT_EQ(bound(), 0);
  m_library.connect = [&]() -> std::uint32_t {
    sim::EndProcess(m_pid);
    return 0;
  };
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(bound(), 1);
  EXPECT_FALSE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(bound(), 2);
}

TEST_F(Connecting, GoesToTheProcessOfTheLastStart) {
  sim::ProcessSpec other;
  other.path = sim::kLauncherPath;
  const std::uint32_t pid = sim::StartProcess(other);
  EXPECT_TRUE(m_helper.StartServer(pid));
  sim::EndProcess(m_pid); // the first one is asked no more
  EXPECT_TRUE(Write(m_helper, RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(m_library.Count("CltConnectServer vexel_browser_editor_" + std::to_string(pid)), 1);
  EXPECT_NE(m_library.texts.at(0).find("\"process_id\":" + std::to_string(pid) + ","), std::string::npos);
}

} // namespace
