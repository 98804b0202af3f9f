// A host without a face: it loads the SDK, does what the lines of its standard input say, one at a time, and answers
// each with one line. Events of the callback come in between, as lines of their own. Its one argument names a key under
// HKEY_CURRENT_USER that stands for the whole registry, so that hosts at work side by side do not disturb each other.

#include "tests/windows/host/commands.h"
#include "tests/windows/host/console.h"
#include "tests/windows/host/own_registry.h"
#include "tests/windows/host/stage.h"

#include <windows.h>

#include <string>
#include <thread>

namespace {

void ReadCommands() {
  std::thread([] {
    for (std::string line; testhost::ReadLine(line);) {
      testhost::PrintLine(testhost::Obey(line));
    }
    // Whoever gave the commands is gone.
    TerminateProcess(GetCurrentProcess(), 1);
  }).detach();
}

} // namespace

int main(int count, char** arguments) {
  testhost::TakeStandardHandles();
  if (count > 1 && !testhost::UseOwnRegistry(arguments[1])) {
    return 2;
  }
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  return testhost::RunStage(&ReadCommands);
}
