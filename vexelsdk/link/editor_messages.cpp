#include "vexelsdk/link/editor_messages.h"

#include "foundation/text_codecs.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

/// The keys of the record's operation.
void AddOperation(const SDK_OperatorData& record, Json& message) {
  switch (record.m_op) {
  case SDK_TESTSERVER:
    message["type"] = "testserver";
    break;
  case SDK_OPEN:
    message["type"] = "open";
    message["open_type"] = record.m_type;
    message["tabwnd"] = static_cast<std::int64_t>(record.m_tabwnd);
    message["path"] = vx::WideToUtf8(record.m_path);
    message["param"] = vx::WideToUtf8(record.m_param);
    message["recover"] = record.m_recover;
    break;
  case SDK_OPEN_BARE:
    message["type"] = "open";
    break;
  case SDK_CLOSE:
  case SDK_CLOSE_ALT:
    message["type"] = "close";
    message["operator"] = record.m_type;
    message["closeall"] = record.m_closeAll;
    break;
  case SDK_FULLSCREEN:
  case SDK_FULLSCREEN_ALT:
    message["type"] = "fullscreen";
    message["isFullScreen"] = record.m_status;
    break;
  case SDK_SETPOS:
    message["type"] = "setpos";
    message["x"] = record.m_rect.x;
    message["y"] = record.m_rect.y;
    message["w"] = record.m_rect.w;
    message["h"] = record.m_rect.h;
    break;
  case SDK_EDIT:
    message["type"] = "edit";
    break;
  case SDK_SAVEAS:
    message["type"] = "saveas";
    message["path"] = vx::WideToUtf8(record.m_path);
    break;
  case SDK_SHOW_SIDEBAR:
    message["type"] = "show_sidebar";
    break;
  case SDK_RUN_ERROR:
    message["type"] = "run_error";
    message["param"] = vx::WideToUtf8(record.m_param);
    break;
  case SDK_CUSTOM_MESSAGE:
    message["type"] = "custom_message";
    message["param"] = vx::WideToUtf8(record.m_param);
    break;
  case SDK_OPERATE:
    message["type"] = "operator";
    message["operator"] = record.m_type;
    break;
  case SDK_FINISH_OPERATOR:
    message["type"] = "finish_operator";
    message["operator"] = record.m_type;
    break;
  case SDK_PROCESS_EXIT:
    message["type"] = "process_exit";
    break;
  case SDK_CANCEL_PROCESS_EXIT:
    message["type"] = "cancel_process_exit";
    break;
  case SDK_BROWSER_COMMAND:
    message["type"] = "browser_command";
    message["operator"] = record.m_type;
    break;
  case SDK_CHANGE_THEME:
    message["type"] = "change_theme_mode";
    message["theme_mode"] = record.m_themeMode;
    break;
  case SDK_NONE:
  case SDK_PreLoadProcess:
  case SDK_RESERVED6:
  case SDK_RESERVED21:
    break;
  }
}

std::string Dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::strict); }

} // namespace

std::string OperatorMessageText(std::uint32_t pid, std::int32_t id, const SDK_OperatorData& record) {
  Json message;
  message["process_id"] = pid;
  message["id"] = id;
  message["status"] = record.m_status;
  AddOperation(record, message);
  return Dump(message);
}

std::string BrowserEventText(std::int32_t id, std::uint32_t pid, const char* type, const char* param) {
  Json event;
  event["id"] = id;
  event["process_id"] = pid;
  event["type"] = type;
  event["param"] = param;
  event["status"] = true;
  return Dump(event);
}

EditorMessage ReadEditorMessage(const char* text) noexcept {
  EditorMessage message;
  try {
    Json value = Json::parse(text);
    const auto type = value["type"].get<std::string>();
    if (type == "edit") {
      message.event = EditorEvent::kEdit;
      message.modified = value["status"].get<bool>();
    } else if (type == "process_exit") {
      message.event = EditorEvent::kProcessExit;
      // An integer only: a number too large for any cast is no process.
      if (const Json& pid = value["process_id"]; pid.is_number_integer()) {
        message.exitedPid = static_cast<std::int32_t>(pid.get<std::int64_t>());
      }
    } else if (type == "finish_operator") {
      message.event = EditorEvent::kFinishOperator;
    } else if (type == "cancel_process_exit") {
      message.event = EditorEvent::kCancelProcessExit;
    }
  } catch (...) {
    // Bad text is no error anywhere: what was read up to here stands, and the text goes on as it came.
  }
  return message;
}
