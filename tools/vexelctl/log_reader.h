#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// Reads the SDK's log and joins what belongs together: runs, editor ids and processes. Pure: bytes in, records out. One
// thread at a time.
namespace vexelctl {

/// What a line of the log tells.
enum class LogKind {
  kOther,           // a log line that this program does not know
  kContinuation,    // no line of its own: the rest of a text that held a line end
  kQueued,          // a call of the host: op, id, pid
  kNoLink,          // a close found no link to an editor
  kCloseConnecting, // a close cuts the connecting short
  kCloseAsks,       // a close waits for the user: unsaved changes
  kPreloadRun,      // a preload leaves the queue
  kOpenRun,         // an open leaves the queue: id
  kProgramChosen,   // number: the application type, name: the program
  kSlotEmpty,       // the open found no waiting process of its own
  kSlotTaken,       // the open takes the waiting process
  kPreloadInvalid,  // the waiting process is not usable: pid
  kProcessUsed,     // the open has chosen a process: pid, 0 for none
  kPreloadMissing,  // a slot is filled anew: name
  kPreloadDone,     // a slot is filled: pid, 0 when that failed
  kStarted,         // a process was started: pid
  kStartFailed,     // number: the system's error code
  kNotRunning,      // a process is gone: pid
  kOtherPath,       // a process id runs another program: pid
  kServerFailed,    // number: the last error
  kConnectTry,      // number: the last error, pid
  kConnectFailed,   // number: the milliseconds, pid, isStopped
  kConnected,       // number: the milliseconds, pid
  kSent,            // a text to an editor: name its type
  kReply,           // the editor's reply to it
  kReceived,        // a text from an editor: name its type, empty when it has none
};

struct LogRecord {
  std::size_t number = 0;  // of the line, the first is 1
  std::int64_t second = 0; // local time as written, in seconds since 1970-01-01
  std::string time;        // the same as text
  std::uint32_t thread = 0;
  std::string level;    // without blanks
  std::string source;   // file:line
  std::string function; // qualified name
  std::string message;  // what follows the name; narrow text that the log has widened is joined again
  LogKind kind = LogKind::kOther;

  int run = 0;                    // the engine's life that the line belongs to, the first is 1; 0 unknown
  std::optional<std::int32_t> id; // the editor id that the line is about
  std::optional<std::uint32_t> pid;
  std::int32_t op = -1;    // kQueued
  std::int64_t value = 0;  // the number told at the kind
  std::string name;        // the name told at the kind
  bool isStopped = false;  // kConnectFailed: a close or the end cut it short
  bool isModified = false; // kReceived "edit": whether there are unsaved changes now
  bool isInner = false;    // kSent: by the engine itself within an open, to the editor that is replaced
};

/// The wire's name of an operation's number: "open", "close", "preload"; "op N" for one that has none.
std::string OperationName(std::int32_t op);

/// Reads bytes in pieces of any size. A line counts when its end has come.
class LogReader {
public:
  /// Appends bytes, and gives the records of the lines that they complete, in order.
  std::vector<LogRecord> Feed(std::string_view bytes);

  /// Whether bytes have come and none of their lines is a log's. Before the first line is whole, its first letter
  /// counts.
  bool IsNoLog() const;
  /// How many lines have been read, and the bytes of a last line whose end has not come.
  std::size_t LineCount() const { return m_lineCount; }
  const std::string& HalfLine() const { return m_half; }
  /// How many runs there are so far.
  int RunCount() const { return static_cast<int>(m_runs.size()); }

  /// Forgets the half line and counts lines from 1 again: the file was emptied. Runs go on being counted.
  void FileWasEmptied();

private:
  // One life of an engine. Threads tell the lives apart: the log holds no process id of the host.
  struct Run {
    std::set<std::uint32_t> hostThreads;
    std::uint32_t operatorThread = 0; // 0 not seen yet
    std::uint32_t messageThread = 0;
    std::set<std::int32_t> openedIds;
    std::map<std::uint32_t, std::int32_t> pidToId;
    std::map<std::uint32_t, std::string> pidToName;
    int preloadsDone = 0;
    // What the operator thread is at.
    std::optional<std::int32_t> currentId;
    std::optional<std::uint32_t> currentPid;
    std::string currentName;
    bool isOpening = false;
  };

  LogRecord Read(std::string_view line);
  void Classify(LogRecord& record) const;
  void AssignRun(LogRecord& record);
  void Join(LogRecord& record);
  Run& RunOf(const LogRecord& record) { return m_runs[static_cast<std::size_t>(record.run) - 1]; }
  int StartRun();

  std::string m_half;
  std::size_t m_lineCount = 0;
  bool m_hasLogLine = false;
  std::deque<Run> m_runs;
  std::map<std::uint32_t, LogKind> m_lastKindOfThread;
  std::map<std::uint32_t, std::int32_t> m_lastOpOfThread;
  std::optional<LogRecord> m_last; // without its message
};

/// Which records a reader of one window or one process wants to see.
struct LogFilter {
  std::optional<std::int32_t> id;
  std::optional<std::uint32_t> pid;
  std::optional<int> run;
};

/// Chooses the records of one id, of one process, of one run. With an id, the lines of the processes that serve it
/// belong to it, those from before the process served it too when all records are at hand.
class LogSelector {
public:
  explicit LogSelector(const LogFilter& filter) : m_filter(filter) {}
  /// Takes note of which process serves the wanted id. Call it for all records at hand before the first Wants.
  void Learn(const LogRecord& record);
  bool Wants(const LogRecord& record) const;

private:
  LogFilter m_filter;
  std::set<std::pair<int, std::uint32_t>> m_pidsOfId; // with their run
};

} // namespace vexelctl
