#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/vexelctl/console.h"

namespace vexelctl {

/// One event of the SDK as its callback brought it.
struct HostEvent {
  std::int64_t at; // ms since the start
  std::uint32_t thread;
  std::int32_t id;
  std::string text;
};

/// What `vexelctl open` prints: one line for each call, event and note, as text or as JSON. Main thread alone, but for
/// Now.
class OpenOutput {
public:
  using Json = nlohmann::ordered_json;

  explicit OpenOutput(bool isJson) : m_isJson(isJson) {}

  /// Milliseconds since the start. From any thread.
  std::int64_t Now() const;

  /// A call of the host with its result; null for a call without one. Id 0 for what belongs to none.
  void Call(std::int32_t id, const std::string& what, Json::value_type result, Colour colour = Colour::kNone) const;

  /// What the person has to know and no event tells; id 0 for what belongs to none.
  void Note(std::int32_t id, const std::string& sentence) const;

  /// An event, with the milliseconds since the open of its id. `json` is its text parsed, or discarded.
  void Event(const HostEvent& event, const Json& json, std::int64_t since) const;

  /// That the tool begins to close what is open. Text alone.
  void Ending(const char* why) const;

private:
  const bool m_isJson;
  const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

/// The string under the key, or an empty one.
std::string TextOf(const OpenOutput::Json& json, const char* key);

} // namespace vexelctl
