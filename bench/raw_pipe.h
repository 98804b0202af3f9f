#pragma once

#include <windows.h>

#include <string>

// The limit: named pipes with nothing around them, blocking calls, one instance.
namespace bench {

enum class PipeMode { kMessage, kByte };

/// Makes the server's end and returns it; ConnectNamedPipe is the caller's. Ends the program on failure, as all here.
HANDLE MakeRawServer(const std::string& name, PipeMode mode, DWORD instances);

/// Opens the client's end once there is a server, waiting 20 s at most.
HANDLE OpenRawSoon(const std::string& name, PipeMode mode);

/// Opens the client's end. INVALID_HANDLE_VALUE when there is no free server just now.
HANDLE OpenRaw(const std::string& name, PipeMode mode);

/// Whether all was written.
bool RawWrite(HANDLE pipe, const char* data, DWORD size);

/// What one read gives: 0 when the other end has gone.
DWORD RawRead(HANDLE pipe, char* data, DWORD size);

/// Whether exactly `size` bytes came, in as many reads as it takes.
bool RawReadAll(HANDLE pipe, char* data, DWORD size);

} // namespace bench
