#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace testhost {

/// The type of a handle's object, as "Event"; empty for what is no handle.
std::wstring HandleType(void* handle);

/// Closes every handle of this process that refers to the process `pid`, and gives how many that were. For ids of dead
/// processes alone: some systems go on listing a dead process for as long as a handle to it is open anywhere.
std::size_t CloseHandlesTo(std::uint32_t pid);

/// From now on each access violation prints "fault CODE ADDRESS MODULE" before it takes its course: the code and the
/// address that could not be accessed in hexadecimal, and the file name of the module that holds the instruction.
void WatchFaults();

/// How many handles of this process are open to the named mutex that tells of a running SDK.
std::size_t CountInstanceMutexes();

} // namespace testhost
