#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// A whole simulated system for one test.
//
// A fresh world holds: drives C: and D: (whose device names are a prefix of one another), C:\Windows\System32, the
// host program C:\Host\browser.exe as the current process, the SDK library C:\Vexel\vexelsdk.dll, the user Tester with
// C:\Users\Tester\AppData\Local, an empty registry, no window, no pipe library and no editor program.
namespace sim {

inline constexpr const wchar_t* kHostPath = L"C:\\Host\\browser.exe";
inline constexpr const wchar_t* kLibraryPath = L"C:\\Vexel\\vexelsdk.dll";
inline constexpr const wchar_t* kLocalAppData = L"C:\\Users\\Tester\\AppData\\Local";
inline constexpr const wchar_t* kEditorPath = L"C:\\Vexel\\vxpixeleditor.exe";
inline constexpr const wchar_t* kLauncherPath = L"C:\\Vexel\\webvexlaunch.exe";
inline constexpr const wchar_t* kPipeLibraryPath = L"C:\\Vexel\\vpipearm64.dll";
inline constexpr std::uint32_t kHostPid = 4000;

/// Ends the present world and builds a fresh one. Programs, servers and timers of the old world are stopped and joined.
/// Threads of the test or of the code under test that called the platform must have ended, other than the caller and
/// the main thread: the call waits for them for up to a minute, and then ends the program with a message.
void Reset();

/// A fresh world for as long as the object lives, and another after it.
class World {
public:
  World() { Reset(); }
  ~World() { Reset(); }
  World(const World&) = delete;
  World& operator=(const World&) = delete;
};

/// Runs `task` on a thread of the simulated system after `milliseconds` of simulated time. Dropped when the world ends
/// before. The task may use everything in this folder but Reset.
void After(std::uint32_t milliseconds, std::function<void()> task);

/// Waits until `condition` holds, asking again each millisecond of real time. False when it does not hold after
/// `seconds` of real time.
bool WaitFor(const std::function<bool()>& condition, int seconds = 200);

/// The threads that called the platform and still run, without the main thread and those of the simulated system.
int LiveThreads();

/// The thread id of the next thread that calls the platform for the first time, and of that one alone. No living thread
/// may have it; those that nobody chose begin at 7000.
void SetNextThreadId(std::uint32_t id);

/// UTF-8 as UTF-16 with one code unit in each wchar_t, as the system under test holds it: a character above U+FFFF
/// becomes two of them, which an L"" literal of the native compiler would not give.
std::wstring Wide(std::string_view utf8);

/// The way back.
std::string Narrow(std::wstring_view text);

namespace internal {
/// Fills a fresh world as told above.
void BuildWorld();
} // namespace internal

} // namespace sim
