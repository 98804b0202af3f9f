#pragma once

#include <windows.h>

#include <string>

namespace bench {

/// What one log line costs at the least: formatting by a stream, a shared mutex, a seek, one write.
class RawLog {
public:
  /// Makes the file `name` in this program's folder anew. Ends the program on failure.
  explicit RawLog(const std::wstring& name);
  ~RawLog();
  RawLog(const RawLog&) = delete;
  RawLog& operator=(const RawLog&) = delete;

  /// A line of the log's form with a function's name, a blank, and a text.
  void Line(const wchar_t* function, const char* text);

private:
  HANDLE m_mutex = nullptr;
  HANDLE m_file = nullptr;
};

} // namespace bench
