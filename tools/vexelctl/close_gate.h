#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vexelctl {

/// Keeps back a close that would end the host: CloseEditor for an id whose latest open has not brought
/// "open_pic_process_success" yet is an access violation at the usual log level. One thread at a time.
class CloseGate {
public:
  enum class Answer {
    kNow,     // close it now
    kHeld,    // kept back; OnProcessSuccess gives it when its time has come
    kUnknown, // the id was never opened here; never close it
    kNoLink,  // the pipe library is not there, so the id has no link; never close it
  };

  struct Close {
    std::int32_t id;
    bool closeAll;
  };

  /// The host has called OpenEditor and got this id.
  void OnOpen(std::int32_t id);

  /// "open_pic_process_success" has come for the id. Gives the close that was kept back for it and may run
  /// now, if there is one: an id that was opened twice waits for both.
  std::vector<Close> OnProcessSuccess(std::int32_t id);

  /// The host wants to close the id. `hasPipeLibrary` tells whether the pipe library is in this process.
  Answer Ask(std::int32_t id, bool closeAll, bool hasPipeLibrary);

  /// Whether the latest open of the id has brought its process.
  bool IsReady(std::int32_t id) const;

  /// The closes that are still kept back.
  std::vector<Close> Held() const;

private:
  struct State {
    int openOpens = 0; // opens whose outcome has not come
    bool isHeld = false;
    bool closeAll = false;
  };
  std::map<std::int32_t, State> m_states;
};

} // namespace vexelctl
