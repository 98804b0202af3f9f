#pragma once

#include <string>
#include <string_view>

namespace vexelctl {

/// What the program ends with.
inline constexpr int kExitFine = 0;
inline constexpr int kExitProblem = 1; // it ran, and the answer is bad: a finding, a picture that did not come
inline constexpr int kExitUsage = 2;   // the command line makes no sense
inline constexpr int kExitInput = 3;   // what it should work on is not there or cannot be used
inline constexpr int kExitHalfLog = 4; // the log ends in the middle of a line; what was whole has been used

enum class Colour { kNone, kRed, kGreen, kYellow, kBlue, kGrey, kBold };

/// Sets up standard output: colours when a person looks, or as `when` says ("auto", "always", "never").
void StartConsole(const std::string& when);

/// Leaves the console as StartConsole found it. Before the end of the program, more than once does no harm.
void EndConsole();

/// Whether standard input is a console.
bool IsTyped();

/// Reads the next line of standard input, as UTF-8 and without its end. False behind the last one. One thread at a time.
bool ReadLine(std::string* line);

/// The text in a colour, or as it is where colours are off.
std::string Painted(Colour colour, std::string_view text);

/// Writes a line to standard output at once, whole also when several threads write. Keeps UTF-8.
void PrintLine(std::string_view line);

/// Writes text to standard output as it is.
void PrintText(std::string_view text);

/// Writes "vexelctl: SENTENCE" to standard error and gives the code back.
int Fail(const std::string& sentence, int code);

/// As Fail, for what does not end the program.
void Warn(const std::string& sentence);

} // namespace vexelctl
