#pragma once

#include "tests/windows/sdk/host_process.h"
#include "tests/windows/sdk/test_folder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sdktest {

/// The names in an editor's environment and the SDK's switches.
inline constexpr wchar_t kZooVariable[] = L"VEXEL_EDITOR_ZOO";
inline constexpr wchar_t kAnswerVariable[] = L"VEXEL_EDITOR_ANSWER";
inline constexpr wchar_t kLogLevelKey[] = L"Software\\Tarnwick\\antivirus\\sysopt";
inline constexpr wchar_t kSwitchesKey[] = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";

inline const std::string kProcessSuccess = "\"open_pic_process_success\"";
inline const std::string kOpenSuccess = "\"open_pic_success\"";
inline const std::string kCrash = "\"run_error\"";

/// A picture that a test has opened.
struct Opened {
  std::int64_t window;
  std::int32_t id;
  std::uint32_t pid; // of the editor that serves it
};

/// A test of the real products: a folder of its own, and a host in it from StartHost on.
class SdkTest : public ::testing::Test {
protected:
  SdkTest();
  ~SdkTest() override;

  /// Starts a host in the folder, in place of an earlier one, and loads the SDK from `library`, a path in the folder.
  /// The folder holds a whole installation unless a test has put other files there before.
  HostProcess& StartHost(const std::map<std::wstring, std::wstring>& environment = {},
                         const std::wstring& library = L"vexelsdk.dll");
  /// A host whose editors misbehave as `zoo` says.
  HostProcess& StartHostWithZoo(const std::wstring& zoo);
  HostProcess& Host() { return *m_host; }
  TestFolder& Folder() { return m_folder; }
  /// A test that lays out the folder itself says so first.
  void KeepFolderBare() { m_isBare = true; }
  /// Lines below INFO's level are not written: the log level is 2.
  void QuietLog();

  /// The full path of a picture that can be shown.
  const std::wstring& Picture() const { return m_picture; }

  /// Opens a picture in a window with the callback in the given mode. The id.
  std::int32_t Open(std::int64_t window, const std::wstring& path, const std::wstring& param = L"",
                    const std::string& mode = "on");
  /// Opens the picture in a new window, and waits until it has been handed to its editor.
  Opened OpenAndWait(const std::wstring& param = L"");
  /// Opens it in a window that has none or another.
  Opened OpenAndWaitIn(std::int64_t window, const std::wstring& param = L"");
  /// Makes an unsaved change and waits until the SDK knows of it.
  void Modify(const Opened& opened);

  /// Waits for the `count`th process that the SDK has brought up or taken over for later, and gives its id.
  std::uint32_t WaitForPreload(std::size_t count);
  /// Waits until as many log lines as `count` hold `part`, and gives the last of these.
  std::string WaitForLog(const std::string& part, std::size_t count = 1);
  /// Waits until no process of this id is listed any more, helped by the host, which closes its handles to it.
  void WaitUntilUnlisted(std::uint32_t pid);
  /// Ends a process as a crash would, and waits as WaitUntilUnlisted does.
  void Kill(std::uint32_t pid);

  /// The texts that editors have received, in the order of their arrival.
  std::vector<std::string> Received() const;
  /// Waits for a received text that holds all `parts`. Gives the first, or "".
  std::string WaitForReceived(const std::vector<std::string>& parts);

private:
  TestFolder m_folder;
  bool m_isBare = false;
  std::wstring m_picture;
  std::unique_ptr<HostProcess> m_host;
};

} // namespace sdktest
