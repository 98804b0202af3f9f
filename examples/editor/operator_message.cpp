#include "examples/editor/operator_message.h"

#include "examples/common/text.h"

#include <algorithm>
#include <limits>

#include <nlohmann/json.hpp>

namespace example {
namespace {

using nlohmann::json;

void Read(const json& object, const char* key, bool* value) {
  const auto found = object.find(key);
  if (found != object.end() && found->is_boolean()) {
    *value = found->get<bool>();
  }
}

void Read(const json& object, const char* key, std::int32_t* value) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_integer()) {
    return;
  }
  using Limits = std::numeric_limits<std::int32_t>;
  if (found->is_number_unsigned()) {
    *value = static_cast<std::int32_t>(std::min<std::uint64_t>(found->get<std::uint64_t>(), Limits::max()));
  } else {
    *value =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(found->get<std::int64_t>(), Limits::min(), Limits::max()));
  }
}

bool Read(const json& object, const char* key, std::string* value) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) {
    return false;
  }
  *value = found->get<std::string>();
  return true;
}

} // namespace

bool ParseOperatorMessage(const char* text, OperatorMessage* message) {
  const json object = json::parse(text, nullptr, false);
  if (!object.is_object() || !Read(object, "type", &message->type)) {
    return false;
  }
  Read(object, "id", &message->id);
  Read(object, "status", &message->status);

  std::string narrow;
  message->hasPath = Read(object, "path", &narrow);
  message->path = ToWide(narrow);
  narrow.clear();
  Read(object, "param", &narrow);
  message->param = ToWide(narrow);
  if (const auto found = object.find("tabwnd"); found != object.end() && found->is_number_integer()) {
    message->tabwnd = found->is_number_unsigned() ? found->get<std::uint64_t>()
                                                  : static_cast<std::uint64_t>(found->get<std::int64_t>());
  }
  Read(object, "open_type", &message->openType);
  Read(object, "recover", &message->recover);

  Read(object, "x", &message->x);
  Read(object, "y", &message->y);
  Read(object, "w", &message->w);
  Read(object, "h", &message->h);

  Read(object, "isFullScreen", &message->isFullScreen);
  Read(object, "theme_mode", &message->themeMode);
  Read(object, "operator", &message->code);
  Read(object, "closeall", &message->closeAll);
  return true;
}

std::string MakeEvent(const char* type, const std::string& param, std::int32_t id, std::uint32_t pid, bool status) {
  json event;
  event["type"] = type;
  event["param"] = param;
  event["id"] = id;
  event["process_id"] = pid;
  event["status"] = status;
  return event.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace example
