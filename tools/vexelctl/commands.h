#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One function for each command. Each writes its answer to standard output and gives the program's exit code.
namespace vexelctl {

struct OpenOptions {
  std::vector<std::string> pictures;
  std::int32_t openType = 1;
  std::optional<std::string> param; // base64 text
  std::optional<int> app;           // the parameter that selects this program
  std::optional<double> forSeconds;
  double limitSeconds = 10;
  bool isWithoutMove = false;
  std::string record;
  std::string sdk;
  bool isJson = false;
};
int RunOpen(const OpenOptions& options);

struct DoctorOptions {
  std::string host; // the host's executable; empty for this program
  std::string param;
  std::string sdk;
  bool isJson = false;
};
int RunDoctor(const DoctorOptions& options);

struct LogOptions {
  std::string file;
  std::optional<std::int32_t> id;
  std::optional<std::uint32_t> pid;
  std::optional<int> run;
  bool isFollowing = false;
  std::optional<double> forSeconds;
  bool isJson = false;
};
int RunLog(const LogOptions& options);

struct TimelineOptions {
  std::string file;
  std::string output;
  int run = 0;
  bool isJson = false;
};
int RunTimeline(const TimelineOptions& options);

struct QuestionOptions {
  std::vector<std::string> names;
  std::string sdk;
  bool isJson = false;
};
int RunSwitches(const QuestionOptions& options);
int RunExtensions(const QuestionOptions& options);

} // namespace vexelctl
