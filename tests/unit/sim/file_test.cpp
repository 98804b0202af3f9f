#include "tests/sim/file.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/error.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "tests/sim/handles.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

constexpr std::uint32_t kShareBoth = kFileShareRead | kFileShareWrite;

class SimFile : public testing::Test {
protected:
  static Handle Open(const wchar_t* path, std::uint32_t access, std::uint32_t disposition,
                     std::uint32_t share = kShareBoth) {
    return CreateFileW(path, access, share, disposition, kFileAttributeNormal);
  }
  static std::uint32_t OpenError(const wchar_t* path, std::uint32_t access, std::uint32_t disposition,
                                 std::uint32_t share = kShareBoth) {
    SetLastError(0);
    const Handle file = Open(path, access, disposition, share);
    if (file != kInvalidHandle) {
      CloseHandle(file);
      return 0;
    }
    return GetLastError();
  }
  static std::uint32_t Write(Handle file, const char* text) {
    std::uint32_t done = 0;
    return WriteFile(file, text, static_cast<std::uint32_t>(std::strlen(text)), &done) ? done : 0;
  }

  sim::World m_world;
};

TEST_F(SimFile, DispositionsTellWhatWasThere) {
  EXPECT_EQ(OpenError(L"C:\\Host\\a.txt", kGenericRead, kOpenExisting), 2u);
  EXPECT_EQ(OpenError(L"C:\\None\\a.txt", kGenericRead, kOpenExisting), 3u);
  EXPECT_EQ(OpenError(L"C:\\None\\a.txt", kGenericWrite, kOpenAlways), 3u);
  EXPECT_EQ(OpenError(L"Z:\\a.txt", kGenericRead, kOpenExisting), 3u);
  EXPECT_EQ(OpenError(L"", kGenericRead, kOpenExisting), 3u);
  EXPECT_EQ(OpenError(L"C:\\Host", kGenericRead, kOpenExisting), 5u);
  EXPECT_EQ(OpenError(L"C:\\Host\\a?.txt", kGenericWrite, kOpenAlways), 123u);

  SetLastError(77);
  Handle file = Open(L"C:\\Host\\a.txt", kGenericWrite, kOpenAlways);
  ASSERT_NE(file, kInvalidHandle);
  EXPECT_EQ(GetLastError(), 0u); // made
  CloseHandle(file);
  file = Open(L"c:\\HOST\\A.TXT", kGenericWrite, kOpenAlways);
  EXPECT_EQ(GetLastError(), 183u); // was there, in whatever case
  EXPECT_EQ(Write(file, "hello"), 5u);
  CloseHandle(file);
  EXPECT_EQ(OpenError(L"C:\\Host\\a.txt", kGenericWrite, kCreateNew), 80u);
  file = Open(L"C:\\Host\\a.txt", kGenericWrite, kCreateAlways);
  EXPECT_EQ(GetLastError(), 183u);
  CloseHandle(file);
  EXPECT_EQ(sim::FileBytes(L"C:\\Host\\a.txt"), "");
}

TEST_F(SimFile, PathsMeanTheSameInAllTheirForms) {
  sim::AddFile(L"C:\\Host\\sub\\a.txt", "x");
  for (const wchar_t* path :
       {L"C:/Host/sub/a.txt", L"sub\\a.txt", L"\\Host\\sub\\a.txt", L"C:sub\\a.txt", L"C:\\Host\\\\sub\\.\\a.txt",
        L"C:\\Host\\sub\\..\\sub\\a.txt. ", L"\\\\?\\C:\\Host\\sub\\a.txt"}) {
    EXPECT_EQ(OpenError(path, kGenericRead, kOpenExisting), 0u) << sim::Narrow(path);
  }
  EXPECT_EQ(OpenError((L"C:\\" + std::wstring(260, L'a')).c_str(), kGenericWrite, kOpenAlways), 3u);
}

TEST_F(SimFile, SharingIsCheckedBothWays) {
  sim::AddFile(L"C:\\a", "x");
  const Handle reader = Open(L"C:\\a", kGenericRead, kOpenExisting, kFileShareRead);
  EXPECT_EQ(OpenError(L"C:\\a", kGenericWrite, kOpenExisting), 32u);                 // the first allows no writer
  EXPECT_EQ(OpenError(L"C:\\a", kGenericRead, kOpenExisting, kFileShareWrite), 32u); // the second allows no reader
  EXPECT_EQ(OpenError(L"C:\\a", kGenericRead, kOpenExisting, kFileShareRead), 0u);
  EXPECT_EQ(OpenError(L"C:\\a", kGenericRead, kCreateAlways), 32u); // emptying is writing
  EXPECT_FALSE(DeleteFileW(L"C:\\a"));
  EXPECT_EQ(GetLastError(), 32u);
  CloseHandle(reader);
  {
    const sim::ForeignFile other(L"C:\\a", kGenericWrite, kFileShareRead);
    EXPECT_EQ(OpenError(L"C:\\a", kGenericRead, kOpenExisting, kFileShareRead), 32u);
    EXPECT_EQ(OpenError(L"C:\\a", kGenericRead, kOpenExisting, kShareBoth), 0u);
  }
  EXPECT_TRUE(DeleteFileW(L"C:\\a"));
  EXPECT_FALSE(sim::FileExists(L"C:\\a"));
}

TEST_F(SimFile, ReadsWritesAndThePointerKeepStep) {
  const Handle file = Open(L"C:\\a", kGenericRead | kGenericWrite, kCreateNew);
  EXPECT_EQ(Write(file, "abcdef"), 6u);
  EXPECT_EQ(SetFilePointer(file, 2, kFileBegin), 2u);
  EXPECT_EQ(Write(file, "XY"), 2u);
  EXPECT_EQ(SetFilePointer(file, -1, kFileEnd), 5u);
  char bytes[4] = {};
  std::uint32_t done = 9;
  EXPECT_TRUE(ReadFile(file, bytes, 4, &done));
  EXPECT_EQ(done, 1u);
  EXPECT_EQ(bytes[0], 'f');
  EXPECT_TRUE(ReadFile(file, bytes, 4, &done)); // at the end
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(SetFilePointer(file, -7, kFileEnd), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 131u);
  EXPECT_EQ(SetFilePointer(file, 8, kFileBegin), 8u);
  EXPECT_EQ(Write(file, "!"), 1u);
  EXPECT_EQ(sim::FileBytes(L"C:\\a"), std::string("abXYef\0\0!", 9));
  SetFilePointer(file, 3, kFileBegin);
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(sim::FileBytes(L"C:\\a"), "abX");
  std::int64_t size = 0;
  EXPECT_TRUE(GetFileSizeEx(file, &size));
  EXPECT_EQ(size, 3);
  CloseHandle(file);
  EXPECT_FALSE(GetFileSizeEx(file, &size));
  EXPECT_EQ(GetLastError(), 6u);
}

TEST_F(SimFile, AccessIsNeededForWhatIsDone) {
  sim::AddFile(L"C:\\a", "x");
  const Handle reader = Open(L"C:\\a", kGenericRead, kOpenExisting);
  EXPECT_EQ(Write(reader, "y"), 0u);
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_FALSE(SetEndOfFile(reader));
  const Handle writer = Open(L"C:\\a", kGenericWrite, kOpenExisting);
  char byte = 0;
  std::uint32_t done = 0;
  EXPECT_FALSE(ReadFile(writer, &byte, 1, &done));
  EXPECT_EQ(GetLastError(), 5u);
  CloseHandle(reader);
  CloseHandle(writer);
}

TEST_F(SimFile, ShortMovesAndFullDisks) {
  sim::AddFile(L"C:\\a", "abcdef");
  const Handle file = Open(L"C:\\a", kGenericRead | kGenericWrite, kOpenExisting);
  char bytes[8];
  std::uint32_t done = 0;
  sim::SetReadLimit(4);
  EXPECT_TRUE(ReadFile(file, bytes, 6, &done));
  EXPECT_EQ(done, 4u);
  SetFilePointer(file, 0, kFileEnd);
  sim::SetWriteLimit(2);
  EXPECT_EQ(Write(file, "ghi"), 2u);
  sim::SetWriteLimit(0);
  sim::SetFreeSpace(L"C:", 3);
  EXPECT_EQ(Write(file, "1234"), 0u);
  EXPECT_EQ(GetLastError(), 112u);
  EXPECT_EQ(Write(file, "123"), 3u);
  EXPECT_EQ(Write(file, "4"), 0u);
  SetFilePointer(file, 0, kFileBegin);
  EXPECT_EQ(Write(file, "A"), 1u); // no new room needed
  EXPECT_TRUE(SetFilePointer(file, 4, kFileBegin) == 4 && SetEndOfFile(file));
  SetFilePointer(file, 0, kFileEnd);
  EXPECT_EQ(Write(file, "12345"), 5u); // the room came back
  CloseHandle(file);
}

TEST_F(SimFile, SizesMayBeReportedBeyondFourGigabytes) {
  sim::AddFile(L"C:\\a", "x");
  sim::SetReportedSize(L"C:\\a", 0x1FFFFFFFF);
  const Handle file = Open(L"C:\\a", kGenericRead, kOpenExisting);
  std::uint32_t high = 0;
  SetLastError(5);
  EXPECT_EQ(GetFileSize(file, &high), 0xFFFFFFFFu);
  EXPECT_EQ(high, 1u);
  EXPECT_EQ(GetLastError(), 0u);
  CloseHandle(file);
}

TEST_F(SimFile, ReadOnlyThingsStayAsTheyAre) {
  sim::AddFile(L"C:\\d\\a", "x");
  sim::SetReadOnly(L"C:\\d\\a");
  EXPECT_EQ(OpenError(L"C:\\d\\a", kGenericWrite, kOpenExisting), 5u);
  EXPECT_EQ(OpenError(L"C:\\d\\a", kGenericRead, kOpenExisting), 0u);
  EXPECT_FALSE(DeleteFileW(L"C:\\d\\a"));
  sim::SetReadOnly(L"C:\\d\\a", false);
  sim::SetReadOnly(L"C:\\d");
  EXPECT_EQ(OpenError(L"C:\\d\\b", kGenericWrite, kOpenAlways), 5u);
  EXPECT_FALSE(CreateDirectoryW(L"C:\\d\\e"));
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_FALSE(DeleteFileW(L"C:\\d\\a"));
  EXPECT_EQ(OpenError(L"C:\\d\\a", kGenericWrite, kOpenExisting), 0u);
}

TEST_F(SimFile, FoldersAreMadeOneLevelAtATime) {
  EXPECT_FALSE(CreateDirectoryW(L"C:\\x\\y"));
  EXPECT_EQ(GetLastError(), 3u);
  EXPECT_TRUE(CreateDirectoryW(L"C:\\x\\"));
  EXPECT_TRUE(CreateDirectoryW(L"C:\\x\\y"));
  EXPECT_FALSE(CreateDirectoryW(L"C:\\X"));
  EXPECT_EQ(GetLastError(), 183u);
  EXPECT_FALSE(CreateDirectoryW(L"C:\\"));
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_EQ(GetFileAttributesW(L"C:\\x\\y\\"), kFileAttributeDirectory);
  EXPECT_EQ(GetFileAttributesW(L"C:\\"), kFileAttributeDirectory);
  EXPECT_EQ(GetFileAttributesW(sim::kHostPath) & kFileAttributeDirectory, 0u);
  EXPECT_EQ(GetFileAttributesW(L"C:\\z"), kInvalidFileAttributes);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(GetFileAttributesW(L"C:\\z\\z"), kInvalidFileAttributes);
  EXPECT_EQ(GetLastError(), 3u);
  EXPECT_TRUE(PathFileExistsW(L"C:\\x"));
  EXPECT_FALSE(PathFileExistsW(L"C:\\z"));
  EXPECT_EQ(sim::ListFolder(L"C:\\x"), (std::vector<std::wstring>{L"C:\\x\\y"}));
}

TEST_F(SimFile, AWholeTreeOfFoldersIsMadeAtOnce) {
  EXPECT_EQ(SHCreateDirectoryExW(L"C:\\p\\q\\r"), 0);
  EXPECT_TRUE(sim::FolderExists(L"C:\\p\\q\\r"));
  EXPECT_EQ(SHCreateDirectoryExW(L"C:\\p\\q\\r"), 183);
  EXPECT_EQ(SHCreateDirectoryExW(sim::kHostPath), 80);
  EXPECT_EQ(SHCreateDirectoryExW(L"p\\q"), 161);
  sim::AddFile(L"C:\\f");
  EXPECT_EQ(SHCreateDirectoryExW(L"C:\\f\\g"), 3);
  sim::SetReadOnly(L"C:\\p");
  EXPECT_EQ(SHCreateDirectoryExW(L"C:\\p\\s\\t"), 5);
}

TEST_F(SimFile, SpecialFoldersBelongToAUserAndCanFail) {
  wchar_t text[kMaxPath] = L"old";
  EXPECT_TRUE(SHGetSpecialFolderPathW(text, kCsidlLocalAppData));
  EXPECT_STREQ(text, sim::kLocalAppData);
  EXPECT_FALSE(SHGetSpecialFolderPathW(text, 27));
  EXPECT_STREQ(text, L"");
  sim::AddFolder(L"C:\\Users\\Other");
  sim::SetSpecialFolder(28, L"C:\\Users\\Other", L"Other");
  sim::ProcessSpec spec;
  spec.path = L"C:\\a.exe";
  spec.user = L"Other";
  const Handle process = OpenProcess(kProcessQueryInformation, sim::StartProcess(spec));
  Handle token = nullptr;
  ASSERT_TRUE(OpenProcessToken(process, kTokenQuery, &token));
  EXPECT_EQ(SHGetFolderPathW(kCsidlLocalAppData, token, text), 0);
  EXPECT_STREQ(text, L"C:\\Users\\Other");
  EXPECT_EQ(static_cast<std::uint32_t>(SHGetFolderPathW(kCsidlLocalAppData, process, text)), 0x80070006u);
  sim::SetSpecialFolder(28, L"");
  EXPECT_FALSE(SHGetSpecialFolderPathW(text, kCsidlLocalAppData));
  EXPECT_EQ(static_cast<std::uint32_t>(SHGetFolderPathW(kCsidlLocalAppData, nullptr, text)), 0x80004005u);
  CloseHandle(token);
  CloseHandle(process);
}

} // namespace
