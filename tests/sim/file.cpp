#include "tests/sim/file.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "tests/sim/kernel.h"

namespace sim {

using namespace internal;

namespace {

constexpr std::uint32_t kSharingViolation = 32;
constexpr std::uint32_t kFileAlreadyExists = 80;
constexpr std::uint32_t kInvalidName = 123;
constexpr std::uint32_t kNegativeSeek = 131;
constexpr std::uint32_t kNameExists = 183;
constexpr std::uint32_t kNameTooLong = 206;
constexpr std::uint32_t kBadPathName = 161;
constexpr std::uint32_t kShareDelete = 4;
constexpr std::uint32_t kDelete = 0x00010000;
constexpr std::uint32_t kTruncateExisting = 5;
constexpr std::uint32_t kFileCurrent = 1;
constexpr std::uint32_t kAttributeReadOnly = 1;
constexpr std::uint64_t kUnlimited = UINT64_MAX;
constexpr std::size_t kLongestFolder = 248;

struct OpenFile;

struct Node {
  std::wstring path; // with the case that it was made with
  bool folder = false;
  bool readOnly = false;
  std::string bytes;
  std::int64_t reportedSize = -1;
  std::vector<OpenFile*> opens;
};

struct OpenFile final : Object {
  OpenFile(std::shared_ptr<Node> opened, std::uint32_t rights, std::uint32_t sharing)
      : Object(HandleKind::kFile), node(std::move(opened)), access(rights), share(sharing) {
    node->opens.push_back(this);
  }
  ~OpenFile() override { std::erase(node->opens, this); }

  const std::shared_ptr<Node> node;
  const std::uint32_t access;
  const std::uint32_t share;
  std::int64_t position = 0;
};

struct Files {
  std::map<std::wstring, std::shared_ptr<Node>> nodes; // by folded full path
  std::map<std::wstring, std::uint64_t> freeSpace;     // by folded drive
  std::vector<std::wstring> opened;
  std::uint32_t readLimit = 0;
  std::uint32_t writeLimit = 0;
};

Files& TheFiles() {
  static Files& files = *new Files;
  return files;
}

std::shared_ptr<Node> FindNode(const std::wstring& full) {
  const auto place = TheFiles().nodes.find(Fold(full));
  return place == TheFiles().nodes.end() ? nullptr : place->second;
}

// The folder above a full path; empty for a root.
std::wstring ParentOf(const std::wstring& full) {
  const std::size_t at = full.rfind(L'\\');
  return at == std::wstring::npos ? std::wstring() : full.substr(0, at);
}

std::shared_ptr<Node> AddNode(const std::wstring& full, bool folder) {
  auto node = std::make_shared<Node>();
  node->path = full;
  node->folder = folder;
  TheFiles().nodes[Fold(full)] = node;
  return node;
}

// Whether something may be made at a full path; leaves the error when not.
bool MayMake(const std::wstring& full) {
  const std::shared_ptr<Node> parent = FindNode(ParentOf(full));
  if (parent == nullptr || !parent->folder) {
    return Leave(kPathNotFound);
  }
  return parent->readOnly ? Leave(kAccessDenied) : true;
}

std::uint64_t* FreeSpaceOf(const std::wstring& full) {
  const auto place = TheFiles().freeSpace.find(Fold(full.substr(0, 2)));
  return place == TheFiles().freeSpace.end() ? nullptr : &place->second;
}

// Takes or gives back room on the file's drive. False when it is full.
bool TakeRoom(const Node& node, std::size_t newSize) {
  std::uint64_t* room = FreeSpaceOf(node.path);
  if (room == nullptr || *room == kUnlimited) {
    return true;
  }
  if (newSize <= node.bytes.size()) {
    *room += node.bytes.size() - newSize;
    return true;
  }
  const std::uint64_t more = newSize - node.bytes.size();
  if (more > *room) {
    return Leave(kDiskFull);
  }
  *room -= more;
  return true;
}

bool Wants(std::uint32_t access, std::uint32_t generic) { return (access & generic) != 0; }

bool SharingAllows(const Node& node, std::uint32_t access, std::uint32_t share) {
  using namespace platform;
  return std::all_of(node.opens.begin(), node.opens.end(), [&](const OpenFile* open) {
    return !(Wants(access, kGenericRead) && !(open->share & kFileShareRead)) &&
           !(Wants(access, kGenericWrite) && !(open->share & kFileShareWrite)) &&
           !(Wants(access, kDelete) && !(open->share & kShareDelete)) &&
           !(Wants(open->access, kGenericRead) && !(share & kFileShareRead)) &&
           !(Wants(open->access, kGenericWrite) && !(share & kFileShareWrite));
  });
}

// Opens as the system does; null with the last error on failure.
std::shared_ptr<OpenFile> Open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                               std::uint32_t disposition, std::uint32_t attributes) {
  using namespace platform;
  const auto fail = [](std::uint32_t error) {
    Leave(error);
    return nullptr;
  };
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(path, &full, &error)) {
    return fail(error);
  }
  if (disposition < kCreateNew || disposition > kTruncateExisting) {
    return fail(kInvalidParameter);
  }
  std::shared_ptr<Node> node = FindNode(full);
  const bool existed = node != nullptr;
  const bool endsInSeparator = path.ends_with(L'\\') || path.ends_with(L'/');
  if (!existed) {
    if (disposition == kOpenExisting || disposition == kTruncateExisting) {
      const std::shared_ptr<Node> parent = FindNode(ParentOf(full));
      return fail(parent != nullptr && parent->folder ? kFileNotFound : kPathNotFound);
    }
    if (endsInSeparator) {
      return fail(kInvalidName);
    }
    if (!MayMake(full)) {
      return nullptr;
    }
    node = AddNode(full, false);
    node->readOnly = (attributes & kAttributeReadOnly) != 0;
  } else {
    if (disposition == kCreateNew) {
      return fail(kFileAlreadyExists);
    }
    if (node->folder) {
      return fail(kAccessDenied);
    }
    if (endsInSeparator) {
      return fail(kInvalidName);
    }
    const bool truncates = disposition == kCreateAlways || disposition == kTruncateExisting;
    if (node->readOnly && (truncates || Wants(access, kGenericWrite))) {
      return fail(kAccessDenied);
    }
    // Cutting a file counts as writing, whatever access was asked for.
    if (!SharingAllows(*node, access | (truncates ? kGenericWrite : 0), share)) {
      return fail(kSharingViolation);
    }
    if (truncates) {
      TakeRoom(*node, 0);
      node->bytes.clear();
    }
  }
  TheFiles().opened.push_back(full);
  if (disposition == kCreateAlways || disposition == kOpenAlways) {
    Leave(existed ? kNameExists : 0);
  }
  return std::make_shared<OpenFile>(node, access, share);
}

bool MakeFolder(const std::wstring& path) {
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(path, &full, &error)) {
    return Leave(error);
  }
  if (path.size() >= kLongestFolder) {
    return Leave(kNameTooLong);
  }
  if (ParentOf(full).empty()) {
    return Leave(FindNode(full) != nullptr ? kAccessDenied : kPathNotFound); // a root
  }
  if (FindNode(full) != nullptr) {
    return Leave(kNameExists);
  }
  if (!MayMake(full)) {
    return false;
  }
  AddNode(full, true);
  return true;
}

std::wstring NeedFullPath(const std::wstring& path) {
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(path, &full, &error)) {
    Die("no path of the simulated file system: " + std::string(path.begin(), path.end()));
  }
  return full;
}

void NeedFolder(const std::wstring& full) {
  if (const std::shared_ptr<Node> node = FindNode(full)) {
    if (!node->folder) {
      Die("a test makes a folder where a file is");
    }
    return;
  }
  if (ParentOf(full).empty()) {
    Die("a test names a drive that is not there");
  }
  NeedFolder(ParentOf(full));
  AddNode(full, true);
}

std::shared_ptr<Node> NeedNode(const std::wstring& path) {
  const std::wstring full = NeedFullPath(path);
  std::shared_ptr<Node> node = FindNode(full);
  if (node == nullptr) {
    NeedFolder(ParentOf(full));
    node = AddNode(full, false);
  }
  return node;
}

std::int64_t SizeOf(const Node& node) {
  return node.reportedSize >= 0 ? node.reportedSize : static_cast<std::int64_t>(node.bytes.size());
}

std::shared_ptr<OpenFile> FindOpen(platform::Handle file) { return FindHandle<OpenFile>(file, HandleKind::kFile); }

} // namespace

namespace internal {

void ResetFiles() { TheFiles() = Files(); }

bool HasFile(const std::wstring& path) {
  std::wstring full;
  std::uint32_t error = 0;
  const std::shared_ptr<Node> node = FullPath(path, &full, &error) ? FindNode(full) : nullptr;
  return node != nullptr && !node->folder;
}

bool HasFolder(const std::wstring& path) {
  std::wstring full;
  std::uint32_t error = 0;
  const std::shared_ptr<Node> node = FullPath(path, &full, &error) ? FindNode(full) : nullptr;
  return node != nullptr && node->folder;
}

void NeedFile(const std::wstring& path) {
  if (NeedNode(path)->folder) {
    Die("a test makes a file where a folder is");
  }
}

void DropFilesOf(const std::wstring& drive) {
  const std::wstring root = Fold(drive);
  std::erase_if(TheFiles().nodes, [&](const auto& item) { return item.first.substr(0, 2) == root; });
  TheFiles().freeSpace.erase(root);
}

void AddRoot(const std::wstring& drive) {
  if (FindNode(drive) == nullptr) {
    AddNode(drive, true);
  }
}

} // namespace internal

void AddFolder(const std::wstring& path) {
  const Lock lock = TakeLock();
  NeedFolder(NeedFullPath(path));
}

void AddFile(const std::wstring& path, const std::string& bytes) {
  const Lock lock = TakeLock();
  NeedFile(path);
  NeedNode(path)->bytes = bytes;
}

void AppendToFile(const std::wstring& path, const std::string& bytes) {
  const Lock lock = TakeLock();
  NeedFile(path);
  NeedNode(path)->bytes += bytes;
}

void RemovePath(const std::wstring& path) {
  const Lock lock = TakeLock();
  const std::wstring key = Fold(NeedFullPath(path));
  std::erase_if(TheFiles().nodes,
                [&](const auto& item) { return item.first == key || item.first.starts_with(key + L"\\"); });
}

bool FileExists(const std::wstring& path) {
  const Lock lock = TakeLock();
  return HasFile(path);
}

bool FolderExists(const std::wstring& path) {
  const Lock lock = TakeLock();
  return HasFolder(path);
}

std::string FileBytes(const std::wstring& path) {
  const Lock lock = TakeLock();
  const std::shared_ptr<Node> node = FindNode(NeedFullPath(path));
  return node == nullptr ? std::string() : node->bytes;
}

std::vector<std::wstring> ListFolder(const std::wstring& path) {
  const Lock lock = TakeLock();
  const std::wstring key = Fold(NeedFullPath(path));
  std::vector<std::wstring> paths;
  for (const auto& [name, node] : TheFiles().nodes) {
    if (ParentOf(name) == key) {
      paths.push_back(node->path);
    }
  }
  return paths;
}

void SetReadOnly(const std::wstring& path, bool readOnly) {
  const Lock lock = TakeLock();
  NeedNode(path)->readOnly = readOnly;
}

void SetReportedSize(const std::wstring& path, std::int64_t size) {
  const Lock lock = TakeLock();
  NeedNode(path)->reportedSize = size;
}

void SetReadLimit(std::uint32_t bytes) {
  const Lock lock = TakeLock();
  TheFiles().readLimit = bytes;
}

void SetWriteLimit(std::uint32_t bytes) {
  const Lock lock = TakeLock();
  TheFiles().writeLimit = bytes;
}

void SetFreeSpace(const std::wstring& drive, std::uint64_t bytes) {
  const Lock lock = TakeLock();
  TheFiles().freeSpace[Fold(drive)] = bytes;
}

std::vector<std::wstring> OpenedFiles() {
  const Lock lock = TakeLock();
  return TheFiles().opened;
}

ForeignFile::ForeignFile(const std::wstring& path, std::uint32_t access, std::uint32_t share) {
  const Lock lock = TakeLock();
  const std::shared_ptr<Node> node = NeedNode(path);
  if (node->folder || !SharingAllows(*node, access, share)) {
    Die("another process can't open the file in that way");
  }
  m_open = std::make_shared<OpenFile>(node, access, share);
}

ForeignFile::~ForeignFile() {
  const Lock lock = TakeLock();
  m_open.reset();
}

} // namespace sim

namespace platform {

using namespace sim::internal;
using sim::HandleKind;

Handle CreateFileW(const wchar_t* path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition,
                   std::uint32_t attributes) {
  Call call("CreateFileW");
  if (call.Fails(kAccessDenied)) {
    return kInvalidHandle;
  }
  const std::shared_ptr<sim::OpenFile> open =
      sim::Open(path == nullptr ? L"" : path, access, share, disposition, attributes);
  return open == nullptr ? kInvalidHandle : AddHandle(open, access);
}

std::uint32_t GetFileSize(Handle file, std::uint32_t* high) {
  Call call("GetFileSize");
  if (call.Fails(kInvalidHandleValue)) {
    return kInvalidFileSize;
  }
  const std::shared_ptr<sim::OpenFile> open = sim::FindOpen(file);
  if (open == nullptr) {
    Leave(kInvalidHandleValue);
    return kInvalidFileSize;
  }
  const auto size = static_cast<std::uint64_t>(sim::SizeOf(*open->node));
  *high = static_cast<std::uint32_t>(size >> 32);
  // The low half may look like the failure, and then only the last error tells.
  if (static_cast<std::uint32_t>(size) == kInvalidFileSize) {
    Leave(0);
  }
  return static_cast<std::uint32_t>(size);
}

bool GetFileSizeEx(Handle file, std::int64_t* size) {
  Call call("GetFileSizeEx");
  if (call.Fails(kInvalidHandleValue)) {
    return false;
  }
  const std::shared_ptr<sim::OpenFile> open = sim::FindOpen(file);
  if (open == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  *size = sim::SizeOf(*open->node);
  return true;
}

std::uint32_t SetFilePointer(Handle file, std::int32_t distance, std::uint32_t method) {
  Call call("SetFilePointer");
  if (call.Fails(kInvalidHandleValue)) {
    return kInvalidFileSize;
  }
  const auto fail = [](std::uint32_t error) {
    Leave(error);
    return kInvalidFileSize;
  };
  const std::shared_ptr<sim::OpenFile> open = sim::FindOpen(file);
  if (open == nullptr) {
    return fail(kInvalidHandleValue);
  }
  std::int64_t base = 0;
  if (method == kFileEnd) {
    base = static_cast<std::int64_t>(open->node->bytes.size());
  } else if (method == sim::kFileCurrent) {
    base = open->position;
  } else if (method != kFileBegin) {
    return fail(kInvalidParameter);
  }
  if (base + distance < 0) {
    return fail(sim::kNegativeSeek);
  }
  open->position = base + distance;
  return static_cast<std::uint32_t>(open->position);
}

bool SetEndOfFile(Handle file) {
  Call call("SetEndOfFile");
  if (call.Fails(kInvalidHandleValue)) {
    return false;
  }
  const std::shared_ptr<sim::OpenFile> open = sim::FindOpen(file);
  if (open == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  if (!sim::Wants(open->access, kGenericWrite)) {
    return Leave(kAccessDenied);
  }
  const auto size = static_cast<std::size_t>(open->position);
  if (!sim::TakeRoom(*open->node, size)) {
    return false;
  }
  open->node->bytes.resize(size);
  return true;
}

bool ReadFile(Handle file, void* data, std::uint32_t size, std::uint32_t* done) {
  Call call("ReadFile");
  *done = 0;
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  const std::shared_ptr<sim::OpenFile> open = sim::FindOpen(file);
  if (open == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  if (!sim::Wants(open->access, kGenericRead)) {
    return Leave(kAccessDenied);
  }
  const std::string& bytes = open->node->bytes;
  const auto position = static_cast<std::size_t>(open->position);
  std::size_t count = position >= bytes.size() ? 0 : std::min<std::size_t>(size, bytes.size() - position);
  if (sim::TheFiles().readLimit != 0) {
    count = std::min<std::size_t>(count, sim::TheFiles().readLimit);
  }
  if (count != 0) {
    std::memcpy(data, bytes.data() + position, count);
  }
  open->position += static_cast<std::int64_t>(count);
  *done = static_cast<std::uint32_t>(count);
  return true;
}

bool WriteFile(Handle file, const void* data, std::uint32_t size, std::uint32_t* done) {
  Call call("WriteFile");
  *done = 0;
  if (call.Fails(kDiskFull)) {
    return false;
  }
  const std::shared_ptr<sim::OpenFile> open = sim::FindOpen(file);
  if (open == nullptr) {
    return Leave(kInvalidHandleValue);
  }
  if (!sim::Wants(open->access, kGenericWrite)) {
    return Leave(kAccessDenied);
  }
  std::size_t count = size;
  if (sim::TheFiles().writeLimit != 0) {
    count = std::min<std::size_t>(count, sim::TheFiles().writeLimit);
  }
  if (count == 0) {
    return true;
  }
  std::string& bytes = open->node->bytes;
  const auto position = static_cast<std::size_t>(open->position);
  if (position + count > bytes.size()) {
    if (!sim::TakeRoom(*open->node, position + count)) {
      return false;
    }
    bytes.resize(position + count);
  }
  std::memcpy(bytes.data() + position, data, count);
  open->position += static_cast<std::int64_t>(count);
  *done = static_cast<std::uint32_t>(count);
  return true;
}

bool DeleteFileW(const wchar_t* path) {
  Call call("DeleteFileW");
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(path == nullptr ? L"" : path, &full, &error)) {
    return Leave(error);
  }
  const std::shared_ptr<sim::Node> parent = sim::FindNode(sim::ParentOf(full));
  const std::shared_ptr<sim::Node> node = sim::FindNode(full);
  if (node == nullptr) {
    return Leave(parent != nullptr && parent->folder ? kFileNotFound : kPathNotFound);
  }
  if (node->folder || node->readOnly || (parent != nullptr && parent->readOnly)) {
    return Leave(kAccessDenied);
  }
  if (!sim::SharingAllows(*node, sim::kDelete, kFileShareRead | kFileShareWrite | sim::kShareDelete)) {
    return Leave(sim::kSharingViolation);
  }
  sim::TakeRoom(*node, 0);
  sim::TheFiles().nodes.erase(Fold(full));
  return true;
}

bool CreateDirectoryW(const wchar_t* path) {
  Call call("CreateDirectoryW");
  if (call.Fails(kAccessDenied)) {
    return false;
  }
  return sim::MakeFolder(path == nullptr ? L"" : path);
}

std::uint32_t GetFileAttributesW(const wchar_t* path) {
  Call call("GetFileAttributesW");
  if (call.Fails(kFileNotFound)) {
    return kInvalidFileAttributes;
  }
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(path == nullptr ? L"" : path, &full, &error)) {
    Leave(error);
    return kInvalidFileAttributes;
  }
  const std::shared_ptr<sim::Node> node = sim::FindNode(full);
  if (node == nullptr) {
    const std::shared_ptr<sim::Node> parent = sim::FindNode(sim::ParentOf(full));
    Leave(parent != nullptr && parent->folder ? kFileNotFound : kPathNotFound);
    return kInvalidFileAttributes;
  }
  // A read-only folder here is one whose access rights forbid changes, which shows in no attribute.
  if (node->folder) {
    return kFileAttributeDirectory;
  }
  return node->readOnly ? sim::kAttributeReadOnly : kFileAttributeNormal;
}

bool PathFileExistsW(const wchar_t* path) {
  Call call("PathFileExistsW");
  if (call.Fails(kFileNotFound)) {
    return false;
  }
  const std::wstring text = path == nullptr ? L"" : path;
  return HasFile(text) || HasFolder(text) ? true : Leave(kFileNotFound);
}

int SHCreateDirectoryExW(const wchar_t* path) {
  Call call("SHCreateDirectoryExW");
  if (const auto error = call.FailsWith(kAccessDenied)) {
    return static_cast<int>(*error);
  }
  const std::wstring text = path == nullptr ? L"" : path;
  const bool rooted = text.size() >= 3 && text[1] == L':' && text[2] == L'\\';
  if (!rooted) {
    return static_cast<int>(sim::kBadPathName);
  }
  std::wstring full;
  std::uint32_t error = 0;
  if (!FullPath(text, &full, &error)) {
    return static_cast<int>(error);
  }
  if (const std::shared_ptr<sim::Node> node = sim::FindNode(full)) {
    return static_cast<int>(node->folder ? sim::kNameExists : sim::kFileAlreadyExists);
  }
  for (std::size_t at = full.find(L'\\'); at != std::wstring::npos; at = full.find(L'\\', at + 1)) {
    const std::size_t end = full.find(L'\\', at + 1);
    const std::wstring level = full.substr(0, end);
    if (!HasFolder(level) && !sim::MakeFolder(level)) {
      const std::uint32_t left = LastError();
      return static_cast<int>(left == sim::kNameExists ? kPathNotFound : left);
    }
  }
  return 0;
}

} // namespace platform
