#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>

#include "platform/types.h"
#include "tests/sim/core.h"
#include "tests/sim/handles.h"

// Objects behind handles, for the sources of the simulated platform.
namespace sim::internal {

/// Something that a handle stands for.
class Object {
public:
  explicit Object(HandleKind kind) : m_kind(kind) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  HandleKind Kind() const { return m_kind; }

  /// Whether a wait for it can be made at all.
  virtual bool CanWait() const { return false; }
  /// Whether a wait by this thread would end now. Needs the mutex.
  virtual bool Signalled(std::uint32_t /*thread*/) const { return false; }
  /// What a wait that ended takes from the object; returns the result of the wait. Needs the mutex.
  virtual std::uint32_t Take(std::uint32_t /*thread*/) { return 0; }
  /// Called after the last handle to the object has been closed. Needs the mutex.
  virtual void OnLastClose() {}

  std::condition_variable changed;
  int handles = 0;

private:
  const HandleKind m_kind;
};

/// Gives out a handle with those rights. Needs the mutex.
platform::Handle AddHandle(const std::shared_ptr<Object>& object, std::uint32_t access);

/// The object of an open handle, null for any other value. `access` may be null. Needs the mutex.
std::shared_ptr<Object> FindObject(platform::Handle handle, std::uint32_t* access = nullptr);

/// As above, null also when the object is of another kind. Needs the mutex.
template <class T>
std::shared_ptr<T> FindHandle(platform::Handle handle, HandleKind kind, std::uint32_t* access = nullptr) {
  std::shared_ptr<Object> object = FindObject(handle, access);
  return object != nullptr && object->Kind() == kind ? std::static_pointer_cast<T>(object) : nullptr;
}

/// Gives a handle back. False when it was none. Needs the mutex.
bool DropHandle(platform::Handle handle);

/// Counts a close of a value that is no open handle. Needs the mutex.
void CountBadClose();

} // namespace sim::internal
