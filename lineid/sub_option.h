// What Circuit-ID and Remote-ID sub-options have in common: two octets in front of the text.
#pragma once

#include <cstdint>
#include <cstring>

#include "config/store.h"
#include "core/log.h"
#include "core/records.h"
#include "lineid/params.h"

// What an identifier's text is made of: the settings of an instance, and the letters of the set that belongs to it and
// to the frame's packet type. Null where there is no such instance or set.
struct line_id_text_source {
  const line_id_common_cfg* cfg;
  const line_id_param_set* letters; // null also without settings
};
inline line_id_text_source line_id_text_source_of(uint8_t oltid, const line_id_inf_info* info) {
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  const int32_t set = line_id_param_set_of(oltid, info->pkt_info_ptr->packet_type);
  return {cfg, cfg != nullptr && line_id_is_param_set(set) ? &g_params[set] : nullptr};
}

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
