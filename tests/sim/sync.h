#pragma once

#include <string>
#include <vector>

// Mutexes as other processes hold them, and a look at the kernel objects.
namespace sim {

/// A named mutex as another process owns it. It is made when it does not exist.
class ForeignMutex {
public:
  /// Waits for the mutex, without a limit, and owns it.
  explicit ForeignMutex(const std::wstring& name);
  /// Gives it up, unless that was done before.
  ~ForeignMutex();
  ForeignMutex(const ForeignMutex&) = delete;
  ForeignMutex& operator=(const ForeignMutex&) = delete;

  /// Gives it up in good order.
  void Release();
  /// The process dies holding it: the next owner is told that it was abandoned.
  void Abandon();

private:
  std::wstring m_name;
  unsigned m_owner = 0;
};

/// The names of all mutexes that exist, sorted.
std::vector<std::wstring> MutexNames();

/// Whether some thread of some process owns the mutex of that name.
bool MutexIsOwned(const std::wstring& name);

/// Whether some thread is inside WaitOnAddress.
bool SomeoneWaitsOnAWord();

/// Signals every event that exists. It frees threads that wait for a signal that a test knows to have been used up.
void SignalAllEvents();

} // namespace sim
