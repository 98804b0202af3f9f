#include "tests/sim/faults.h"

#include <functional>
#include <map>

#include "tests/sim/core.h"

namespace sim {

using namespace internal;

namespace {

struct Operation {
  bool failable = true;
  int calls = 0;
  int fired = 0;
  int failsIn = 0; // calls until the fault, 0 when none is set
  FaultMode mode = kOnce;
  std::uint32_t error = 0;
};

constexpr const char* kFailable[] = {
    // process
    "OpenProcess", "TerminateProcess", "GetProcessCreationTime", "FileTimeToLocalFileTime", "FileTimeToSystemTime",
    "CreateProcessW", "OpenProcessToken", "GetTokenElevation", "IsUserAnAdmin", "CreateToolhelp32Snapshot",
    "Process32FirstW", "Process32NextW",
    // file
    "CreateFileW", "GetFileSize", "GetFileSizeEx", "SetFilePointer", "SetEndOfFile", "ReadFile", "WriteFile",
    "DeleteFileW", "CreateDirectoryW", "GetFileAttributesW", "PathFileExistsW", "SHCreateDirectoryExW",
    "SHGetSpecialFolderPathW", "SHGetFolderPathW", "GetLogicalDriveStringsW", "QueryDosDeviceW",
    "ExpandEnvironmentStringsW", "PathRemoveFileSpecW", "PathAppendW",
    // module
    "GetModuleHandleW", "GetModuleHandleOfAddress", "ReferenceModuleOfAddress", "LoadLibraryW", "GetProcAddress",
    "FreeLibrary", "GetModuleFileNameW",
    // registry
    "RegOpenKeyW", "RegOpenKeyExW", "RegCreateKeyExW", "RegQueryValueExW", "RegCloseKey",
    // sync
    "CreateMutexW", "ReleaseMutex", "CreateEventW", "SetEvent", "WaitForSingleObject", "CloseHandle",
    // window
    "IsWindow", "GetWindowLongPtrW", "SetWindowLongPtrW",
    // text
    "WideCharToMultiByte", "MultiByteToWideChar",
    // PSAPI
    "EnumProcessModules", "EnumProcessModulesEx", "EnumProcesses", "GetModuleBaseNameW", "GetModuleFileNameExW",
    "GetProcessImageFileNameW",
    // the pipe library
    "CltConnectServer", "CltComunicate", "CreatePipeSvr", "PipeServer::Start"};

constexpr const char* kSafe[] = {"GetTickCount",
                                 "GetTickCount64",
                                 "GetLocalTime",
                                 "OutputDebugStringA",
                                 "DebugBreak",
                                 "ExitNow",
                                 "GetLastError",
                                 "SetLastError",
                                 "GetCurrentProcessId",
                                 "GetCurrentThreadId",
                                 "PathFindFileNameW",
                                 "PathRemoveExtensionW",
                                 "Sleep",
                                 "WaitOnAddress",
                                 "WakeByAddressSingle",
                                 "CltDisConnect",
                                 "ReleasePipeSvr",
                                 "PipeServer::SetMsgProcessor"};

using Table = std::map<std::string, Operation, std::less<>>;

Table FreshTable() {
  Table table;
  for (const char* name : kFailable) {
    table[name].failable = true;
  }
  for (const char* name : kSafe) {
    table[name].failable = false;
  }
  return table;
}

Table& TheTable() {
  static Table& table = *new Table(FreshTable());
  return table;
}

Operation& Find(std::string_view name) {
  const auto place = TheTable().find(name);
  if (place == TheTable().end()) {
    Die("no operation is called " + std::string(name));
  }
  return place->second;
}

} // namespace

namespace internal {

Call::Call(std::string_view operation) : m_lock((ThreadId(), Mutex())) {
  Operation& found = Find(operation);
  ++found.calls;
  if (found.failsIn == 0 || --found.failsIn > 0) {
    return;
  }
  if (found.mode == kForever) {
    found.failsIn = 1;
  }
  ++found.fired;
  m_fails = true;
  if (found.error != 0) {
    m_error = found.error;
  }
}

bool Call::Fails(std::uint32_t error) {
  if (m_fails) {
    Leave(m_error.value_or(error));
  }
  return m_fails;
}

std::optional<std::uint32_t> Call::FailsWith(std::uint32_t error) const {
  return m_fails ? std::optional<std::uint32_t>(m_error.value_or(error)) : std::nullopt;
}

void ResetFaults() { TheTable() = FreshTable(); }

} // namespace internal

void FailNth(std::string_view operation, int nth, FaultMode mode, std::uint32_t error) {
  const Lock lock = TakeLock();
  Operation& found = Find(operation);
  if (!found.failable || nth < 1) {
    Die("a fault can't be set for " + std::string(operation));
  }
  found.failsIn = nth;
  found.mode = mode;
  found.error = error;
}

void FailAlways(std::string_view operation, std::uint32_t error) { FailNth(operation, 1, kForever, error); }

void ClearFaults() {
  const Lock lock = TakeLock();
  for (auto& [name, operation] : TheTable()) {
    operation.failsIn = 0;
  }
}

int FaultsFired() {
  const Lock lock = TakeLock();
  int sum = 0;
  for (const auto& [name, operation] : TheTable()) {
    sum += operation.fired;
  }
  return sum;
}

int FaultsFired(std::string_view operation) {
  const Lock lock = TakeLock();
  return Find(operation).fired;
}

int CallCount(std::string_view operation) {
  const Lock lock = TakeLock();
  return Find(operation).calls;
}

const std::vector<std::string>& AllOperations() {
  static const std::vector<std::string>& names = *new std::vector<std::string>([] {
    std::vector<std::string> all(std::begin(kFailable), std::end(kFailable));
    all.insert(all.end(), std::begin(kSafe), std::end(kSafe));
    return all;
  }());
  return names;
}

const std::vector<std::string>& FailableOperations() {
  static const std::vector<std::string>& names =
      *new std::vector<std::string>(std::begin(kFailable), std::end(kFailable));
  return names;
}

} // namespace sim
