#include "tests/sim/process.h"

#include <algorithm>
#include <deque>
#include <set>

#include "platform/types.h"
#include "tests/sim/clock.h"
#include "tests/sim/file.h"
#include "tests/sim/kernel.h"
#include "tests/sim/module.h"
#include "tests/sim/pipe_library.h"
#include "tests/sim/window.h"
#include "tests/sim/world.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kCrashCode = 0xC0000005;
constexpr std::uint32_t kBadImage = 193;
constexpr std::uint32_t kPartialCopy = 299;
constexpr std::uint32_t kVmRead = 0x10;
constexpr std::uint32_t kQueryLimited = 0x1000;
constexpr std::uint32_t kSynchronize = 0x00100000;
constexpr std::uint32_t kStillActive = 259;

struct Process final : Object {
  explicit Process(ProcessSpec processSpec) : Object(HandleKind::kProcess), spec(std::move(processSpec)) {}
  bool CanWait() const override { return true; }
  bool Signalled(std::uint32_t /*thread*/) const override { return ended; }
  void OnLastClose() override;

  ProcessSpec spec;
  std::uint64_t serial = 0;
  bool ended = false;
  std::uint32_t exitCode = kStillActive;
};

// The first thread of a process. It ends with it, and keeps no id alive.
struct MainThread final : Object {
  explicit MainThread(std::shared_ptr<Process> owner) : Object(HandleKind::kThread), process(std::move(owner)) {}
  bool CanWait() const override { return true; }
  bool Signalled(std::uint32_t /*thread*/) const override { return process->ended; }
  const std::shared_ptr<Process> process;
};

struct Token final : Object {
  explicit Token(std::shared_ptr<Process> owner) : Object(HandleKind::kToken), process(std::move(owner)) {}
  const std::shared_ptr<Process> process;
};

struct Snapshot final : Object {
  Snapshot() : Object(HandleKind::kSnapshot) {}
  std::vector<platform::ProcessEntry> rows;
  std::size_t next = 0;
};

struct FreedPid {
  std::uint32_t pid = 0;
  std::uint64_t startsThen = 0;
};

struct Processes {
  std::map<std::uint32_t, std::shared_ptr<Process>> table; // running, or dead with open handles
  std::map<std::uint32_t, std::uint32_t> exitCodes;
  std::map<std::wstring, Program> programs; // by folded path
  std::vector<StartedProgram> started;
  std::deque<FreedPid> freed;
  std::set<std::shared_ptr<MainThread>> threads; // to wake their waits
  std::uint32_t nextPid = 4100;
  std::uint64_t starts = 0;
  int reuseAfter = 0;
  std::uint32_t hostPid = 0;
  bool admin = false;
};

Processes& TheProcesses() {
  static Processes& processes = *new Processes;
  return processes;
}

std::condition_variable& Ended() {
  static std::condition_variable& ended = *new std::condition_variable;
  return ended;
}

void Process::OnLastClose() {
  const auto place = TheProcesses().table.find(spec.pid);
  if (ended && place != TheProcesses().table.end() && place->second.get() == this) {
    TheProcesses().table.erase(place);
  }
}

std::shared_ptr<Process> FindProcess(std::uint32_t pid) {
  const auto place = TheProcesses().table.find(pid);
  return place == TheProcesses().table.end() ? nullptr : place->second;
}

std::uint32_t FreePid() {
  Processes& processes = TheProcesses();
  if (processes.reuseAfter > 0) {
    for (auto at = processes.freed.begin(); at != processes.freed.end(); ++at) {
      const bool due = processes.starts - at->startsThen >= static_cast<std::uint64_t>(processes.reuseAfter);
      if (due && FindProcess(at->pid) == nullptr) {
        const std::uint32_t pid = at->pid;
        processes.freed.erase(at);
        return pid;
      }
    }
  }
  while (FindProcess(processes.nextPid) != nullptr) {
    processes.nextPid += 4;
  }
  const std::uint32_t pid = processes.nextPid;
  processes.nextPid += 4;
  return pid;
}

std::shared_ptr<Process> Start(ProcessSpec spec) {
  if (spec.pid == 0) {
    spec.pid = FreePid();
  }
  if (FindProcess(spec.pid) != nullptr) {
    Die("the process id " + std::to_string(spec.pid) + " is taken, or still referenced by an open handle");
  }
  if (spec.created == 0) {
    spec.created = UtcAt(NowNs());
  }
  auto process = std::make_shared<Process>(std::move(spec));
  process->serial = ++TheProcesses().starts;
  TheProcesses().table[process->spec.pid] = process;
  TheProcesses().exitCodes.erase(process->spec.pid);
  return process;
}

bool End(std::uint32_t pid, std::uint32_t exitCode) {
  Processes& processes = TheProcesses();
  const std::shared_ptr<Process> process = FindProcess(pid);
  if (process == nullptr || process->ended) {
    return false;
  }
  if (pid == processes.hostPid) {
    Die("the host process can't be ended by its own test");
  }
  process->ended = true;
  process->exitCode = exitCode;
  processes.exitCodes[pid] = exitCode;
  processes.freed.push_back({pid, processes.starts});
  DestroyWindowsOf(pid);
  EndEditor(pid);
  process->changed.notify_all();
  std::erase_if(processes.threads, [](const auto& thread) { return thread->handles == 0; });
  for (const std::shared_ptr<MainThread>& thread : processes.threads) {
    thread->changed.notify_all();
  }
  Ended().notify_all();
  if (process->handles == 0) {
    processes.table.erase(pid);
  }
  return true;
}

std::wstring NameOf(const ProcessSpec& spec) {
  return spec.snapshotName.empty() ? spec.path.substr(spec.path.find_last_of(L"\\/") + 1) : spec.snapshotName;
}

std::shared_ptr<Process> FindProcessHandle(platform::Handle handle, std::uint32_t right) {
  std::uint32_t access = 0;
  std::shared_ptr<Process> process = FindHandle<Process>(handle, HandleKind::kProcess, &access);
  if (process == nullptr) {
    Leave(kInvalidHandleValue);
  } else if ((access & right) == 0) {
    Leave(kAccessDenied);
    return nullptr;
  }
  return process;
}

platform::FileTime SplitSteps(std::int64_t steps) {
  const auto value = static_cast<std::uint64_t>(steps);
  return {static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(value >> 32)};
}

std::int64_t JoinSteps(const platform::FileTime& time) {
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.high) << 32) | time.low);
}

// Finds the program that a command text names, and what stands behind it. Without quotes every blank may end the name,
// and the shortest that is a file counts.
bool ParseCommand(const std::wstring& text, std::wstring* path, std::wstring* arguments) {
  const auto withExtension = [](const std::wstring& name) {
    const std::wstring last = name.substr(name.find_last_of(L"\\/") + 1);
    return last.find(L'.') == std::wstring::npos ? name + L".exe" : name;
  };
  if (!text.empty() && text[0] == L'"') {
    const std::size_t end = text.find(L'"', 1);
    *path = withExtension(text.substr(1, end == std::wstring::npos ? end : end - 1));
    *arguments = end == std::wstring::npos ? L"" : text.substr(end + 1);
  } else {
    std::size_t end = text.find(L' ');
    while (true) {
      *path = withExtension(text.substr(0, end));
      *arguments = end == std::wstring::npos ? L"" : text.substr(end);
      if (end == std::wstring::npos || HasFile(*path)) {
        break;
      }
      end = text.find(L' ', end + 1);
    }
  }
  arguments->erase(0, std::min(arguments->find_first_not_of(L' '), arguments->size()));
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(*path, &full, &error)) {
    return Leave(error);
  }
  *path = full;
  return true;
}

} // namespace

namespace internal {

void ResetProcesses() { TheProcesses() = Processes(); }

std::uint32_t GetHostPid() { return TheProcesses().hostPid; }

void SetHostPath(const std::wstring& path) {
  if (const std::shared_ptr<Process> host = FindProcess(GetHostPid())) {
    host->spec.path = path;
  }
}

std::wstring UserOf(std::uint32_t pid) {
  const std::shared_ptr<Process> process = FindProcess(pid);
  return process == nullptr ? L"Tester" : process->spec.user;
}

bool UserOfToken(platform::Handle token, std::wstring* user) {
  const auto found = FindHandle<Token>(token, HandleKind::kToken);
  if (found == nullptr) {
    return false;
  }
  *user = found->process->spec.user;
  return true;
}

std::uint64_t RunningSerial(std::uint32_t pid) {
  const std::shared_ptr<Process> process = FindProcess(pid);
  return process == nullptr || process->ended ? 0 : process->serial;
}

void EndIfSame(std::uint32_t pid, std::uint64_t serial, std::uint32_t exitCode) {
  if (RunningSerial(pid) == serial) {
    End(pid, exitCode);
  }
}

std::condition_variable& ProcessEnded() { return Ended(); }

bool ReadModuleText(platform::Handle handle, std::wstring* text) {
  std::uint32_t access = 0;
  const auto process = FindHandle<Process>(handle, HandleKind::kProcess, &access);
  if (process == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  constexpr std::uint32_t kNeeded = platform::kProcessQueryInformation | kVmRead;
  if ((access & kNeeded) != kNeeded) {
    return Leave(kAccessDenied);
  }
  // The text lies in the memory of the process, which goes with it and which a fresh process has not filled yet.
  if (process->ended || !process->spec.moduleRoute || process->spec.moduleRouteLate > 0) {
    if (process->spec.moduleRouteLate > 0) {
      --process->spec.moduleRouteLate;
    }
    return Leave(kPartialCopy);
  }
  *text = process->spec.moduleText.empty() ? process->spec.path : process->spec.moduleText;
  return true;
}

bool ReadImageText(platform::Handle handle, std::wstring* text) {
  const auto process = FindProcessHandle(handle, platform::kProcessQueryInformation | kQueryLimited);
  if (process == nullptr) {
    return false;
  }
  if (!process->spec.imageRoute) {
    return Leave(kAccessDenied);
  }
  *text = process->spec.imageText.empty() ? DeviceForm(process->spec.path) : process->spec.imageText;
  return true;
}

std::vector<std::uint32_t> ListedPids() {
  std::vector<std::uint32_t> pids;
  for (const auto& [pid, process] : TheProcesses().table) {
    if (!process->ended && process->spec.inSnapshot) {
      pids.push_back(pid);
    }
  }
  return pids;
}

} // namespace internal

std::uint32_t StartProcess(const ProcessSpec& spec) {
  const Lock lock = TakeLock();
  const std::uint32_t pid = Start(spec)->spec.pid;
  if (TheProcesses().hostPid == 0) {
    TheProcesses().hostPid = pid; // the first one of a world is the host
  }
  return pid;
}

std::uint32_t StartProcess(const std::wstring& path) {
  ProcessSpec spec;
  spec.path = path;
  return StartProcess(spec);
}

void EditProcess(std::uint32_t pid, const std::function<void(ProcessSpec&)>& edit) {
  const Lock lock = TakeLock();
  const std::shared_ptr<Process> process = FindProcess(pid);
  if (process == nullptr) {
    Die("no process has the id " + std::to_string(pid));
  }
  edit(process->spec);
  process->spec.pid = pid;
}

bool EndProcess(std::uint32_t pid, std::uint32_t exitCode) {
  const Lock lock = TakeLock();
  return End(pid, exitCode);
}

bool CrashProcess(std::uint32_t pid) { return EndProcess(pid, kCrashCode); }

bool IsRunning(std::uint32_t pid) {
  const Lock lock = TakeLock();
  return RunningSerial(pid) != 0;
}

std::optional<std::uint32_t> ExitCode(std::uint32_t pid) {
  const Lock lock = TakeLock();
  const auto place = TheProcesses().exitCodes.find(pid);
  return place == TheProcesses().exitCodes.end() ? std::nullopt : std::optional<std::uint32_t>(place->second);
}

std::vector<std::uint32_t> RunningPids() { return RunningPids(L""); }

std::vector<std::uint32_t> RunningPids(const std::wstring& path) {
  const Lock lock = TakeLock();
  std::vector<std::uint32_t> pids;
  for (const auto& [pid, process] : TheProcesses().table) {
    if (!process->ended && pid != TheProcesses().hostPid && (path.empty() || SameText(process->spec.path, path))) {
      pids.push_back(pid);
    }
  }
  return pids;
}

void SetNextPid(std::uint32_t pid) {
  const Lock lock = TakeLock();
  TheProcesses().nextPid = pid;
}

void SetPidReuse(int starts) {
  const Lock lock = TakeLock();
  TheProcesses().reuseAfter = starts;
}

void SetUserAdmin(bool admin) {
  const Lock lock = TakeLock();
  TheProcesses().admin = admin;
}

void SetHostElevated(bool elevated) {
  const Lock lock = TakeLock();
  FindProcess(GetHostPid())->spec.elevated = elevated;
}

bool Child::SleepFor(std::uint32_t milliseconds) const {
  Lock lock = TakeLock();
  const std::uint64_t serial = RunningSerial(m_pid);
  if (serial == 0) {
    return false;
  }
  return !WaitUntil(lock, Ended(), DeadlineIn(milliseconds),
                    [&] { return Stopping() || RunningSerial(m_pid) != serial; });
}

void InstallProgram(const std::wstring& path, const Program& program) {
  const Lock lock = TakeLock();
  NeedFile(path);
  std::wstring full;
  std::uint32_t error = 0;
  FullPath(path, &full, &error);
  TheProcesses().programs[Fold(full)] = program;
}

void InstallEditors(const EditorScript& script) {
  std::wstring folder;
  {
    const Lock lock = TakeLock();
    folder = LibraryFolder();
  }
  Program program;
  program.editor = script;
  InstallProgram(folder + L"vxpixeleditor.exe", program);
  InstallProgram(folder + L"webvexlaunch.exe", program);
  AddPipeLibrary(folder + L"vpipearm64.dll");
}

std::vector<StartedProgram> StartedPrograms() {
  const Lock lock = TakeLock();
  return TheProcesses().started;
}

} // namespace sim

namespace platform {

using namespace sim::internal;
using sim::HandleKind;

std::uint32_t GetCurrentProcessId() {
  const Call call("GetCurrentProcessId");
  return GetHostPid();
}

std::uint32_t GetCurrentThreadId() {
  const Call call("GetCurrentThreadId");
  return ThreadId();
}

Handle OpenProcess(std::uint32_t access, std::uint32_t pid) {
  Call call("OpenProcess");
  if (call.Fails(kAccessDenied)) {
    return nullptr;
  }
  const std::shared_ptr<sim::Process> process = sim::FindProcess(pid);
  if (pid == 0 || process == nullptr) {
    Leave(kInvalidParameter);
    return nullptr;
  }
  if ((access & ~process->spec.grantedAccess) != 0) {
    Leave(kAccessDenied);
    return nullptr;
  }
  return AddHandle(process, access);
}

bool TerminateProcess(Handle process, std::uint32_t exitCode) {
  Call call("TerminateProcess");
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  const std::shared_ptr<sim::Process> found = sim::FindProcessHandle(process, kProcessTerminate);
  if (found == nullptr) {
    return false;
  }
  return found->ended ? Leave(kAccessDenied) : sim::End(found->spec.pid, exitCode);
}

bool GetProcessCreationTime(Handle process, FileTime* created) {
  Call call("GetProcessCreationTime");
  *created = {};
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  const auto found = sim::FindProcessHandle(process, kProcessQueryInformation | sim::kQueryLimited);
  if (found == nullptr) {
    return false;
  }
  if (!found->spec.timesReadable) {
    return Leave(kAccessDenied);
  }
  *created = sim::SplitSteps(std::max<std::int64_t>(found->spec.created, 0));
  return true;
}

bool FileTimeToLocalFileTime(const FileTime& utc, FileTime* local) {
  Call call("FileTimeToLocalFileTime");
  *local = {};
  if (call.Fails(kInvalidParameter)) {
    return false;
  }
  const std::int64_t steps = sim::JoinSteps(utc);
  if (steps < 0) {
    return Leave(kInvalidParameter);
  }
  *local = sim::SplitSteps(steps + ZoneSteps());
  return true;
}

bool FileTimeToSystemTime(const FileTime& time, SystemTime* parts) {
  Call call("FileTimeToSystemTime");
  *parts = {};
  if (call.Fails(kInvalidParameter)) {
    return false;
  }
  return SplitTime(sim::JoinSteps(time), parts) ? true : Leave(kInvalidParameter);
}

// NOLINTNEXTLINE(readability-non-const-parameter): the real one writes into the text
bool CreateProcessW(wchar_t* commandText, std::uint32_t* pid, Handle* process, Handle* thread) {
  Call call("CreateProcessW");
  *pid = 0;
  *process = nullptr;
  *thread = nullptr;
  if (call.Fails(kNotEnoughMemory)) {
    return false;
  }
  std::wstring path;
  std::wstring arguments;
  const std::wstring text = commandText;
  if (!sim::ParseCommand(text, &path, &arguments)) {
    return false;
  }
  if (!HasFile(path)) {
    if (HasFolder(path)) {
      return Leave(kAccessDenied);
    }
    return Leave(HasFolder(path.substr(0, path.rfind(L'\\'))) ? kFileNotFound : kPathNotFound);
  }
  const auto place = sim::TheProcesses().programs.find(Fold(path));
  if (place == sim::TheProcesses().programs.end()) {
    return Leave(sim::kBadImage);
  }
  const sim::Program program = place->second;
  if (program.startMs != 0) {
    WaitUntil(call.GetLock(), sim::Ended(), DeadlineIn(program.startMs), [] { return false; });
  }
  if (program.startError != 0) {
    return Leave(program.startError);
  }
  const std::shared_ptr<sim::Process> host = sim::FindProcess(GetHostPid());
  sim::ProcessSpec spec = program.process;
  spec.path = path;
  spec.pid = 0;
  spec.elevated = host != nullptr && host->spec.elevated;
  const std::shared_ptr<sim::Process> child = sim::Start(spec);
  const auto first = std::make_shared<sim::MainThread>(child);
  sim::TheProcesses().threads.insert(first);
  *pid = child->spec.pid;
  *process = AddHandle(child, sim::kSynchronize | kProcessAllAccess);
  *thread = AddHandle(first, 0);
  sim::TheProcesses().started.push_back({*pid, path, text, static_cast<std::uint64_t>(NowNs() / kNsPerMs)});
  if (program.editor.has_value()) {
    BeginEditor(*pid, *program.editor);
  }
  if (program.main != nullptr) {
    StartOwnThread([run = program.main, view = sim::Child(*pid, arguments)]() mutable { run(view); });
  }
  return true;
}

bool OpenProcessToken(Handle process, std::uint32_t access, Handle* token) {
  Call call("OpenProcessToken");
  *token = nullptr;
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  const auto found = sim::FindProcessHandle(process, kProcessQueryInformation | sim::kQueryLimited);
  if (found == nullptr) {
    return false;
  }
  if (!found->spec.tokenOpens) {
    return Leave(kAccessDenied);
  }
  *token = AddHandle(std::make_shared<sim::Token>(found), access);
  return true;
}

bool GetTokenElevation(Handle token, std::uint32_t* elevation) {
  Call call("GetTokenElevation");
  *elevation = 0;
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  std::uint32_t access = 0;
  const auto found = FindHandle<sim::Token>(token, HandleKind::kToken, &access);
  if (found == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  if ((access & kTokenQuery) == 0 || !found->process->spec.tokenReadable) {
    return Leave(kAccessDenied);
  }
  *elevation = found->process->spec.elevated ? 1 : 0;
  return true;
}

bool IsUserAnAdmin() {
  Call call("IsUserAnAdmin");
  return !call.Fails(kAccessDenied) && sim::TheProcesses().admin;
}

Handle CreateToolhelp32Snapshot(std::uint32_t flags, std::uint32_t /*pid*/) {
  Call call("CreateToolhelp32Snapshot");
  if (call.Fails(kNotEnoughMemory)) {
    return kInvalidHandle;
  }
  const auto snapshot = std::make_shared<sim::Snapshot>();
  if ((flags & kSnapProcess) != 0) {
    // The list always begins with the idle process, whose id is 0.
    ProcessEntry idle{};
    CopyText(L"[System Process]", idle.exeFile, kMaxPath);
    snapshot->rows.push_back(idle);
    for (const std::uint32_t pid : ListedPids()) {
      ProcessEntry row{};
      row.pid = pid;
      CopyText(sim::NameOf(sim::FindProcess(pid)->spec), row.exeFile, kMaxPath);
      snapshot->rows.push_back(row);
    }
  }
  return AddHandle(snapshot, 0);
}

namespace {

bool NextRow(Handle handle, bool first, ProcessEntry* entry) {
  const auto snapshot = FindHandle<sim::Snapshot>(handle, HandleKind::kSnapshot);
  if (snapshot == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  if (first) {
    snapshot->next = 0;
  }
  if (snapshot->next >= snapshot->rows.size()) {
    return Leave(kNoMoreFiles);
  }
  *entry = snapshot->rows[snapshot->next++];
  return true;
}

} // namespace

bool Process32FirstW(Handle snapshot, ProcessEntry* entry) {
  Call call("Process32FirstW");
  return !call.Fails(kNoMoreFiles) && NextRow(snapshot, true, entry);
}

bool Process32NextW(Handle snapshot, ProcessEntry* entry) {
  Call call("Process32NextW");
  return !call.Fails(kNoMoreFiles) && NextRow(snapshot, false, entry);
}

} // namespace platform
