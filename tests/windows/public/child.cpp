#include <windows.h>

#include <cwchar>
#include <string>

namespace {

// Writes UTF-16 to a file that appears under its name only when it is whole.
bool Report(const std::wstring& path, const std::wstring& text) {
  const std::wstring unfinished = path + L".new";
  const HANDLE file =
      ::CreateFileW(unfinished.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return false;
  }
  const auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  DWORD done = 0;
  const bool written = ::WriteFile(file, text.data(), size, &done, nullptr) != FALSE && done == size;
  ::CloseHandle(file);
  return written && ::MoveFileExW(unfinished.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
}

} // namespace

// public_child wait EVENT: stays until the named event is signalled, two minutes at most.
// public_child report FILE ...: writes its command line, folder and one environment variable, a line each, and ends.
// public_child: ends at once.
int wmain(int argc, wchar_t** argv) {
  if (argc >= 3 && std::wcscmp(argv[1], L"wait") == 0) {
    const HANDLE event = ::OpenEventW(SYNCHRONIZE, FALSE, argv[2]);
    return event != nullptr && ::WaitForSingleObject(event, 120000) == WAIT_OBJECT_0 ? 0 : 1;
  }
  if (argc >= 3 && std::wcscmp(argv[1], L"report") == 0) {
    wchar_t folder[1024] = {};
    wchar_t variable[256] = {};
    ::GetCurrentDirectoryW(1024, folder);
    ::GetEnvironmentVariableW(L"VEXEL_PUBLIC_TEST", variable, 256);
    return Report(argv[2], std::wstring(::GetCommandLineW()) + L"\n" + folder + L"\n" + variable + L"\n") ? 0 : 1;
  }
  return 0;
}
