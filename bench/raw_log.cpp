#include "bench/raw_log.h"

#include "bench/sdk_library.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <sstream>

namespace bench {

RawLog::RawLog(const std::wstring& name) {
  std::wstring path = ProgramFolder() + name;
  m_file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
  std::replace(path.begin(), path.end(), L'\\', L'/');
  m_mutex = CreateMutexW(nullptr, FALSE, (L"Global\\" + path).c_str());
  if (m_file == INVALID_HANDLE_VALUE || m_mutex == nullptr) {
    std::fprintf(stderr, "no raw log: error %lu\n", GetLastError());
    std::exit(1);
  }
}

RawLog::~RawLog() {
  CloseHandle(m_file);
  CloseHandle(m_mutex);
}

void RawLog::Line(const wchar_t* function, const char* text) {
  std::wostringstream stream;
  SYSTEMTIME now;
  GetLocalTime(&now);
  stream << L"[" << std::left << std::setw(5) << GetCurrentThreadId() << L"|" << std::right << std::setfill(L'0')
         << std::setw(4) << now.wYear << L"-" << std::setw(2) << now.wMonth << L"-" << std::setw(2) << now.wDay << L" "
         << std::setw(2) << now.wHour << L":" << std::setw(2) << now.wMinute << L":" << std::setw(2) << now.wSecond
         << L"|" << std::setfill(L' ') << std::setw(7) << L"INFO" << L"|" << L"file.cpp" << L":" << 120 << L"] "
         << function << " " << text << L"\r\n";
  const std::wstring wide = stream.str();
  std::string line(wide.size() * 4, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), line.data(),
                                       static_cast<int>(line.size()), nullptr, nullptr);
  WaitForSingleObject(m_mutex, INFINITE);
  SetFilePointer(m_file, 0, nullptr, FILE_END);
  DWORD written = 0;
  WriteFile(m_file, line.data(), static_cast<DWORD>(size), &written, nullptr);
  ReleaseMutex(m_mutex);
}

} // namespace bench
