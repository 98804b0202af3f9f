#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <string>
#include <vector>

namespace {

using namespace sdktest;

constexpr std::uint32_t kAccessViolation = 0xC0000005U;
constexpr unsigned long long kNullPageEnd = 0x10000;

/// A close without a link reads the link's process id for the log all the same.
class CloseWithoutALink : public SdkTest {
protected:
  std::string OpenClose() {
    return "openclose " + std::to_string(Host().Ask("window")) + " " + wire::Encode(Picture());
  }

  /// What "watchfaults" has told: an access near address 0, by the SDK.
  void ExpectFaultInTheSdk() {
    const std::vector<std::string> words = wire::Words(Host().WaitForNote("fault "));
    ASSERT_EQ(words.size(), 4U);
    EXPECT_EQ(words[1], "c0000005");
    EXPECT_LT(std::stoull(words[2], nullptr, 16), kNullPageEnd);
    EXPECT_EQ(words[3], "vexelsdk.dll");
  }
};

TEST_F(CloseWithoutALink, FaultsInTheLogLineRightAfterTheOpen) {
  StartHost();
  Host().Do("watchfaults");
  ASSERT_TRUE(Host().DoAndDie(OpenClose()));
  EXPECT_EQ(Host().WaitForExit(), kAccessViolation);
  ExpectFaultInTheSdk();
  EXPECT_FALSE(Folder().LogWith("m_op(SDK_Operator)=4, m_id=1").empty()) << "the line before it is written";
  EXPECT_TRUE(Folder().LogWith("helper is null").empty());
}

TEST_F(CloseWithoutALink, FaultsForAnIdThatWasNeverGiven) {
  StartHost();
  Host().Do("watchfaults");
  ASSERT_TRUE(Host().DoAndDie("close 4711"));
  EXPECT_EQ(Host().WaitForExit(), kAccessViolation);
  ExpectFaultInTheSdk();
}

TEST_F(CloseWithoutALink, FaultsWithNobodyWatching) {
  StartHost();
  Host().Ask("init");
  WaitForPreload(2);
  ASSERT_TRUE(Host().DoAndDie("close 1"));
  EXPECT_EQ(Host().WaitForExit(), kAccessViolation);
}

TEST_F(CloseWithoutALink, FinishesTheIdWhenTheLineIsNotWritten) {
  QuietLog();
  StartHost();
  EXPECT_EQ(Host().Do(OpenClose()), "value 1 0");
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  EXPECT_EQ(Host().Ask("operate 1 1"), 0);
  // The open is dropped, the preload behind it runs, and the next open is served.
  EXPECT_TRUE(WaitFor([&] {
    const std::string saved = ReadFileBytes(Folder().SavedPidsFile());
    return NumberAfter(saved, "\npid=") > 0 && NumberAfter(saved, "preview_pid=") > 0;
  }));
  const std::int64_t waiting = NumberAfter(ReadFileBytes(Folder().SavedPidsFile()), "preview_pid=");
  const Opened opened = OpenAndWait();
  EXPECT_EQ(opened.id, 2);
  EXPECT_EQ(opened.pid, waiting);
  EXPECT_TRUE(Host().Events(1).empty());
  EXPECT_EQ(Received().size(), 1U);
}

TEST_F(CloseWithoutALink, FinishesAnIdThatWasNeverGivenWhenTheLineIsNotWritten) {
  QuietLog();
  StartHost();
  EXPECT_EQ(Host().Ask("close 4711"), 0);
  EXPECT_EQ(Host().Ask("isclose 4711"), 1);
}

TEST_F(CloseWithoutALink, DoesNotFaultWithoutALog) {
  WriteFileBytes(Folder().Path() + L"log", "in the way");
  StartHost();
  EXPECT_EQ(Host().Do(OpenClose()), "value 1 0");
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  EXPECT_EQ(OpenAndWait().id, 2);
}

} // namespace
