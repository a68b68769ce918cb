// Registration of the host's callbacks, and the device interface that is built from them.
#include "lineid/hal.h"

#include "core/device_if.h"
#include "core/log.h"

line_id_hal_func_table g_hal_func_obj;
std::atomic<line_id_param_custom_func> g_line_id_hal_param_custom_if{nullptr};

namespace {

constexpr uint8_t DEVICE_KINDS = 5;

bool g_hal_registered = false;

struct hal_slot_rule {
  const char* name;
  int32_t missing; // the code when a device kind needs the slot and has it not
  uint8_t kinds;   // bit n: device kind n needs it
  bool (*is_filled)(const line_id_hal_func_table* table);
};

#define LINE_ID_SLOT(name, missing, kinds)                                                                             \
  {                                                                                                                    \
#name, missing, kinds, [](const line_id_hal_func_table* table) { return table->name != nullptr; }                  \
  }

// In the order in which missing slots are reported.
constexpr hal_slot_rule SLOT_RULES[] = {
    LINE_ID_SLOT(set_drv_enable, LINE_ID_ERR_HAL_SET_DRV, 0b11110),
    LINE_ID_SLOT(send_eth_frame, LINE_ID_ERR_HAL_SEND, 0b11110),
    LINE_ID_SLOT(get_access_typename, LINE_ID_ERR_HAL_ACCESS_TYPE, 0b00010),
    LINE_ID_SLOT(get_card_typename, LINE_ID_ERR_HAL_CARD_TYPE, 0b00010),
    LINE_ID_SLOT(get_olt_card_slot_info, LINE_ID_ERR_HAL_OLT_SLOT, 0b00010),
    LINE_ID_SLOT(get_access_device_tech_form, LINE_ID_ERR_HAL_TECH_FORM, 0b11110),
    LINE_ID_SLOT(get_onu_reg_info_by_optional_elem, LINE_ID_ERR_HAL_ONU_REG, 0b11110),
    // ODD: the last code stands apart from the run of the others.
    LINE_ID_SLOT(get_onu_port_info_by_logic_port, LINE_ID_ERR_HAL_ONU_PORT, 0b10000),
};

#undef LINE_ID_SLOT

} // namespace

line_id_hal_func_table* lineid_get_hal_func_ptr() { return &g_hal_func_obj; }

bool line_id_hal_is_registered() { return g_hal_registered; }

int32_t line_id_check_hal_func_table_content(uint8_t device_kind, const line_id_hal_func_table* table) {
  if (table == nullptr) return LINE_ID_ERR_NULL;
  if (device_kind >= DEVICE_KINDS) return LINE_ID_ERR;
  for (const hal_slot_rule& rule : SLOT_RULES) {
    if ((rule.kinds >> device_kind & 1) == 0 || rule.is_filled(table)) continue;
    LINE_ID_ERROR("%s func is NULL, failed(%d).\r\n", rule.name, rule.missing);
    return rule.missing;
  }
  return LINE_ID_OK;
}

int32_t line_id_reg_hal_func(uint8_t device_kind, const line_id_hal_func_table* table) {
  if (table == nullptr) {
    LINE_ID_ERROR("hal_func_table is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (const int32_t ret = line_id_check_hal_func_table_content(device_kind, table); ret != LINE_ID_OK) {
    LINE_ID_ERROR("line_id_check_hal_func_table_content failed(%d).\r\n", ret);
    return ret;
  }
  g_hal_func_obj = *table;
  g_hal_registered = true;
  g_line_id_set_filler = {line_id_hal_param_func, line_id_hal_fill_set};
  const line_id_device_if operations = {table->send_eth_frame, table->set_drv_enable, table->mac_spoof_alarm,
                                        line_id_hal_param_func, table->log_output};
  return line_id_register_common_device_func(0, &operations);
}

int32_t line_id_reg_param_custom_if(line_id_param_custom_func hook) {
  g_line_id_hal_param_custom_if.store(hook, std::memory_order_release);
  return LINE_ID_OK;
}
