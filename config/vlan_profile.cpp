// Numbered template profiles of an instance.
#include "config/vlan_profile.h"

#include <cstdio>
#include <cstring>

#include "config/store.h"
#include "core/log.h"

namespace {

// Payloads of the channel, packed, in host order.
constexpr uint32_t PROF_ID_OFFSET = 1;
constexpr uint32_t TEMPLATE_OFFSET = 5;
constexpr int32_t TEXT_OFFSET = 9;
constexpr int32_t DELETE_LEN = 5;
constexpr int32_t TEXT_PRECISION = LINE_ID_FORMAT_LEN; // texts may lack a terminator

uint32_t word_at(const uint8_t* payload, uint32_t offset) {
  uint32_t word = 0;
  std::memcpy(&word, payload + offset, sizeof(word));
  return word;
}

void set_circuit_profile(line_id_common_cfg* cfg, uint32_t prof_id, uint32_t cirt_template, const char* text) {
  char* format = cfg->vlan_circuit_format[prof_id];
  std::memset(format, 0, LINE_ID_FORMAT_LEN);
  switch (cirt_template) {
  case LINE_ID_TEMPLATE_OWN: std::memcpy(format, text, LINE_ID_FORMAT_LEN); break;
  case LINE_ID_TEMPLATE_CTC: std::memcpy(format, "ctc", sizeof("ctc")); break;
  case LINE_ID_TEMPLATE_CNC: std::memcpy(format, "cnc", sizeof("cnc")); break;
  default: return; // ODD: an unknown template empties the text and leaves the profile's type.
  }
  cfg->vlan_template[prof_id] = static_cast<uint8_t>(cirt_template);
}

int32_t refuse_oltid(const char* function, uint8_t oltid) {
  line_id_log_error(function, __LINE__, "param is error failed(param = %d).\r\n", oltid);
  return LINE_ID_ERR_PARAM;
}

} // namespace

int32_t line_id_set_circuit_id_vlan_fmt_cfg(uint8_t oltid, uint8_t type, uint32_t prof_id, uint32_t cirt_template,
                                            const char (&text)[LINE_ID_FORMAT_LEN]) {
  LINE_ID_INFO(LOG_GENERAL, "oltid:%d, type:%d, prof_id:%d, cirt_template:%d, fmt_str:%.*s\r\n", oltid, type,
               static_cast<int>(prof_id), static_cast<int>(cirt_template), TEXT_PRECISION, text);
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse_oltid(__func__, oltid);
  // ODD: profile 0 is stored, though no frame refers to it.
  if (prof_id >= LINE_ID_PROFILE_SLOTS) {
    LINE_ID_ERROR("Vlan-based line-id cfg profile-id is out, profile-id:%d\r\n", static_cast<int>(prof_id));
    return LINE_ID_ERR;
  }
  if (type == LINE_ID_PROFILE_REMOTE) {
    std::memcpy(cfg->vlan_remote_format[prof_id], text, LINE_ID_FORMAT_LEN);
  } else if (type == LINE_ID_PROFILE_CIRCUIT) {
    set_circuit_profile(cfg, prof_id, cirt_template, text);
  } else {
    // ODD: an unknown kind is reported and yet succeeds.
    LINE_ID_ERROR("Vlan-based line-id cfg type is error, type:%d\r\n", type);
  }
  return LINE_ID_OK;
}

int32_t line_id_del_circuit_id_vlan_fmt_cfg(uint8_t oltid, uint8_t type, uint32_t prof_id) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse_oltid(__func__, oltid);
  if (prof_id == 0 || prof_id >= LINE_ID_PROFILE_SLOTS) {
    LINE_ID_ERROR("Vlan-based line-id cfg profile-id is out, profile-id:%d\r\n", static_cast<int>(prof_id));
    return LINE_ID_ERR;
  }
  char* format = nullptr;
  if (type == LINE_ID_PROFILE_CIRCUIT) {
    cfg->vlan_template[prof_id] = LINE_ID_TEMPLATE_OWN;
    format = cfg->vlan_circuit_format[prof_id];
  } else if (type == LINE_ID_PROFILE_REMOTE) {
    format = cfg->vlan_remote_format[prof_id];
  } else {
    LINE_ID_INFO(LOG_GENERAL, "Vlan-based line-id cfg type is error, type:%d\r\n", type);
  }
  LINE_ID_INFO(LOG_GENERAL, "oltid:%d, type:%d, prof_id:%d, fmt_str:%.*s\r\n", oltid, type, static_cast<int>(prof_id),
               TEXT_PRECISION, format != nullptr ? format : "");
  if (format != nullptr) std::memset(format, 0, LINE_ID_FORMAT_LEN);
  return LINE_ID_OK;
}

int32_t line_id_show_circuit_id_vlan_format_cfg(uint8_t oltid) {
  std::puts("\r\nCircuit Id Vlan Format:\r");
  std::printf("\r\nCircuit Id oltid is: %d\r\n", oltid);
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  for (uint32_t i = 1; cfg != nullptr && i <= LINE_ID_VLAN_PROFILES; ++i) {
    std::printf("template[%2u]:%d, cirt_fmt[%2u]:%.*s, rmt_fmt[%2u]:%.*s\r\n", i, cfg->vlan_template[i], i,
                TEXT_PRECISION, cfg->vlan_circuit_format[i], i, TEXT_PRECISION, cfg->vlan_remote_format[i]);
  }
  return LINE_ID_OK;
}

int32_t line_id_set_lineid_vlan_prof_proc(uint8_t oltid, const uint8_t* payload, int32_t len) {
  if (payload == nullptr) {
    LINE_ID_ERROR("ptr_mtext is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (len <= TEXT_OFFSET || len > TEXT_OFFSET + LINE_ID_FORMAT_LEN) {
    LINE_ID_ERROR("failed(len = %d).\r\n", len);
    return LINE_ID_ERR_TOO_LONG;
  }
  const uint8_t type = payload[0];
  const uint32_t prof_id = word_at(payload, PROF_ID_OFFSET);
  const uint32_t cirt_template = word_at(payload, TEMPLATE_OFFSET);
  char text[LINE_ID_FORMAT_LEN] = {};
  std::memcpy(text, payload + TEXT_OFFSET, static_cast<size_t>(len - TEXT_OFFSET));
  LINE_ID_INFO(LOG_CFG, "type:%d, prof_id:%d, cirt_template:%d, fmt_str:%.*s\r\n", type, static_cast<int>(prof_id),
               static_cast<int>(cirt_template), TEXT_PRECISION, text);
  if (line_id_set_circuit_id_vlan_fmt_cfg(oltid, type, prof_id, cirt_template, text) == LINE_ID_ERR) {
    LINE_ID_ERROR("Vlan-based lineid cfg is full.\r\n");
    return LINE_ID_ERR_DATA_LEN;
  }
  return LINE_ID_OK;
}

int32_t line_id_del_lineid_vlan_prof_proc(uint8_t oltid, const uint8_t* payload, int32_t len) {
  if (payload == nullptr) {
    LINE_ID_ERROR("ptr_mtext is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (len != DELETE_LEN) {
    LINE_ID_ERROR("failed(len = %d).\r\n", len);
    return LINE_ID_ERR_DATA_LEN;
  }
  const uint8_t type = payload[0];
  const uint32_t prof_id = word_at(payload, PROF_ID_OFFSET);
  LINE_ID_INFO(LOG_CFG, "type:%d, prof_id:%d\r\n", type, static_cast<int>(prof_id));
  if (line_id_del_circuit_id_vlan_fmt_cfg(oltid, type, prof_id) == LINE_ID_ERR) {
    LINE_ID_ERROR("Vlan-based lineid cfg not exist!\r\n");
    return LINE_ID_ERR_DATA_LEN;
  }
  return LINE_ID_OK;
}
