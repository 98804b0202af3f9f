#pragma once

#include <cstdint>
#include <string>

/// Reads the parameter of an open: base64 of a UTF-8 text of switches. When the text has the switch "pic_param", `param`
/// becomes its value, and the switches in that value, again base64, count as well where the outer text has none of the
/// name. Returns the number of the switch "apptype", 1 without one, 0 when it is no number; numbers beyond 32 bits
/// saturate. Any text is accepted.
std::int32_t DecodeOpenParam(std::wstring& param);
