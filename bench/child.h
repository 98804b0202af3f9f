#pragma once

#include <windows.h>

#include <string>

namespace bench {

/// A program of this folder that runs beside this one. Ended with the object.
class Child {
public:
  /// Starts `program` (a file name) with an argument text. Ends this program on failure.
  Child(const std::wstring& program, const std::wstring& arguments);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits for its end, `milliseconds` at most. Its exit code, or -1 when it still runs.
  int Wait(DWORD milliseconds);

  DWORD Pid() const { return m_pid; }

private:
  HANDLE m_process = nullptr;
  DWORD m_pid = 0;
};

/// ASCII text as wide text.
inline std::wstring Wide(const std::string& text) { return {text.begin(), text.end()}; }

} // namespace bench
