#include "foundation/logger.h"
#include "foundation/paths.h"

#include <windows.h>

#include <string>

// The module questions, asked from inside a library. Each writes its answer into 520 units.

namespace {

void Answer(const std::wstring& text, wchar_t* buffer) { ::lstrcpynW(buffer, text.c_str(), 520); }

} // namespace

extern "C" __declspec(dllexport) void ProbeModuleFile(wchar_t* buffer) {
  Answer(vx::GetModuleFilePath(vx::ThisModule()), buffer);
}

extern "C" __declspec(dllexport) void ProbeModuleDirectory(wchar_t* buffer) {
  Answer(vx::GetModuleDirectory(), buffer);
}

extern "C" __declspec(dllexport) void ProbeLogPath(wchar_t* buffer) { Answer(vx::BuildLogFilePath(), buffer); }
