#include "tools/vexelctl/log_file.h"

#include "tools/vexelctl/console.h"
#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <utility>

namespace vexelctl {

LogFile::~LogFile() {
  if (m_file != nullptr) {
    CloseHandle(m_file);
  }
}

bool LogFile::Open(const std::string& path, std::string* error) {
  const std::wstring wide = ToWide(path);
  if (IsFolder(wide)) {
    *error = "'" + path + "' is a folder, not a log";
    return false;
  }
  const HANDLE file = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    const DWORD code = GetLastError();
    *error = code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_INVALID_NAME
                 ? "there is no file '" + path + "'"
                 : "'" + path + "' cannot be read, " + SystemMessage(code);
    return false;
  }
  m_file = file;
  return true;
}

bool LogFile::ReadMore(std::string* bytes, bool* wasEmptied, std::string* error) {
  bytes->clear();
  LARGE_INTEGER size{};
  *wasEmptied = GetFileSizeEx(m_file, &size) != 0 && size.QuadPart < m_position;
  if (*wasEmptied) {
    m_position = 0;
  }
  LARGE_INTEGER position{};
  position.QuadPart = m_position;
  SetFilePointerEx(m_file, position, nullptr, FILE_BEGIN);
  char buffer[65536];
  for (;;) {
    DWORD done = 0;
    if (ReadFile(m_file, buffer, sizeof buffer, &done, nullptr) == 0) {
      *error = "the log cannot be read, " + SystemMessage(GetLastError());
      return false;
    }
    if (done == 0) {
      return true;
    }
    bytes->append(buffer, done);
    m_position += done;
  }
}

int ReadWholeLog(const std::string& path, std::vector<LogRecord>* records, int* runCount) {
  LogFile file;
  std::string error;
  std::string bytes;
  bool wasEmptied = false;
  if (!file.Open(path, &error) || !file.ReadMore(&bytes, &wasEmptied, &error)) {
    return Fail(error, kExitInput);
  }
  LogReader reader;
  *records = reader.Feed(bytes);
  *runCount = reader.RunCount();
  if (reader.IsNoLog()) {
    return Fail("'" + path + "' is no log of the SDK: none of its lines begins like one", kExitInput);
  }
  if (bytes.empty()) {
    return Fail("'" + path + "' is empty: nothing has been logged since it was made or emptied", kExitInput);
  }
  if (!reader.HalfLine().empty()) {
    return Fail("'" + path + "' ends in the middle of line " + std::to_string(reader.LineCount() + 1) +
                    ", which is left out",
                kExitHalfLog);
  }
  return kExitFine;
}

} // namespace vexelctl
