// vexelctl: a console tool for those who integrate the SDK, or keep it running.

#include "tools/vexelctl/commands.h"
#include "tools/vexelctl/console.h"
#include "tools/vexelctl/script.h"
#include "tools/vexelctl/sdk_library.h"
#include "tools/vexelctl/windows_util.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace vexelctl;

constexpr char kExitCodes[] = "Exit codes:\n"
                              "  0  fine\n"
                              "  1  it ran, and the answer is bad: a problem was found, a picture did not come\n"
                              "  2  the command line makes no sense\n"
                              "  3  what it should work on is not there or cannot be used\n"
                              "  4  the log ends in the middle of a line; what stands before it was used";

constexpr double kMostSeconds = 1e9;

void AddSdk(CLI::App* command, std::string* sdk) {
  command->add_option("--sdk", *sdk, "vexelsdk.dll or its folder; without it the one beside this program")
      ->type_name("PATH");
}

void AddJson(CLI::App* command, bool* isJson) { command->add_flag("--json", *isJson, "JSON, for machines"); }

void AddColour(CLI::App* command, std::string* colour) {
  command->add_option("--color", *colour, "auto, always or never")
      ->type_name("WHEN")
      ->check([](const std::string& when) {
        return when == "auto" || when == "always" || when == "never" ? std::string() : "write auto, always or never";
      });
}

struct ConsoleEnd {
  ConsoleEnd() = default;
  ~ConsoleEnd() { EndConsole(); }
  ConsoleEnd(const ConsoleEnd&) = delete;
  ConsoleEnd& operator=(const ConsoleEnd&) = delete;
};

// CLI11 says what is wrong in a text of its own; one line of it is enough, and the help is one word away.
int FailUsage(const CLI::ParseError& error) {
  std::string what = error.what();
  std::replace(what.begin(), what.end(), '\n', ' ');
  while (!what.empty() && (what.back() == '.' || what.back() == ' ')) {
    what.pop_back();
  }
  return Fail(what + " (--help tells how it is written)", kExitUsage);
}

} // namespace

int wmain(int count, wchar_t** arguments) {
  CLI::App app("Looks into the picture SDK: opens pictures, checks the machine, reads and draws the log.", "vexelctl");
  app.set_version_flag("--version", VEXELSDK_VERSION_STRING, "the version of this program");
  app.set_help_flag("-h,--help", "this help");
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(std::string("'vexelctl COMMAND --help' tells more about a command.\n\n") + kExitCodes);
  std::string colour = "auto";
  AddColour(&app, &colour);
  app.get_formatter()->column_width(28);
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  const CLI::Validator isTime(
      [](std::string& text) {
        char* end = nullptr;
        const double seconds = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0' && seconds >= 0 && seconds <= kMostSeconds
                   ? std::string()
                   : "'" + text + "' is no number of seconds from 0 to a thousand million";
      },
      "");
  const CLI::Validator isCount(
      [](std::string& text) {
        std::int32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        return error == std::errc() && end == text.data() + text.size() && number > 0
                   ? std::string()
                   : "'" + text + "' is no number from 1 on";
      },
      "");

  OpenOptions open;
  CLI::App* const openCommand = app.add_subcommand("open", "Open pictures as a host would, and print each event");
  openCommand->add_option("picture", open.pictures, "pictures, each for a window of its own")->type_name("PICTURE");
  openCommand->add_option("--type", open.openType, "the open type, a number for the editor (1)")->type_name("N");
  CLI::Option* const param =
      openCommand->add_option("--param", open.param, "the open parameter, base64 text; not with --app")
          ->option_text("TEXT");
  openCommand
      ->add_option("--app", open.app,
                   "the parameter that selects a program: 1 webvexlaunch, 2 vxpixeleditor; not with --param")
      ->option_text("N")
      ->check([](const std::string& number) {
        return number == "1" || number == "2" ? std::string() : "'" + number + "' is no program: write 1 or 2";
      })
      ->excludes(param);
  openCommand->add_option("--for", open.forSeconds, "close everything after so long")
      ->type_name("SECONDS")
      ->check(isTime);
  openCommand->add_option("--limit", open.limitSeconds, "how long an event may stay away (10)")
      ->type_name("SECONDS")
      ->check(isTime);
  openCommand->add_flag("--no-move", open.isWithoutMove, "leave out the first move, which tells the editor its place");
  openCommand->add_option("--record", open.record, "write the commands with their times, to be replayed")
      ->type_name("FILE");
  AddSdk(openCommand, &open.sdk);
  AddJson(openCommand, &open.isJson);
  openCommand->footer(std::string("Commands on standard input, one in a line:\n") + kCommandHelp +
                      "\nWhen the input ends, it waits for the outcome of each open and leaves; with --for it stays.\n"
                      "An outcome is \"open_pic_success\", which says that the editor has been told. Exit code 1 also\n"
                      "says that an editor has sent \"open_pic_fail\" or \"picture_not_shown\" up to 2 s later.\n"
                      "A close before \"open_pic_process_success\" would end the host: it is kept back until then.\n\n"
                      "  vexelctl open a.png b.jpg              two windows, commands from the keyboard\n"
                      "  vexelctl open a.png --record run.txt   and again: vexelctl open a.png < run.txt\n\n" +
                      kExitCodes);

  DoctorOptions doctor;
  CLI::App* const doctorCommand = app.add_subcommand("doctor", "What this machine would do at the first open, and why");
  doctorCommand->add_option("--host", doctor.host, "the host's executable; without it this program")->type_name("EXE");
  doctorCommand->add_option("--param", doctor.param, "the open parameter to look at, base64 text")->type_name("TEXT");
  AddSdk(doctorCommand, &doctor.sdk);
  AddJson(doctorCommand, &doctor.isJson);
  doctorCommand->footer(
      std::string("It starts no program and leaves nothing behind: where there is no log yet, it makes and deletes\n"
                  "a file in its place. Run it as the user that the host runs as.\n"
                  "Exit code 1 says that something would fail.\n\n") +
      kExitCodes);

  LogOptions log;
  CLI::App* const logCommand = app.add_subcommand("log", "Read the SDK's log, and join what belongs together");
  logCommand->add_option("file", log.file, "the log")->type_name("FILE")->required();
  logCommand->add_option("--id", log.id, "only this editor id, with the processes that serve it")
      ->type_name("N")
      ->check(isCount);
  logCommand->add_option("--pid", log.pid, "only this process")->type_name("N");
  logCommand->add_option("--run", log.run, "only this run of the host, the first in the log is 1")
      ->type_name("N")
      ->check(isCount);
  CLI::Option* const follow =
      logCommand->add_flag("-f,--follow", log.isFollowing, "go on with what is added, until Ctrl+C");
  logCommand->add_option("--for", log.forSeconds, "with --follow: for so long")
      ->option_text("SECONDS")
      ->check(isTime)
      ->needs(follow);
  AddJson(logCommand, &log.isJson);
  logCommand->footer(
      std::string("The log holds no process id of the host: runs are told apart by their threads, and hosts\n"
                  "that start in the same moment may be mixed up.\n\n") +
      kExitCodes);

  TimelineOptions timeline;
  CLI::App* const timelineCommand = app.add_subcommand("timeline", "Draw the life of windows and processes from a log");
  timelineCommand->add_option("file", timeline.file, "the log")->type_name("FILE")->required();
  timelineCommand->add_option("-o,--output", timeline.output, "a picture (.svg), or events for trace viewers (.json)")
      ->type_name("OUT")
      ->required();
  timelineCommand->add_option("--run", timeline.run, "only this run of the host, the first in the log is 1")
      ->type_name("N")
      ->check(isCount);
  AddJson(timelineCommand, &timeline.isJson);
  timelineCommand->footer(kExitCodes);

  QuestionOptions switches;
  CLI::App* const switchesCommand = app.add_subcommand("switches", "What the SDK answers about the browser's switches");
  switchesCommand->add_option("name", switches.names, "switches to ask for; without one all that are there")
      ->type_name("NAME");
  AddSdk(switchesCommand, &switches.sdk);
  AddJson(switchesCommand, &switches.isJson);
  switchesCommand->footer(kExitCodes);

  QuestionOptions extensions;
  CLI::App* const extensionsCommand = app.add_subcommand("extensions", "The file extensions that the SDK answers");
  AddSdk(extensionsCommand, &extensions.sdk);
  AddJson(extensionsCommand, &extensions.isJson);
  extensionsCommand->footer(kExitCodes);

  for (CLI::App* const command : app.get_subcommands({})) {
    command->group("Commands");
    AddColour(command, &colour);
  }

  // CLI11 takes the arguments last one first.
  std::vector<std::string> texts;
  for (int i = count - 1; i > 0; --i) {
    texts.push_back(ToUtf8(arguments[i]));
  }
  StartConsole("never");
  const ConsoleEnd consoleEnd;
  if (texts.empty()) {
    PrintText(app.help());
    return Fail("a command is missing (--help lists them)", kExitUsage);
  }
  try {
    app.parse(std::move(texts));
  } catch (const CLI::CallForHelp&) {
    // The help of the command that asked for it.
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    PrintText(chosen.empty() ? app.help() : chosen.front()->help("vexelctl"));
    return kExitFine;
  } catch (const CLI::CallForVersion&) {
    PrintLine(std::string("vexelctl ") + VEXELSDK_VERSION_STRING);
    return kExitFine;
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> rest = app.remaining();
    if (app.get_subcommands().empty() && !rest.empty()) {
      return Fail("'" + rest.front() + "' is no command (--help lists them)", kExitUsage);
    }
    return FailUsage(error);
  }
  StartConsole(colour);
  if (openCommand->parsed()) {
    return RunOpen(open);
  }
  if (doctorCommand->parsed()) {
    return RunDoctor(doctor);
  }
  if (logCommand->parsed()) {
    return RunLog(log);
  }
  if (timelineCommand->parsed()) {
    return RunTimeline(timeline);
  }
  return switchesCommand->parsed() ? RunSwitches(switches) : RunExtensions(extensions);
}
