#include <gtest/gtest.h>

#include <cwchar>

#include "platform/error.h"
#include "platform/file.h"
#include "tests/sim/file.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

class SimPath : public testing::Test {
protected:
  static std::wstring WithoutFileSpec(const wchar_t* text) {
    wchar_t buffer[kMaxPath];
    std::wcscpy(buffer, text);
    const bool cut = PathRemoveFileSpecW(buffer);
    EXPECT_EQ(cut, std::wcscmp(buffer, text) != 0);
    return buffer;
  }
  static std::wstring WithoutExtension(const wchar_t* text) {
    wchar_t buffer[kMaxPath];
    std::wcscpy(buffer, text);
    PathRemoveExtensionW(buffer);
    return buffer;
  }
  static std::wstring Append(const wchar_t* text, const wchar_t* more) {
    wchar_t buffer[kMaxPath];
    std::wcscpy(buffer, text);
    return PathAppendW(buffer, more) ? buffer : L"failed";
  }

  sim::World m_world;
};

TEST_F(SimPath, TheFileNameFollowsTheLastSeparator) {
  EXPECT_STREQ(PathFindFileNameW(L"C:\\a\\b.exe"), L"b.exe");
  EXPECT_STREQ(PathFindFileNameW(L"C:/a/b.exe"), L"b.exe");
  EXPECT_STREQ(PathFindFileNameW(L"b.exe"), L"b.exe");
  EXPECT_STREQ(PathFindFileNameW(L"C:b.exe"), L"b.exe");
  EXPECT_STREQ(PathFindFileNameW(L"C:\\a\\b\\"), L"b\\"); // one at the end begins no name
  const wchar_t* const empty = L"";
  EXPECT_EQ(PathFindFileNameW(empty), empty);
}

TEST_F(SimPath, TheLastComponentIsCutOff) {
  EXPECT_EQ(WithoutFileSpec(L"C:\\a\\b.exe"), L"C:\\a");
  EXPECT_EQ(WithoutFileSpec(L"C:\\a\\"), L"C:\\a");
  EXPECT_EQ(WithoutFileSpec(L"C:\\b.exe"), L"C:\\");
  EXPECT_EQ(WithoutFileSpec(L"C:\\"), L"C:\\");
  EXPECT_EQ(WithoutFileSpec(L"b.exe"), L"");
  EXPECT_EQ(WithoutFileSpec(L"C:/a/b.exe"), L"C:");
  EXPECT_EQ(WithoutFileSpec(L""), L"");
}

TEST_F(SimPath, OnlyAnExtensionOfTheNameIsCutOff) {
  EXPECT_EQ(WithoutExtension(L"host.exe"), L"host");
  EXPECT_EQ(WithoutExtension(L"a.b.exe"), L"a.b");
  EXPECT_EQ(WithoutExtension(L"C:\\a.b\\host"), L"C:\\a.b\\host");
  EXPECT_EQ(WithoutExtension(L"a.b c"), L"a.b c"); // an extension holds no blank
  EXPECT_EQ(WithoutExtension(L".log"), L"");
}

TEST_F(SimPath, AppendingPutsOneSeparatorBetween) {
  EXPECT_EQ(Append(L"C:\\Apps\\Host", L"\\log\\"), L"C:\\Apps\\Host\\log\\");
  EXPECT_EQ(Append(L"C:\\Apps\\Host\\log\\", L"host"), L"C:\\Apps\\Host\\log\\host");
  EXPECT_EQ(Append(L"C:\\", L"log"), L"C:\\log");
  EXPECT_EQ(Append(L"C:\\a\\b", L"..\\c"), L"C:\\a\\c");
  EXPECT_EQ(Append(L"C:\\a", L"D:\\b"), L"D:\\b");
  EXPECT_EQ(Append((L"C:\\" + std::wstring(250, L'a')).c_str(), L"123456789"), L"failed");
  EXPECT_EQ(Append((L"C:\\" + std::wstring(250, L'a')).c_str(), L"12345"),
            L"C:\\" + std::wstring(250, L'a') + L"\\12345");
}

TEST_F(SimPath, DrivesAndTheirDevices) {
  wchar_t text[64];
  EXPECT_EQ(GetLogicalDriveStringsW(64, text), 8u);
  EXPECT_EQ(std::wstring(text, 9), std::wstring(L"C:\\\0D:\\\0\0", 9));
  EXPECT_EQ(GetLogicalDriveStringsW(8, text), 9u); // room for all but the last terminator
  EXPECT_EQ(GetLogicalDriveStringsW(9, text), 8u);
  sim::AddDrive(L"E:", {L"\\Device\\New", L"\\Device\\Old"});
  EXPECT_EQ(QueryDosDeviceW(L"e:", text, 64), 25u);
  EXPECT_EQ(std::wstring(text, 25), std::wstring(L"\\Device\\New\0\\Device\\Old\0\0", 25));
  EXPECT_EQ(QueryDosDeviceW(L"E:", text, 24), 0u);
  EXPECT_EQ(GetLastError(), 122u);
  EXPECT_EQ(QueryDosDeviceW(L"X:", text, 64), 0u);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(QueryDosDeviceW(L"C:\\", text, 64), 0u);
  sim::RemoveDrive(L"D:");
  EXPECT_EQ(GetLogicalDriveStringsW(64, text), 8u);
  EXPECT_FALSE(PathFileExistsW(L"D:\\"));
}

TEST_F(SimPath, KnownVariablesAreReplacedAndOthersStay) {
  wchar_t text[64];
  EXPECT_EQ(ExpandEnvironmentStringsW(L"%systemroot%\\a", text, 64), 13u);
  EXPECT_STREQ(text, L"C:\\Windows\\a");
  EXPECT_EQ(ExpandEnvironmentStringsW(L"%NONE%x%", text, 64), 9u);
  EXPECT_STREQ(text, L"%NONE%x%");
  EXPECT_EQ(ExpandEnvironmentStringsW(L"%SystemRoot%", text, 10), 11u); // the units needed
  EXPECT_EQ(ExpandEnvironmentStringsW(L"%SystemRoot%", text, 11), 11u);
  EXPECT_STREQ(text, L"C:\\Windows");
}

} // namespace
