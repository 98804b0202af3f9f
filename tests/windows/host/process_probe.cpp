#include "tests/windows/host/process_probe.h"

#include "tests/windows/host/console.h"
#include "tests/windows/host/wire.h"

#include <windows.h>

#include <winternl.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

namespace testhost {
namespace {

constexpr std::uintptr_t kHandleStep = 4;
constexpr std::uintptr_t kHandleEnd = 0x10000;

constexpr std::wstring_view kInstanceMutex = L"{bdbc4e79-d9a7-473f-b0bb-48ab50548842}";

using NtQueryObjectFn = NTSTATUS(NTAPI*)(HANDLE, OBJECT_INFORMATION_CLASS, void*, ULONG, ULONG*);
constexpr auto kObjectNameInformation = static_cast<OBJECT_INFORMATION_CLASS>(1);

constexpr auto kObjectTypeInformation = static_cast<OBJECT_INFORMATION_CLASS>(2);

/// A text that the system knows about an object of this process; both kinds of answer begin with it.
std::wstring QueryObject(HANDLE handle, OBJECT_INFORMATION_CLASS kind) {
  static const auto query = reinterpret_cast<NtQueryObjectFn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
  alignas(UNICODE_STRING) std::array<unsigned char, 2048> buffer{};
  ULONG size = 0;
  if (query == nullptr || query(handle, kind, buffer.data(), static_cast<ULONG>(buffer.size()), &size) < 0) {
    return {};
  }
  const auto* const text = reinterpret_cast<const UNICODE_STRING*>(buffer.data());
  return text->Buffer == nullptr ? std::wstring() : std::wstring(text->Buffer, text->Length / sizeof(wchar_t));
}

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  HMODULE module = nullptr;
  std::wstring name = L"none";
  if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         static_cast<const wchar_t*>(record.ExceptionAddress), &module)) {
    std::array<wchar_t, MAX_PATH> path{};
    const DWORD length = GetModuleFileNameW(module, path.data(), MAX_PATH);
    name.assign(path.data(), length);
    name.erase(0, name.find_last_of(L"\\/") + 1);
  }
  std::array<char, 64> numbers{};
  std::snprintf(numbers.data(), numbers.size(), "%lx %llx", static_cast<unsigned long>(record.ExceptionCode),
                static_cast<unsigned long long>(record.ExceptionInformation[1]));
  PrintLine("fault " + std::string(numbers.data()) + " " + wire::Encode(name));
  return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

std::wstring HandleType(void* handle) { return QueryObject(handle, kObjectTypeInformation); }

std::size_t CloseHandlesTo(std::uint32_t pid) {
  std::size_t closed = 0;
  for (std::uintptr_t value = kHandleStep; value < kHandleEnd; value += kHandleStep) {
    const HANDLE handle = reinterpret_cast<HANDLE>(value);
    if (GetProcessId(handle) == pid && CloseHandle(handle)) {
      ++closed;
    }
  }
  return closed;
}

std::size_t CountInstanceMutexes() {
  std::size_t count = 0;
  for (std::uintptr_t value = kHandleStep; value < kHandleEnd; value += kHandleStep) {
    const HANDLE handle = reinterpret_cast<HANDLE>(value);
    DWORD flags = 0;
    // The type first: a pipe's name cannot be asked for while someone waits on it.
    if (GetHandleInformation(handle, &flags) && HandleType(handle) == L"Mutant" &&
        QueryObject(handle, kObjectNameInformation).find(kInstanceMutex) != std::wstring::npos) {
      ++count;
    }
  }
  return count;
}

void WatchFaults() { AddVectoredExceptionHandler(1, &OnException); }

} // namespace testhost
