#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <algorithm>
#include <vector>

namespace vexelctl {

const wchar_t* const kLogLevelKey = L"Software\\Tarnwick\\antivirus\\sysopt";

std::wstring ToWide(std::string_view text) {
  if (text.empty()) {
    return {};
  }
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), length);
  return out;
}

std::string ToUtf8(std::wstring_view text) {
  if (text.empty()) {
    return {};
  }
  const auto size = static_cast<int>(text.size());
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, out.data(), length, nullptr, nullptr);
  return out;
}

std::wstring ProgramPath() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

std::wstring FolderOf(const std::wstring& path) { return path.substr(0, path.find_last_of(L"\\/") + 1); }

std::wstring NameOf(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

std::wstring FullPath(const std::wstring& path) {
  std::wstring full(32768, L'\0');
  const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  full.resize(length < full.size() ? length : 0);
  return full;
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

LogLevel ReadLogLevel() {
  LogLevel result{std::nullopt, 1, false};
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLogLevelKey, 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return result;
  }
  DWORD value = 0;
  DWORD size = sizeof value;
  const LSTATUS status = RegQueryValueExW(key, L"LogLevel", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size);
  result.isLong = status == ERROR_MORE_DATA;
  if (status == ERROR_SUCCESS) {
    result.stored = value;
    result.level = value >= 5 ? 1 : value > 3 ? 3 : static_cast<int>(value);
  }
  RegCloseKey(key);
  return result;
}

std::wstring LogPathOf(const std::wstring& host, const std::wstring& library) {
  std::wstring stem = NameOf(host);
  if (const std::size_t dot = stem.rfind(L'.'); dot != std::wstring::npos) {
    stem.resize(dot);
  }
  return FolderOf(host) + L"log\\" + stem + L"." + NameOf(library) + L".log";
}

std::string SystemMessage(std::uint32_t code) {
  wchar_t text[512] = {};
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                      text, static_cast<DWORD>(std::size(text)), nullptr);
  std::wstring message(text, length);
  while (!message.empty() && (message.back() <= L' ' || message.back() == L'.')) {
    message.pop_back();
  }
  const std::string number = "error " + std::to_string(code);
  return message.empty() ? number : number + ": " + ToUtf8(message);
}

namespace {

std::string MachineName(WORD machine) {
  switch (machine) {
  case 0x8664:
    return "x64";
  case 0xAA64:
    return "ARM64";
  case 0x014C:
    return "x86";
  default:
    return "machine " + std::to_string(machine);
  }
}

// What the machine's system starts: its own programs, and those that it translates.
std::vector<std::string> StartableMachines() {
  std::string native = OwnMachine();
  // Older systems lack it, and translate nothing but x86.
  using IsWow64Process2Fun = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
  const auto ask = reinterpret_cast<IsWow64Process2Fun>(
      reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2")));
  USHORT processMachine = 0;
  USHORT nativeMachine = 0;
  if (ask != nullptr && ask(GetCurrentProcess(), &processMachine, &nativeMachine) != 0) {
    native = MachineName(nativeMachine);
  }
  return native == "ARM64" ? std::vector<std::string>{"ARM64", "x64", "x86"} : std::vector<std::string>{native, "x86"};
}

} // namespace

std::string MachineOf(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return {};
  }
  IMAGE_DOS_HEADER dos{};
  DWORD signature = 0;
  IMAGE_FILE_HEADER header{};
  DWORD done = 0;
  const auto read = [file, &done](void* data, DWORD size) {
    return ReadFile(file, data, size, &done, nullptr) != 0 && done == size;
  };
  const bool isRead = read(&dos, sizeof dos) && dos.e_magic == IMAGE_DOS_SIGNATURE &&
                      SetFilePointer(file, dos.e_lfanew, nullptr, FILE_BEGIN) != INVALID_SET_FILE_POINTER &&
                      read(&signature, sizeof signature) && signature == IMAGE_NT_SIGNATURE &&
                      read(&header, sizeof header);
  CloseHandle(file);
  if (!isRead) {
    return {};
  }
  return MachineName(header.Machine);
}

const std::string& OwnMachine() {
  static const std::string machine = MachineOf(ProgramPath());
  return machine;
}

std::string WhyNotStartable(const std::wstring& program) {
  const std::string machine = MachineOf(program);
  if (machine.empty()) {
    return "is no program";
  }
  const std::vector<std::string> takes = StartableMachines();
  if (std::find(takes.begin(), takes.end(), machine) == takes.end()) {
    std::string list;
    for (const std::string& each : takes) {
      list += (list.empty() ? "" : ", ") + each;
    }
    return "is built for " + machine + ", and this machine takes " + list;
  }
  // Mapped as for a start, and nothing of it runs.
  const HMODULE image = LoadLibraryExW(program.c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  if (image == nullptr) {
    return "cannot be loaded, " + SystemMessage(GetLastError());
  }
  FreeLibrary(image);
  return {};
}

std::optional<FileVersion> VersionOf(const std::wstring& path) {
  DWORD unused = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &unused);
  std::vector<BYTE> data(size);
  VS_FIXEDFILEINFO* info = nullptr;
  UINT length = 0;
  if (size == 0 || GetFileVersionInfoW(path.c_str(), 0, size, data.data()) == 0 ||
      VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&info), &length) == 0 || length < sizeof *info) {
    return std::nullopt;
  }
  const int major = HIWORD(info->dwFileVersionMS);
  const int minor = LOWORD(info->dwFileVersionMS);
  return FileVersion{major, minor,
                     std::to_string(major) + "." + std::to_string(minor) + "." +
                         std::to_string(HIWORD(info->dwFileVersionLS))};
}

} // namespace vexelctl
