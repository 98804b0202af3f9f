#include <algorithm>
#include <cwchar>
#include <map>

#include "platform/file.h"
#include "tests/sim/core.h"
#include "tests/sim/file.h"
#include "tests/sim/process.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kInvalidName = 123;
constexpr std::uint32_t kNoNetworkPath = 53;

struct Paths {
  std::map<std::wstring, std::vector<std::wstring>> drives; // "C:" in upper case to its devices
  std::map<std::wstring, std::wstring> environment;         // by folded name
  std::map<std::pair<int, std::wstring>, std::wstring> specialFolders;
  std::wstring currentFolder = L"C:\\Host";
};

Paths& ThePaths() {
  static Paths& paths = *new Paths;
  return paths;
}

std::wstring DriveName(std::wstring drive) {
  if (drive.size() == 2 && drive[0] >= L'a' && drive[0] <= L'z') {
    drive[0] = static_cast<wchar_t>(drive[0] - 32);
  }
  return drive;
}

bool IsSeparator(wchar_t unit) { return unit == L'\\' || unit == L'/'; }

bool HasDriveLetter(const std::wstring& path) {
  return path.size() >= 2 && path[1] == L':' &&
         ((path[0] >= L'a' && path[0] <= L'z') || (path[0] >= L'A' && path[0] <= L'Z'));
}

} // namespace

namespace internal {

void ResetPaths() { ThePaths() = Paths(); }

bool FullPath(const std::wstring& path, std::wstring* full, std::uint32_t* error) {
  const auto fail = [error](std::uint32_t code) {
    *error = code;
    return false;
  };
  std::wstring text = path;
  bool plain = true;
  if (text.starts_with(L"\\\\?\\") || text.starts_with(L"\\??\\")) {
    text.erase(0, 4);
    plain = false;
  }
  if (text.empty() || (plain && text.size() >= platform::kMaxPath)) {
    return fail(kPathNotFound);
  }
  if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
    return fail(kNoNetworkPath);
  }
  const std::wstring& current = ThePaths().currentFolder;
  if (IsSeparator(text[0])) {
    text.insert(0, current.substr(0, 2));
  } else if (!HasDriveLetter(text)) {
    text.insert(0, current + L"\\");
  } else if (text.size() == 2 || !IsSeparator(text[2])) {
    // A drive without a root means its current folder, which only the current drive has.
    const bool here = Fold(text.substr(0, 2)) == Fold(current.substr(0, 2));
    text = (here ? current : text.substr(0, 2)) + L"\\" + text.substr(2);
  }
  std::vector<std::wstring> parts;
  std::wstring part;
  for (const wchar_t unit : text.substr(2) + L"\\") {
    if (!IsSeparator(unit)) {
      if (std::wstring_view(L"<>:\"|?*").find(unit) != std::wstring_view::npos || (unit < 32)) {
        return fail(kInvalidName);
      }
      part.push_back(unit);
      continue;
    }
    if (part == L"..") {
      if (!parts.empty()) {
        parts.pop_back();
      }
    } else if (part != L".") {
      while (!part.empty() && (part.back() == L'.' || part.back() == L' ')) {
        part.pop_back();
      }
      if (!part.empty()) {
        parts.push_back(part);
      }
    }
    part.clear();
  }
  *full = DriveName(text.substr(0, 2));
  for (const std::wstring& name : parts) {
    *full += L"\\" + name;
  }
  return true;
}

bool HasDrive(const std::wstring& drive) { return ThePaths().drives.contains(DriveName(drive)); }

std::wstring DeviceForm(const std::wstring& path) {
  if (!HasDriveLetter(path)) {
    return path;
  }
  const auto place = ThePaths().drives.find(DriveName(path.substr(0, 2)));
  if (place == ThePaths().drives.end() || place->second.empty()) {
    return path;
  }
  return place->second.front() + path.substr(2);
}

std::wstring SpecialFolder(int id, const std::wstring& user) {
  const auto place = ThePaths().specialFolders.find({id, Fold(user)});
  return place == ThePaths().specialFolders.end() ? std::wstring() : place->second;
}

bool FindEnvironment(const std::wstring& name, std::wstring* value) {
  const auto place = ThePaths().environment.find(Fold(name));
  if (place == ThePaths().environment.end()) {
    return false;
  }
  *value = place->second;
  return true;
}

} // namespace internal

void SetCurrentFolder(const std::wstring& path) {
  const Lock lock = TakeLock();
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(path, &full, &error)) {
    Die("no folder for the current one");
  }
  ThePaths().currentFolder = full;
}

void AddDrive(const std::wstring& drive, const std::vector<std::wstring>& devices) {
  const Lock lock = TakeLock();
  ThePaths().drives[DriveName(drive)] = devices;
  AddRoot(DriveName(drive));
}

void RemoveDrive(const std::wstring& drive) {
  const Lock lock = TakeLock();
  ThePaths().drives.erase(DriveName(drive));
  DropFilesOf(drive);
}

void SetEnvironment(const std::wstring& name, const std::wstring& value) {
  const Lock lock = TakeLock();
  if (value.empty()) {
    ThePaths().environment.erase(Fold(name));
  } else {
    ThePaths().environment[Fold(name)] = value;
  }
}

void SetSpecialFolder(int id, const std::wstring& path, const std::wstring& user) {
  const Lock lock = TakeLock();
  ThePaths().specialFolders[{id, Fold(user)}] = path;
}

} // namespace sim

namespace platform {

using namespace sim::internal;

namespace {

constexpr auto kFailedResult = static_cast<std::int32_t>(0x80004005u);
constexpr auto kBadHandleResult = static_cast<std::int32_t>(0x80070006u);

// Backslashes only: these functions know no other separator, but for finding a file's name.
std::wstring Canonical(const std::wstring& path) {
  const bool drive = sim::HasDriveLetter(path);
  const bool unc = path.starts_with(L"\\\\");
  std::size_t rootEnd = 0;
  if (unc) {
    rootEnd = 2;
  } else if (drive) {
    rootEnd = path.size() > 2 && path[2] == L'\\' ? 3 : 2;
  } else if (!path.empty() && path[0] == L'\\') {
    rootEnd = 1;
  }
  std::wstring root = path.substr(0, rootEnd);
  std::vector<std::wstring> parts;
  std::size_t at = rootEnd;
  while (at <= path.size()) {
    const std::size_t end = std::min(path.find(L'\\', at), path.size());
    const std::wstring part = path.substr(at, end - at);
    if (part == L"..") {
      if (!parts.empty()) {
        parts.pop_back();
      }
    } else if (part != L"." || end == path.size()) {
      if (part != L".") {
        parts.push_back(part);
      }
    }
    at = end + 1;
  }
  std::wstring out = root;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    out += (i == 0 ? L"" : L"\\") + parts[i];
  }
  if (out.empty()) {
    out = L"\\";
  }
  if (out.size() == 2 && drive) {
    out += L"\\";
  }
  return out;
}

} // namespace

bool SHGetSpecialFolderPathW(wchar_t* buffer, int id) {
  Call call("SHGetSpecialFolderPathW");
  buffer[0] = 0;
  if (call.Fails(kFileNotFound)) {
    return false;
  }
  const std::wstring path = SpecialFolder(id, UserOf(GetHostPid()));
  if (path.empty() || !HasFolder(path)) {
    return Leave(kFileNotFound);
  }
  return CopyText(path, buffer, kMaxPath);
}

std::int32_t SHGetFolderPathW(int id, Handle token, wchar_t* buffer) {
  Call call("SHGetFolderPathW");
  buffer[0] = 0;
  if (call.FailsWith(0)) {
    return kFailedResult;
  }
  std::wstring user = UserOf(GetHostPid());
  if (token != nullptr && !UserOfToken(token, &user)) {
    return kBadHandleResult;
  }
  const std::wstring path = SpecialFolder(id, user);
  if (path.empty() || !HasFolder(path)) {
    return kFailedResult;
  }
  CopyText(path, buffer, kMaxPath);
  return 0;
}

std::uint32_t GetLogicalDriveStringsW(std::uint32_t size, wchar_t* buffer) {
  Call call("GetLogicalDriveStringsW");
  if (call.Fails(kNotEnoughMemory)) {
    return 0;
  }
  std::wstring roots;
  for (const auto& [drive, devices] : sim::ThePaths().drives) {
    roots += drive + L"\\" + L'\0';
  }
  const auto units = static_cast<std::uint32_t>(roots.size());
  if (size < units + 1) {
    return units + 1;
  }
  roots.copy(buffer, roots.size());
  buffer[units] = 0;
  return units;
}

std::uint32_t QueryDosDeviceW(const wchar_t* drive, wchar_t* buffer, std::uint32_t size) {
  Call call("QueryDosDeviceW");
  if (call.Fails(kFileNotFound)) {
    return 0;
  }
  const auto place = sim::ThePaths().drives.find(sim::DriveName(drive == nullptr ? L"" : drive));
  if (place == sim::ThePaths().drives.end() || place->second.empty()) {
    Leave(kFileNotFound);
    return 0;
  }
  std::wstring names;
  for (const std::wstring& device : place->second) {
    names += device + L'\0';
  }
  names += L'\0';
  if (names.size() > size) {
    Leave(kInsufficientBuffer);
    return 0;
  }
  names.copy(buffer, names.size());
  return static_cast<std::uint32_t>(names.size());
}

std::uint32_t ExpandEnvironmentStringsW(const wchar_t* text, wchar_t* buffer, std::uint32_t size) {
  Call call("ExpandEnvironmentStringsW");
  if (call.Fails(kNotEnoughMemory)) {
    return 0;
  }
  const std::wstring source = text;
  std::wstring out;
  std::size_t at = 0;
  while (at < source.size()) {
    const std::size_t end = source[at] == L'%' ? source.find(L'%', at + 1) : std::wstring::npos;
    std::wstring value;
    if (end != std::wstring::npos && FindEnvironment(source.substr(at + 1, end - at - 1), &value)) {
      out += value;
      at = end + 1;
    } else {
      out.push_back(source[at++]);
    }
  }
  if (out.size() + 1 <= size) {
    CopyText(out, buffer, size);
  } else if (size != 0) {
    buffer[0] = 0;
  }
  return static_cast<std::uint32_t>(out.size() + 1);
}

const wchar_t* PathFindFileNameW(const wchar_t* path) {
  const Call call("PathFindFileNameW");
  if (path == nullptr) {
    return nullptr;
  }
  const wchar_t* name = path;
  for (const wchar_t* at = path; *at != 0; ++at) {
    // A separator at the very end begins no name.
    if ((sim::IsSeparator(*at) || *at == L':') && at[1] != 0 && !sim::IsSeparator(at[1])) {
      name = at + 1;
    }
  }
  return name;
}

bool PathRemoveFileSpecW(wchar_t* path) {
  Call call("PathRemoveFileSpecW");
  if (path == nullptr || call.Fails(kInvalidParameter)) {
    return false;
  }
  const std::wstring text = path;
  // The root stays: both backslashes of a network path, one alone, or a drive with its backslash.
  std::size_t rootEnd = 0;
  while (rootEnd < 2 && rootEnd < text.size() && text[rootEnd] == L'\\') {
    ++rootEnd;
  }
  if (rootEnd == 0 && sim::HasDriveLetter(text)) {
    rootEnd = text.size() > 2 && text[2] == L'\\' ? 3 : 2;
  }
  const std::size_t last = text.rfind(L'\\');
  const std::size_t cut = last == std::wstring::npos || last < rootEnd ? rootEnd : last;
  if (cut >= text.size()) {
    return false;
  }
  path[cut] = 0;
  return true;
}

void PathRemoveExtensionW(wchar_t* path) {
  const Call call("PathRemoveExtensionW");
  if (path == nullptr) {
    return;
  }
  wchar_t* dot = nullptr;
  for (wchar_t* at = path; *at != 0; ++at) {
    if (*at == L'.') {
      dot = at;
    } else if (*at == L'\\' || *at == L' ') {
      dot = nullptr; // an extension holds neither
    }
  }
  if (dot != nullptr) {
    *dot = 0;
  }
}

bool PathAppendW(wchar_t* path, const wchar_t* more) {
  Call call("PathAppendW");
  if (path == nullptr || more == nullptr || call.Fails(kInvalidParameter)) {
    return false;
  }
  std::wstring tail = more;
  // Leading backslashes don't make the tail a root of its own, unless it is a network path.
  if (!tail.starts_with(L"\\\\")) {
    tail.erase(0, std::min(tail.find_first_not_of(L'\\'), tail.size()));
  }
  std::wstring joined;
  if (sim::HasDriveLetter(tail) || tail.starts_with(L"\\\\")) {
    joined = tail;
  } else {
    joined = path;
    if (!joined.empty() && joined.back() != L'\\' && !tail.empty()) {
      joined += L'\\';
    }
    joined += tail;
  }
  joined = Canonical(joined);
  if (joined.size() >= kMaxPath) {
    path[0] = 0;
    return false;
  }
  return CopyText(joined, path, kMaxPath);
}

} // namespace platform
