#include "foundation/paths.h"
#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/reference.h"
#include "tests/sim/world.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

void CheckNative(const std::wstring& path) {
  std::wstring expected = path;
  bool usable = true;
  if (!path.empty() && path[0] == L'\\') {
    if (path.substr(0, 4) == L"\\??\\") {
      expected = path.substr(4);
    } else if (path.substr(0, 12) == L"\\SystemRoot\\") {
      expected = L"C:\\Windows" + path.substr(11);
    }
    usable = expected.size() >= 4 && expected[1] == L':';
  }
  std::wstring normal = path;
  fuzz::Check(VexelSdkProcessUtil::NormalizeNativePath(normal) == usable, "a native path needs a drive to be usable");
  fuzz::Check(normal == (usable ? expected : std::wstring()), "a native path loses its prefix");
}

void CheckDevices(const Pairs& pairs, const std::wstring& path) {
  VexelSdkProcessUtil::DevicePathMap map;
  std::wstring device;
  std::wstring drive;
  const std::wstring folded = fuzz::Folded(path);
  for (const auto& [name, letter] : pairs) {
    map.Append(name, letter);
    const std::wstring start = fuzz::Folded(name);
    if (start.size() > device.size() && folded.substr(0, start.size()) == start) {
      device = start;
      drive = fuzz::Folded(letter);
    }
  }
  std::wstring expected;
  for (std::size_t at = 0; at < folded.size();) {
    if (!device.empty() && folded.compare(at, device.size(), device) == 0) {
      expected += drive;
      at += device.size();
    } else {
      expected += folded[at++];
    }
  }
  std::wstring translated = path;
  fuzz::Check(map.TranslateDevicePath(translated) == !device.empty(), "a known device at the start is told");
  fuzz::Check(translated == expected, "the longest device gives way to its drive wherever it stands");
}

void CheckParts(const std::wstring& path) {
  const std::wstring name = VexelSdkProcessUtil::FileNameOfPath(path);
  fuzz::Check(path.ends_with(name) && name.find_first_of(L"\\/") == std::wstring::npos, "a file name ends its path");
  fuzz::Check(name.size() == path.size() || path.find_last_of(L"\\/") == path.size() - name.size() - 1,
              "a file name begins behind the last separator");
  fuzz::Check(vx::GetDirectoryOfPath(path) == fuzz::FolderOf(path), "a folder ends with its last separator");
  std::wstring ended = path;
  vx::AddTrailingSeparator(ended);
  fuzz::Check(!ended.empty() && (ended.back() == L'\\' || ended.back() == L'/') && ended.starts_with(path) &&
                  ended.size() <= path.size() + 1,
              "one separator at most is added");
}

void CheckSame(const std::wstring& left, const std::wstring& right) {
  std::wstring normal = left;
  VexelSdkProcessUtil::NormalizeComparePath(normal);
  fuzz::Check(normal == fuzz::ComparedPath(left), "a path has one form for comparing");
  const bool same = fuzz::Folded(fuzz::ComparedPath(left)) == fuzz::Folded(fuzz::ComparedPath(right));
  fuzz::Check(VexelSdkProcessUtil::IsSamePath(left, right) == same, "two paths are the same where their forms are");
  fuzz::Check(VexelSdkProcessUtil::IsSamePath(right, left) == same, "two paths are the same from either side");
  fuzz::Check(VexelSdkProcessUtil::IsSamePath(left, fuzz::Folded(left)), "case says nothing");
  std::wstring slashes = left;
  std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
  fuzz::Check(VexelSdkProcessUtil::IsSamePath(left, slashes), "neither do slashes");
}

} // namespace

// The first line is a path, and the following lines are devices, each with the drive that the next line names.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::wstring path = sim::Wide(input.Until('\n'));
  Pairs pairs;
  while (!input.IsEmpty() && pairs.size() < 16) {
    std::wstring device = sim::Wide(input.Until('\n'));
    pairs.emplace_back(std::move(device), sim::Wide(input.Until('\n')));
  }
  CheckNative(path);
  CheckDevices(pairs, path);
  CheckParts(path);
  CheckSame(path, pairs.empty() ? std::wstring() : pairs.front().first);
  return 0;
}
