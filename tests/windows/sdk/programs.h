#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Processes, seen from outside. No function here leaves a handle open.
namespace sdktest {

struct Program {
  std::uint32_t pid;
  std::wstring name; // file name
};

/// The processes whose image lies in `folder` or below it.
std::vector<Program> ProgramsUnder(const std::wstring& folder);

/// Ends a process and waits for its end.
void EndProgram(std::uint32_t pid);

/// Whether a process runs that has this id and has not ended. A process that is listed and has ended does not count.
bool IsRunning(std::uint32_t pid);

/// A handle to a process. On some systems the process stays listed after its end for as long as one is open.
class ProgramHandle {
public:
  explicit ProgramHandle(std::uint32_t pid);
  ~ProgramHandle();
  ProgramHandle(const ProgramHandle&) = delete;
  ProgramHandle& operator=(const ProgramHandle&) = delete;

  /// Waits for the process's end. False after the limit of WaitFor.
  bool WaitForEnd() const;
  /// Also for a process that was not there any more.
  bool HasEnded() const;

private:
  void* m_handle;
};

} // namespace sdktest
