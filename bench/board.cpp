#include "bench/board.h"

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

Board* OpenBoard() {
  wchar_t name[64] = {};
  if (GetEnvironmentVariableW(kBoardVariable, name, 64) == 0) {
    std::swprintf(name, 64, L"vexelbench-%lu", GetCurrentProcessId());
    SetEnvironmentVariableW(kBoardVariable, name);
  }
  const HANDLE memory =
      CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(sizeof(Board)), name);
  void* const view = memory == nullptr ? nullptr : MapViewOfFile(memory, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Board));
  if (view == nullptr) {
    std::fprintf(stderr, "no shared memory: error %lu\n", GetLastError());
    std::exit(1);
  }
  return static_cast<Board*>(view);
}

} // namespace

Board& TheBoard() {
  static Board* const board = OpenBoard(); // zeroed by the system when it is made
  return *board;
}

void EndEditors() {
  Board& board = TheBoard();
  const std::uint32_t editors = board.editors.load();
  for (std::uint32_t i = 0; i < editors && i < kMaxEditors; ++i) {
    EditorPlace& place = board.places[i];
    if (place.pid.load() == 0) {
      continue;
    }
    const HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, place.pid.load());
    if (process != nullptr) {
      TerminateProcess(process, 0);
      WaitForSingleObject(process, 10000);
      CloseHandle(process);
    }
    place.pid = 0;
    place.readyAt = 0;
    place.openedAt = 0;
    place.operators = 0;
    place.eventsSent = 0;
  }
  board.editors = 0;
}

} // namespace bench
