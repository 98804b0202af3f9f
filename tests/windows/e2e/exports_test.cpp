#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace sdktest;

class Exports : public SdkTest {
protected:
  /// The registry's value of a switch, of any type.
  void SetSwitch(const std::wstring& name, DWORD type, const std::string& bytes) {
    Folder().SetRegistry(L"user", kSwitchesKey, name, type, bytes);
  }
  void SetSwitchNumber(const std::wstring& name, std::uint32_t value) {
    Folder().SetRegistryNumber(L"user", kSwitchesKey, name, value);
  }
};

TEST_F(Exports, AllSixteenResolveByName) {
  KeepFolderBare();
  Folder().Add(L"testhost.exe");
  Folder().Add(L"vexelsdk.dll");
  StartHost(); // which holds that sixteen are found
  EXPECT_EQ(Host().Ask("unload"), 1);
}

TEST_F(Exports, ExtensionListFits399Units) {
  StartHost();
  const std::vector<std::string> words = wire::Words(Host().Do("extensions 399"));
  ASSERT_EQ(words.size(), 4U);
  EXPECT_EQ(words[1], "1");
  EXPECT_EQ(words[2], "399");
  const std::wstring list = wire::Decode(words[3]).value_or(L"");
  EXPECT_EQ(list.size(), 398U);
  EXPECT_EQ(std::count(list.begin(), list.end(), L'|'), 97);
  EXPECT_TRUE(list.starts_with(L"jpg|jxr|wdp|"));
  EXPECT_TRUE(list.ends_with(L"|tiff|tim|g4"));
}

TEST_F(Exports, ShortBufferTakesTheBeginningOfTheExtensionList) {
  StartHost();
  const std::wstring whole = wire::Decode(wire::Words(Host().Do("extensions 1000"))[3]).value_or(L"");
  const std::vector<std::string> words = wire::Words(Host().Do("extensions 398"));
  EXPECT_EQ(words[1], "0");
  EXPECT_EQ(words[2], "398");
  EXPECT_EQ(wire::Decode(words[3]), whole.substr(0, 397));
  EXPECT_EQ(Host().Do("extensions 1"), "value 0 1 @empty");
}

TEST_F(Exports, NoBufferTakesNothingOfTheExtensionList) {
  StartHost();
  EXPECT_EQ(Host().Do("extensions 0"), "value 0 0 @empty");
  EXPECT_EQ(Host().Do("extensions null"), "value 0 0 @null");
}

TEST_F(Exports, OpenEditorWithoutPathOrWindowUsesNoId) {
  StartHost();
  const std::int64_t window = Host().Ask("window");
  EXPECT_EQ(Host().Ask("open " + std::to_string(window) + " @null 0 @null"), -1);
  EXPECT_EQ(Host().Ask("open 0 x.png 0 @null"), -1);
  EXPECT_EQ(Host().Ask("open " + std::to_string(window) + " @empty 0 @null"), 1);
}

TEST_F(Exports, WindowKeepsItsIdWhileTheEditorLives) {
  StartHost();
  const Opened opened = OpenAndWait();
  EXPECT_EQ(opened.id, 1);
  EXPECT_EQ(Open(opened.window, Picture()), opened.id);
  EXPECT_EQ(Open(Host().Ask("window"), Picture()), 2);
}

TEST_F(Exports, WindowGetsANewIdAfterAClose) {
  StartHost();
  const Opened opened = OpenAndWait();
  EXPECT_EQ(Host().Ask("isclose 1"), 0);
  EXPECT_EQ(Host().Ask("close 1"), 0);
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  EXPECT_EQ(Open(opened.window, Picture()), 2);
  EXPECT_EQ(Host().Ask("isclose 2"), 0);
  EXPECT_EQ(Host().Ask("isclose 77"), 0);
}

TEST_F(Exports, IsPreviewValidNeedsNoEngine) {
  StartHost();
  EXPECT_EQ(Host().Do("preview"), "value 1 0");
  EXPECT_EQ(Host().Ask("init"), 1);
  EXPECT_EQ(Host().Do("preview"), "value 1 0");
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_EQ(Host().Do("preview"), "value 1 0");
}

TEST_F(Exports, SwitchWithoutTheKeyIsMinus101) {
  StartHost();
  EXPECT_EQ(Host().Ask("switch OpenPIC_enable"), -101);
  EXPECT_EQ(Host().Ask("switch @null"), -100);
}

TEST_F(Exports, SwitchGivesWhatIsStoredAsANumber) {
  const std::wstring text = L"1";
  SetSwitch(L"text", REG_SZ, std::string(reinterpret_cast<const char*>(text.c_str()), 4));
  SetSwitch(L"wide", REG_QWORD, std::string(8, '\1'));
  SetSwitch(L"bytes", REG_BINARY, std::string(4, '\1'));
  SetSwitchNumber(L"two", 2);
  SetSwitchNumber(L"minus", 0xFFFFFFFFU);
  SetSwitchNumber(L"minus101", static_cast<std::uint32_t>(-101));
  SetSwitchNumber(L"gr\u00FC\u00DFe", 7);
  StartHost();
  EXPECT_EQ(Host().Ask("switch two"), 2);
  EXPECT_EQ(Host().Ask("switch TWO"), 2);
  EXPECT_EQ(Host().Ask("switch text"), -1);
  EXPECT_EQ(Host().Ask("switch wide"), -1);
  EXPECT_EQ(Host().Ask("switch bytes"), -1);
  EXPECT_EQ(Host().Ask("switch missing"), -1);
  EXPECT_EQ(Host().Ask("switch minus"), -1);
  EXPECT_EQ(Host().Ask("switch minus101"), -101);
  EXPECT_EQ(Host().Ask("switch " + wire::Encode(L"gr\u00FC\u00DFe")), 7);
  EXPECT_EQ(Host().Ask("switch @null"), -100);
}

TEST_F(Exports, SwitchWithAnEmptyNameIsTheDefaultValue) {
  SetSwitchNumber(L"", 41);
  StartHost();
  EXPECT_EQ(Host().Ask("switch @empty"), 41);
  SetSwitch(L"", REG_SZ, std::string("x\0\0\0", 4));
  EXPECT_EQ(Host().Ask("switch @empty"), -1);
}

TEST_F(Exports, PreviewIsSupportedForExactlyOne) {
  StartHost();
  EXPECT_EQ(Host().Do("preview"), "value 1 0");
  SetSwitchNumber(L"OpenPIC_enable", 1);
  EXPECT_EQ(Host().Do("preview"), "value 1 1");
  SetSwitchNumber(L"OpenPIC_enable", 2);
  EXPECT_EQ(Host().Do("preview"), "value 1 0");
  EXPECT_EQ(Host().Ask("switch OpenPIC_enable"), 2);
  SetSwitch(L"OpenPIC_enable", REG_SZ, std::string("1\0\0\0", 4));
  EXPECT_EQ(Host().Do("preview"), "value 1 0");
  EXPECT_EQ(Host().Ask("switch OpenPIC_enable"), -1);
}

TEST_F(Exports, NamedMutexLivesFromInitToUnInit) {
  StartHost();
  EXPECT_EQ(Host().Ask("mutexes"), 0);
  EXPECT_EQ(Host().Ask("init"), 1);
  EXPECT_EQ(Host().Ask("mutexes"), 1);
  const HANDLE mutex = OpenMutexW(SYNCHRONIZE, FALSE, L"{bdbc4e79-d9a7-473f-b0bb-48ab50548842}");
  EXPECT_NE(mutex, nullptr);
  CloseHandle(mutex);
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_EQ(Host().Ask("mutexes"), 0);
}

TEST_F(Exports, SixteenThreadsAtOnceGetTheirOwnAnswers) {
  StartHost();
  EXPECT_EQ(Host().Ask("crowd 16 5 100"), 0);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(Exports, SixteenOpensAtOnceGetSixteenIds) {
  StartHost();
  std::vector<std::string> words = wire::Words(Host().Do("crowdopen 16"));
  words.erase(words.begin());
  std::set<int> ids;
  for (const std::string& word : words) {
    ids.insert(std::stoi(word));
  }
  EXPECT_EQ(ids.size(), 16U);
  EXPECT_EQ(*ids.begin(), 1);
  EXPECT_EQ(*ids.rbegin(), 16);
}

TEST_F(Exports, LoadingStartsNoProgram) {
  StartHost();
  Host().Do("preview");
  Host().Do("extensions 399");
  EXPECT_EQ(ProgramsUnder(Folder().Path()).size(), 1U) << "the host alone";
  EXPECT_TRUE(Folder().Log().empty());
}

} // namespace
