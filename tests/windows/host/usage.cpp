#include "tests/windows/host/usage.h"

#include "tests/windows/host/process_probe.h"

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

#include <functional>
#include <set>
#include <utility>
#include <vector>

namespace testhost {
namespace {

constexpr std::uintptr_t kHandleStep = 4;
/// So many values in a row without a handle mean that there are no more.
constexpr int kGap = 4096;

/// Calls `look` with each open handle of this process.
void ForEachHandle(const std::function<void(HANDLE)>& look) {
  int gap = 0;
  for (std::uintptr_t value = kHandleStep; gap < kGap; value += kHandleStep) {
    const HANDLE handle = reinterpret_cast<HANDLE>(value);
    DWORD flags = 0;
    if (GetHandleInformation(handle, &flags)) {
      gap = 0;
      look(handle);
    } else {
      ++gap;
    }
  }
}

/// The rights that a handle was opened with.
ACCESS_MASK GrantedAccess(HANDLE handle) {
  using NtQueryObjectFn = NTSTATUS(NTAPI*)(HANDLE, OBJECT_INFORMATION_CLASS, void*, ULONG, ULONG*);
  static const auto query = reinterpret_cast<NtQueryObjectFn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
  PUBLIC_OBJECT_BASIC_INFORMATION basic{};
  return query != nullptr && query(handle, ObjectBasicInformation, &basic, sizeof basic, nullptr) >= 0
             ? basic.GrantedAccess
             : 0;
}

bool HasEnded(HANDLE process) {
  DWORD code = STILL_ACTIVE;
  return GetExitCodeProcess(process, &code) && code != STILL_ACTIVE;
}

void MeasureHeaps(Usage& usage) {
  std::vector<HANDLE> heaps(256);
  heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
  for (const HANDLE heap : heaps) {
    HeapLock(heap);
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry)) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) {
        usage.heapBytes += entry.cbData;
        ++usage.heapBlocks;
      }
    }
    HeapUnlock(heap);
  }
}

std::uint64_t PrivateBytes() {
  std::uint64_t bytes = 0;
  std::uintptr_t at = 0; // a number: the addresses run over regions that are no objects
  MEMORY_BASIC_INFORMATION region{};
  while (VirtualQuery(reinterpret_cast<const void*>(at), &region, sizeof region) == sizeof region) {
    if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) {
      bytes += region.RegionSize;
    }
    at = reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize;
  }
  return bytes;
}

std::size_t CountThreads() {
  std::size_t count = 0;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1U : 0U;
  }
  CloseHandle(snapshot);
  return count;
}

} // namespace

Usage MeasureUsage() {
  Usage usage;
  MeasureHeaps(usage);
  usage.privateBytes = PrivateBytes();
  usage.threads = CountThreads();
  ForEachHandle([&](HANDLE handle) {
    std::string type;
    for (const wchar_t unit : HandleType(handle)) {
      type += static_cast<char>(unit);
    }
    ++usage.handles[type];
  });
  return usage;
}

std::size_t CloseHandlesToTheDead() {
  static std::set<HANDLE> seen;
  std::set<HANDLE> suspects;
  std::size_t closed = 0;
  ForEachHandle([&](HANDLE handle) {
    // Whoever may read memory, or may not ask, is at it just now and closes the handle itself.
    if (GetProcessId(handle) == 0 || !HasEnded(handle)) {
      return;
    }
    const ACCESS_MASK access = GrantedAccess(handle);
    if ((access & PROCESS_QUERY_INFORMATION) == 0 || (access & PROCESS_VM_READ) != 0) {
      return;
    }
    if (!seen.contains(handle)) {
      suspects.insert(handle);
    } else if (CloseHandle(handle)) {
      ++closed;
    }
  });
  seen = std::move(suspects);
  return closed;
}

} // namespace testhost
