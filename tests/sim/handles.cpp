#include "tests/sim/handles.h"

#include <array>
#include <map>

#include "tests/sim/kernel.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::size_t kKinds = 8;

struct Entry {
  std::shared_ptr<Object> object;
  std::uint32_t access = 0;
};

struct Handles {
  std::map<std::uintptr_t, Entry> table;
  std::uintptr_t next = 0x100;
  std::array<int, kKinds> opened{};
  std::array<int, kKinds> closed{};
  int badCloses = 0;
};

Handles& TheHandles() {
  static Handles& handles = *new Handles;
  return handles;
}

std::size_t IndexOf(HandleKind kind) { return static_cast<std::size_t>(kind); }

} // namespace

namespace internal {

platform::Handle AddHandle(const std::shared_ptr<Object>& object, std::uint32_t access) {
  Handles& handles = TheHandles();
  const std::uintptr_t value = handles.next;
  handles.next += 4;
  handles.table[value] = {object, access};
  ++object->handles;
  ++handles.opened.at(IndexOf(object->Kind()));
  return reinterpret_cast<platform::Handle>(value);
}

std::shared_ptr<Object> FindObject(platform::Handle handle, std::uint32_t* access) {
  const auto place = TheHandles().table.find(reinterpret_cast<std::uintptr_t>(handle));
  if (place == TheHandles().table.end()) {
    return nullptr;
  }
  if (access != nullptr) {
    *access = place->second.access;
  }
  return place->second.object;
}

bool DropHandle(platform::Handle handle) {
  Handles& handles = TheHandles();
  const auto place = handles.table.find(reinterpret_cast<std::uintptr_t>(handle));
  if (place == handles.table.end()) {
    return false;
  }
  const std::shared_ptr<Object> object = place->second.object;
  handles.table.erase(place);
  ++handles.closed.at(IndexOf(object->Kind()));
  if (--object->handles == 0) {
    object->OnLastClose();
  }
  return true;
}

void CountBadClose() { ++TheHandles().badCloses; }

void ResetHandles() { TheHandles() = Handles(); }

} // namespace internal

int OpenHandles(HandleKind kind) {
  const Lock lock = TakeLock();
  const Handles& handles = TheHandles();
  return handles.opened.at(IndexOf(kind)) - handles.closed.at(IndexOf(kind));
}

int OpenHandles() {
  const Lock lock = TakeLock();
  return static_cast<int>(TheHandles().table.size());
}

int OpenedHandles(HandleKind kind) {
  const Lock lock = TakeLock();
  return TheHandles().opened.at(IndexOf(kind));
}

int ClosedHandles(HandleKind kind) {
  const Lock lock = TakeLock();
  return TheHandles().closed.at(IndexOf(kind));
}

int BadCloses() {
  const Lock lock = TakeLock();
  return TheHandles().badCloses;
}

} // namespace sim
