// The circuit-ID configuration block and the format-mode block: several settings of an instance in one record.
#include "config/store.h"

#include <cstddef>
#include <cstring>

#include "config/trap_rule.h"
#include "core/log.h"
#include "lineid/params.h"

namespace {

constexpr uint8_t ENABLE_BITS = LINE_ID_ENABLE_OPTION82 | LINE_ID_ENABLE_OPTION18 | LINE_ID_ENABLE_OPTION37;

// The enables whose protocol the device has to trap, in the order in which the rules are pushed.
struct trap_row {
  const char* name;
  line_id_switch_field field;
  uint8_t protocol;
  uint8_t category;
};
constexpr trap_row TRAP_ROWS[] = {
    {"option82", &line_id_common_cfg::option82_enable, LINE_ID_DHCPV4, LOG_DHCPV4},
    {"option18", &line_id_common_cfg::option18_enable, LINE_ID_DHCPV6, LOG_DHCPV6},
    {"pppoe", &line_id_common_cfg::pppoe_plus_enable, LINE_ID_PPPOE, LOG_PPPOE},
};

// Exactly 1 counts: an enable that came as another non-zero value is on, but keeps no other instance's rule alive.
uint32_t count_enabled(line_id_switch_field field) {
  uint32_t count = 0;
  for (line_id_common_cfg& cfg : g_line_id_common_cfg) count += line_id_load_switch(&cfg, field) == 1 ? 1 : 0;
  return count;
}

// The device traps for all instances alike, so a rule goes off with the last instance that needs it.
void push_trap_rule(line_id_common_cfg* cfg, uint8_t oltid, const trap_row& row) {
  const uint8_t enable = line_id_load_switch(cfg, row.field);
  if (enable != 0) {
    LINE_ID_INFO(row.category, " the oltid %s enable ,the oltid is %d\r\n", row.name, oltid);
    line_id_trap_rule_proc(oltid, row.protocol, enable);
  } else if (count_enabled(row.field) == 0) {
    LINE_ID_INFO(row.category, " the oltid %s enable number = 0 \r", row.name);
    line_id_trap_rule_proc(oltid, row.protocol, 0);
  } else {
    LINE_ID_INFO(row.category, " the oltid %s enable number > 0 \r", row.name);
  }
}

void store_block(line_id_common_cfg* cfg, const line_id_circuit_id_config& block) {
  const auto bit = [&](uint8_t mask) { return static_cast<uint8_t>((block.enable & mask) != 0 ? 1 : 0); };
  line_id_store_switch(cfg, &line_id_common_cfg::slot, block.slot);
  line_id_store_switch(cfg, &line_id_common_cfg::option82_enable, bit(LINE_ID_ENABLE_OPTION82));
  line_id_store_switch(cfg, &line_id_common_cfg::option18_enable, bit(LINE_ID_ENABLE_OPTION18));
  line_id_store_switch(cfg, &line_id_common_cfg::option37_enable, bit(LINE_ID_ENABLE_OPTION37));
  line_id_store_switch(cfg, &line_id_common_cfg::pppoe_plus_enable, block.pppoe_plus_enable);
  std::memcpy(cfg->ani_str, block.ani_str, LINE_ID_ANI_LEN);
  cfg->rack_no = block.rack_no;
  cfg->frame_no = block.frame_no;
  std::memcpy(cfg->uplink_type, block.uplink_type, LINE_ID_UPLINK_LEN);
  cfg->manage_ip = block.manage_ip;
  std::memcpy(cfg->hostname, block.hostname, LINE_ID_HOSTNAME_LEN);
}

// Carry the device-wide facts into the parameter table: 0, or the first refusal.
int32_t push_params(const line_id_common_cfg* cfg, uint8_t oltid) {
  char ani[LINE_ID_ANI_LEN + 1] = {};
  char uplink[LINE_ID_UPLINK_LEN + 1] = {};
  char hostname[LINE_ID_HOSTNAME_LEN + 1] = {};
  std::memcpy(ani, cfg->ani_str, LINE_ID_ANI_LEN);
  std::memcpy(uplink, cfg->uplink_type, LINE_ID_UPLINK_LEN);
  std::memcpy(hostname, cfg->hostname, LINE_ID_HOSTNAME_LEN);

  const char* step = "line_id_set_param_ani";
  int32_t ret = line_id_set_param_ani(oltid, ani);
  const auto next = [&](const char* name, auto push, auto value) {
    if (ret < 0) return;
    step = name;
    ret = push(oltid, value);
  };
  next("line_id_set_param_rack_no", line_id_set_param_rack_no, cfg->rack_no);
  next("line_id_set_param_frame_no", line_id_set_param_frame_no, cfg->frame_no);
  next("line_id_set_param_manage_ip", line_id_set_param_manage_ip, cfg->manage_ip);
  next("line_id_set_param_uplink_type", line_id_set_param_uplink_type, static_cast<const char*>(uplink));
  next("line_id_set_param_hostname", line_id_set_param_hostname, static_cast<const char*>(hostname));
  if (ret >= 0) return LINE_ID_OK;
  LINE_ID_ERROR("%s fail(%d).!\r\n", step, ret);
  return ret;
}

} // namespace

int32_t line_id_set_circuit_id_config_cfg(uint8_t oltid, const line_id_circuit_id_config* block) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (block == nullptr || cfg == nullptr) {
    LINE_ID_ERROR("param is error failed(param = %d).\r\n", LINE_ID_ERR_PARAM);
    return LINE_ID_ERR_PARAM;
  }
  store_block(cfg, *block);
  for (const trap_row& row : TRAP_ROWS) push_trap_rule(cfg, oltid, row);
  return push_params(cfg, oltid);
}

int32_t line_id_get_circuit_id_config_cfg(uint8_t oltid, line_id_circuit_id_config* block) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (block == nullptr || cfg == nullptr) {
    LINE_ID_ERROR("%s failed(%d).\r\n", __func__, LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  const auto bit = [&](line_id_switch_field field, uint8_t mask) {
    return static_cast<uint8_t>(line_id_load_switch(cfg, field) != 0 ? mask : 0);
  };
  block->slot = line_id_load_switch(cfg, &line_id_common_cfg::slot);
  block->enable = static_cast<uint8_t>((block->enable & ~ENABLE_BITS) |
                                       bit(&line_id_common_cfg::option82_enable, LINE_ID_ENABLE_OPTION82) |
                                       bit(&line_id_common_cfg::option18_enable, LINE_ID_ENABLE_OPTION18) |
                                       bit(&line_id_common_cfg::option37_enable, LINE_ID_ENABLE_OPTION37));
  block->pppoe_plus_enable = line_id_load_switch(cfg, &line_id_common_cfg::pppoe_plus_enable);
  std::memcpy(block->ani_str, cfg->ani_str, LINE_ID_ANI_LEN);
  block->rack_no = cfg->rack_no;
  block->frame_no = cfg->frame_no;
  std::memcpy(block->uplink_type, cfg->uplink_type, LINE_ID_UPLINK_LEN);
  block->manage_ip = cfg->manage_ip;
  // ODD: the host name is set by the block but not read back.
  return LINE_ID_OK;
}

int32_t line_id_set_circuit_id_format_mode_cfg(uint8_t oltid, const line_id_circuit_id_format_mode* block) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (block == nullptr || cfg == nullptr) {
    LINE_ID_ERROR("param is error failed(param = %d).\r\n", LINE_ID_ERR_PARAM);
    return LINE_ID_ERR_PARAM;
  }
  // ODD: the format type is taken as it comes; the format builder treats what it does not know as CTC.
  line_id_store_switch(cfg, &line_id_common_cfg::line_id_format_type, block->line_id_format_type);
  std::memcpy(cfg->circuit_id_custom_format, block->custom_format, LINE_ID_FORMAT_LEN);
  return LINE_ID_OK;
}

int32_t line_id_get_circuit_id_format_mode_cfg(uint8_t oltid, line_id_circuit_id_format_mode* block) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (block == nullptr || cfg == nullptr) {
    LINE_ID_ERROR("%s failed(%d).\r\n", __func__, LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  block->line_id_format_type = line_id_load_switch(cfg, &line_id_common_cfg::line_id_format_type);
  std::memcpy(block->custom_format, cfg->circuit_id_custom_format, LINE_ID_FORMAT_LEN);
  return LINE_ID_OK;
}
