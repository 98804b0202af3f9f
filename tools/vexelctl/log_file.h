#pragma once

#include "tools/vexelctl/log_reader.h"

#include <string>
#include <vector>

namespace vexelctl {

/// A log on disk, also while hosts write to it. One thread.
class LogFile {
public:
  LogFile() = default;
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Opens the file. False with a sentence when that fails.
  bool Open(const std::string& path, std::string* error);

  /// Reads what has been added since the last call. `wasEmptied` says that the file has become shorter: it is read from
  /// its beginning again. False with a sentence when the disk fails.
  bool ReadMore(std::string* bytes, bool* wasEmptied, std::string* error);

private:
  void* m_file = nullptr;
  std::int64_t m_position = 0;
};

/// Reads a whole log. The exit code: fine, no log, or half written, the last two told on standard error. With a half
/// line at its end the records before it are given.
int ReadWholeLog(const std::string& path, std::vector<LogRecord>* records, int* runCount);

} // namespace vexelctl
