/* first_picture PICTURE [--leave-on WORD]
   Shows one picture in a window and prints each event. With --leave-on it goes by itself after the first event that holds
   the word. */

#define UNICODE
#include <windows.h>

#include <shellapi.h>
#include <stdio.h>
#include <string.h>
#include <vexelsdk.h>

enum { kEventMessage = WM_APP, kGiveUpTimer = 1, kGiveUpMs = 15000 };

static int32_t g_id;
static bool g_connected; /* the editor runs and can be told something */
static char g_leaveOn[100];

/* Runs on threads of the library: hands the text to the window's thread and returns. */
static void OnEvent(char* text, void* data) {
  if (!PostMessageW((HWND)data, kEventMessage, 0, (LPARAM)text)) {
    ReleaseCallbackData(text);
  }
}

static void Place(HWND window) {
  RECT area;
  if (g_connected && GetClientRect(window, &area)) {
    SetWindowsPos(g_id, 0, 0, area.right, area.bottom);
  }
}

/* A real host parses the JSON; to look for the word is enough to begin with. */
static bool Says(const char* text, const char* word) { return strstr(text, word) != NULL; }

static void HandleEvent(HWND window, const char* text) {
  printf("%s\n", text);
  fflush(stdout);
  if (Says(text, "\"" VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS "\"")) {
    g_connected = true;
    Place(window);
    if (!IsWindowVisible(window)) { /* closed before the editor was there */
      PostMessageW(window, WM_CLOSE, 0, 0);
    }
  } else if (Says(text, "\"" VEXELSDK_EVENT_FINISH_OPERATOR "\"")) {
    DestroyWindow(window);
  } else if (Says(text, "\"" VEXELSDK_EVENT_RUN_ERROR "\"")) {
    /* The library made the window transparent to the mouse; nobody but the host takes that back. */
    SetWindowLongPtrW(window, GWL_EXSTYLE, GetWindowLongPtrW(window, GWL_EXSTYLE) & ~(LONG_PTR)WS_EX_TRANSPARENT);
    DestroyWindow(window);
  }
  if (g_leaveOn[0] != '\0' && Says(text, g_leaveOn)) {
    PostMessageW(window, WM_CLOSE, 0, 0);
  }
}

static void Close(HWND window) {
  if (!g_connected) {
    /* Never close an id without an editor. Wait for it out of sight, but not for ever. */
    ShowWindow(window, SW_HIDE);
    SetTimer(window, kGiveUpTimer, kGiveUpMs, NULL);
  } else if (!CloseEditor(g_id, false)) {
    DestroyWindow(window);
  } /* else the editor asks about unsaved changes, and "finish_operator" comes if it goes */
}

static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
  case kEventMessage:
    HandleEvent(window, (const char*)lParam);
    ReleaseCallbackData((char*)lParam);
    return 0;
  case WM_MOVE:
  case WM_SIZE:
    Place(window);
    return 0;
  case WM_CLOSE:
    Close(window);
    return 0;
  case WM_TIMER:
    DestroyWindow(window);
    return 0;
  case WM_DESTROY:
    PostQuitMessage(0);
    return 0;
  default:
    return DefWindowProcW(window, message, wParam, lParam);
  }
}

int main(void) {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  if (arguments == NULL || count < 2) {
    fprintf(stderr, "usage: first_picture PICTURE [--leave-on WORD]\n");
    return 2;
  }
  if (count > 3 && wcscmp(arguments[2], L"--leave-on") == 0) {
    WideCharToMultiByte(CP_UTF8, 0, arguments[3], -1, g_leaveOn, sizeof g_leaveOn - 1, NULL, NULL);
  }

  WNDCLASSW windowClass = {.lpfnWndProc = WindowProc, .lpszClassName = L"FirstPicture"};
  RegisterClassW(&windowClass);
  HWND window = CreateWindowW(L"FirstPicture", arguments[1], WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN, 60, 60,
                              900, 600, NULL, NULL, NULL, NULL);
  if (window == NULL) {
    fprintf(stderr, "no window (error %lu)\n", GetLastError());
    return 1;
  }

  VexelSDK_Init(NULL);
  g_id = OpenEditor(arguments[1], window, 0, NULL);
  SetBrowserCallback(g_id, OnEvent, window); /* directly behind it */

  MSG message;
  while (GetMessageW(&message, NULL, 0, 0) > 0) {
    DispatchMessageW(&message);
  }
  VexelSDK_UnInit(); /* runs what is still queued, the close among it */
  LocalFree(arguments);
  return 0;
}
