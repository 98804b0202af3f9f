#ifndef VEXELSDK_H
#define VEXELSDK_H

/**
 * @file vexelsdk.h
 * The host's interface to vexelsdk.dll, for C11 and C++.
 *
 * The library shows pictures in a viewer and editor that runs as a program of its own. The host opens a picture for one
 * of its windows and gets an editor id; every later call about that window takes the id; what happens in the editor
 * comes back as JSON texts through one callback for each id.
 *
 * The order of a host:
 *   1. VexelSDK_Init, which starts the programs that wait for a picture.
 *   2. For each window OpenEditor, and SetBrowserCallback directly after it.
 *   3. On the event "custom_message" with "open_pic_process_success": calls about the id, SetWindowsPos first of all.
 *   4. CloseEditor for each id.
 *   5. VexelSDK_UnInit.
 *
 * Threads. Any thread may make any call, also from within the callback (VexelSDK_UnInit excepted), but none from
 * DllMain. No call waits for an editor: operations are queued, run strictly in the order of the calls by a thread of
 * the library, and at most one in 10 ms. Only VexelSDK_UnInit blocks. The callback runs on threads of the library.
 *
 * Ownership. Texts that the host passes in are copied before the call returns. The one thing that the host has to give
 * back is the text of each callback, through ReleaseCallbackData.
 *
 * Errors are told by results only: no call throws, and no call sets a last-error value that means anything.
 *
 * Text. Wide text is NUL-terminated UTF-16, narrow text NUL-terminated UTF-8.
 *
 * A host that resolves the functions by name (LoadLibraryW, GetProcAddress) takes the types from here: for each
 * function there is a pointer type of its name with "Fn" behind it. Define VEXELSDK_NO_PROTOTYPES before the include
 * to get the types alone, where the short names would collide with the host's own.
 */

#ifdef __cplusplus
#include <cstdint>
#else
#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>
#endif

/** Version of the interface in this header. */
#define VEXELSDK_VERSION_MAJOR 1
#define VEXELSDK_VERSION_MINOR 0
#define VEXELSDK_VERSION_PATCH 0
#define VEXELSDK_VERSION_STRING "1.0.0"

/** File name of the library, for hosts that load it at run time. */
#define VEXELSDK_LIBRARY_NAME L"vexelsdk.dll"

/* Keys of an event. Events that the library makes itself hold all five, an editor's events hold "type" and what the
   editor adds. A text from an editor need not be JSON at all: it comes through as the editor sent it. */
#define VEXELSDK_KEY_TYPE "type"
#define VEXELSDK_KEY_PARAM "param"
#define VEXELSDK_KEY_ID "id"
#define VEXELSDK_KEY_PROCESS_ID "process_id"
#define VEXELSDK_KEY_STATUS "status"

/* Values of "type". */

/** From the library, with one of the VEXELSDK_PARAM_OPEN_... values below; an editor may send others of this type. */
#define VEXELSDK_EVENT_CUSTOM_MESSAGE "custom_message"
/** From the library, with VEXELSDK_PARAM_CRASH: the editor ended without having announced it. The host's window has got
    the extended style WS_EX_TRANSPARENT, which nobody takes away again but the host. The next OpenEditor for the window
    gives a new id. */
#define VEXELSDK_EVENT_RUN_ERROR "run_error"
/** From the editor: "status" true says that there are unsaved changes now, false that there are none any more. */
#define VEXELSDK_EVENT_EDIT "edit"
/** From the editor: it has finished with the id. The id takes no further operation. */
#define VEXELSDK_EVENT_FINISH_OPERATOR "finish_operator"

/* Values of "param" in the library's own events. "status" is true in all of them, also in the failure. */

/** A process has been bound to the id. From here on operations on the id reach it. */
#define VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS "open_pic_process_success"
/** No process could be bound to the id. Rarely arrives: a failed open usually shows by silence, so a host that wants to
    know sets a limit of its own. */
#define VEXELSDK_PARAM_OPEN_PROCESS_FAIL "open_pic_process_fail"
/** An operation has been handed to the editor: this comes after an open, and after every other operation too, such as a
    move. It does not say that the picture could be decoded. */
#define VEXELSDK_PARAM_OPEN_SUCCESS "open_pic_success"
/** With VEXELSDK_EVENT_RUN_ERROR. */
#define VEXELSDK_PARAM_CRASH "crash"

/* Results of GetSwitchValue that stand for a failure. A stored value may be the same number. */
#define VEXELSDK_SWITCH_UNREADABLE (-1)
#define VEXELSDK_SWITCH_NO_NAME (-100)
#define VEXELSDK_SWITCH_NO_KEY (-101)

/** Result of OpenEditor for a null path or a null window. */
#define VEXELSDK_INVALID_ID (-1)

/** Size in 16-bit units, terminator included, that holds the whole list of GetPicSupportFileExtensions. */
#define VEXELSDK_EXTENSIONS_SIZE 399

#ifdef __cplusplus
extern "C" {
#endif

/** The host's window. An HWND converts to it as it stands; the header does not need windows.h. */
typedef void* VexelWindow;

/**
 * Receives the events of one editor id.
 *
 * Runs on three threads of the library (one for the editors' texts, one for the outcome of operations, one for
 * crashes), so two calls may overlap. No lock of the library is held: every function but VexelSDK_UnInit may be called
 * from within. Its duration holds up the thread it runs on, that is all editors' events or all queued operations: hand
 * the text on and return. No C++ exception may leave it.
 *
 * @param text  the event, UTF-8, NUL-terminated. It belongs to the host from this moment; give it back exactly once
 *              through ReleaseCallbackData, at any time and on any thread. The library does not read it again.
 * @param data  the user data of SetBrowserCallback.
 */
typedef void (*VexelBrowserCallback)(char* text, void* data);

typedef int32_t (*VexelSDK_InitFn)(void* reserved);
typedef int32_t (*VexelSDK_UnInitFn)(void);
typedef int32_t (*GetPicSupportFileExtensionsFn)(wchar_t* buffer, uint32_t size);
typedef int32_t (*OpenEditorFn)(const wchar_t* path, VexelWindow tabwnd, int32_t openType, const wchar_t* param);
typedef void (*FullScreenFn)(int32_t id, bool isFullScreen);
typedef void (*SetWindowsPosFn)(int32_t id, int32_t x, int32_t y, int32_t w, int32_t h);
typedef void (*ChangeThemeModeFn)(bool dark);
typedef bool (*IsSupportPreviewFn)(void);
typedef bool (*CloseEditorFn)(int32_t id, bool closeAll);
typedef bool (*IsCloseFn)(int32_t id);
typedef bool (*IsPreviewValidFn)(void);
typedef int32_t (*GetSwitchValueFn)(const char* name);
typedef bool (*OperatePicFn)(int32_t id, int32_t operatorCode);
typedef bool (*DoBrowserCommandFn)(int32_t id, int32_t commandCode);
typedef void (*SetBrowserCallbackFn)(int32_t id, VexelBrowserCallback callback, void* data);
typedef void (*ReleaseCallbackDataFn)(char* text);

#ifndef VEXELSDK_NO_PROTOTYPES

/**
 * Starts the library and lets it bring up one waiting process of each program. Not required: any call that needs the
 * engine starts it. Once is enough; each further call leaves a handle open for the life of the process.
 *
 * Any thread. Does not block: the programs are started behind the call.
 *
 * @param reserved  not read; pass null.
 * @return always 1.
 */
int32_t VexelSDK_Init(void* reserved);

/**
 * Ends the library's engine: runs what is still queued, opens included, then ends its threads and links. Editors are
 * not told and stay alive; close them first. No editor text arrives any more from early in this call on; events about
 * the operations that are still run do, until the call returns. A later call of any other function starts a new, empty
 * engine, whose ids begin at 1 again.
 *
 * Any thread, but not within the callback: there it returns at once, before anything has ended, the engine ends behind
 * it on a thread of its own, and the library stays loaded. Blocks until the library's threads have ended: as long as
 * the queue takes, which may be 100 s for an editor that does not answer, and longer for as long as other threads go on
 * queueing. A call made within the second between an editor's crash and its report may not return: a host that has to
 * leave at once ends its process instead. Call it once for each VexelSDK_Init: a second call closes the number of a
 * handle that may be another's by then. Do not call it from a window's thread while an editor of that window may just
 * have crashed.
 *
 * @return always 1.
 */
int32_t VexelSDK_UnInit(void);

/**
 * Gives the file extensions of the pictures that the editors take: without dots, separated by "|".
 *
 * Any thread. Does not block.
 *
 * @param buffer  the host's buffer; may be null.
 * @param size    its size in 16-bit units, VEXELSDK_EXTENSIONS_SIZE for the whole list.
 * @return 1 when the whole list was written with its terminator. 0 when the buffer is null or the size is 0, and
 *         nothing was written; also 0 when the size is too small: then the buffer holds the beginning, terminated.
 */
int32_t GetPicSupportFileExtensions(wchar_t* buffer, uint32_t size);

/**
 * Opens a picture for a window of the host. A window keeps its id while the id is neither closing nor finished; a
 * second open for it shows the new picture and ends the old editor without asking about unsaved changes.
 *
 * Any thread. Does not block: whether it worked comes through the callback, so call SetBrowserCallback with the id at
 * once. Events that come before that are lost. Operations on a new id that are called before
 * VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS has arrived are lost too; on a window that had a picture they go to the old
 * editor.
 *
 * @param path      the picture's full path; must not be null, may be empty.
 * @param tabwnd    the host's window that the picture belongs to; must not be null. It has to stay alive as long as the
 *                  editor is open: an editor's end is reported as a crash only while the window is there.
 * @param openType  a number for the editor, passed on unread.
 * @param param     null, or base64 text of UTF-8 switches. "/apptype:1" selects webvexlaunch.exe, which is also the
 *                  default, "/apptype:2" vxpixeleditor.exe. With "/pic_param:TEXT" the editor receives TEXT in place of
 *                  the whole, otherwise the parameter as it stands.
 * @return the editor id, above 0, or VEXELSDK_INVALID_ID for a null path or window, which uses up no id.
 */
int32_t OpenEditor(const wchar_t* path, VexelWindow tabwnd, int32_t openType, const wchar_t* param);

/**
 * Lets the editor cover the screen, or go back into its window.
 *
 * Any thread. Does not block. An unknown, closing or finished id is passed over in silence.
 */
void FullScreen(int32_t id, bool isFullScreen);

/**
 * Tells the editor where to show itself.
 *
 * Any thread. Does not block. For a new id only after VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS: before it, the call is lost
 * in silence.
 *
 * @param x,y,w,h  position and size in pixels. What they relate to lies with the editor.
 */
void SetWindowsPos(int32_t id, int32_t x, int32_t y, int32_t w, int32_t h);

/**
 * Switches all open editors to the dark or the light theme. Editors that are opened later are not told; call it again.
 *
 * Any thread. Does not block. Before any OpenEditor it does nothing.
 *
 * @param dark  true sends theme mode 2, false theme mode 1.
 */
void ChangeThemeMode(bool dark);

/**
 * Whether the browser's feature switch "OpenPIC_enable" is exactly 1.
 *
 * Any thread. Reads the registry each time, and blocks for no longer than that.
 */
bool IsSupportPreview(void);

/**
 * Closes an editor.
 *
 * Any thread. Does not block. The result is no success flag:
 *  - true: the editor holds unsaved changes and the close waits for the user. The callback stays registered.
 *    VEXELSDK_EVENT_FINISH_OPERATOR tells that the user let it go. If the user cancels, nothing is reported and the id
 *    goes on living.
 *  - false: the editor is closing or was gone already. The callback of a live id is cleared by the call, and nothing
 *    more arrives, not even for this close.
 *
 * Troubleshooting: closing an id before its VEXELSDK_PARAM_OPEN_PROCESS_SUCCESS has arrived, or an id that was never
 * given out, ends the host with an access violation, unless the library's log level is 2 or more. Keep such a close
 * back until the event has come, and leave it out if it never comes. The same holds after the event when there is no
 * link to the process: the pipe library is missing, or another host of the same user serves the process. Any text of
 * the editor's own proves that there is a link. See docs/processes.md, "Two hosts at once".
 *
 * @param closeAll  passed on to the editor.
 */
bool CloseEditor(int32_t id, bool closeAll);

/**
 * Whether a close of the id has been accepted, or the id is finished. An id that was never given out is not closed. An
 * id whose close waits for the user is not closed yet.
 *
 * Any thread. Does not block.
 */
bool IsClose(int32_t id);

/** Always true, also without VexelSDK_Init. Any thread, never blocks. */
bool IsPreviewValid(void);

/**
 * Reads one of the browser's feature switches, a 32-bit number in the registry.
 *
 * Any thread. Reads the registry each time, and blocks for no longer than that.
 *
 * @param name  the switch, UTF-8.
 * @return the number, or VEXELSDK_SWITCH_NO_NAME for a null name, VEXELSDK_SWITCH_NO_KEY when the switches are not
 *         there at all, VEXELSDK_SWITCH_UNREADABLE when this one is missing or of another type.
 */
int32_t GetSwitchValue(const char* name);

/**
 * Hands an operation on the picture to the editor, such as a rotation. The codes are the editor's.
 *
 * Any thread. Does not block.
 *
 * @return true when it was queued, which is no promise that it reaches an editor; false when the id is finished.
 */
bool OperatePic(int32_t id, int32_t operatorCode);

/**
 * Hands a command of the browser to the editor. The codes are agreed between the browser and the editor.
 *
 * Any thread. Does not block.
 *
 * @return as OperatePic.
 */
bool DoBrowserCommand(int32_t id, int32_t commandCode);

/**
 * Registers the callback of an id in place of an earlier one, or clears it with null. Call it directly after
 * OpenEditor: nothing is kept for later. After the call an event that is already on its way may still reach the
 * earlier callback, so keep its user data alive until VexelSDK_UnInit has returned.
 *
 * Any thread. Does not block. An id that was never given out is accepted.
 *
 * @param callback  the function, or null.
 * @param data      handed to it with each event; stays the host's. With null the library's own events
 *                  (VEXELSDK_EVENT_CUSTOM_MESSAGE, VEXELSDK_EVENT_RUN_ERROR) do not arrive, only those of the editor.
 */
void SetBrowserCallback(int32_t id, VexelBrowserCallback callback, void* data);

/**
 * Frees a text that the callback received. Exactly once for each, in no other way, and at any time. Null does nothing.
 *
 * Any thread, also within the callback. Does not block.
 */
void ReleaseCallbackData(char* text);

#endif /* VEXELSDK_NO_PROTOTYPES */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VEXELSDK_H */
