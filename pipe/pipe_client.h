#pragma once

#include <windows.h>

#include <cstdint>

// The client side: connections by number. Errors are system error codes, 0 for success. Any thread. May throw
// std::bad_alloc.
namespace vpipe {

/// Connects to the server `name`; never waits. On success `*connection` is a number that is not 0.
DWORD ConnectToServer(const char* name, std::uint32_t* connection);

/// Ends a connection: breaks off what is under way on it and waits until that has ended.
DWORD DisconnectFromServer(std::uint32_t connection);

/// Sends `text` and waits for the reply. On success `*reply` is NUL-terminated and valid until the next call with this
/// connection.
DWORD Communicate(std::uint32_t connection, const char* text, const char** reply);

} // namespace vpipe
