#pragma once

#include <windows.h>

// The thread that owns the host's windows and serves their messages. Editors own windows on top of them, so the
// messages must be served whatever the host's other threads do.
namespace testhost {

/// Serves the windows until the process ends. Calls `ready` once windows can be made. Runs on the main thread.
int RunStage(void (*ready)());

/// Makes an ordinary window. Any thread; waits for the stage. Null on failure.
HWND CreateStageWindow();

/// Destroys one. Any thread; waits for the stage.
bool DestroyStageWindow(HWND window);

} // namespace testhost
