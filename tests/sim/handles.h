#pragma once

// The handle table: what is open, and what was never given back.
namespace sim {

enum class HandleKind { kProcess, kThread, kToken, kSnapshot, kFile, kMutex, kEvent, kRegistryKey };

/// Handles of a kind that are open now.
int OpenHandles(HandleKind kind);

/// Open handles of all kinds.
int OpenHandles();

/// Handles of a kind that were given out, and given back, since the world began.
int OpenedHandles(HandleKind kind);
int ClosedHandles(HandleKind kind);

/// Closes of values that were no open handle: a null, a -1, or one closed before. No value is given out twice in a
/// world, so a double close always shows here.
int BadCloses();

} // namespace sim
