// The Circuit-ID: template choice, sub-option operations, and the rebuilding of a received one.
#include "lineid/circuit_id.h"

#include <cstring>

#include "config/policy.h"
#include "config/store.h"
#include "core/log.h"
#include "lineid/format.h"
#include "lineid/params.h"
#include "lineid/sub_option.h"

namespace {

constexpr int32_t MODE_CUSTOM = 0;
constexpr int32_t MODE_CNC = 2; // any other is CTC
constexpr uint8_t SPLICE_NONE = 0;
constexpr uint8_t SPLICE_HEAD = 1;

constexpr uint32_t WORK_LEN = 320; // a received text and what the technology marker may add to it
constexpr uint32_t RECEIVED_LEN = WORK_LEN - 3;
constexpr uint32_t CNC_KEEP_ABOVE = 28; // received texts up to this length have no tail worth keeping
constexpr uint32_t CTC_KEEP_ABOVE = 24;

uint8_t profile_of(const line_id_inf_info* info) { return info->cid <= LINE_ID_VLAN_PROFILES ? info->cid : 0; }

bool has_valid_identity(const line_id_inf_info* info) { return info->onu.onu_losn_valid_or_invalid == 1; }

std::string_view custom_template(const line_id_common_cfg* cfg) {
  return cfg != nullptr ? line_id_template_field(cfg->circuit_id_custom_format) : std::string_view();
}

// The built-in template of a format type other than MODE_CUSTOM.
uint32_t standard_template(int32_t format_mode, uint8_t splice, const line_id_inf_info* info) {
  const bool is_cnc = format_mode == MODE_CNC;
  if (splice != SPLICE_HEAD) {
    return (is_cnc ? STANDARD_CNC : STANDARD_CTC) + static_cast<uint32_t>(line_id_get_def_std_fmt_type_cfg());
  }
  return (is_cnc ? STANDARD_CNC_SPLICE : STANDARD_CTC_SPLICE) + (has_valid_identity(info) ? 1U : 0U);
}

std::string_view choose_template(uint8_t oltid, uint8_t splice, const line_id_inf_info* info) {
  int32_t format_mode = line_id_get_switch(oltid, &line_id_common_cfg::line_id_format_type);
  const auto cirt_type = static_cast<uint8_t>(line_id_check_vlan_based_circuit_fmt(info, oltid));
  LINE_ID_INFO(LOG_GENERAL, "format_mode:%d, cirt_type:%d\r\n", format_mode, cirt_type);
  if (cirt_type == 0) {
    const std::string_view fmt = line_id_get_vlan_based_circuit_fmt(info, oltid);
    LINE_ID_INFO(LOG_GENERAL, "vlan-based circuit format:%.*s\r\n", static_cast<int>(fmt.size()), fmt.data());
    return fmt;
  }
  if (cirt_type <= MODE_CNC) format_mode = cirt_type;
  if (format_mode == MODE_CUSTOM) return custom_template(line_id_cfg_of(oltid));
  return line_id_standard_template(standard_template(format_mode, splice, info));
}

// With traces, and by a VLAN profile. A template for its name, which traces show.
template <uint8_t log>
__attribute__((noinline)) int32_t line_id_print_circuit_id(uint8_t oltid, uint8_t* out, uint8_t splice,
                                                           const line_id_inf_info* info) {
  if (out == nullptr) return line_id_refuse_null(__func__, __LINE__);
  const int32_t set = line_id_param_set_of(oltid, info->pkt_info_ptr->packet_type);
  const std::string_view fmt = choose_template(oltid, splice, info);
  LINE_ID_INFO(log, "lineid_set:%d, format_buf:%.*s#\r\n", set, static_cast<int>(fmt.size()), fmt.data());
  const int32_t len = line_id_expand_template(set, fmt, reinterpret_cast<char*>(out));
  if (len < 0) {
    LINE_ID_WARN(log, "line_id_print_circuit_id failed(%d).\r\n", LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  LINE_ID_INFO(log, "lineid_set:%d, dest_buf:%.*s#\r\n", set, len, reinterpret_cast<const char*>(out));
  LINE_ID_INFO(log, "opt_len:%d \r\n", len);
  return len;
}

// Write the line's technology into a received text, after its fourth space. The text stands in a zeroed work area that
// has room for three octets behind it; its new length.
uint32_t rewrite_technology(int32_t mode, char* text, uint32_t len, const line_id_inf_info* info) {
  int32_t pos = line_id_get_pos(text, ' ', 4, len);
  const bool at_third = pos < 0 && mode != MODE_CNC;
  if (at_third) pos = line_id_get_pos(text, ' ', 3, len);
  if (pos < 0) return len;
  char* marker = text + pos + 1;
  switch (info->form) {
  case LINE_ID_FORM_GP: std::memcpy(marker, "GP", 2); return len;
  case LINE_ID_FORM_XG: std::memcpy(marker, "XG", 2); return len;
  case LINE_ID_FORM_XGS:
    if (mode != MODE_CNC) LINE_ID_INFO(LOG_GENERAL, "info->form == LNID_XGS_TECH_NORMS CTC %d\r", at_third ? 2 : 1);
    // ODD: the third letter overwrites what followed the marker, and the text grows by one octet all the same.
    std::memcpy(marker, "XGS", 3);
    return len + 1;
  default: return len;
  }
}

// A head alone, or joined with the tail of the received text.
int32_t modify_standard(uint8_t oltid, int32_t mode, const uint8_t* received, uint32_t received_len, uint8_t* out,
                        uint16_t* opt_len, const line_id_inf_info* info) {
  const bool is_cnc = mode == MODE_CNC;
  uint8_t* text = out + LINE_ID_SUB_OPTION_HEAD;
  const int32_t head = line_id_print_circuit_id(oltid, text, SPLICE_HEAD, info);
  if (head < 0 || head > static_cast<int32_t>(LINE_ID_IDENTIFIER_LEN)) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_print_circuit_id len(%d) is exceeded.\r\n", head);
    return LINE_ID_ERR;
  }
  auto len = static_cast<uint32_t>(head);
  if (received_len > (is_cnc ? CNC_KEEP_ABOVE : CTC_KEEP_ABOVE)) {
    char work[WORK_LEN] = {};
    std::memcpy(work, received, received_len);
    const uint32_t work_len = rewrite_technology(mode, work, received_len, info);
    const int32_t cut = line_id_circuit_id_cut_pos(mode, reinterpret_cast<const uint8_t*>(work), work_len, info);
    if (cut >= 0) {
      const uint32_t tail = work_len - static_cast<uint32_t>(cut) - 1;
      if (len + tail > LINE_ID_IDENTIFIER_LEN) {
        LINE_ID_WARN(LOG_GENERAL, "line_id_print_circuit_id len(%d) is exceeded.\r\n", static_cast<int>(len + tail));
        return LINE_ID_ERR_TOO_LONG;
      }
      std::memcpy(text + len, work + cut + 1, tail);
      len += tail;
    }
  }
  line_id_close_sub_option(out, LINE_ID_SUB_CIRCUIT_ID, len, opt_len);
  LINE_ID_INFO(LOG_GENERAL, "new Circuit ID (%s modify) = %.*s.\r\n", is_cnc ? "CNC" : "CTC", static_cast<int>(len),
               reinterpret_cast<const char*>(text));
  return LINE_ID_OK;
}

struct device_texts {
  char text[sizeof(LINE_ID_DEVICE_LETTERS) - 1][LINE_ID_TEXT_SIZE];
};

device_texts save_device_texts(int32_t set) {
  device_texts saved = {};
  for (uint32_t i = 0; i < sizeof(LINE_ID_DEVICE_LETTERS) - 1; ++i) {
    line_id_param_view(set, line_id_param_slot(LINE_ID_DEVICE_LETTERS[i])).copy(saved.text[i], LINE_ID_PARAM_LEN);
  }
  return saved;
}

// Device-wide letters live from frame to frame: a received text that got into one would reach other subscribers. Only
// letters with flag 0 can have been filled.
void restore_device_texts(int32_t set, const device_texts& saved) {
  for (uint32_t i = 0; i < sizeof(LINE_ID_DEVICE_LETTERS) - 1; ++i) {
    const char letter = LINE_ID_DEVICE_LETTERS[i];
    if (line_id_param_allocated(set, letter) == 0) continue;
    if (g_params[set].flag[line_id_param_slot(letter)] != PARAM_FREE) continue;
    line_id_write_param(set, letter, saved.text[i], PARAM_FREE);
  }
}

int32_t modify_custom(uint8_t oltid, const uint8_t* received, uint32_t received_len, uint8_t* out, uint16_t* opt_len,
                      line_id_inf_info* info) {
  // ODD: received texts are parsed into the first instance's set, whichever instance the frame belongs to.
  const int32_t set = info->pkt_info_ptr->packet_type - 1;
  const device_texts saved = save_device_texts(set);
  // ODD: the instance's custom template picks a text apart also when a VLAN profile's template prints the new one.
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  const std::string_view fmt = cfg != nullptr ? line_id_template_view(cfg->circuit_id_custom_format) : "";
  if (line_id_parse_params(set, fmt, reinterpret_cast<const char*>(received), received_len) != LINE_ID_OK) {
    info->is_parse_error = 1;
    LINE_ID_WARN(LOG_GENERAL, "line_id_circuit_id_modify failed(is_parse_error = %d).\r\n", info->is_parse_error);
  }
  uint8_t* text = out + LINE_ID_SUB_OPTION_HEAD;
  const int32_t len = line_id_print_circuit_id(oltid, text, SPLICE_NONE, info);
  restore_device_texts(set, saved);
  if (len < 0 || len > static_cast<int32_t>(LINE_ID_IDENTIFIER_LEN)) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_print_circuit_id len(%d) is exceeded.\r\n", len);
    return LINE_ID_ERR;
  }
  line_id_close_sub_option(out, LINE_ID_SUB_CIRCUIT_ID, static_cast<uint32_t>(len), opt_len);
  LINE_ID_INFO(LOG_GENERAL, "new Circuit ID (Custom modify) = %.*s.\r\n", len, reinterpret_cast<const char*>(text));
  return LINE_ID_OK;
}

} // namespace

int32_t line_id_check_vlan_based_circuit_fmt(const line_id_inf_info* info, uint8_t oltid) {
  const uint8_t cid = profile_of(info);
  LINE_ID_INFO(LOG_GENERAL, "circuit, flag:%d, cid:%d, rid:%d\r\n", info->profile_flag, cid, info->rid);
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  const int32_t item = cid != 0 && cfg != nullptr ? int32_t{cfg->vlan_template[cid]} : -1;
  LINE_ID_INFO(LOG_GENERAL, "item: %d\r\n", item);
  return item;
}

std::string_view line_id_get_vlan_based_circuit_fmt(const line_id_inf_info* info, uint8_t oltid) {
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return {};
  const uint8_t cid = profile_of(info);
  const std::string_view fmt = line_id_template_field(cfg->vlan_circuit_format[cid]);
  LINE_ID_INFO(LOG_GENERAL, "fmt_template[%d]:%d, cirt_fmt_vlan[%d]:%.*s\r\n", cid, cfg->vlan_template[cid], cid,
               static_cast<int>(fmt.size()), fmt.data());
  return fmt;
}

int32_t line_id_print_circuit_id(uint8_t oltid, uint8_t* out, uint8_t splice, const line_id_inf_info* info) {
  if (!line_id_traces_on() && out != nullptr && info->cid == 0) { // most frames
    const line_id_text_source from = line_id_text_source_of(oltid, info);
    if (from.letters != nullptr) return line_id_print_circuit_id_untraced(from, out, splice, info);
  }
  return line_id_print_circuit_id<LOG_GENERAL>(oltid, out, splice, info);
}

int32_t line_id_print_circuit_id_untraced(const line_id_text_source& from, uint8_t* out, uint8_t splice,
                                          const line_id_inf_info* info) {
  const int32_t format_mode = line_id_get_switch(from.cfg, &line_id_common_cfg::line_id_format_type);
  char* text = reinterpret_cast<char*>(out);
  if (format_mode == MODE_CUSTOM) return line_id_expand_untraced(*from.letters, custom_template(from.cfg), text);
  return line_id_expand_standard_untraced(*from.letters, standard_template(format_mode, splice, info), text);
}

int32_t line_id_circuit_id_cut_pos(int32_t mode, const uint8_t* text, uint32_t len, const line_id_inf_info* info) {
  const char* received = reinterpret_cast<const char*>(text);
  const bool is_valid = has_valid_identity(info);
  // ODD: a valid identity is cut at a "/" in CNC and at a space in CTC.
  if (mode == MODE_CNC) {
    return is_valid ? line_id_get_pos(received, '/', 10, len) : line_id_get_pos(received, ' ', 3, len);
  }
  return is_valid ? line_id_get_pos(received, ' ', 3, len) : line_id_get_pos(received, '/', 8, len);
}

int32_t line_id_circuit_id_modify(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                  line_id_inf_info* info) {
  if (out == nullptr || old == nullptr || opt_len == nullptr) return line_id_refuse_null(__func__, __LINE__);
  const uint32_t received_len = old_len > LINE_ID_SUB_OPTION_HEAD ? old_len - LINE_ID_SUB_OPTION_HEAD : 0;
  if (received_len > RECEIVED_LEN) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_print_circuit_id len(%d) is exceeded.\r\n", static_cast<int>(received_len));
    return LINE_ID_ERR_TOO_LONG;
  }
  const uint8_t* received = received_len > 0 ? old + LINE_ID_SUB_OPTION_HEAD : old;
  // ODD: a profile with its own template (type 0) takes the custom path, whatever the instance's format type is.
  const int32_t profile_mode = line_id_check_vlan_based_circuit_fmt(info, oltid);
  const int32_t mode = profile_mode >= 0 ? profile_mode : line_id_get_line_id_format_type_cfg(oltid);
  return mode == MODE_CUSTOM ? modify_custom(oltid, received, received_len, out, opt_len, info)
                             : modify_standard(oltid, mode, received, received_len, out, opt_len, info);
}

int32_t line_id_circuit_id_replace(uint8_t oltid, const uint8_t*, uint16_t, uint8_t* out, uint16_t* opt_len,
                                   line_id_inf_info* info) {
  if (out == nullptr || opt_len == nullptr) return line_id_refuse_null(__func__, __LINE__);
  const int32_t len = line_id_print_circuit_id(oltid, out + LINE_ID_SUB_OPTION_HEAD, SPLICE_NONE, info);
  if (len < 0) {
    // ODD: the warning names -9 and the result is -1.
    LINE_ID_WARN(LOG_GENERAL, "line_id_print_circuit_id  failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR;
  }
  line_id_close_sub_option(out, LINE_ID_SUB_CIRCUIT_ID, static_cast<uint32_t>(len), opt_len);
  return LINE_ID_OK;
}

int32_t line_id_circuit_id_remove(const uint8_t*, uint16_t, uint8_t*, uint16_t* opt_len, line_id_inf_info*) {
  if (opt_len == nullptr) return line_id_refuse_null(__func__, __LINE__);
  *opt_len = 0;
  LINE_ID_INFO(LOG_GENERAL, "circuit id remove.\r");
  return LINE_ID_OK;
}

int32_t line_id_circuit_id_none(const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len) {
  // ODD: the trace names the Remote-ID.
  LINE_ID_INFO(LOG_GENERAL, "remote id none.\r");
  return line_id_keep_sub_option(__func__, __LINE__, old, old_len, out, opt_len);
}
