#include "foundation/logger.h"

#include "foundation/text_codecs.h"
#include "platform/error.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace {

std::atomic<int> g_untilFailure{0}; // allocations left, the last of which fails; 0 when none is to

} // namespace

void* operator new(std::size_t size) {
  const int left = g_untilFailure.load(std::memory_order_relaxed);
  if (left > 0 && g_untilFailure.fetch_sub(1, std::memory_order_relaxed) == 1) {
    throw std::bad_alloc();
  }
  void* const block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

// Not inlined, or the compiler sees a block from `new` go to `free` and takes it for a mistake.
__attribute__((noinline)) void operator delete(void* block) noexcept { std::free(block); }

__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace {

TEST(Memory, WhatIsMissingNeverReachesALogSite) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"test.log");
  const std::string narrow(2000, 'n');
  const std::wstring wide(2000, L'w');
  bool failed = true;
  for (int nth = 1; failed; ++nth) {
    ASSERT_LT(nth, 200);
    platform::DeleteFileW(path.c_str());
    vx::ResetLogger({path, L"Software\\no such key of any program", nullptr});
    g_untilFailure = nth;
    platform::SetLastError(77);
    SDKLOG(LOG_INFO) << narrow << 1 << wide;
    const std::uint32_t lastError = platform::GetLastError();
    failed = g_untilFailure.exchange(0) <= 0;
    EXPECT_EQ(lastError, 77u) << nth;
    SDKLOG(LOG_INFO) << "after it";
    EXPECT_NE(test::ReadBytes(path).find("after it\r\n"), std::string::npos) << nth;
    vx::ResetLogger({});
  }
}

TEST(Memory, AConversionThatFindsNoneThrowsAndLeaksNothing) {
  const std::wstring wide(2000, L'w');
  g_untilFailure = 1;
  EXPECT_THROW(vx::NarrowText(wide.c_str(), platform::kCodePageUtf8), std::bad_alloc);
  g_untilFailure = 0;
}

} // namespace
