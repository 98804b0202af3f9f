#pragma once

#include "vexelsdk/link/operator_data.h"

#include <cstdint>
#include <optional>
#include <string>

// The texts between the SDK and an editor, and those that the SDK makes up for the browser: record in, text out, and
// text in, meaning out. No state, no engine, no pipe. Each text is one JSON object on one line, its keys in ascending
// byte order, letters outside ASCII as UTF-8.

/// The message for an editor. `pid` and `id` are the link's, not the record's.
std::string OperatorMessageText(std::uint32_t pid, std::int32_t id, const SDK_OperatorData& record);

/// The event for the browser. `type` and `param` are NUL-terminated UTF-8.
std::string BrowserEventText(std::int32_t id, std::uint32_t pid, const char* type, const char* param);

/// What the SDK itself reads out of an editor's text.
enum class EditorEvent { kOther, kEdit, kProcessExit, kCancelProcessExit, kFinishOperator };

struct EditorMessage {
  EditorEvent event = EditorEvent::kOther;
  std::optional<bool> modified;          // of "edit", when its "status" is a boolean
  std::optional<std::int32_t> exitedPid; // of "process_exit", when its "process_id" is an integer
};

/// Reads a NUL-terminated text. Never fails: whatever is no object with a "type" text is kOther. Any depth of nesting
/// is safe.
EditorMessage ReadEditorMessage(const char* text) noexcept;
