#pragma once

#include "bench/board.h"
#include "bench/sdk_library.h"

#include <functional>

// What a host of the SDK does again and again in the sections.
namespace bench {

/// Waits, looking every millisecond, until `holds` does. Ends the program after 60 s, naming `what`.
void WaitUntil(const char* what, const std::function<bool()>& holds);

/// Makes this process the one that editors live for, and forgets which processes an earlier run has kept.
void BecomeHost();

/// The `number`th window that a host could have. The SDK looks at none until an editor crashes.
inline VexelWindow WindowOf(std::uintptr_t number) { return reinterpret_cast<VexelWindow>((number + 1) * 0x10000 + 4); }

/// Opens a picture for a window and waits until an editor has the message. `*id` is the editor's id.
EditorPlace& OpenAndWait(const SdkLibrary& sdk, std::uintptr_t window, std::int32_t* id);

/// Editors that serve and wait for a picture.
std::uint32_t WaitingEditors();

/// Hands over what `call` does and waits until the editor has it. Returns how long that took, in microseconds.
double TimeOfDelivery(EditorPlace& editor, const std::function<void()>& call);

} // namespace bench
