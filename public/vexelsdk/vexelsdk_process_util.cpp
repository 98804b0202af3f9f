#include "public/vexelsdk/vexelsdk_process_util.h"

#include "foundation/logger.h"
#include "foundation/text_codecs.h"
#include "foundation/unique_handle.h"
#include "platform/error.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "public/vexelsdk/process_inventory.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace VexelSdkProcessUtil {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the expected path is the function's own, as in IsProcessUsable.
bool IsProcessValid(std::uint32_t pid, std::wstring expected) {
  if (pid == 0) {
    return false;
  }
  const std::wstring path = GetProcessPath(pid);
  if (IsPathRunning(path.c_str(), 1) == 0) {
    SDKLOG(LOG_INFO) << L"process is not running, pid=" << pid << L", path=" << expected;
    return false;
  }
  if (!IsSamePath(path, expected)) {
    SDKLOG(LOG_WARNING) << L"process path not match, pid=" << pid << L", path=" << expected;
    return false;
  }
  return true;
}

bool IsProcessUsable(std::uint32_t pid, std::wstring expected) {
  if (!IsProcessValid(pid, std::move(expected))) {
    return false;
  }
  if (!platform::IsUserAnAdmin()) {
    return true;
  }
  return IsProcessElevated(pid);
}

bool IsProcessElevated(std::uint32_t pid) {
  // Both handles deliberately stay open for the life of the host: the process id can't pass to another program then.
  const platform::Handle process = platform::OpenProcess(platform::kProcessQueryInformation, pid);
  if (process == nullptr) {
    return false;
  }
  platform::Handle token = nullptr;
  if (!platform::OpenProcessToken(process, platform::kTokenQuery, &token) || token == nullptr) {
    return false;
  }
  std::uint32_t elevation = 0;
  return platform::GetTokenElevation(token, &elevation) && elevation != 0;
}

std::uint32_t CreateProcessBy(const std::wstring& path, const std::wstring& args, std::uint32_t& pid) {
  std::wstring commandText = L"\"" + path + L"\" " + args;
  std::uint32_t childPid = 0;
  platform::Handle process = nullptr;
  platform::Handle thread = nullptr;
  if (!platform::CreateProcessW(commandText.data(), &childPid, &process, &thread)) {
    SDKLOG(LOG_INFO) << L"CreateProcessW failed: " << platform::GetLastError();
    return platform::GetLastError();
  }
  platform::CloseHandle(process);
  platform::CloseHandle(thread);
  pid = childPid;
  SDKLOG(LOG_INFO) << L"Process: " << childPid;
  return platform::kErrorSuccess;
}

std::uint64_t GetProcessCreateTime(std::uint32_t pid) {
  const platform::Handle process = platform::OpenProcess(platform::kProcessQueryInformation, pid);
  if (process == nullptr) {
    return 0;
  }
  platform::FileTime created{};
  const bool read = platform::GetProcessCreationTime(process, &created);
  platform::CloseHandle(process);
  if (!read || (created.low == 0 && created.high == 0)) {
    return 0;
  }

  platform::FileTime local{};
  platform::SystemTime parts{};
  if (!platform::FileTimeToLocalFileTime(created, &local) || !platform::FileTimeToSystemTime(local, &parts)) {
    return 0;
  }
  std::tm time{};
  time.tm_sec = parts.second;
  time.tm_min = parts.minute;
  time.tm_hour = parts.hour;
  time.tm_mday = parts.day;
  time.tm_mon = parts.month - 1;
  time.tm_year = parts.year - 1900;
  time.tm_wday = parts.dayOfWeek;
  return static_cast<std::uint64_t>(std::mktime(&time));
}

bool IsSamePath(const std::wstring& left, const std::wstring& right) {
  std::wstring first = left;
  std::wstring second = right;
  NormalizeComparePath(first);
  NormalizeComparePath(second);
  return first.size() == second.size() && vx::EqualsIgnoreCase(first, second);
}

void NormalizeComparePath(std::wstring& path) {
  std::replace(path.begin(), path.end(), L'/', L'\\');
  std::size_t start = path.find(L'\\');
  while (start != std::wstring::npos) {
    const std::size_t end = std::min(path.find_first_not_of(L'\\', start), path.size());
    if (end - start >= 2) {
      path.replace(start, end - start, 1, L'\\');
    }
    // `end` counts in the longer text of before: what the run has lost is skipped behind it.
    start = path.find(L'\\', end);
  }
  path.erase(path.find_last_not_of(L'\\') + 1);
}

} // namespace VexelSdkProcessUtil
