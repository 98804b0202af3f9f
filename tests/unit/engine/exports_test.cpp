#include "include/vexelsdk.h"

#include "foundation/logger.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/handles.h"
#include "tests/sim/registry.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>
#include <array>
#include <thread>

namespace {

constexpr wchar_t kSwitchKey[] = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";

VexelWindow Handle(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

class Exports : public EngineTest {
protected:
  Exports() { sim::InstallEditors(); }
};

TEST_F(Exports, InitPreloadsBothPrograms) {
  EXPECT_EQ(VexelSDK_Init(nullptr), 1);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 2);
  EXPECT_EQ(VexelSDK_UnInit(), 1);
}

TEST_F(Exports, InitTwiceLeavesTheFirstMutexOpenAndUnInitTwiceClosesOneTwice) {
  VexelSDKThread::DestroyInstance(Engine());
  const int mutexes = sim::OpenHandles(sim::HandleKind::kMutex);
  VexelSDK_Init(nullptr);
  VexelSDK_Init(nullptr);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kMutex), mutexes + 2);
  VexelSDK_UnInit();
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kMutex), mutexes + 1);
  const int bad = sim::BadCloses();
  VexelSDK_UnInit();
  EXPECT_EQ(sim::BadCloses(), bad + 1);
}

TEST_F(Exports, UnInitWithoutAnEngineBuildsOneAndTearsItDown) {
  VexelSDKThread::DestroyInstance(Engine());
  const int events = sim::OpenedHandles(sim::HandleKind::kEvent);
  EXPECT_EQ(VexelSDK_UnInit(), 1);
  EXPECT_EQ(sim::OpenedHandles(sim::HandleKind::kEvent), events + 2);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kEvent), 0);
}

TEST_F(Exports, TheExtensionListIsWholeOrCutAndAlwaysTerminated) {
  std::array<wchar_t, 400> buffer;
  buffer.fill(L'#');
  EXPECT_EQ(GetPicSupportFileExtensions(buffer.data(), 399), 1);
  const std::wstring whole = buffer.data();
  EXPECT_EQ(whole.size(), 398u);
  EXPECT_EQ(buffer[399], L'#');
  EXPECT_EQ(std::count(whole.begin(), whole.end(), L'|'), 97);
  EXPECT_EQ(whole.substr(0, 12), L"jpg|jxr|wdp|");
  EXPECT_EQ(whole.substr(391), L"|tim|g4");

  buffer.fill(L'#');
  EXPECT_EQ(GetPicSupportFileExtensions(buffer.data(), 398), 0);
  EXPECT_EQ(std::wstring(buffer.data()), whole.substr(0, 397));
  EXPECT_EQ(buffer[398], L'#');

  buffer.fill(L'#');
  EXPECT_EQ(GetPicSupportFileExtensions(buffer.data(), 1), 0);
  EXPECT_EQ(buffer[0], L'\0');
  EXPECT_EQ(buffer[1], L'#');

  buffer.fill(L'#');
  EXPECT_EQ(GetPicSupportFileExtensions(buffer.data(), 0), 0);
  EXPECT_EQ(buffer[0], L'#');
  EXPECT_EQ(GetPicSupportFileExtensions(nullptr, 399), 0);
}

TEST_F(Exports, OpenEditorRefusesNullWithoutUsingAnId) {
  EXPECT_EQ(OpenEditor(nullptr, Handle(kWindow), 0, nullptr), -1);
  EXPECT_EQ(OpenEditor(L"C:\\a.png", nullptr, 0, nullptr), -1);
  EXPECT_EQ(OpenEditor(L"", Handle(kWindow), 0, nullptr), 1);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Received(Pid(1), 1).size(), 1u);
}

TEST_F(Exports, OpenEditorCarriesItsArgumentsAndRefillsTheSlot) {
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 7, L"eA==");
  EXPECT_EQ(OpenEditor(L"C:\\b.png", Handle(kWindow), 8, nullptr), id);
  ASSERT_TRUE(DrainQueue());
  std::vector<std::string> texts;
  for (const auto& [pid, received] : sim::AllReceivedTexts()) {
    texts.push_back(received.text);
  }
  ASSERT_EQ(texts.size(), 3u); // open, the close of the replaced one, open
  EXPECT_NE(texts[0].find("\"open_type\":7,\"param\":\"eA==\",\"path\":\"C:\\\\a.png\""), std::string::npos)
      << texts[0];
  EXPECT_NE(texts[1].find("\"type\":\"close\""), std::string::npos);
  EXPECT_NE(texts[2].find("\"open_type\":8,\"param\":\"\",\"path\":\"C:\\\\b.png\""), std::string::npos) << texts[2];
  EXPECT_EQ(StartedPrograms(), 4); // for the first open, one of each to wait, and the successor of the one taken
}

TEST_F(Exports, AnEventBeforeTheRegistrationIsLost) {
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  ASSERT_TRUE(DrainQueue());
  Engine()->SetCallback(id, Recorder(), this);
  EXPECT_TRUE(Events().empty());
  SetWindowsPos(id, 0, 0, 1, 1);
  ASSERT_TRUE(WaitForEvents(1)); // the move's, and nothing of the open's
  EXPECT_EQ(Events().size(), 1u);
}

TEST_F(Exports, OperationsReachTheEditorOfTheirId) {
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  ASSERT_TRUE(DrainQueue());
  FullScreen(id, false);
  SetWindowsPos(id, -1, 2, 3, 4);
  ChangeThemeMode(true);
  ChangeThemeMode(false);
  EXPECT_TRUE(OperatePic(id, 5));
  EXPECT_TRUE(DoBrowserCommand(id, 6));
  EXPECT_FALSE(IsClose(id));
  EXPECT_FALSE(CloseEditor(id, true));
  EXPECT_TRUE(IsClose(id));
  ASSERT_TRUE(DrainQueue());
  const std::string head = "\"id\":1,\"";
  const std::string pid = "\"process_id\":" + std::to_string(Pid(id)) + ",\"status\":";
  const auto texts = Received(Pid(id), 8);
  EXPECT_EQ(std::vector(texts.begin() + 1, texts.end()),
            (std::vector<std::string>{
                "{" + head + "isFullScreen\":false," + pid + "false,\"type\":\"fullscreen\"}",
                "{\"h\":4," + head.substr(0, 7) + pid + "true,\"type\":\"setpos\",\"w\":3,\"x\":-1,\"y\":2}",
                "{" + head.substr(0, 7) + pid + "true,\"theme_mode\":2,\"type\":\"change_theme_mode\"}",
                "{" + head.substr(0, 7) + pid + "true,\"theme_mode\":1,\"type\":\"change_theme_mode\"}",
                "{" + head + "operator\":5," + pid + "true,\"type\":\"operator\"}",
                "{" + head + "operator\":6," + pid + "true,\"type\":\"browser_command\"}",
                "{\"closeall\":true," + head + "operator\":0," + pid + "true,\"type\":\"close\"}",
            }));
}

TEST_F(Exports, OperationsOnAFinishedIdAreRefused) {
  Probe().SetFinished(9);
  EXPECT_FALSE(CloseEditor(9, false));
  EXPECT_FALSE(OperatePic(9, 1));
  EXPECT_FALSE(DoBrowserCommand(9, 1));
  EXPECT_TRUE(IsClose(9));
}

TEST_F(Exports, AChangedThemeBeforeAnyOpenReachesNobody) {
  VexelSDK_Init(nullptr);
  ASSERT_TRUE(DrainQueue());
  ChangeThemeMode(true);
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(sim::AllReceivedTexts().empty());
  EXPECT_EQ(VexelSDK_UnInit(), 1);
}

TEST_F(Exports, TheThemeGoesToEveryIdInTheTableZeroIncluded) {
  LogAt(vx::LOG_INFO);
  VexelSDK_Init(nullptr); // enters id 0
  ASSERT_TRUE(DrainQueue());
  Probe().GetPidById(5);
  ChangeThemeMode(true);
  ASSERT_TRUE(DrainQueue());
  std::vector<std::string> themes;
  for (const std::string& line : LogLines()) {
    if (line.find("m_op(SDK_Operator)=22") != std::string::npos) {
      themes.push_back(line);
    }
  }
  EXPECT_EQ(themes, (std::vector<std::string>{"VexelSDKThread::DoOperator m_op(SDK_Operator)=22, m_id=0, m_pid=0",
                                              "VexelSDKThread::DoOperator m_op(SDK_Operator)=22, m_id=5, m_pid=0"}));
  VexelSDK_UnInit();
}

TEST_F(Exports, AnIdNeverSeenIsNotClosed) { EXPECT_FALSE(IsClose(4711)); }

TEST_F(Exports, PreviewIsAlwaysValid) {
  EXPECT_TRUE(IsPreviewValid());
  VexelSDK_Init(nullptr);
  EXPECT_TRUE(IsPreviewValid());
  VexelSDK_UnInit();
  EXPECT_TRUE(IsPreviewValid());
}

TEST_F(Exports, SwitchesAnswerWithoutAnEngine) {
  VexelSDKThread::DestroyInstance(Engine());
  const int events = sim::OpenedHandles(sim::HandleKind::kEvent);
  EXPECT_EQ(GetSwitchValue(nullptr), -100);
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), -101);
  EXPECT_FALSE(IsSupportPreview());
  EXPECT_FALSE(sim::KeyExists(platform::kHkeyCurrentUser, kSwitchKey)); // never made here
  sim::SetDword(platform::kHkeyCurrentUser, kSwitchKey, L"OpenPIC_enable", 2);
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), 2);
  EXPECT_FALSE(IsSupportPreview());
  sim::SetDword(platform::kHkeyCurrentUser, kSwitchKey, L"OpenPIC_enable", 1);
  EXPECT_TRUE(IsSupportPreview());
  sim::SetText(platform::kHkeyCurrentUser, kSwitchKey, L"OpenPIC_enable", L"1");
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), -1);
  EXPECT_FALSE(IsSupportPreview());
  sim::SetDword(platform::kHkeyCurrentUser, kSwitchKey, L"Stored", 0xFFFFFF9Cu);
  EXPECT_EQ(GetSwitchValue("Stored"), -100);
  EXPECT_EQ(GetSwitchValue("Missing"), -1);
  EXPECT_EQ(GetSwitchValue(""), -1);
  std::array<wchar_t, 399> buffer;
  GetPicSupportFileExtensions(buffer.data(), 399);
  ReleaseCallbackData(nullptr);
  EXPECT_EQ(sim::OpenedHandles(sim::HandleKind::kEvent), events);
}

TEST_F(Exports, AnyThreadMayCallAnyOfThem) {
  sim::SetClockSpeed(1000); // the pauses of some hundred records
  std::vector<std::thread> threads;
  for (int t = 0; t < 16; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 3; ++i) {
        const VexelWindow window = Handle(0x5000u + static_cast<unsigned>(t));
        const std::int32_t id = OpenEditor(L"C:\\a.png", window, 0, nullptr);
        SetBrowserCallback(
            id, [](char* text, void*) { ReleaseCallbackData(text); }, window);
        SetWindowsPos(id, 0, 0, 1, 1);
        OperatePic(id, i);
        IsClose(id);
        if (i == 0) {
          ChangeThemeMode(false);
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(Engine()->AllocateEditorId(0x5000), Engine()->AllocateEditorId(0x5000));
}

} // namespace
