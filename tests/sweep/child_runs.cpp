#include "tests/sweep/child_runs.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFiredStatus = 10;
constexpr int kQuietStatus = 11;
constexpr int kWrongStatus = 12;
constexpr int kUnstoppableStatus = 13;

struct Child {
  int number = 0;
  std::FILE* output = nullptr; // a file without a name, so that a child never waits for its reader
  Clock::time_point limit;
};

std::string ReadAll(std::FILE* file) {
  std::string text;
  std::rewind(file);
  char buffer[4096];
  for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file)) != 0;) {
    text.append(buffer, count);
  }
  return text;
}

[[noreturn]] void RunChild(const ChildRuns::Body& body, std::FILE* output) {
  ::dup2(::fileno(output), STDERR_FILENO);
  bool fired = false;
  const std::string wrong = body(&fired);
  if (wrong == kUnstoppable) {
    std::_Exit(kUnstoppableStatus);
  }
  if (!wrong.empty()) {
    std::fprintf(stderr, "%s\n", wrong.c_str());
    std::fflush(stderr);
    std::_Exit(kWrongStatus); // threads may be left
  }
  std::exit(fired ? kFiredStatus : kQuietStatus); // the leak check runs behind this
}

ChildResult ResultOf(int status, bool hung, std::FILE* output) {
  ChildResult result;
  result.text = ReadAll(output);
  if (hung) {
    result.end = ChildResult::End::kHung;
  } else if (!WIFEXITED(status)) {
    result.text += "ended by the signal " + std::to_string(WTERMSIG(status));
  } else if (const int code = WEXITSTATUS(status);
             code == kFiredStatus || code == kQuietStatus || code == kUnstoppableStatus) {
    result.end = ChildResult::End::kPassed;
    result.fired = code != kQuietStatus;
    result.unstoppable = code == kUnstoppableStatus;
  } else if (WEXITSTATUS(status) == kWrongStatus) {
    result.end = ChildResult::End::kFailed;
  } else {
    result.text += "ended with the status " + std::to_string(WEXITSTATUS(status));
  }
  return result;
}

} // namespace

int ChildRuns::UntilNothingFires(const std::function<Body(int)>& body,
                                 const std::function<void(int, const ChildResult&)>& ended, int enough) const {
  std::map<pid_t, Child> running;
  int next = 1;
  int runs = 0;
  int failures = 0;
  bool done = false;
  while (!done || !running.empty()) {
    while (!done && running.size() < static_cast<std::size_t>(m_atOnce)) {
      Child child;
      child.number = next++;
      child.output = std::tmpfile();
      child.limit = Clock::now() + std::chrono::seconds(m_seconds);
      if (child.output == nullptr) {
        std::abort();
      }
      std::fflush(nullptr);
      const pid_t pid = ::fork();
      if (pid == 0) {
        RunChild(body(child.number), child.output);
      }
      if (pid < 0) {
        std::abort();
      }
      running[pid] = child;
    }
    bool any = false;
    for (auto at = running.begin(); at != running.end();) {
      const auto [pid, child] = *at;
      int status = 0;
      bool hung = false;
      pid_t found = ::waitpid(pid, &status, WNOHANG);
      if (found == 0 && Clock::now() >= child.limit) {
        ::kill(pid, SIGKILL);
        found = ::waitpid(pid, &status, 0);
        hung = true;
      }
      if (found == 0) {
        ++at;
        continue;
      }
      at = running.erase(at);
      any = true;
      ++runs;
      const ChildResult result = ResultOf(status, hung, child.output);
      std::fclose(child.output);
      ended(child.number, result);
      const bool passed = result.end == ChildResult::End::kPassed;
      failures += passed ? 0 : 1;
      done = done || (passed && !result.fired) || failures >= enough;
    }
    if (!any) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return runs;
}
