#pragma once

#include <string>

namespace testhost {

/// Takes the standard input and output for the functions below alone, so that no program that this process starts gets
/// hold of them: its reader would wait for that program's end too. Call it first of all.
void TakeStandardHandles();

/// Writes one line and its end to the standard output, as a whole and at once. Any thread.
void PrintLine(const std::string& line);

/// Reads one line from the standard input, without its end. False at the end of the input. One thread only.
bool ReadLine(std::string& line);

} // namespace testhost
