#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/process.h"
#include "tests/sim/editor.h"

// Processes as a test sets them up.
namespace sim {

/// One process, as the system shows it.
struct ProcessSpec {
  std::wstring path = {};                                    // full path of the image, with a drive
  std::uint32_t pid = 0;                                     // 0: the next free one
  std::uint32_t grantedAccess = platform::kProcessAllAccess; // OpenProcess with any other right gives error 5
  bool elevated = false;          // a started child takes after the host, see SetHostElevated
  bool tokenOpens = true;         // OpenProcessToken works
  bool tokenReadable = true;      // GetTokenElevation works
  bool timesReadable = true;      // GetProcessCreationTime works
  bool inSnapshot = true;         // the process list has a row for it
  std::wstring snapshotName = {}; // that row's name; empty: the path's last component
  bool moduleRoute = true;        // GetModuleFileNameExW works, with rights for query and memory
  std::wstring moduleText = {};   // what it says, such as L"\\??\\C:\\a.exe" or L"\\SystemRoot\\a.exe"; empty: the path
  int moduleRouteLate = 0;        // so many first calls of it fail all the same, as right after a start
  bool imageRoute = true;         // GetProcessImageFileNameW works, with the right to query
  std::wstring imageText = {};    // what it says; empty: the path behind its drive's device name
  std::int64_t created = 0;       // 100-nanosecond steps since 1601 in UTC; 0: now, -1: a creation time of 0
  std::wstring user = L"Tester";  // whose special folders its token finds
};

/// Starts a process that nobody in the code under test asked for. Returns its pid. A pid that is taken ends the program.
std::uint32_t StartProcess(const ProcessSpec& spec);

/// As above, with nothing but a path.
std::uint32_t StartProcess(const std::wstring& path);

/// Changes what the system shows of a process, living or dead. Ends the program for an unknown pid.
void EditProcess(std::uint32_t pid, const std::function<void(ProcessSpec&)>& edit);

/// Ends a process: its list row, windows and pipes go at once; its id and object stay while handles to it are open.
/// False when it was not running.
bool EndProcess(std::uint32_t pid, std::uint32_t exitCode = 0);

/// EndProcess with 0xC0000005.
bool CrashProcess(std::uint32_t pid);

bool IsRunning(std::uint32_t pid);

/// The exit code of the last process of that id, nothing while one runs or when none ever did.
std::optional<std::uint32_t> ExitCode(std::uint32_t pid);

/// The pids of running processes, ascending, without the host; or of those only that run a path.
std::vector<std::uint32_t> RunningPids();
std::vector<std::uint32_t> RunningPids(const std::wstring& path);

/// The pid that the next process gets, if it is free.
void SetNextPid(std::uint32_t pid);

/// Lets a pid be given out again once so many processes have started since its process ended; 0: never.
void SetPidReuse(int starts);

/// What the check of the administrator says of the host's user; false in a fresh world.
void SetUserAdmin(bool admin);

/// Whether the host, and so each child that it starts, is elevated.
void SetHostElevated(bool elevated);

/// A simulated program's view of its own process.
class Child {
public:
  Child(std::uint32_t pid, std::wstring arguments) : m_pid(pid), m_arguments(std::move(arguments)) {}

  std::uint32_t Pid() const { return m_pid; }

  /// The command text behind the program's path.
  const std::wstring& Arguments() const { return m_arguments; }

  /// Waits in simulated time. False when the process has ended meanwhile.
  bool SleepFor(std::uint32_t milliseconds) const;

private:
  std::uint32_t m_pid;
  std::wstring m_arguments;
};

/// A program that CreateProcessW can start.
struct Program {
  ProcessSpec process = {};                // path, pid and elevation are filled in by the start
  std::optional<EditorScript> editor = {}; // an editor that serves its pipe, or none
  std::function<void(Child&)> main = {};   // runs on a thread of its own; the process goes on when it returns
  std::uint32_t startError = 0;            // CreateProcessW gives this error instead
  std::uint32_t startMs = 0;               // how long CreateProcessW takes, in simulated time
};

/// Makes the file and registers it as a program. Later starts use the latest registration.
void InstallProgram(const std::wstring& path, const Program& program = {});

/// Puts both editor programs and the pipe library into the SDK library's folder, each an editor with that script.
void InstallEditors(const EditorScript& script = {});

/// One start by CreateProcessW that succeeded.
struct StartedProgram {
  std::uint32_t pid = 0;
  std::wstring path;
  std::wstring commandText;
  std::uint64_t atMs = 0; // simulated
};

/// All of them, in order.
std::vector<StartedProgram> StartedPrograms();

namespace internal {

// All of these need the mutex.
std::uint32_t GetHostPid();
void SetHostPath(const std::wstring& path);
std::wstring UserOf(std::uint32_t pid);
bool UserOfToken(platform::Handle token, std::wstring* user);
/// The serial number of the running process of an id, 0 when there is none.
std::uint64_t RunningSerial(std::uint32_t pid);
/// Ends the process if it is still that one.
void EndIfSame(std::uint32_t pid, std::uint64_t serial, std::uint32_t exitCode);
/// Wakes whenever any process ends.
std::condition_variable& ProcessEnded();
/// What PSAPI needs of a process handle: false with a last error when the handle lacks the rights.
bool ReadModuleText(platform::Handle handle, std::wstring* text);
bool ReadImageText(platform::Handle handle, std::wstring* text);
std::vector<std::uint32_t> ListedPids();
/// The entries of PSAPI by name.
std::map<std::string, void*> PsapiEntries();

} // namespace internal

} // namespace sim
