/* The public header as a C compiler takes it: each export has the type that the header names for hosts which look it up,
   and a C program that is linked with the library calls it. Exit code 0 when all answer as they should. */

#include "include/vexelsdk.h"

#include <stdio.h>

static VexelSDK_InitFn const kInit = VexelSDK_Init;
static VexelSDK_UnInitFn const kUnInit = VexelSDK_UnInit;
static GetPicSupportFileExtensionsFn const kExtensions = GetPicSupportFileExtensions;
static OpenEditorFn const kOpenEditor = OpenEditor;
static FullScreenFn const kFullScreen = FullScreen;
static SetWindowsPosFn const kSetWindowsPos = SetWindowsPos;
static ChangeThemeModeFn const kChangeThemeMode = ChangeThemeMode;
static IsSupportPreviewFn const kIsSupportPreview = IsSupportPreview;
static CloseEditorFn const kCloseEditor = CloseEditor;
static IsCloseFn const kIsClose = IsClose;
static IsPreviewValidFn const kIsPreviewValid = IsPreviewValid;
static GetSwitchValueFn const kGetSwitchValue = GetSwitchValue;
static OperatePicFn const kOperatePic = OperatePic;
static DoBrowserCommandFn const kDoBrowserCommand = DoBrowserCommand;
static SetBrowserCallbackFn const kSetBrowserCallback = SetBrowserCallback;
static ReleaseCallbackDataFn const kReleaseCallbackData = ReleaseCallbackData;

static int g_failures;

static void Expect(bool holds, const char* what) {
  if (!holds) {
    printf("not so: %s\n", what);
    ++g_failures;
  }
}

static void OnEvent(char* text, void* data) {
  (void)data;
  kReleaseCallbackData(text);
}

int main(void) {
  wchar_t extensions[VEXELSDK_EXTENSIONS_SIZE];
  Expect(kExtensions(extensions, VEXELSDK_EXTENSIONS_SIZE) == 1, "the extensions fit");
  Expect(kIsPreviewValid(), "the preview is valid");
  kIsSupportPreview();
  Expect(kGetSwitchValue(NULL) == VEXELSDK_SWITCH_NO_NAME, "a switch has a name");
  Expect(kOpenEditor(NULL, NULL, 0, NULL) == VEXELSDK_INVALID_ID, "nothing opens nowhere");
  kSetBrowserCallback(7, &OnEvent, NULL);
  kSetBrowserCallback(7, NULL, NULL);
  kReleaseCallbackData(NULL);
  Expect(kInit(NULL) == 1, "the library starts");
  kFullScreen(7, true);
  kSetWindowsPos(7, 1, 2, 3, 4);
  kChangeThemeMode(true);
  Expect(kOperatePic(7, 1), "an operation is queued");
  Expect(kDoBrowserCommand(7, 1), "a command is queued");
  Expect(!kIsClose(7), "what was never open is not closed");
  /* A close of what was never open would end this program; its type is all that is asked of it. */
  Expect(kCloseEditor != NULL, "there is a close");
  Expect(kUnInit() == 1, "the library ends");
  return g_failures;
}
