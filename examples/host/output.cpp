#include "examples/host/output.h"

#include <cstdio>

#include <nlohmann/json.hpp>

namespace example {
namespace {

using Json = nlohmann::ordered_json;

std::string Dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

/// How deep brackets may nest in a text that goes out as JSON: the library writes a value by calling itself for each level,
/// and an event comes on a thread whose stack is the SDK's.
constexpr int kDeepestNesting = 64;

/// Whether brackets outside of strings nest no deeper than that. Exact for JSON; what is none never gets that far.
bool IsShallow(const std::string& text) {
  int depth = 0;
  bool isInString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isInString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        isInString = false;
      }
    } else if (c == '"') {
      isInString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kDeepestNesting) {
        return false;
      }
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return true;
}

template <typename Result>
std::string ActionText(std::int64_t time, const std::string& name, std::int32_t id, Result result) {
  Json line;
  line["t"] = time;
  line["id"] = id;
  line["action"] = name;
  line["result"] = result;
  return Dump(line);
}

} // namespace

EventInfo ReadEvent(const std::string& text) {
  EventInfo info;
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) {
    return info;
  }
  if (const auto found = json.find("type"); found != json.end() && found->is_string()) {
    info.type = found->get<std::string>();
  }
  if (const auto found = json.find("param"); found != json.end() && found->is_string()) {
    info.param = found->get<std::string>();
  }
  if (const auto found = json.find("status"); found != json.end() && found->is_boolean()) {
    info.status = found->get<bool>();
  }
  if (const auto found = json.find("process_id"); found != json.end() && found->is_number_unsigned()) {
    info.processId = found->get<std::uint32_t>();
  }
  return info;
}

void Output::Event(std::int32_t id, std::uint32_t thread, const std::string& text) {
  Json line;
  line["t"] = Now();
  line["id"] = id;
  line["thread"] = thread;
  Json event = IsShallow(text) ? Json::parse(text, nullptr, false) : Json(Json::value_t::discarded);
  line["event"] = event.is_discarded() ? Json(text) : std::move(event);
  Line(Dump(line));
}

void Output::Action(const std::string& name, std::int32_t id, std::int32_t result) {
  Line(ActionText(Now(), name, id, result));
}

void Output::Action(const std::string& name, std::int32_t id, bool result) {
  Line(ActionText(Now(), name, id, result));
}

std::int64_t Output::Now() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start).count();
}

void Output::Line(const std::string& text) {
  if (m_isQuiet) {
    return;
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

} // namespace example
