#include "tools/vexelctl/guarded_close.h"

#include <windows.h>

#include "tools/vexelctl/console.h"

namespace vexelctl {
namespace {

DWORD g_thread = 0; // the thread that is in CloseEditor
const std::string* g_sentence = nullptr;

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
  if (pointers->ExceptionRecord->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || GetCurrentThreadId() != g_thread) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  Warn(*g_sentence);
  EndConsole();
  TerminateProcess(GetCurrentProcess(), kExitProblem);
  return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

bool CloseGuarded(const SdkLibrary& sdk, std::int32_t id, bool closeAll, const std::string& sentence) {
  g_sentence = &sentence;
  g_thread = GetCurrentThreadId();
  void* const handler = AddVectoredExceptionHandler(1, OnException);
  const bool asksUser = sdk.closeEditor(id, closeAll);
  RemoveVectoredExceptionHandler(handler);
  g_thread = 0;
  return asksUser;
}

} // namespace vexelctl
