// What Circuit-ID and Remote-ID sub-options have in common: two octets in front of the text.
#pragma once

#include <cstdint>
#include <cstring>

#include "core/log.h"
#include "core/records.h"

constexpr uint32_t LINE_ID_SUB_OPTION_HEAD = 2;
constexpr uint32_t LINE_ID_SUB_OPTION_LEN = LINE_ID_SUB_OPTION_HEAD + LINE_ID_IDENTIFIER_LEN;

// Put the head in front of a text that stands at its place. A text of 256 octets has the length octet 0.
inline void line_id_close_sub_option(uint8_t* out, uint8_t type, uint32_t text_len, uint16_t* opt_len) {
  out[0] = type;
  out[1] = static_cast<uint8_t>(text_len);
  *opt_len = static_cast<uint16_t>(text_len + LINE_ID_SUB_OPTION_HEAD);
}

// Warns in the caller's name about an absent pointer: -9.
inline int32_t line_id_refuse_null(const char* function, int line) {
  if (line_id_log_enabled(LOG_GENERAL, 1)) {
    line_id_log_trace("[LNID_WARN]", function, line, "ptr is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
  }
  return LINE_ID_ERR_NULL;
}

// Copy a received sub-option: 0, -9 null, -157 when it does not fit.
inline int32_t line_id_keep_sub_option(const char* function, int line, const uint8_t* old, uint16_t old_len,
                                       uint8_t* out, uint16_t* opt_len) {
  if (old == nullptr || out == nullptr || opt_len == nullptr) return line_id_refuse_null(function, line);
  if (old_len > LINE_ID_SUB_OPTION_LEN) return LINE_ID_ERR_TOO_LONG;
  std::memmove(out, old, old_len);
  *opt_len = old_len;
  return LINE_ID_OK;
}
