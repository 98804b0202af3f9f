#include "platform/sync.h"

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "tests/sim/kernel.h"
#include "tests/sim/sync.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kWaitAbandoned = 0x80;
constexpr std::uint32_t kWaitTimeout = 0x102;
constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr std::uint32_t kNotOwner = 288;
constexpr std::uint32_t kNameTooLong = 206;

class Mutant final : public Object {
public:
  explicit Mutant(std::wstring mutexName) : Object(HandleKind::kMutex), name(std::move(mutexName)) {}
  bool CanWait() const override { return true; }
  bool Signalled(std::uint32_t thread) const override { return owner == 0 || owner == thread; }
  std::uint32_t Take(std::uint32_t thread) override {
    owner = thread;
    ++depth;
    const bool died = abandoned;
    abandoned = false;
    return died ? kWaitAbandoned : 0;
  }
  void OnLastClose() override;

  void GiveUp(bool ownerDied) {
    owner = 0;
    depth = 0;
    abandoned = ownerDied;
    changed.notify_all();
  }

  const std::wstring name; // empty: unnamed
  std::uint32_t owner = 0;
  int depth = 0;
  bool abandoned = false;
  int foreignHolders = 0; // other processes that keep it in being
};

class Event final : public Object {
public:
  Event(bool manualReset, bool initialState)
      : Object(HandleKind::kEvent), manual(manualReset), signalled(initialState) {}
  bool CanWait() const override { return true; }
  bool Signalled(std::uint32_t /*thread*/) const override { return signalled; }
  std::uint32_t Take(std::uint32_t /*thread*/) override {
    signalled = manual;
    return 0;
  }

  const bool manual;
  bool signalled;
};

struct WordWaiter {
  const void* word = nullptr;
  bool woken = false;
  std::condition_variable changed;
};

struct Sync {
  std::map<std::wstring, std::shared_ptr<Mutant>> named;
  std::vector<std::weak_ptr<Mutant>> mutexes;
  std::vector<std::weak_ptr<Event>> events;
  std::uint32_t nextForeign = 0x80000000u; // owners in other processes, apart from all thread numbers
  std::condition_variable sleepers;
  std::list<WordWaiter> onWords; // threads that wait on a word, the first to come in front
};

Sync& TheSync() {
  static Sync& sync = *new Sync;
  return sync;
}

void Mutant::OnLastClose() {
  if (foreignHolders == 0) {
    TheSync().named.erase(name);
  }
}

// A session of its own has the same local names as no prefix at all.
std::wstring ObjectName(const std::wstring& name) {
  constexpr std::wstring_view kLocal = L"Local\\";
  return name.starts_with(kLocal) ? name.substr(kLocal.size()) : name;
}

std::shared_ptr<Mutant> MakeMutex(const std::wstring& name, bool* existed) {
  *existed = false;
  if (!name.empty()) {
    const auto place = TheSync().named.find(name);
    if (place != TheSync().named.end()) {
      *existed = true;
      return place->second;
    }
  }
  auto mutex = std::make_shared<Mutant>(name);
  TheSync().mutexes.push_back(mutex);
  if (!name.empty()) {
    TheSync().named[name] = mutex;
  }
  return mutex;
}

template <class T> void Forget(std::vector<std::weak_ptr<T>>* list) {
  std::erase_if(*list, [](const std::weak_ptr<T>& item) { return item.expired(); });
}

} // namespace

namespace internal {

void AbandonMutexes(std::uint32_t thread) {
  for (const std::weak_ptr<Mutant>& item : TheSync().mutexes) {
    const std::shared_ptr<Mutant> mutex = item.lock();
    if (mutex != nullptr && mutex->owner == thread) {
      mutex->GiveUp(true);
    }
  }
}

void ResetSync() {
  TheSync().named.clear();
  TheSync().mutexes.clear();
  TheSync().events.clear();
}

} // namespace internal

ForeignMutex::ForeignMutex(const std::wstring& name) : m_name(ObjectName(name)) {
  Lock lock = TakeLock();
  m_owner = TheSync().nextForeign++;
  bool existed = false;
  const std::shared_ptr<Mutant> mutex = MakeMutex(m_name, &existed);
  ++mutex->foreignHolders;
  WaitUntil(lock, mutex->changed, kNever, [&] { return mutex->Signalled(m_owner); });
  mutex->Take(m_owner);
}

ForeignMutex::~ForeignMutex() { Release(); }

void ForeignMutex::Release() {
  const Lock lock = TakeLock();
  const auto place = TheSync().named.find(m_name);
  if (m_owner == 0 || place == TheSync().named.end()) {
    return;
  }
  const std::shared_ptr<Mutant> mutex = place->second;
  if (mutex->owner == m_owner) {
    mutex->GiveUp(false);
  }
  m_owner = 0;
  if (--mutex->foreignHolders == 0 && mutex->handles == 0) {
    TheSync().named.erase(m_name);
  }
}

void ForeignMutex::Abandon() {
  {
    const Lock lock = TakeLock();
    const auto place = TheSync().named.find(m_name);
    if (place != TheSync().named.end() && place->second->owner == m_owner) {
      place->second->GiveUp(true);
    }
  }
  Release();
}

std::vector<std::wstring> MutexNames() {
  const Lock lock = TakeLock();
  std::vector<std::wstring> names;
  for (const auto& [name, mutex] : TheSync().named) {
    names.push_back(name);
  }
  return names;
}

bool MutexIsOwned(const std::wstring& name) {
  const Lock lock = TakeLock();
  const auto place = TheSync().named.find(ObjectName(name));
  return place != TheSync().named.end() && place->second->owner != 0;
}

bool SomeoneWaitsOnAWord() {
  const Lock lock = TakeLock();
  return !TheSync().onWords.empty();
}

void SignalAllEvents() {
  const Lock lock = TakeLock();
  for (const std::weak_ptr<Event>& item : TheSync().events) {
    if (const std::shared_ptr<Event> event = item.lock()) {
      event->signalled = true;
      event->changed.notify_all();
    }
  }
}

} // namespace sim

namespace platform {

using namespace sim::internal;
using sim::HandleKind;

Handle CreateMutexW(bool initialOwner, const wchar_t* name) {
  const std::uint32_t thread = ThreadId();
  Call call("CreateMutexW");
  if (call.Fails(kNotEnoughMemory)) {
    return nullptr;
  }
  const std::wstring text = sim::ObjectName(name == nullptr ? L"" : name);
  constexpr std::wstring_view kGlobal = L"Global\\";
  const std::wstring_view bare = std::wstring_view(text).substr(text.starts_with(kGlobal) ? kGlobal.size() : 0);
  if (text.size() >= kMaxPath) {
    Leave(sim::kNameTooLong);
    return nullptr;
  }
  if (bare.find(L'\\') != std::wstring_view::npos) {
    Leave(kPathNotFound);
    return nullptr;
  }
  bool existed = false;
  const std::shared_ptr<sim::Mutant> mutex = sim::MakeMutex(text, &existed);
  if (initialOwner && !existed) {
    mutex->Take(thread);
  }
  sim::Forget(&sim::TheSync().mutexes);
  Leave(existed ? kErrorAlreadyExists : kErrorSuccess);
  return AddHandle(mutex, 0);
}

bool ReleaseMutex(Handle mutex) {
  const std::uint32_t thread = ThreadId();
  Call call("ReleaseMutex");
  if (call.Fails(kInvalidHandleValue)) {
    return false;
  }
  const auto found = FindHandle<sim::Mutant>(mutex, HandleKind::kMutex);
  if (found == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  if (found->owner != thread) {
    return Leave(sim::kNotOwner);
  }
  if (--found->depth == 0) {
    found->GiveUp(false);
  }
  return true;
}

Handle CreateEventW(bool manualReset, bool initialState) {
  Call call("CreateEventW");
  if (call.Fails(kNotEnoughMemory)) {
    return nullptr;
  }
  const auto event = std::make_shared<sim::Event>(manualReset, initialState);
  sim::Forget(&sim::TheSync().events);
  sim::TheSync().events.push_back(event);
  Leave(kErrorSuccess);
  return AddHandle(event, 0);
}

bool SetEvent(Handle event) {
  Call call("SetEvent");
  if (call.Fails(kInvalidHandleValue)) {
    return false;
  }
  const auto found = FindHandle<sim::Event>(event, HandleKind::kEvent);
  if (found == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  found->signalled = true;
  found->changed.notify_all();
  return true;
}

std::uint32_t WaitForSingleObject(Handle object, std::uint32_t milliseconds) {
  const std::uint32_t thread = ThreadId();
  Call call("WaitForSingleObject");
  if (call.Fails(kInvalidHandleValue)) {
    return sim::kWaitFailed;
  }
  // Holding the object keeps it through the wait, also when its last handle is closed meanwhile.
  const std::shared_ptr<Object> found = FindObject(object);
  if (found == nullptr || !found->CanWait()) {
    Leave(kInvalidHandleValue);
    return sim::kWaitFailed;
  }
  const std::int64_t deadline = DeadlineIn(milliseconds);
  if (!WaitUntil(call.GetLock(), found->changed, deadline, [&] { return found->Signalled(thread); })) {
    return sim::kWaitTimeout;
  }
  return found->Take(thread);
}

bool CloseHandle(Handle object) {
  Call call("CloseHandle");
  if (call.Fails(kInvalidHandleValue)) {
    return false;
  }
  if (FindHandle<Object>(object, HandleKind::kRegistryKey) != nullptr || !DropHandle(object)) {
    CountBadClose();
    return Leave(kInvalidHandleValue);
  }
  return true;
}

void WaitOnAddress(const std::atomic<std::uint32_t>* word, std::uint32_t seen) {
  Call call("WaitOnAddress");
  if (word->load() != seen) {
    return;
  }
  std::list<sim::WordWaiter>& waiters = sim::TheSync().onWords;
  const auto place = waiters.emplace(waiters.end());
  place->word = word;
  // A wake ends the wait, and not the change alone: so a wake that is missing shows.
  WaitUntil(call.GetLock(), place->changed, kNever, [place] { return place->woken; });
  waiters.erase(place);
}

void WakeByAddressSingle(const std::atomic<std::uint32_t>* word) {
  const Call call("WakeByAddressSingle");
  for (sim::WordWaiter& waiter : sim::TheSync().onWords) {
    if (waiter.word == word && !waiter.woken) {
      waiter.woken = true;
      waiter.changed.notify_all();
      return;
    }
  }
}

void Sleep(std::uint32_t milliseconds) {
  {
    Call call("Sleep");
    if (milliseconds != 0) {
      WaitUntil(call.GetLock(), sim::TheSync().sleepers, DeadlineIn(milliseconds), [] { return false; });
      return;
    }
  }
  std::this_thread::yield();
}

} // namespace platform
