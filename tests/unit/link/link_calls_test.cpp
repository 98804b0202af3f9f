#include "platform/error.h"
#include "tests/sim/handles.h"
#include "tests/sim/module.h"
#include "tests/unit/link/noted_link.h"

#include <memory>

namespace {

/// What a link asks of the pipe library, in which order, and what it makes of the answers.
class LinkCalls : public NotedLink {
protected:
  using Lines = std::vector<std::string>;

  void Serve() { ASSERT_TRUE(m_helper->StartServer(m_pid)); }

  /// A text of the editor, fetched at once.
  bool Take(const char* text) {
    m_library.processor->OnMessage(text);
    std::string fetched;
    return m_helper->GetOperator(fetched) && fetched == text;
  }

  std::unique_ptr<VexelSDKHelper> m_helper = std::make_unique<VexelSDKHelper>();
};

TEST_F(LinkCalls, ComeInTheOrderOfALinksLife) {
  Serve();
  EXPECT_TRUE(m_helper->WriteOperator(RecordOf(SDK_EDIT), nullptr));
  EXPECT_TRUE(m_helper->WriteOperator(RecordOf(SDK_EDIT), nullptr));
  m_helper.reset();
  EXPECT_EQ(m_library.calls, (Lines{"CreatePipeSvr", "SetMsgProcessor", "Start vexel_browser_" + PidText(),
                                    "CltConnectServer vexel_browser_editor_" + PidText(), "CltComunicate 7",
                                    "CltComunicate 7", "CltDisConnect 7", "ReleasePipeSvr"}));
}

TEST_F(LinkCalls, OfALinkThatNeverConnectedEndWithTheServer) {
  Serve();
  m_helper.reset();
  EXPECT_EQ(m_library.calls,
            (Lines{"CreatePipeSvr", "SetMsgProcessor", "Start vexel_browser_" + PidText(), "ReleasePipeSvr"}));
}

TEST_F(LinkCalls, FindTheReceiverAliveUntilTheServerIsReleased) {
  const int before = sim::OpenHandles(sim::HandleKind::kEvent);
  int during = 0;
  std::string late;
  Serve();
  m_library.release = [&] {
    EXPECT_EQ(m_library.processor->OnMessage("late"), 0);
    during = sim::OpenHandles(sim::HandleKind::kEvent);
    EXPECT_TRUE(m_helper == nullptr || m_helper->GetOperator(late));
  };
  m_helper->StopServer();
  EXPECT_EQ(late, "late");
  m_helper.reset();
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kEvent), before);

  m_helper = std::make_unique<VexelSDKHelper>();
  Serve();
  m_helper.reset(); // its end, not a release by itself
  EXPECT_EQ(during, before + 1);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kEvent), before);
}

TEST_F(LinkCalls, OfAServerThatCannotStartAreNotRepeated) {
  m_library.start = [] {
    platform::SetLastError(231);
    return 0;
  };
  EXPECT_FALSE(m_helper->StartServer(m_pid));
  EXPECT_EQ(Log(), Lines{"ERROR VexelSDKHelper::StartServer error occur. last_error=231"});
  EXPECT_TRUE(m_helper->StartServer(m_pid)); // it has a server, such as that is
  EXPECT_TRUE(m_helper->StartServer(m_pid + 4));
  m_helper.reset();
  EXPECT_EQ(m_library.calls,
            (Lines{"CreatePipeSvr", "SetMsgProcessor", "Start vexel_browser_" + PidText(), "ReleasePipeSvr"}));
  EXPECT_EQ(Log().size(), 1u);
}

TEST_F(LinkCalls, AskOnceMoreForAServerThatWasNotMade) {
  m_library.create = [&] { return m_library.calls.size() > 1; };
  EXPECT_FALSE(m_helper->StartServer(m_pid));
  EXPECT_EQ(m_helper->GetPid(), m_pid);
  EXPECT_EQ(Log(), Lines{});
  const std::size_t bound = sim::RequestedEntries().size();
  EXPECT_TRUE(m_helper->StartServer(m_pid));
  EXPECT_EQ(sim::RequestedEntries().size(), bound); // through the same binding
  EXPECT_EQ(m_library.calls,
            (Lines{"CreatePipeSvr", "CreatePipeSvr", "SetMsgProcessor", "Start vexel_browser_" + PidText()}));
}

TEST_F(LinkCalls, OfALinkWithoutAServerReleaseNothing) {
  m_library.create = [] { return false; };
  EXPECT_FALSE(m_helper->StartServer(m_pid));
  m_helper.reset();
  EXPECT_EQ(m_library.calls, Lines{"CreatePipeSvr"});
}

TEST_F(LinkCalls, AnExchangeWithoutAReplyLogsTheTextAndNothingBehindIt) {
  m_library.communicate = []() -> const char* { return nullptr; };
  Serve();
  bool sent = false;
  EXPECT_FALSE(m_helper->WriteOperator(RecordOf(SDK_EDIT), &sent));
  EXPECT_TRUE(sent);
  EXPECT_FALSE(m_helper->IsConnecting());
  EXPECT_EQ(Log(), (Lines{"INFO VexelSDKHelper::ConnectServer success. duration=0ms, pid=" + PidText(),
                          "INFO VexelSDKHelper::WriteOperator data=" + EditText(0)}));
}

TEST_F(LinkCalls, AnEmptyReplyIsAReply) {
  m_library.communicate = [] { return ""; };
  Serve();
  EXPECT_TRUE(m_helper->WriteOperator(RecordOf(SDK_EDIT), nullptr));
  EXPECT_TRUE(Log().back().starts_with("INFO VexelSDKHelper::WriteOperator respon=, last_error=")) << Log().back();
}

TEST_F(LinkCalls, EveryTextCarriesTheIdOfTheLastOpenHoweverThatEnded) {
  Serve();
  const auto next = [this] {
    EXPECT_TRUE(m_helper->WriteOperator(RecordOf(SDK_EDIT, 99), nullptr));
    return m_library.texts.back();
  };
  // No connection: the editor has gone, and another has its number.
  sim::EndProcess(m_pid);
  bool sent = true;
  EXPECT_FALSE(m_helper->WriteOperator(RecordOf(SDK_OPEN, 5), &sent));
  EXPECT_FALSE(sent);
  sim::ProcessSpec again;
  again.path = sim::kEditorPath;
  again.pid = m_pid;
  sim::StartProcess(again);
  EXPECT_EQ(next(), EditText(5));
  EXPECT_TRUE(m_helper->WriteOperator(RecordOf(SDK_OPEN, 6), nullptr));
  EXPECT_EQ(next(), EditText(6));
  // No reply.
  m_library.communicate = []() -> const char* { return nullptr; };
  EXPECT_FALSE(m_helper->WriteOperator(RecordOf(SDK_OPEN, 7), nullptr));
  m_library.communicate = [] { return "ok"; };
  EXPECT_EQ(next(), EditText(7));
  // The other open is none.
  EXPECT_TRUE(m_helper->WriteOperator(RecordOf(SDK_OPEN_BARE, 8), nullptr));
  EXPECT_EQ(next(), EditText(7));
}

TEST_F(LinkCalls, AnOpenWhoseParameterIsNoBase64TravelsAsItIs) {
  Serve();
  SDK_OperatorData record = RecordOf(SDK_OPEN);
  record.m_param = L"!no base64 \u00e4";
  EXPECT_TRUE(m_helper->WriteOperator(record, nullptr));
  EXPECT_NE(m_library.texts.at(0).find("\"param\":\"!no base64 \xC3\xA4\","), std::string::npos) << m_library.texts[0];
}

TEST_F(LinkCalls, APlainCloseAloneEndsThePollingAndBeforeItIsSent) {
  for (std::int32_t op = SDK_NONE; op <= SDK_CHANGE_THEME; ++op) {
    for (const bool status : {false, true}) {
      for (const bool modified : {false, true}) {
        for (const char* const reply : {static_cast<const char*>("ok"), static_cast<const char*>(nullptr)}) {
          m_helper = std::make_unique<VexelSDKHelper>();
          Serve();
          ASSERT_TRUE(Take(modified ? R"({"type":"edit","status":true})" : R"({"type":"edit","status":false})"));
          ASSERT_EQ(m_helper->IsModify(), modified);
          bool whenSent = false;
          m_library.communicate = [&] {
            whenSent = m_helper->IsReading();
            return reply;
          };
          SDK_OperatorData record = RecordOf(static_cast<SDK_Operator>(op));
          record.m_status = status;
          EXPECT_EQ(m_helper->WriteOperator(record, nullptr), reply != nullptr);
          const bool reads = op != SDK_CLOSE || (status && modified);
          EXPECT_EQ(whenSent, reads) << op << status << modified;
          EXPECT_EQ(m_helper->IsReading(), reads) << op << status << modified;
        }
      }
    }
  }
}

TEST_F(LinkCalls, OnlyAnEditWithABooleanChangesTheUnsavedStateAndEveryTextIsHandedOn) {
  const struct {
    const char* text;
    int modified; // 0 and 1: from then on, -1: as before
  } rows[] = {
      {R"({"type":"edit","status":true})", 1},
      {R"({"type":"edit","status":false})", 0},
      {R"({"type":"edit","status":1})", -1},
      {R"({"type":"edit","status":"true"})", -1},
      {R"({"type":"edit","status":null})", -1},
      {R"({"type":"edit"})", -1},
      {R"({"type":"Edit","status":true})", -1},
      {R"({"type":"Edit","status":false})", -1},
      {R"({"type":"other","status":true})", -1},
      {R"({"type":"other","status":false})", -1},
      {R"({"type":"edit","status":true)", -1},
      {R"({"type":"edit","status":false)", -1},
      {R"({"type":["edit"],"status":true})", -1},
      {"[]", -1},
      {"no json", -1},
  };
  Serve();
  for (const bool before : {false, true}) {
    for (const auto& row : rows) {
      ASSERT_TRUE(Take(before ? R"({"type":"edit","status":true,"x":0})" : R"({"type":"edit","status":false,"x":0})"));
      EXPECT_TRUE(Take(row.text)) << row.text;
      EXPECT_EQ(m_helper->IsModify(), row.modified < 0 ? before : row.modified != 0) << row.text;
      EXPECT_EQ(Log().back(), std::string("INFO VexelSDKHelper::GetOperator data=") + row.text);
    }
  }
  const std::size_t lines = Log().size();
  EXPECT_EQ(lines, 2 * 2 * std::size(rows));
  std::string text = "before";
  EXPECT_FALSE(m_helper->GetOperator(text));
  EXPECT_EQ(text, "before");
  EXPECT_EQ(Log().size(), lines);
}

} // namespace
