#include "tests/sim/module.h"

#include <algorithm>
#include <memory>
#include <set>

#include "platform/module.h"
#include "platform/types.h"
#include "tests/sim/core.h"
#include "tests/sim/file.h"
#include "tests/sim/pipe_library.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kBadImage = 193;
constexpr const wchar_t* kPsapi = L"psapi.dll";
constexpr const wchar_t* kPipeLibraryName = L"vpipearm64.dll";
constexpr const wchar_t* kSystemFolder = L"C:\\Windows\\System32\\";

struct ModuleRecord {
  std::wstring path;
  std::wstring reported; // what GetModuleFileNameW says; empty: the path
  std::map<std::string, void*> entries;
  std::uintptr_t base = 0;
  int references = 1;
};

struct Range {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  std::wstring path; // empty: no module
};

struct Modules {
  std::vector<std::unique_ptr<ModuleRecord>> loaded;
  std::map<std::wstring, std::map<std::string, void*>> libraries; // by folded path
  std::set<std::string> removedEntries;
  std::vector<Range> ranges;
  std::vector<std::wstring> requests;
  std::vector<std::string> requestedEntries;
  std::uintptr_t nextBase = 0;
  bool psapi = true;
};

constexpr std::uintptr_t kFirstBase = 0x7FF600000000;
constexpr std::size_t kExecutable = 0;
constexpr std::size_t kLibrary = 1;

ModuleRecord* Load(Modules* modules, const std::wstring& path, const std::map<std::string, void*>& entries) {
  auto record = std::make_unique<ModuleRecord>();
  record->path = path;
  record->entries = entries;
  record->base = modules->nextBase;
  modules->nextBase += 0x10000;
  modules->loaded.push_back(std::move(record));
  return modules->loaded.back().get();
}

void Fill(Modules* modules) {
  *modules = Modules();
  modules->nextBase = kFirstBase;
  Load(modules, kHostPath, {});
  Load(modules, kLibraryPath, {});
}

Modules& TheModules() {
  static Modules& modules = *[] {
    auto* fresh = new Modules;
    Fill(fresh);
    return fresh;
  }();
  return modules;
}

std::wstring BaseName(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

bool IsBare(const std::wstring& path) { return path.find_first_of(L"\\/") == std::wstring::npos; }

// A name without an extension means a library; a dot at its end means a name without one.
std::wstring WithExtension(std::wstring name) {
  if (name.ends_with(L'.')) {
    name.pop_back();
  } else if (BaseName(name).find(L'.') == std::wstring::npos) {
    name += L".dll";
  }
  return name;
}

ModuleRecord* FindLoaded(const std::wstring& name) {
  std::wstring full = name;
  std::uint32_t error = 0;
  if (!IsBare(name)) {
    FullPath(name, &full, &error);
  }
  for (const std::unique_ptr<ModuleRecord>& record : TheModules().loaded) {
    if (SameText(IsBare(name) ? BaseName(record->path) : record->path, full)) {
      return record.get();
    }
  }
  return nullptr;
}

ModuleRecord* FindModule(platform::Module module) {
  for (const std::unique_ptr<ModuleRecord>& record : TheModules().loaded) {
    if (record->base == reinterpret_cast<std::uintptr_t>(module)) {
      return record.get();
    }
  }
  return nullptr;
}

platform::Module HandleOf(const ModuleRecord* record) {
  return record == nullptr ? nullptr : reinterpret_cast<platform::Module>(record->base);
}

// Loads what is at a full path; null with a last error.
ModuleRecord* LoadFile(const std::wstring& full) {
  if (SameText(full, std::wstring(kSystemFolder) + kPsapi) && TheModules().psapi) {
    return Load(&TheModules(), std::wstring(kSystemFolder) + L"PSAPI.DLL", PsapiEntries());
  }
  if (!HasFile(full)) {
    Leave(kModuleNotFound);
    return nullptr;
  }
  const auto library = TheModules().libraries.find(Fold(full));
  if (library != TheModules().libraries.end()) {
    return Load(&TheModules(), full, library->second);
  }
  if (SameText(BaseName(full), kPipeLibraryName)) {
    return Load(&TheModules(), full, PipeLibraryEntries());
  }
  Leave(kBadImage);
  return nullptr;
}

ModuleRecord* AtAddress(const void* address) {
  const auto value = reinterpret_cast<std::uintptr_t>(address);
  if (address == nullptr) {
    return nullptr;
  }
  for (const Range& range : TheModules().ranges) {
    if (value >= range.begin && value < range.end) {
      return range.path.empty() ? nullptr : FindLoaded(range.path);
    }
  }
  return TheModules().loaded[kLibrary].get();
}

void SetPath(std::size_t index, const std::wstring& path) {
  std::wstring full = path;
  std::uint32_t error = 0;
  FullPath(path, &full, &error);
  NeedFile(full);
  TheModules().loaded[index]->path = full;
  TheModules().loaded[index]->reported.clear();
}

} // namespace

namespace internal {

void ResetModules() { Fill(&TheModules()); }

std::wstring ExecutablePath() { return TheModules().loaded[kExecutable]->path; }

std::wstring LibraryFolder() {
  const std::wstring& path = TheModules().loaded[kLibrary]->path;
  return path.substr(0, path.rfind(L'\\') + 1);
}

} // namespace internal

void SetExecutablePath(const std::wstring& path) {
  const Lock lock = TakeLock();
  SetPath(kExecutable, path);
  SetHostPath(ExecutablePath());
}

void SetLibraryPath(const std::wstring& path) {
  const Lock lock = TakeLock();
  SetPath(kLibrary, path);
}

void ReportExecutablePath(const std::wstring& text) {
  const Lock lock = TakeLock();
  TheModules().loaded[kExecutable]->reported = text;
}

void ReportLibraryPath(const std::wstring& text) {
  const Lock lock = TakeLock();
  TheModules().loaded[kLibrary]->reported = text;
}

void AddLibrary(const std::wstring& path, const std::map<std::string, void*>& entries) {
  const Lock lock = TakeLock();
  NeedFile(path);
  std::wstring full;
  std::uint32_t error = 0;
  FullPath(path, &full, &error);
  TheModules().libraries[Fold(full)] = entries;
}

void AddPipeLibrary(const std::wstring& path) { AddLibrary(path, PipeLibraryEntries()); }

void RemoveEntry(const std::string& name) {
  const Lock lock = TakeLock();
  TheModules().removedEntries.insert(name);
}

void SetPsapiPresent(bool present) {
  const Lock lock = TakeLock();
  TheModules().psapi = present;
}

void AddressesBelongTo(const void* begin, std::size_t size, const std::wstring& path) {
  const Lock lock = TakeLock();
  const auto value = reinterpret_cast<std::uintptr_t>(begin);
  // The latest registration of an address counts.
  TheModules().ranges.insert(TheModules().ranges.begin(), {value, value + size, path});
}

int ReferenceCount(const std::wstring& path) {
  const Lock lock = TakeLock();
  const ModuleRecord* record = FindLoaded(path);
  return record == nullptr ? 0 : record->references;
}

std::vector<std::string> RequestedEntries() {
  const Lock lock = TakeLock();
  return TheModules().requestedEntries;
}

std::vector<std::wstring> LoadRequests() {
  const Lock lock = TakeLock();
  return TheModules().requests;
}

std::vector<std::wstring> LoadedModules() {
  const Lock lock = TakeLock();
  std::vector<std::wstring> paths;
  for (const std::unique_ptr<ModuleRecord>& record : TheModules().loaded) {
    paths.push_back(record->path);
  }
  return paths;
}

} // namespace sim

namespace platform {

using namespace sim::internal;

Module GetModuleHandleW(const wchar_t* name) {
  Call call("GetModuleHandleW");
  if (call.Fails(kModuleNotFound)) {
    return nullptr;
  }
  if (name == nullptr) {
    return sim::HandleOf(sim::TheModules().loaded[sim::kExecutable].get());
  }
  const sim::ModuleRecord* record = sim::FindLoaded(sim::WithExtension(name));
  if (record == nullptr) {
    Leave(kModuleNotFound);
  }
  return sim::HandleOf(record);
}

Module GetModuleHandleOfAddress(const void* address) {
  Call call("GetModuleHandleOfAddress");
  if (call.Fails(kModuleNotFound)) {
    return nullptr;
  }
  const sim::ModuleRecord* record = sim::AtAddress(address);
  if (record == nullptr) {
    Leave(kModuleNotFound);
  }
  return sim::HandleOf(record);
}

Module ReferenceModuleOfAddress(const void* address) {
  Call call("ReferenceModuleOfAddress");
  if (call.Fails(kModuleNotFound)) {
    return nullptr;
  }
  sim::ModuleRecord* record = sim::AtAddress(address);
  if (record == nullptr) {
    Leave(kModuleNotFound);
    return nullptr;
  }
  ++record->references;
  return sim::HandleOf(record);
}

Module LoadLibraryW(const wchar_t* path) {
  Call call("LoadLibraryW");
  const std::wstring request = path == nullptr ? L"" : path;
  sim::TheModules().requests.push_back(request);
  if (call.Fails(kModuleNotFound)) {
    return nullptr;
  }
  if (request.empty()) {
    Leave(kInvalidParameter);
    return nullptr;
  }
  const std::wstring name = sim::WithExtension(request);
  if (sim::ModuleRecord* loaded = sim::FindLoaded(name)) {
    ++loaded->references;
    return sim::HandleOf(loaded);
  }
  if (!sim::IsBare(name)) {
    std::wstring full;
    std::uint32_t error = 0;
    if (!FullPath(name, &full, &error)) {
      Leave(kModuleNotFound);
      return nullptr;
    }
    return sim::HandleOf(sim::LoadFile(full));
  }
  // The search path: beside the executable, the system's folders, the current folder.
  const std::wstring executable = ExecutablePath();
  std::wstring current;
  std::uint32_t error = 0;
  FullPath(L".", &current, &error);
  for (const std::wstring& folder :
       {executable.substr(0, executable.rfind(L'\\') + 1), std::wstring(sim::kSystemFolder),
        std::wstring(L"C:\\Windows\\"), current + L"\\"}) {
    const std::wstring full = folder + name;
    const bool system = sim::SameText(full, std::wstring(sim::kSystemFolder) + sim::kPsapi) && sim::TheModules().psapi;
    if (system || HasFile(full)) {
      return sim::HandleOf(sim::LoadFile(full));
    }
  }
  Leave(kModuleNotFound);
  return nullptr;
}

void* GetProcAddress(Module module, const char* name) {
  Call call("GetProcAddress");
  sim::TheModules().requestedEntries.emplace_back(name);
  if (call.Fails(kProcedureNotFound)) {
    return nullptr;
  }
  const sim::ModuleRecord* record = sim::FindModule(module);
  if (record == nullptr) {
    Leave(kModuleNotFound);
    return nullptr;
  }
  const auto entry = record->entries.find(name);
  if (entry == record->entries.end() || sim::TheModules().removedEntries.contains(name)) {
    Leave(kProcedureNotFound);
    return nullptr;
  }
  return entry->second;
}

bool FreeLibrary(Module module) {
  Call call("FreeLibrary");
  if (call.Fails(kModuleNotFound)) {
    return false;
  }
  sim::ModuleRecord* record = sim::FindModule(module);
  if (record == nullptr) {
    return Leave(kModuleNotFound);
  }
  if (record->references > 0) {
    --record->references;
  }
  // The executable and the library under test can't leave the process that runs the test: their count shows 0 instead.
  const bool fixed = record == sim::TheModules().loaded[sim::kExecutable].get() ||
                     record == sim::TheModules().loaded[sim::kLibrary].get();
  if (record->references == 0 && !fixed) {
    std::erase_if(sim::TheModules().loaded, [&](const auto& item) { return item.get() == record; });
  }
  return true;
}

std::uint32_t GetModuleFileNameW(Module module, wchar_t* buffer, std::uint32_t size) {
  Call call("GetModuleFileNameW");
  if (call.Fails(kInvalidHandleValue)) {
    return 0;
  }
  const sim::ModuleRecord* record =
      module == nullptr ? sim::TheModules().loaded[sim::kExecutable].get() : sim::FindModule(module);
  if (record == nullptr) {
    Leave(kModuleNotFound);
    return 0;
  }
  const std::wstring& text = record->reported.empty() ? record->path : record->reported;
  if (!CopyText(text, buffer, size)) {
    Leave(kInsufficientBuffer);
    return size;
  }
  Leave(0);
  return static_cast<std::uint32_t>(text.size());
}

} // namespace platform
