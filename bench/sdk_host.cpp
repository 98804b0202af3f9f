#include "bench/sdk_host.h"

#include "bench/clock.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr wchar_t kPicture[] = L"C:\\pictures\\a picture of ordinary length.png";

std::uint32_t Places() { return std::min<std::uint32_t>(TheBoard().editors.load(), kMaxEditors); }

} // namespace

void WaitUntil(const char* what, const std::function<bool()>& holds) {
  const double start = NowUs();
  while (!holds()) {
    if (NowUs() - start > 60e6) {
      std::fprintf(stderr, "waited in vain for %s\n", what);
      std::exit(1);
    }
    Sleep(1);
  }
}

void BecomeHost() {
  TheBoard().hostPid = GetCurrentProcessId();
  wchar_t folder[MAX_PATH] = {};
  SHGetSpecialFolderPathW(nullptr, folder, CSIDL_LOCAL_APPDATA, FALSE);
  DeleteFileW((std::wstring(folder) + L"\\norvelVexel\\config_temp.ini").c_str());
}

EditorPlace& OpenAndWait(const SdkLibrary& sdk, std::uintptr_t window, std::int32_t* id) {
  Board& board = TheBoard();
  std::vector<double> before(kMaxEditors);
  for (std::uint32_t i = 0; i < kMaxEditors; ++i) {
    before[i] = board.places[i].openedAt.load();
  }
  *id = sdk.openEditor(kPicture, WindowOf(window), 0, nullptr);
  EditorPlace* opened = nullptr;
  WaitUntil("an open", [&] {
    for (std::uint32_t i = 0; i < Places(); ++i) {
      if (board.places[i].openedAt.load() != before[i]) {
        opened = &board.places[i];
      }
    }
    return opened != nullptr;
  });
  return *opened;
}

std::uint32_t WaitingEditors() {
  std::uint32_t waiting = 0;
  for (std::uint32_t i = 0; i < Places(); ++i) {
    const EditorPlace& place = TheBoard().places[i];
    if (place.readyAt.load() != 0 && place.openedAt.load() == 0) {
      ++waiting;
    }
  }
  return waiting;
}

double TimeOfDelivery(EditorPlace& editor, const std::function<void()>& call) {
  const std::uint32_t number = editor.operators.load(std::memory_order_acquire);
  const double start = NowUs();
  call();
  WaitUntil("a message at the editor", [&] { return editor.operators.load(std::memory_order_acquire) != number; });
  return editor.operatorAt[number % kKeptTimes].load() - start;
}

} // namespace bench
