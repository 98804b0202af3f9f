#include "platform/module.h"

#include <windows.h>

namespace platform {

Module GetModuleHandleW(const wchar_t* name) { return ::GetModuleHandleW(name); }

Module GetModuleHandleOfAddress(const void* address) {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<const wchar_t*>(address), &module);
  return module;
}

Module ReferenceModuleOfAddress(const void* address) {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, static_cast<const wchar_t*>(address), &module);
  return module;
}

Module LoadLibraryW(const wchar_t* path) { return ::LoadLibraryW(path); }

void* GetProcAddress(Module module, const char* name) {
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(module), name));
}

bool FreeLibrary(Module module) { return ::FreeLibrary(static_cast<HMODULE>(module)) != FALSE; }

std::uint32_t GetModuleFileNameW(Module module, wchar_t* buffer, std::uint32_t size) {
  return ::GetModuleFileNameW(static_cast<HMODULE>(module), buffer, size);
}

} // namespace platform
