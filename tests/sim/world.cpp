#include "tests/sim/world.h"

#include <chrono>
#include <thread>

#include "tests/sim/file.h"
#include "tests/sim/process.h"
#include "tests/sim/text.h"

namespace sim {

bool WaitFor(const std::function<bool()>& condition, int seconds) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

std::wstring Wide(std::string_view utf8) { return internal::DecodeUtf8(utf8); }

std::string Narrow(std::wstring_view text) { return internal::EncodeUtf8(text); }

namespace internal {

void BuildWorld() {
  AddDrive(L"C:", {L"\\Device\\HarddiskVolume1"});
  AddDrive(L"D:", {L"\\Device\\HarddiskVolume10"});
  AddFolder(L"C:\\Windows\\System32");
  AddFolder(kLocalAppData);
  AddFile(kHostPath, "MZ");
  AddFile(kLibraryPath, "MZ");
  SetSpecialFolder(28, kLocalAppData);
  SetEnvironment(L"SystemRoot", L"C:\\Windows");
  SetEnvironment(L"LOCALAPPDATA", kLocalAppData);
  ProcessSpec host;
  host.path = kHostPath;
  host.pid = kHostPid;
  StartProcess(host);
}

} // namespace internal
} // namespace sim
