#include "include/vexelsdk.h"

#include "foundation/logger.h"
#include "platform/registry.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/handles.h"
#include "tests/sim/registry.h"
#include "tests/sim/sync.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace {

constexpr wchar_t kSwitchKey[] = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";
constexpr wchar_t kPreviewSwitch[] = L"OpenPIC_enable";
constexpr wchar_t kMutexName[] = L"{bdbc4e79-d9a7-473f-b0bb-48ab50548842}";

VexelWindow Handle(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

bool MutexExists() {
  const auto names = sim::MutexNames();
  return std::find(names.begin(), names.end(), kMutexName) != names.end();
}

/// Exports in a world with editors, at first without an engine.
class ExportAnswers : public EngineTest {
protected:
  ExportAnswers() {
    sim::InstallEditors();
    VexelSDKThread::DestroyInstance(Engine());
  }

  /// Whether an engine stands: it owns events as long as it lives.
  static bool EngineStands() { return sim::OpenHandles(sim::HandleKind::kEvent) > 0; }
};

TEST_F(ExportAnswers, InitMakesTheNamedMutexAndNeverOwnsIt) {
  EXPECT_FALSE(MutexExists());
  EXPECT_EQ(VexelSDK_Init(nullptr), 1);
  EXPECT_TRUE(MutexExists());
  EXPECT_FALSE(sim::MutexIsOwned(kMutexName));
  ASSERT_TRUE(DrainQueue());
  EXPECT_FALSE(sim::MutexIsOwned(kMutexName));
  EXPECT_EQ(VexelSDK_UnInit(), 1);
  EXPECT_FALSE(MutexExists());
}

TEST_F(ExportAnswers, InitPreloadsWhereAnotherProcessOwnsTheName) {
  const sim::ForeignMutex other(kMutexName);
  EXPECT_EQ(VexelSDK_Init(nullptr), 1);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 2);
  EXPECT_EQ(VexelSDK_UnInit(), 1);
  EXPECT_TRUE(sim::MutexIsOwned(kMutexName));
}

TEST_F(ExportAnswers, InitPreloadsWithoutAMutexAndUnInitThenClosesNone) {
  sim::FailNth("CreateMutexW", 1);
  EXPECT_EQ(VexelSDK_Init(nullptr), 1);
  EXPECT_EQ(sim::FaultsFired("CreateMutexW"), 1);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 2);
  const int closed = sim::ClosedHandles(sim::HandleKind::kMutex);
  EXPECT_EQ(VexelSDK_UnInit(), 1);
  EXPECT_EQ(sim::ClosedHandles(sim::HandleKind::kMutex), closed);
  EXPECT_EQ(sim::BadCloses(), 0);
}

struct EngineRow {
  const char* name;
  void (*call)();
  bool builds;
};

void PrintTo(const EngineRow& row, std::ostream* out) { *out << row.name; }

class ExportEngine : public ExportAnswers, public testing::WithParamInterface<EngineRow> {};

TEST_P(ExportEngine, IsBuiltByTheCallsThatNeedItBeforeAndAfterATeardown) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_FALSE(EngineStands());
    GetParam().call();
    EXPECT_EQ(EngineStands(), GetParam().builds);
    EXPECT_EQ(StartedPrograms(), 0) << "no call starts a program by itself";
    sim::SetClockSpeed(20);
    VexelSDKThread::DestroyInstance(Engine());
    sim::SetClockSpeed(1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, ExportEngine,
    testing::Values(
        EngineRow{"FullScreen", [] { FullScreen(1, true); }, true},
        EngineRow{"SetWindowsPos", [] { SetWindowsPos(1, 2, 3, 4, 5); }, true},
        EngineRow{"ChangeThemeMode", [] { ChangeThemeMode(true); }, true},
        EngineRow{"CloseEditor", [] { EXPECT_FALSE(CloseEditor(1, true)); }, true},
        EngineRow{"IsClose", [] { EXPECT_FALSE(IsClose(1)); }, true},
        EngineRow{"OperatePic", [] { EXPECT_TRUE(OperatePic(1, 2)); }, true},
        EngineRow{"DoBrowserCommand", [] { EXPECT_TRUE(DoBrowserCommand(1, 2)); }, true},
        EngineRow{"SetBrowserCallback", [] { SetBrowserCallback(1, nullptr, nullptr); }, true},
        EngineRow{"OpenEditorWithoutAPath", [] { EXPECT_EQ(OpenEditor(nullptr, Handle(9), 0, nullptr), -1); }, false},
        EngineRow{"OpenEditorWithoutAWindow", [] { EXPECT_EQ(OpenEditor(L"a", nullptr, 0, nullptr), -1); }, false},
        EngineRow{"GetPicSupportFileExtensions", [] { EXPECT_EQ(GetPicSupportFileExtensions(nullptr, 0), 0); }, false},
        EngineRow{"IsSupportPreview", [] { EXPECT_FALSE(IsSupportPreview()); }, false},
        EngineRow{"IsPreviewValid", [] { EXPECT_TRUE(IsPreviewValid()); }, false},
        EngineRow{"GetSwitchValue", [] { EXPECT_EQ(GetSwitchValue("a"), -101); }, false},
        EngineRow{"ReleaseCallbackData", [] { ReleaseCallbackData(NewCallbackText("a")); }, false}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ExportAnswers, TheExtensionListIsThisOne) {
  const std::vector<std::wstring> names{
      L"jpg",  L"jxr",  L"wdp",   L"hdp", L"pcd",  L"pcx", L"xbm", L"bmp",  L"pfm",  L"cut", L"iff", L"lbm",  L"xpm",
      L"pct",  L"pict", L"pic",   L"j2k", L"j2c",  L"jng", L"png", L"dds",  L"jp2",  L"pbm", L"pgm", L"ppm",  L"psd",
      L"exr",  L"jif",  L"jpeg",  L"jpe", L"cmp",  L"jff", L"jfi", L"jfif", L"jiff", L"jtf", L"g3",  L"ras",  L"hdr",
      L"koa",  L"3fr",  L"arw",   L"bay", L"cine", L"cr2", L"crw", L"cs1",  L"dc2",  L"dcr", L"drf", L"dsc",  L"dng",
      L"erf",  L"fff",  L"ia",    L"iiq", L"k25",  L"kc2", L"kdc", L"mdc",  L"mef",  L"mos", L"mrw", L"nef",  L"nrw",
      L"orf",  L"pef",  L"ptx",   L"pxn", L"qtk",  L"raf", L"raw", L"rdc",  L"rw2",  L"rwl", L"rwz", L"sr2",  L"srf",
      L"srw",  L"sti",  L"x3f",   L"gif", L"mng",  L"sgi", L"rgb", L"rgba", L"bw",   L"ico", L"wap", L"wbmp", L"wbm",
      L"webp", L"tga",  L"targa", L"tif", L"tiff", L"tim", L"g4"};
  ASSERT_EQ(names.size(), 98u);
  std::wstring list;
  for (const std::wstring& name : names) {
    list += (list.empty() ? L"" : L"|") + name;
  }
  ASSERT_EQ(list.size(), 398u);
  constexpr wchar_t kUntouched = L'#';
  for (const std::uint32_t size : {1u, 2u, 3u, 4u, 397u, 398u, 399u, 400u, 1000u}) {
    std::wstring buffer(1001, kUntouched);
    const bool whole = size >= 399;
    const std::size_t length = whole ? 398 : size - 1;
    EXPECT_EQ(GetPicSupportFileExtensions(buffer.data(), size), whole ? 1 : 0) << size;
    EXPECT_EQ(buffer.substr(0, length), list.substr(0, length)) << size;
    EXPECT_EQ(buffer[length], L'\0') << size;
    EXPECT_EQ(buffer.find_first_not_of(kUntouched, length + 1), std::wstring::npos) << size;
  }
}

struct SwitchRow {
  const char* name;
  std::uint32_t type;
  std::string bytes;
  std::int32_t value;
  bool preview;
};

void PrintTo(const SwitchRow& row, std::ostream* out) { *out << row.name; }

class ExportSwitch : public ExportAnswers, public testing::WithParamInterface<SwitchRow> {};

TEST_P(ExportSwitch, CountsOnlyANumberOfFourBytes) {
  const SwitchRow& row = GetParam();
  sim::SetBytes(platform::kHkeyCurrentUser, kSwitchKey, kPreviewSwitch, row.type, row.bytes);
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), row.value);
  EXPECT_EQ(IsSupportPreview(), row.preview);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kRegistryKey), 0);
}

constexpr std::uint32_t kNoType = 0;
constexpr std::uint32_t kText = 1;
constexpr std::uint32_t kBinary = 3;
constexpr std::uint32_t kDword = 4;
constexpr std::uint32_t kBigEndian = 5;
constexpr std::uint32_t kQword = 11;

INSTANTIATE_TEST_SUITE_P(Each, ExportSwitch,
                         testing::Values(SwitchRow{"One", kDword, std::string("\1\0\0\0", 4), 1, true},
                                         SwitchRow{"Zero", kDword, std::string(4, '\0'), 0, false},
                                         SwitchRow{"Two", kDword, std::string("\2\0\0\0", 4), 2, false},
                                         SwitchRow{"OneAndMore", kDword, std::string("\1\1\0\0", 4), 257, false},
                                         SwitchRow{"MinusOne", kDword, "\xFF\xFF\xFF\xFF", -1, false},
                                         SwitchRow{"MinusHundred", kDword, "\x9C\xFF\xFF\xFF", -100, false},
                                         SwitchRow{"MinusHundredAndOne", kDword, "\x9B\xFF\xFF\xFF", -101, false},
                                         SwitchRow{"Smallest", kDword, std::string("\0\0\0\x80", 4),
                                                   std::numeric_limits<std::int32_t>::min(), false},
                                         SwitchRow{"TooLong", kDword, std::string("\1\0\0\0\0\0\0\0", 8), -1, false},
                                         SwitchRow{"Bytes", kBinary, std::string("\1\0\0\0", 4), -1, false},
                                         SwitchRow{"ShortText", kText, std::string("1\0\0\0", 4), -1, false},
                                         SwitchRow{"Untyped", kNoType, std::string("\1\0\0\0", 4), -1, false},
                                         SwitchRow{"BigEndian", kBigEndian, std::string("\1\0\0\0", 4), -1, false},
                                         SwitchRow{"LongNumber", kQword, std::string("\1\0\0\0\0\0\0\0", 8), -1,
                                                   false}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(ExportAnswers, ASwitchThatIsNotThereIsNoMissingKey) {
  sim::AddKey(platform::kHkeyCurrentUser, kSwitchKey);
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), -1);
  EXPECT_EQ(GetSwitchValue(nullptr), -100);
  EXPECT_FALSE(IsSupportPreview());
}

TEST_F(ExportAnswers, ASwitchIsLookedUpByItsUtf8Name) {
  sim::SetDword(platform::kHkeyCurrentUser, kSwitchKey, L"gr\u00FC\u00DFe\u4E2D", 7);
  sim::SetDword(platform::kHkeyCurrentUser, kSwitchKey, L"", 41);
  EXPECT_EQ(GetSwitchValue("gr\xC3\xBC\xC3\x9F"
                           "e\xE4\xB8\xAD"),
            7);
  EXPECT_EQ(GetSwitchValue(""), 41); // the key's own value
}

TEST_F(ExportAnswers, ASwitchWhoseKeyOrValueIsRefusedReadsAsMissing) {
  sim::SetDword(platform::kHkeyCurrentUser, kSwitchKey, kPreviewSwitch, 1);
  sim::FailAlways("RegOpenKeyW", 5);
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), -101);
  EXPECT_FALSE(IsSupportPreview());
  sim::ClearFaults();
  sim::FailAlways("RegQueryValueExW", 5);
  EXPECT_EQ(GetSwitchValue("OpenPIC_enable"), -1);
  EXPECT_FALSE(IsSupportPreview());
  sim::ClearFaults();
  EXPECT_TRUE(IsSupportPreview());
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kRegistryKey), 0);
}

TEST_F(ExportAnswers, EachCallQueuesItsOwnOperator) {
  LogAt(vx::LOG_INFO);
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  ASSERT_TRUE(DrainQueue());
  FullScreen(id, true);
  SetWindowsPos(id, 1, 2, 3, 4);
  ChangeThemeMode(true);
  EXPECT_TRUE(OperatePic(id, 1));
  EXPECT_TRUE(DoBrowserCommand(id, 1));
  EXPECT_FALSE(CloseEditor(id, false));
  VexelSDK_Init(nullptr);
  const std::string head = "VexelSDKThread::DoOperator m_op(SDK_Operator)=";
  EXPECT_EQ(LogLinesOf("VexelSDKThread::DoOperator"),
            (std::vector<std::string>{head + "3, m_id=1, m_pid=0", head + "2, m_id=0, m_pid=0", // the open's preload
                                      head + "5, m_id=1, m_pid=0", head + "7, m_id=1, m_pid=0",
                                      head + "22, m_id=0, m_pid=0", head + "22, m_id=1, m_pid=0",
                                      head + "16, m_id=1, m_pid=0", head + "20, m_id=1, m_pid=0",
                                      head + "4, m_id=1, m_pid=0", head + "2, m_id=0, m_pid=0"}));
  ASSERT_TRUE(DrainQueue());
  const std::string pid = "\"process_id\":" + std::to_string(Pid(id));
  const auto texts = Received(Pid(id), 7);
  EXPECT_EQ(texts[0], "{\"id\":1,\"open_type\":0,\"param\":\"\",\"path\":\"C:\\\\a.png\"," + pid +
                          ",\"recover\":false,\"status\":true,\"tabwnd\":4097,\"type\":\"open\"}");
  EXPECT_EQ(texts[1], "{\"id\":1,\"isFullScreen\":true," + pid + ",\"status\":true,\"type\":\"fullscreen\"}");
  EXPECT_EQ(texts[6], "{\"closeall\":false,\"id\":1,\"operator\":0," + pid + ",\"status\":true,\"type\":\"close\"}");
  VexelSDK_UnInit();
}

TEST_F(ExportAnswers, AnOpenIsFollowedByAPreloadOfItsOwn) {
  VexelSDK_Init(nullptr);
  ASSERT_TRUE(DrainQueue());
  const auto waiting = StartedPids();
  const std::int32_t id = OpenEditor(L"C:\\a.png", Handle(kWindow), 0, nullptr);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Pid(id), waiting[0]);
  ASSERT_EQ(StartedPrograms(), 3);
  EXPECT_EQ(sim::StartedPrograms()[2].path, sim::kLauncherPath);
  VexelSDK_UnInit();
}

TEST_F(ExportAnswers, ACallbackIsRegisteredWithItsDataAndReplacedAsAPair) {
  int first = 0;
  int second = 0;
  const auto count = [](char* text, void* data) {
    ReleaseCallbackData(text);
    ++*static_cast<int*>(data);
  };
  EXPECT_TRUE(Probe().BindIdToPid(4711, 50)); // an id that was never given out will do
  SetBrowserCallback(4711, count, &first);
  Probe().SendBrowserMessage(4711, 50, "custom_message", "a");
  SetBrowserCallback(4711, count, &second);
  Probe().SendBrowserMessage(4711, 50, "custom_message", "b");
  SetBrowserCallback(4711, nullptr, &second);
  Probe().SendBrowserMessage(4711, 50, "custom_message", "c");
  SetBrowserCallback(4711, count, nullptr);
  Probe().SendBrowserMessage(4711, 50, "custom_message", "d");
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

} // namespace
