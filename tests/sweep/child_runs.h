#pragma once

#include <functional>
#include <string>

/// What a body says that can't stop its threads and has found nothing wrong: it passes, without a leak check, and the
/// fault came about.
inline constexpr const char* kUnstoppable = "unstoppable";

/// What became of a run in a process of its own.
struct ChildResult {
  enum class End { kPassed, kFailed, kCrashed, kHung };
  End end = End::kCrashed;
  bool fired = false;       // the fault came about
  bool unstoppable = false; // what the body said
  std::string text;         // what the child had to say, its stderr
};

/// Runs bodies in child processes, several at once. This process must have no other thread.
class ChildRuns {
public:
  /// The body's text is what went wrong, empty for nothing; it may set the bool. A child that takes longer than
  /// `seconds` is ended.
  using Body = std::function<std::string(bool* fired)>;

  ChildRuns(int atOnce, int seconds) : m_atOnce(atOnce), m_seconds(seconds) {}

  /// Calls `body(n)` in children for n = 1, 2, ... until a run passes in which the fault did not come about, or `enough`
  /// runs have failed. `ended` is called here for each that did, in any order. Returns the number of runs.
  int UntilNothingFires(const std::function<Body(int)>& body, const std::function<void(int, const ChildResult&)>& ended,
                        int enough = 5) const;

private:
  int m_atOnce;
  int m_seconds;
};
