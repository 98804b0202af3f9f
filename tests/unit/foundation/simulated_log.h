#pragma once

#include "foundation/logger.h"
#include "tests/sim/file.h"
#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace test {

inline constexpr const wchar_t* kLogPath = L"C:\\Host\\log\\browser.vexelsdk.dll.log";
inline constexpr const wchar_t* kLogLock = L"Global\\C:/Host/log/browser.vexelsdk.dll.log";

/// A fresh simulated system, with a log in its fixed place that has not started.
class SimulatedLog : public testing::Test {
protected:
  SimulatedLog() { vx::ResetLogger({}); }
  ~SimulatedLog() override { vx::ResetLogger({}); }

  sim::World m_world;
};

/// One statement.
inline void Log(std::string_view words) { SDKLOG(LOG_INFO) << words; }

/// What Log wrote to a file, line by line; a line in any other form as it stands.
inline std::vector<std::string> LoggedWords(const std::wstring& path = kLogPath) {
  constexpr std::string_view kName = "] test::Log ";
  constexpr std::string_view kEnd = "\r\n";
  std::vector<std::string> words;
  const std::string bytes = sim::FileBytes(path);
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = bytes.find(kEnd, at);
    const std::string line = bytes.substr(at, end == std::string::npos ? end : end - at);
    const std::size_t name = line.find(kName);
    const bool whole = end != std::string::npos && line.front() == '[' && name != std::string::npos;
    words.push_back(whole ? line.substr(name + kName.size()) : line);
    at = end == std::string::npos ? bytes.size() : end + kEnd.size();
  }
  return words;
}

} // namespace test
