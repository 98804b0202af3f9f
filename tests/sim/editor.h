#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// How a simulated editor behaves on its two pipes.
namespace sim {

/// What an editor does with one text.
enum class Answer {
  kReply,  // answers with `reply`
  kNull,   // the exchange fails: null, with last error 232
  kSilent, // never answers: null after the script's `silenceMs`, with last error 121, or when the process ends
  kDie,    // the process ends with `exitCode` before it answers: null, with last error 109
};

/// One rule of a script.
struct EditorStep {
  std::string when = {};                // a piece of the text that is received; empty: any text
  int times = -1;                       // how often the rule applies; -1: always
  std::vector<std::string> events = {}; // sent on the server channel before the answer
  std::uint32_t delayMs = 0;            // simulated time before the answer
  Answer answer = Answer::kReply;
  std::string reply = "ok";
  bool exitsAfterReply = false; // the process ends with `exitCode` once it has answered
  std::uint32_t exitCode = 0;
};

/// An editor from its start to its end. The first step that fits a text and is not used up applies; without one the
/// answer is "ok".
struct EditorScript {
  bool serves = true;                  // false: nothing can connect, CltConnectServer gives 0 with last error 2
  std::uint32_t serveAfterMs = 0;      // how long the pipe takes to come up, in simulated time
  int refusedConnects = 0;             // so many first attempts give 0 with last error 231
  std::uint32_t connectMs = 0;         // how long a connection takes, in simulated time
  std::uint32_t dieAfterMs = 0;        // the process crashes so long after its start; 0: it does not
  std::uint32_t silenceMs = 5000;      // how long the library waits for a silent editor
  std::vector<std::string> hello = {}; // events sent as soon as the SDK's server is up
  std::vector<EditorStep> steps = {};
  /// Takes the place of the steps when set. Called with nothing locked, on the thread of the exchange.
  std::function<EditorStep(std::uint32_t pid, const std::string& text)> handler = {};
};

/// A text that an editor received.
struct ReceivedText {
  std::string text;
  std::uint64_t atMs = 0; // simulated
};

/// Gives a running process an editor, or its editor another script. A process started from a program with a script has
/// one already.
void AttachEditor(std::uint32_t pid, const EditorScript& script = {});

/// Lets the editor's pipe come up, or go: a connection that exists stays.
void ServePipe(std::uint32_t pid, bool serves = true);

/// Sends an event on the server channel. It is delivered on a thread of the pipe library, in order; when the SDK's
/// server is not up yet, as soon as it is. False when the process does not run.
bool SendEvent(std::uint32_t pid, const std::string& text);

/// Sends `count` events, each `text` followed by its number from 0.
bool Flood(std::uint32_t pid, int count, const std::string& text);

/// Delivers an event on the calling thread, beside whatever the library's thread delivers. False when the SDK does not
/// serve the process.
bool SendEventHere(std::uint32_t pid, const std::string& text);

/// Waits until every event sent so far to the SDK's server of the process has been taken by it. False when `seconds` of
/// real time did not suffice, or it has no server.
bool FlushEvents(std::uint32_t pid, int seconds = 200);

/// What an editor has received on the client channel, in order; kept after its end, until the id is used again.
std::vector<ReceivedText> ReceivedTexts(std::uint32_t pid);

/// The same of all editors that ever ran, in order of receipt, with the pid.
std::vector<std::pair<std::uint32_t, ReceivedText>> AllReceivedTexts();

/// How often something tried to connect to the editor.
int ConnectAttempts(std::uint32_t pid);

/// The client connections that are open now.
int OpenConnections();

/// The names that servers of the SDK serve now, sorted, and the servers that were made and not released.
std::vector<std::string> ServedNames();
int LiveServers();

/// The last-error value that a server start which finds its name served leaves.
inline constexpr std::uint32_t kPipeBusy = 231;

} // namespace sim
