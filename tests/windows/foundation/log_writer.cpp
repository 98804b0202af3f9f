#include "foundation/logger.h"
#include "foundation/text_codecs.h"

#include <cstdlib>
#include <cstring>
#include <string>

// foundation_log_writer <log path> <name> <lines> [fatal]: writes that many lines, and ends by a fatal one when told to.
int main(int argc, char** argv) {
  if (argc < 4) {
    return 2;
  }
  vx::ResetLogger(
      {vx::MultiByteToWide(argv[1], platform::kCodePageUtf8), L"Software\\no such key of any program", nullptr});
  const int lines = std::atoi(argv[3]);
  for (int line = 0; line < lines; ++line) {
    SDKLOG(LOG_INFO) << "writer=" << argv[2] << " line=" << line << " " << std::string(100, 'x') << " end";
  }
  if (argc > 4 && std::strcmp(argv[4], "fatal") == 0) {
    SDKLOG(LOG_FATAL) << "the last words of " << argv[2];
    SDKLOG(LOG_INFO) << "never written";
  }
  return 0;
}
