// What the host's memory and handles gain with each window, process and message: the tables and links live until the
// teardown, and a text without a callback is never given back. VEXEL_SOAK_GROWTH=N measures N of each, for figures.

#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"
#include "tests/windows/soak/usage.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

using namespace sdktest;
using namespace soak;

class Growth : public SdkTest {
protected:
  static std::int64_t Count(std::int64_t otherwise) {
    const char* const text = std::getenv("VEXEL_SOAK_GROWTH");
    return text == nullptr ? otherwise : std::strtoll(text, nullptr, 10);
  }

  static void Tell(const std::string& what, const Usage& before, const Usage& after, std::int64_t count) {
    std::cout << "growth with each " << what << " of " << count << ": " << DescribeGrowth(before, after, count)
              << std::endl;
  }

  /// Opens pictures of an application that there is not, each in a window of its own, and waits until all is done. The
  /// callback's registration is the test host's own and left out.
  void OpenNothing(std::int64_t first, std::int64_t count) {
    const std::size_t before = Folder().LogWith("data.m_op = SDK_PreLoadProcess").size();
    for (std::int64_t i = 0; i < count; ++i) {
      Host().Ask("open " + std::to_string(first + i) + " " + wire::Encode(Picture()) + " 0 " +
                 wire::Encode(Base64("/apptype:99")));
    }
    // One behind each open; the places of the waiting processes are full, so no process is started.
    WaitForLog("data.m_op = SDK_PreLoadProcess", before + static_cast<std::size_t>(count));
  }

  /// Lets an editor send `count` texts, and waits until the SDK has dealt with the last.
  void Flood(std::int64_t count, const std::string& mode) {
    Host().Do("setenv VEXEL_EDITOR_ZOO " + wire::Encode(L"flood=" + std::to_wstring(count)));
    const std::size_t before = Folder().LogWith("\"param\":\"" + std::to_string(count - 1) + "\"").size();
    m_last = OpenAndWait(); // the editor that waited is older than the variable
    WaitForPreload(++m_preloads);
    Host().Do("setenv VEXEL_EDITOR_ZOO @empty");
    Open(Host().Ask("window"), Picture(), L"", mode);
    WaitForPreload(++m_preloads);
    WaitForLog("\"param\":\"" + std::to_string(count - 1) + "\"", before + 1);
  }

  void Start() {
    StartHost();
    Host().Ask("init");
    WaitForPreload(2);
    m_preloads = 2;
    m_last = OpenAndWait();
    WaitForPreload(++m_preloads);
  }

  /// The emulated Wine for ARM64 keeps memory of its own in the host's heap for each process and thread, by turns some ten
  /// kilobytes. There, and only there, a figure of the heap is told and not held.
  static bool HeapIsWines() {
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    return system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_ARM64 &&
           GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
  }

  static void TellLeftOut(const std::string& limit, std::int64_t bytes) {
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    std::cout << "left out of " << test->test_suite_name() << '.' << test->name() << ": " << limit
              << " bytes of heap, because the emulated Wine keeps memory of its own there; " << bytes << " were seen"
              << std::endl;
  }

  static void ExpectHeapAtMost(std::int64_t bytes, std::int64_t limit) {
    if (HeapIsWines()) {
      TellLeftOut("at most " + std::to_string(limit), bytes);
      return;
    }
    EXPECT_LE(bytes, limit);
  }

  static void ExpectHeapAtLeast(std::int64_t bytes, std::int64_t limit) {
    if (HeapIsWines()) {
      TellLeftOut("at least " + std::to_string(limit), bytes);
      return;
    }
    EXPECT_GE(bytes, limit);
  }

  /// Handles of the links whose waiting processes come up only now.
  static constexpr std::int64_t kConnectMeanwhile = 16;

  Opened m_last{};
  std::size_t m_preloads = 0;
};

TEST_F(Growth, OfAProcessEndsWithTheTeardown) {
  const std::int64_t count = Count(10);
  StartHost();
  const Usage bare = AskUsage(Host());
  Host().Ask("init");
  WaitForPreload(2);
  Opened opened = OpenAndWait();
  WaitForPreload(3);
  const Usage before = AskUsage(Host());
  for (std::int64_t i = 0; i < count; ++i) {
    opened = OpenAndWaitIn(opened.window);
    WaitForPreload(static_cast<std::size_t>(i) + 4);
  }
  const Usage after = AskUsage(Host());
  Tell("process", before, after, count);
  EXPECT_LE(after.AllHandles() - before.AllHandles(), count * 14 + kConnectMeanwhile);
  ExpectHeapAtMost(after.heapBytes - before.heapBytes, count * 18 * 1024 + 64 * 1024);
  EXPECT_LE(after.threads - before.threads, count * 2 + 4);
  EXPECT_EQ(Host().Ask("uninit"), 1);
  const Usage rest = AskUsage(Host());
  Tell("process after the teardown", bare, rest, count + 3);
  EXPECT_LE(rest.OwnHandles(), bare.OwnHandles() + 16);
  EXPECT_LE(rest.threads, bare.threads + 4);
  // Something is taken once, by the system's libraries for the most part.
  ExpectHeapAtMost(rest.heapBytes - bare.heapBytes, 128 * 1024 + count * 1024);
}

TEST_F(Growth, OfAWindowIsItsPlaceInTheTables) {
  const std::int64_t count = Count(40);
  Start();
  OpenNothing(0x500000, 5);
  const Usage before = AskUsage(Host());
  OpenNothing(0x600000, count);
  const Usage after = AskUsage(Host());
  Tell("window", before, after, count);
  ExpectHeapAtMost(after.heapBytes - before.heapBytes, count * 1024 + 8 * 1024);
  EXPECT_LE(after.AllHandles() - before.AllHandles(), kConnectMeanwhile);
}

TEST_F(Growth, OfAMessageIsItsTextWhereNobodyTakesIt) {
  const std::int64_t count = Count(300);
  Start();
  Flood(count, "on");
  const Usage before = AskUsage(Host());
  Flood(count, "on");
  const Usage given = AskUsage(Host());
  Flood(count, "off");
  const Usage lost = AskUsage(Host());
  Tell("message that is given back (and two processes more)", before, given, count);
  const std::int64_t bytes = (lost.heapBytes - given.heapBytes) - (given.heapBytes - before.heapBytes);
  std::cout << "growth with each message that nobody takes: heap " << bytes / count << " B, text about 70 B"
            << std::endl;
  ExpectHeapAtMost(given.heapBytes - before.heapBytes, 64 * 1024);
  ExpectHeapAtMost(bytes, count * 256 + 16 * 1024);
  ExpectHeapAtLeast(bytes, count * 40); // a text without a callback stays
}

} // namespace
