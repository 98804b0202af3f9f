#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The host's callback. Each event is printed as "event MS THREAD ID TEXT", the time counted from the host's start, and
// then treated as the mode of its registration says.
namespace testhost {

struct BufferCounts {
  std::size_t received;
  std::size_t released;
};

/// Registers the callback of an id. False for an unknown mode. The modes:
///  - "on": gives each buffer back within the call;
///  - "off": registers null;
///  - "nodata": registers the callback with null as the user data; its events are printed with the id 0;
///  - "hold": keeps the buffers until ReleaseHeld;
///  - "throw": throws out of each call;
///  - "calls": calls exports from within the first call, then goes on as "on";
///  - "block": each call waits until Unblock;
///  - "uninit": calls VexelSDK_UnInit from within the first call, then goes on as "on".
bool Register(std::int32_t id, const std::string& mode);

/// Lets all calls go on that wait now or will wait.
void Unblock();

/// Gives back what is held. All counts are since the host's start.
BufferCounts ReleaseHeld();

} // namespace testhost
