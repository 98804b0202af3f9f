#include "tests/windows/host/stage.h"

namespace testhost {
namespace {

constexpr UINT kCreate = WM_APP + 1;
constexpr UINT kDestroy = WM_APP + 2;

HWND control = nullptr;

LRESULT CALLBACK ControlProc(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  if (message == kCreate) {
    return reinterpret_cast<LRESULT>(CreateWindowExW(0, L"STATIC", L"tab", WS_OVERLAPPEDWINDOW, 0, 0, 640, 480, nullptr,
                                                     nullptr, GetModuleHandleW(nullptr), nullptr));
  }
  if (message == kDestroy) {
    return DestroyWindow(reinterpret_cast<HWND>(wide));
  }
  return DefWindowProcW(window, message, wide, extra);
}

} // namespace

int RunStage(void (*ready)()) {
  WNDCLASSEXW info{};
  info.cbSize = sizeof info;
  info.lpfnWndProc = &ControlProc;
  info.hInstance = GetModuleHandleW(nullptr);
  info.lpszClassName = L"VexelTestHost";
  RegisterClassExW(&info);
  control = CreateWindowExW(0, info.lpszClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, info.hInstance, nullptr);
  if (control == nullptr) {
    return 1;
  }
  ready();
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    DispatchMessageW(&message);
  }
  return 0;
}

HWND CreateStageWindow() { return reinterpret_cast<HWND>(SendMessageW(control, kCreate, 0, 0)); }

bool DestroyStageWindow(HWND window) {
  return SendMessageW(control, kDestroy, reinterpret_cast<WPARAM>(window), 0) != 0;
}

} // namespace testhost
