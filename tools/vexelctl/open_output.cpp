#include "tools/vexelctl/open_output.h"

#include <cstdio>

#include "include/vexelsdk.h"
#include "tools/vexelctl/text.h"

namespace vexelctl {
namespace {

using Json = OpenOutput::Json;

std::string TimeText(std::int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%8lld ms", static_cast<long long>(ms));
  return text;
}

std::string IdText(std::int32_t id) { return id != 0 ? "  id " + std::to_string(id) : ""; }

// Text that an editor sent may hold anything.
void PrintJson(const Json& line) { PrintLine(line.dump(-1, ' ', false, Json::error_handler_t::replace)); }

std::string EventText(const HostEvent& event, const Json& json) {
  const std::string type = json.is_object() ? TextOf(json, "type") : "";
  if (type.empty()) {
    return event.text;
  }
  const std::string param = TextOf(json, "param");
  std::string text = type + (param.empty() ? "" : " " + param);
  if (const auto pid = json.find("process_id"); pid != json.end() && pid->is_number()) {
    text += "  pid " + pid->dump();
  }
  if (const auto status = json.find("status"); type == VEXELSDK_EVENT_EDIT && status != json.end()) {
    text += "  status " + status->dump();
  }
  return text;
}

} // namespace

std::string TextOf(const Json& json, const char* key) {
  const auto found = json.find(key);
  return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::int64_t OpenOutput::Now() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start).count();
}

void OpenOutput::Call(std::int32_t id, const std::string& what, Json::value_type result, Colour colour) const {
  const std::int64_t now = Now();
  if (m_isJson) {
    Json line;
    line["t"] = now;
    if (id != 0) {
      line["id"] = id;
    }
    line["call"] = what;
    line["result"] = result;
    PrintJson(line);
    return;
  }
  PrintLine(TimeText(now) + IdText(id) + "  " + Painted(colour, "> " + Printable(what)) +
            (result.is_null() ? "" : Painted(Colour::kGrey, "  = " + result.dump())));
}

void OpenOutput::Note(std::int32_t id, const std::string& sentence) const {
  if (m_isJson) {
    Json line;
    line["t"] = Now();
    if (id != 0) {
      line["id"] = id;
    }
    line["note"] = sentence;
    PrintJson(line);
    return;
  }
  PrintLine(TimeText(Now()) + IdText(id) + Painted(Colour::kYellow, "  ! " + sentence));
}

void OpenOutput::Event(const HostEvent& event, const Json& json, std::int64_t since) const {
  if (m_isJson) {
    Json line;
    line["t"] = event.at;
    line["id"] = event.id;
    line["since"] = since;
    line["thread"] = event.thread;
    line["event"] = json.is_discarded() ? Json(event.text) : json;
    // As it came, but for bytes that are no UTF-8: numbers beyond a double's and keys that stand twice do not outlive the parser.
    line["text"] = event.text;
    PrintJson(line);
    return;
  }
  const bool isCrash = json.is_object() && TextOf(json, "type") == VEXELSDK_EVENT_RUN_ERROR;
  PrintLine(TimeText(event.at) + "  id " + std::to_string(event.id) + "  " +
            Painted(Colour::kGrey, "+" + std::to_string(since) + " ms  thread " + std::to_string(event.thread)) + "  " +
            Painted(isCrash ? Colour::kRed : Colour::kGreen, Printable(EventText(event, json))));
}

void OpenOutput::Ending(const char* why) const {
  if (!m_isJson) {
    PrintLine(TimeText(Now()) + Painted(Colour::kGrey, std::string("  ") + why + ": closing what is open"));
  }
}

} // namespace vexelctl
