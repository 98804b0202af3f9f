#include "tools/vexelctl/close_gate.h"

namespace vexelctl {

void CloseGate::OnOpen(std::int32_t id) { ++m_states[id].openOpens; }

std::vector<CloseGate::Close> CloseGate::OnProcessSuccess(std::int32_t id) {
  const auto found = m_states.find(id);
  if (found == m_states.end()) {
    return {};
  }
  State& state = found->second;
  if (state.openOpens > 0) {
    --state.openOpens;
  }
  if (state.openOpens > 0 || !state.isHeld) {
    return {};
  }
  state.isHeld = false;
  return {{id, state.closeAll}};
}

CloseGate::Answer CloseGate::Ask(std::int32_t id, bool closeAll, bool hasPipeLibrary) {
  const auto found = m_states.find(id);
  if (found == m_states.end()) {
    return Answer::kUnknown;
  }
  if (found->second.openOpens > 0) {
    found->second.isHeld = true;
    found->second.closeAll = closeAll;
    return Answer::kHeld;
  }
  return hasPipeLibrary ? Answer::kNow : Answer::kNoLink;
}

bool CloseGate::IsReady(std::int32_t id) const {
  const auto found = m_states.find(id);
  return found != m_states.end() && found->second.openOpens == 0;
}

std::vector<CloseGate::Close> CloseGate::Held() const {
  std::vector<Close> held;
  for (const auto& [id, state] : m_states) {
    if (state.isHeld) {
      held.push_back({id, state.closeAll});
    }
  }
  return held;
}

} // namespace vexelctl
