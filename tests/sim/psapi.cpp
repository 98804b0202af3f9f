#include <algorithm>
#include <cstring>

#include "platform/types.h"
#include "tests/sim/core.h"
#include "tests/sim/process.h"

// The entries of PSAPI.DLL, which callers reach through GetProcAddress only.
namespace sim::internal {
namespace {

using platform::Handle;
using platform::Module;

// The one module that this PSAPI knows of a process: its executable.
Module ImageModule() { return reinterpret_cast<Module>(static_cast<std::uintptr_t>(0x140000000)); }

std::uint32_t CopyOut(const std::wstring& text, wchar_t* buffer, std::uint32_t size) {
  if (size == 0) {
    Leave(kInsufficientBuffer);
    return 0;
  }
  if (!CopyText(text, buffer, size)) {
    Leave(kInsufficientBuffer);
    return size;
  }
  return static_cast<std::uint32_t>(text.size());
}

std::uint32_t GetModuleFileNameExW(Handle process, Module module, wchar_t* buffer, std::uint32_t size) {
  Call call("GetModuleFileNameExW");
  std::wstring text;
  if (call.Fails(kAccessDenied) || !ReadModuleText(process, &text)) {
    return 0;
  }
  if (module != nullptr && module != ImageModule()) {
    Leave(kInvalidHandleValue);
    return 0;
  }
  return CopyOut(text, buffer, size);
}

std::uint32_t GetModuleBaseNameW(Handle process, Module module, wchar_t* buffer, std::uint32_t size) {
  Call call("GetModuleBaseNameW");
  std::wstring text;
  if (call.Fails(kAccessDenied) || !ReadModuleText(process, &text)) {
    return 0;
  }
  if (module != nullptr && module != ImageModule()) {
    Leave(kInvalidHandleValue);
    return 0;
  }
  return CopyOut(text.substr(text.rfind(L'\\') + 1), buffer, size);
}

std::uint32_t GetProcessImageFileNameW(Handle process, wchar_t* buffer, std::uint32_t size) {
  Call call("GetProcessImageFileNameW");
  std::wstring text;
  if (call.Fails(kAccessDenied) || !ReadImageText(process, &text)) {
    return 0;
  }
  // This one cuts nothing: it fails when the text and its terminator do not fit.
  if (text.size() + 1 > size) {
    Leave(kInsufficientBuffer);
    return 0;
  }
  CopyText(text, buffer, size);
  return static_cast<std::uint32_t>(text.size());
}

std::int32_t ListModules(Handle process, Module* modules, std::uint32_t bytes, std::uint32_t* needed) {
  std::wstring text;
  if (!ReadModuleText(process, &text)) {
    return 0;
  }
  if (bytes >= sizeof(Module)) {
    modules[0] = ImageModule();
  }
  *needed = sizeof(Module);
  return 1;
}

std::int32_t EnumProcessModules(Handle process, Module* modules, std::uint32_t bytes, std::uint32_t* needed) {
  Call call("EnumProcessModules");
  return call.Fails(kAccessDenied) ? 0 : ListModules(process, modules, bytes, needed);
}

std::int32_t EnumProcessModulesEx(Handle process, Module* modules, std::uint32_t bytes, std::uint32_t* needed,
                                  std::uint32_t /*filter*/) {
  Call call("EnumProcessModulesEx");
  return call.Fails(kAccessDenied) ? 0 : ListModules(process, modules, bytes, needed);
}

std::int32_t EnumProcesses(std::uint32_t* pids, std::uint32_t bytes, std::uint32_t* needed) {
  Call call("EnumProcesses");
  if (call.Fails(kNotEnoughMemory)) {
    return 0;
  }
  std::vector<std::uint32_t> listed = ListedPids();
  listed.insert(listed.begin(), 0);
  const std::size_t count = std::min<std::size_t>(listed.size(), bytes / sizeof(std::uint32_t));
  std::copy_n(listed.begin(), count, pids);
  *needed = static_cast<std::uint32_t>(count * sizeof(std::uint32_t));
  return 1;
}

} // namespace

std::map<std::string, void*> PsapiEntries() {
  return {{"EnumProcessModules", reinterpret_cast<void*>(&EnumProcessModules)},
          {"EnumProcessModulesEx", reinterpret_cast<void*>(&EnumProcessModulesEx)},
          {"EnumProcesses", reinterpret_cast<void*>(&EnumProcesses)},
          {"GetModuleBaseNameW", reinterpret_cast<void*>(&GetModuleBaseNameW)},
          {"GetModuleFileNameExW", reinterpret_cast<void*>(&GetModuleFileNameExW)},
          {"GetProcessImageFileNameW", reinterpret_cast<void*>(&GetProcessImageFileNameW)}};
}

} // namespace sim::internal
