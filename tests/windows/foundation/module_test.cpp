#include "foundation/paths.h"

#include "foundation/text_codecs.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

namespace {

/// A copy of the probe library under another name and in another folder than the program's.
class ProbeLibrary {
public:
  ProbeLibrary() : m_path(m_folder.Path(L"Own Name.v2.dll")) {
    const std::wstring from = vx::GetDirectoryOfPath(vx::GetModuleFilePath(nullptr)) + L"foundation_probe.dll";
    EXPECT_TRUE(::CopyFileW(from.c_str(), m_path.c_str(), TRUE));
    m_module = ::LoadLibraryW(m_path.c_str());
    EXPECT_NE(m_module, nullptr);
  }
  ~ProbeLibrary() { ::FreeLibrary(m_module); }
  ProbeLibrary(const ProbeLibrary&) = delete;
  ProbeLibrary& operator=(const ProbeLibrary&) = delete;

  [[nodiscard]] std::wstring Ask(const char* question) const {
    const auto entry =
        reinterpret_cast<void (*)(wchar_t*)>(reinterpret_cast<void*>(::GetProcAddress(m_module, question)));
    if (entry == nullptr) {
      ADD_FAILURE() << question;
      return {};
    }
    wchar_t answer[520] = {};
    entry(answer);
    return answer;
  }
  [[nodiscard]] const std::wstring& Path() const { return m_path; }

private:
  test::FreshFolder m_folder;
  std::wstring m_path;
  HMODULE m_module = nullptr;
};

TEST(Module, ThisModuleIsTheLibraryAndNotTheProgram) {
  const ProbeLibrary library;
  EXPECT_TRUE(vx::EqualsIgnoreCase(library.Ask("ProbeModuleFile"), library.Path()));
  EXPECT_TRUE(vx::EqualsIgnoreCase(library.Ask("ProbeModuleDirectory"), vx::GetDirectoryOfPath(library.Path())));
}

TEST(Module, TheLogIsNamedAfterTheProgramAndTheLibrary) {
  const ProbeLibrary library;
  const std::wstring program = vx::GetModuleFilePath(nullptr);
  const std::wstring folder = vx::GetDirectoryOfPath(program) + L"log\\";
  EXPECT_EQ(library.Ask("ProbeLogPath"), folder + L"windows_foundation.Own Name.v2.dll.log");
  EXPECT_TRUE(vx::DirectoryExists(folder));
}

TEST(Module, TheUsersFolderExists) {
  const std::wstring folder = vx::GetSpecialFolder(28, nullptr);
  EXPECT_TRUE(vx::DirectoryExists(folder));
  EXPECT_EQ(folder.back(), L'\\');
  HANDLE token = nullptr;
  ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY | TOKEN_IMPERSONATE, &token));
  EXPECT_TRUE(vx::EqualsIgnoreCase(vx::GetSpecialFolder(28, token), folder));
  ::CloseHandle(token);
}

} // namespace
