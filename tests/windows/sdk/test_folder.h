#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sdktest {

/// A folder and a registry of one test's own. The hosts that run from the folder take the registry for the machine's
/// and keep their saved process ids in the folder. The end of the object ends all processes that run from the folder
/// and removes both.
class TestFolder {
public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  /// With a backslash at its end.
  const std::wstring& Path() const { return m_path; }
  /// The key under HKEY_CURRENT_USER that stands for the registry.
  const std::wstring& RegistryKey() const { return m_registryKey; }

  /// Copies a file of the build into the folder, or below it: "sdk\\" puts it into that folder, which is made. `from`
  /// is a file name, or a path below the folder of this test program.
  void Add(const std::wstring& from, const std::wstring& into = L"");
  /// The programs and libraries of a whole installation, the host included.
  void AddAll();

  /// Values in the registry: `root` is "user" or "machine".
  void SetRegistry(const std::wstring& root, const std::wstring& key, const std::wstring& name, std::uint32_t type,
                   const std::string& bytes);
  void SetRegistryNumber(const std::wstring& root, const std::wstring& key, const std::wstring& name,
                         std::uint32_t value);

  /// The file of the saved process ids. Its folder is made.
  std::wstring SavedPidsFile() const;
  std::wstring LogFile() const;

  /// The lines of the log so far, and those of them that hold `part`.
  std::vector<std::string> Log() const;
  std::vector<std::string> LogWith(const std::string& part) const;

private:
  std::wstring m_path;
  std::wstring m_registryKey;
};

} // namespace sdktest
