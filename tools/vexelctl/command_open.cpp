#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/open_host.h"
#include "tools/vexelctl/sdk_library.h"
#include "tools/vexelctl/windows_util.h"

#include <windows.h>

#include <string>
#include <thread>
#include <vector>

namespace vexelctl {

int RunOpen(const OpenOptions& options) {
  std::vector<std::wstring> paths;
  for (const std::string& picture : options.pictures) {
    const std::wstring path = FullPath(ToWide(picture));
    if (!IsFile(path)) {
      return Fail("there is no picture '" + picture + "'", kExitInput);
    }
    paths.push_back(path);
  }
  SdkLibrary sdk;
  std::string error;
  if (!sdk.Load(LibraryPath(options.sdk), &error)) {
    return Fail(error, kExitInput);
  }
  SetProcessDPIAware();
  // Never destroyed: the thread that reads standard input has no end of its own.
  auto* const host = new OpenHost(options, sdk);
  if (!host->CreateClass()) {
    return kExitInput;
  }
  // Before the first open, with which the library starts processes.
  std::vector<HWND> windows;
  for (const std::wstring& path : paths) {
    windows.push_back(host->MakeWindow(path));
    if (windows.back() == nullptr) {
      return Fail("no window can be made: is there a display?", kExitInput);
    }
  }
  if (IsTyped() && !options.isJson) {
    PrintLine("commands, one in a line; 'help' lists them");
  }
  for (std::size_t i = 0; i < paths.size(); ++i) {
    host->OpenIn(windows[i], paths[i]);
  }
  std::thread([host] {
    for (std::string line; ReadLine(&line);) {
      host->TakeLine(line);
    }
    host->EndOfInput();
  }).detach();
  const int code = host->Run();
  EndConsole();
  // That thread sits in a read, and would hold up the runtime's end.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  return code;
}

} // namespace vexelctl
