#pragma once

#include "foundation/paths.h"
#include "foundation/unique_handle.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

// Files for tests, through the same door as the code under test.
namespace test {

/// A folder of one test's own below the user's local application data, gone with everything in it at the end.
class FreshFolder {
public:
  FreshFolder() {
    static int count = 0;
    m_path = vx::GetSpecialFolder(platform::kCsidlLocalAppData, nullptr) + L"foundation-test-" +
             std::to_wstring(platform::GetCurrentProcessId()) + L"-" + std::to_wstring(platform::GetTickCount64()) +
             L"-" + std::to_wstring(++count) + L"\\";
    EXPECT_FALSE(vx::DirectoryExists(m_path));
    EXPECT_TRUE(vx::CreateDirectoryTree(m_path));
  }
  ~FreshFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  FreshFolder(const FreshFolder&) = delete;
  FreshFolder& operator=(const FreshFolder&) = delete;

  /// The full path of something in the folder.
  [[nodiscard]] std::wstring Path(const std::wstring& name) const { return m_path + name; }

private:
  std::wstring m_path;
};

inline bool Exists(const std::wstring& path) {
  return platform::GetFileAttributesW(path.c_str()) != platform::kInvalidFileAttributes;
}

inline void WriteBytes(const std::wstring& path, std::string_view bytes) {
  const vx::UniqueFile file(platform::CreateFileW(path.c_str(), platform::kGenericWrite, 0, platform::kCreateAlways,
                                                  platform::kFileAttributeNormal));
  ASSERT_TRUE(file);
  std::uint32_t done = 0;
  ASSERT_TRUE(platform::WriteFile(file.Get(), bytes.data(), static_cast<std::uint32_t>(bytes.size()), &done));
  ASSERT_EQ(done, bytes.size());
}

/// A file's bytes, also while others have it open; empty when there is none.
inline std::string ReadBytes(const std::wstring& path) {
  const vx::UniqueFile file(platform::CreateFileW(path.c_str(), platform::kGenericRead,
                                                  platform::kFileShareRead | platform::kFileShareWrite,
                                                  platform::kOpenExisting, 0));
  std::int64_t size = 0;
  if (!file || !platform::GetFileSizeEx(file.Get(), &size)) {
    return {};
  }
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::uint32_t done = 0;
  EXPECT_TRUE(platform::ReadFile(file.Get(), bytes.data(), static_cast<std::uint32_t>(size), &done));
  bytes.resize(done);
  return bytes;
}

} // namespace test
