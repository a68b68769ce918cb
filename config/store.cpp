// Setters and getters of the settings: bodies from the rows of config/settings.def, and those that are like no other.
#include "config/store.h"

#include <cstring>

#include "config/policy.h"
#include "config/trap_rule.h"
#include "core/log.h"
#include "core/records.h"
#include "lineid/params.h"
#include "packet/protocol_table.h"

line_id_common_cfg g_line_id_common_cfg[LINE_ID_INSTANCES];

namespace {

constexpr uint32_t SETS_PER_INSTANCE = LINE_ID_PARAM_SETS / LINE_ID_INSTANCES;
constexpr uint32_t ALL_CATEGORIES_FIRST = LOG_GENERAL;
constexpr uint32_t ALL_CATEGORIES_LAST = LOG_DEVICE;

// Operations on a binding table.
constexpr uint8_t DELETE_BY_MAC = 2;
constexpr uint8_t DELETE_BY_ONU = 3;

// Settings of the whole agent.
std::atomic<uint16_t> g_gemport_enable{0}; // set by the worker, read by ingress
uint32_t g_dhcpv6_shanghai_ctc = 1;        // DHCPv6 Option 18 level; start-up and the worker
uint8_t g_cust_mode[LINE_ID_INSTANCES];    // start-up

// The helpers below log in the name of the setter that calls them.
int32_t refuse(const char* function, int32_t value) {
  line_id_log_error(function, __LINE__, "param is error failed(param = %d).\r\n", value);
  return LINE_ID_ERR_PARAM;
}

int32_t refuse_len(const char* function, uint32_t len, int32_t result) {
  line_id_log_error(function, __LINE__, "failed(len = %d).\r\n", len);
  return result;
}

int32_t refuse_null(const char* function) {
  line_id_log_error(function, __LINE__, "%s failed(%d).\r\n", function, LINE_ID_ERR_NULL);
  return LINE_ID_ERR_NULL;
}

// ---- one octet

int32_t set_switch(const char* function, uint8_t oltid, uint8_t value, uint8_t lo, uint8_t hi,
                   line_id_switch_field field, uint8_t trap) {
  if (value < lo || value > hi) return refuse(function, value);
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse(function, oltid);
  line_id_store_switch(cfg, field, value);
  if (trap != 0) line_id_trap_rule_proc(oltid, trap, value);
  return LINE_ID_OK;
}

int32_t set_debug(const char* function, uint8_t value, uint32_t first, uint32_t last) {
  if (value > 1) return refuse(function, value);
  for (uint32_t category = first; category <= last; ++category) {
    if (value != 0) {
      line_id_dbg_type_enable(category);
    } else {
      line_id_dbg_type_disable(category);
    }
  }
  return LINE_ID_OK;
}

// ---- numbers

constexpr auto no_push = [](uint8_t, auto) { return LINE_ID_OK; };

template <class Value, class Push>
int32_t set_word(const char* function, uint8_t oltid, Value value, Value line_id_common_cfg::*field, Push push) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse(function, oltid);
  cfg->*field = value;
  const int32_t ret = push(oltid, value);
  // ODD: a refused frame number is reported under the rack number's name.
  if (ret < 0) line_id_log_error(function, __LINE__, "line_id_set_rack_no_cfg fail(%d).!\r\n", ret);
  return ret;
}

template <class Value> Value get_word(uint8_t oltid, Value line_id_common_cfg::*field) {
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  return cfg != nullptr ? cfg->*field : 0;
}

// ---- texts

// The NUL-padded field takes `len` octets of `text`; the caller has checked that they fit.
template <size_t Size> void fill_field(char (&field)[Size], const char* text, uint32_t len) {
  std::memset(field, 0, Size);
  std::memcpy(field, text, len);
}

template <size_t Size>
int32_t set_text(const char* function, uint8_t oltid, const char* text, uint32_t len,
                 char (line_id_common_cfg::*field)[Size]) {
  if (text == nullptr) return refuse(function, LINE_ID_ERR_PARAM);
  if (len > Size) return refuse_len(function, len, LINE_ID_ERR_TOO_LONG);
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse(function, oltid);
  fill_field(cfg->*field, text, len);
  return LINE_ID_OK;
}

template <size_t Size>
int32_t get_text(const char* function, uint8_t oltid, char* buf, char (line_id_common_cfg::*field)[Size],
                 const char* complaint) {
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (buf == nullptr || cfg == nullptr) {
    line_id_log_error(function, __LINE__, "%s%d).\r\n", complaint, LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  std::memcpy(buf, cfg->*field, Size);
  return LINE_ID_OK;
}

int32_t push_ani(const line_id_common_cfg* cfg, uint8_t oltid) {
  char text[LINE_ID_ANI_LEN + 1] = {};
  std::memcpy(text, cfg->ani_str, LINE_ID_ANI_LEN);
  return line_id_set_param_ani(oltid, text);
}

int32_t store_mac(line_id_common_cfg* cfg, uint8_t oltid, const uint8_t* mac) {
  std::memcpy(cfg->corecard_inner_mac, mac, LINE_ID_MAC_LEN);
  return line_id_set_param_corecard_inner_mac(oltid, mac);
}

} // namespace

// ---- bodies from the rows

#define LINE_ID_SWITCH(name, call, code, lo, hi, refusal, field, trap)                                                 \
  int32_t line_id_set_##name##_cfg(uint8_t oltid, uint8_t value) {                                                     \
    return set_switch(__func__, oltid, value, lo, hi, &line_id_common_cfg::field, trap);                               \
  }                                                                                                                    \
  int32_t line_id_get_##call##_cfg(uint8_t oltid) { return line_id_get_switch(oltid, &line_id_common_cfg::field); }

#define LINE_ID_DEBUG(name, code, category)                                                                            \
  int32_t line_id_set_##name##_cfg(uint8_t value) { return set_debug(__func__, value, category, category); }

#define LINE_ID_WORD(name, code, type, result, field, push)                                                            \
  int32_t line_id_set_##name##_cfg(uint8_t oltid, type value) {                                                        \
    using stored = decltype(line_id_common_cfg::field);                                                                \
    return set_word(__func__, oltid, static_cast<stored>(value), &line_id_common_cfg::field, push);                    \
  }                                                                                                                    \
  result line_id_get_##name##_cfg(uint8_t oltid) { return get_word(oltid, &line_id_common_cfg::field); }

#define LINE_ID_FORMAT(name, code, field, complaint)                                                                   \
  int32_t line_id_set_##name##_cfg(uint8_t oltid, const char* text, uint32_t len) {                                    \
    return set_text(__func__, oltid, text, len, &line_id_common_cfg::field);                                           \
  }                                                                                                                    \
  int32_t line_id_get_##name##_cfg(uint8_t oltid, char* buf) {                                                         \
    return get_text(__func__, oltid, buf, &line_id_common_cfg::field, complaint);                                      \
  }

#define LINE_ID_TEXT(name, code, size, field)                                                                          \
  int32_t line_id_get_##name##_cfg(uint8_t oltid, char* buf) {                                                         \
    static_assert(sizeof(line_id_common_cfg::field) == size);                                                          \
    return get_text(__func__, oltid, buf, &line_id_common_cfg::field, "line_id_get_" #name "_cfg failed(");            \
  }

#define LINE_ID_DELETE_BY_MAC(table, code, null_result)                                                                \
  int32_t line_id_del_##table##_anti_spoofing_entry_by_mac_cfg(uint8_t oltid, const uint8_t* mac, uint32_t len) {      \
    if (mac == nullptr) {                                                                                              \
      LINE_ID_ERROR("%s failed(%d).\r\n", __func__, null_result);                                                      \
      return null_result;                                                                                              \
    }                                                                                                                  \
    if (len != LINE_ID_MAC_LEN) return refuse_len(__func__, len, LINE_ID_ERR_DATA_LEN);                                \
    line_id_##table##_spoof_oper_if(oltid, DELETE_BY_MAC, 0, 0, mac);                                                  \
    return LINE_ID_OK;                                                                                                 \
  }

#define LINE_ID_DELETE_BY_ONU(table, code)                                                                             \
  int32_t line_id_del_##table##_anti_spoofing_entry_by_onu_cfg(uint8_t oltid, uint16_t pon, uint16_t onu) {            \
    line_id_##table##_spoof_oper_if(oltid, DELETE_BY_ONU, pon, onu, nullptr);                                          \
    return LINE_ID_OK;                                                                                                 \
  }

#include "config/settings.def"

// ---- switches that other processes cannot read

int32_t line_id_set_circuitid_cfg(uint8_t oltid, uint8_t value) {
  return set_switch(__func__, oltid, value, 0, 1, &line_id_common_cfg::circuitid_enable, 0);
}

int32_t line_id_get_circuitid_cfg(uint8_t oltid) {
  return line_id_get_switch(oltid, &line_id_common_cfg::circuitid_enable);
}

int32_t line_id_set_remoteid_trans_enable_cfg(uint8_t oltid, uint8_t value) {
  // ODD: a refused value is reported as the result code, not as the value.
  if (value > 1) return refuse(__func__, LINE_ID_ERR_PARAM);
  return set_switch(__func__, oltid, value, 0, 1, &line_id_common_cfg::remoteid_trans_enable, 0);
}

int32_t line_id_set_dhcp6_enable_cfg(uint8_t oltid, uint8_t value) {
  line_id_set_option37_cfg(oltid, value);
  return line_id_set_option18_cfg(oltid, value);
}

int32_t line_id_set_gemport_cfg(uint8_t, uint8_t value) {
  if (value > 1) return refuse(__func__, value);
  g_gemport_enable.store(value, std::memory_order_relaxed);
  return LINE_ID_OK;
}

int32_t line_id_get_gemport_cfg() { return g_gemport_enable.load(std::memory_order_relaxed); }

int32_t line_id_set_slot(uint8_t oltid, uint8_t value) {
  return set_switch(__func__, oltid, value, 0, UINT8_MAX, &line_id_common_cfg::slot, 0);
}

int32_t line_id_get_slot(uint8_t oltid) { return line_id_get_switch(oltid, &line_id_common_cfg::slot); }

// ---- texts and addresses that are also line parameters

int32_t line_id_set_manage_ip_cfg(uint8_t oltid, uint32_t value) {
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse(__func__, oltid);
  cfg->manage_ip = value;
  return line_id_set_param_manage_ip(oltid, value);
}

int32_t line_id_get_manage_ip_cfg(uint8_t oltid, uint32_t* value) {
  if (value == nullptr || line_id_cfg_of(oltid) == nullptr) return refuse_null(__func__);
  *value = get_word(oltid, &line_id_common_cfg::manage_ip);
  return LINE_ID_OK;
}

int32_t line_id_set_ani_param_cfg(uint8_t oltid, const char* text, uint32_t len, uint16_t rack, uint16_t frame) {
  if (text == nullptr || len > LINE_ID_ANI_LEN) {
    LINE_ID_ERROR("ani_str is NULL or len exceeded,failed(len = %d).\r\n", len);
    return LINE_ID_ERR_TOO_LONG;
  }
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse(__func__, oltid);
  fill_field(cfg->ani_str, text, len);
  cfg->rack_no = static_cast<int16_t>(rack);
  cfg->frame_no = static_cast<int16_t>(frame);
  int32_t ret = push_ani(cfg, oltid);
  if (ret >= 0) ret = line_id_set_param_rack_no(oltid, cfg->rack_no);
  if (ret >= 0) ret = line_id_set_param_frame_no(oltid, cfg->frame_no);
  return ret;
}

int32_t line_id_set_ani_str_cfg(uint8_t oltid, const char* text, uint32_t len) {
  if (text == nullptr) return refuse_null(__func__);
  int32_t ret = set_text(__func__, oltid, text, len, &line_id_common_cfg::ani_str);
  if (ret < 0) return ret;
  ret = push_ani(line_id_cfg_of(oltid), oltid);
  if (ret < 0) LINE_ID_ERROR("line_id_set_ani_str_cfg fail(%d).!\r\n", ret);
  return ret;
}

int32_t line_id_set_uplink_type_cfg(uint8_t oltid, const char* text, uint32_t len) {
  const int32_t ret = set_text(__func__, oltid, text, len, &line_id_common_cfg::uplink_type);
  if (ret < 0) return ret;
  char terminated[LINE_ID_UPLINK_LEN + 1] = {};
  line_id_get_uplink_type_cfg(oltid, terminated);
  if (line_id_log_enabled(LOG_GENERAL, 2)) {
    line_id_dbg_buf_print(reinterpret_cast<const uint8_t*>(terminated), LINE_ID_UPLINK_LEN);
  }
  return line_id_set_param_uplink_type(oltid, terminated);
}

int32_t line_id_set_remoteid_core_cardinnermac_cfg(uint8_t oltid, const uint8_t* mac, uint32_t len) {
  if (mac == nullptr) return refuse(__func__, LINE_ID_ERR_PARAM);
  if (len != LINE_ID_MAC_LEN) return refuse_len(__func__, len, LINE_ID_ERR_DATA_LEN);
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  return cfg != nullptr ? store_mac(cfg, oltid, mac) : refuse(__func__, oltid);
}

int32_t line_id_set_remote_id_enable_and_params_cfg(uint8_t oltid, uint8_t enable, const uint8_t* mac, uint32_t len) {
  // ODD: a refused enable is reported as the result code, not as the value.
  if (enable > 1) return refuse(__func__, LINE_ID_ERR_PARAM);
  if (mac == nullptr) return refuse_null(__func__);
  if (len != LINE_ID_MAC_LEN) return refuse_len(__func__, len, LINE_ID_ERR_DATA_LEN);
  line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return refuse(__func__, oltid);
  line_id_store_switch(cfg, &line_id_common_cfg::remoteid_enable, enable);
  return store_mac(cfg, oltid, mac);
}

// ---- of the whole agent

int32_t line_id_set_dhcpv6_option18_level(uint32_t value) {
  g_dhcpv6_shanghai_ctc = value;
  if (value == 1) line_id_set_dhcpv6_tag_dn_strip_cfg(1);
  if (value == 0) line_id_set_dhcpv6_tag_dn_strip_cfg(2);
  return LINE_ID_OK;
}

int32_t line_id_set_dhcpv6_option18_cfg(uint8_t value) {
  return value <= 1 ? line_id_set_dhcpv6_option18_level(value) : refuse(__func__, value);
}

int32_t line_id_get_dhcpv6_option18_cfg() { return static_cast<int32_t>(g_dhcpv6_shanghai_ctc); }

int32_t line_id_set_dhcpv6_option18_relay_strip_cfg(uint8_t value) {
  return value == 1 || value == 2 ? line_id_set_dhcpv6_tag_dn_strip_cfg(value) : refuse(__func__, value);
}

int32_t line_id_set_cust_mode_cfg(uint8_t oltid, uint8_t mode) {
  if (oltid >= LINE_ID_INSTANCES) return refuse(__func__, oltid);
  g_cust_mode[oltid] = mode;
  return LINE_ID_OK;
}

int32_t line_id_get_cust_mode_cfg(uint8_t oltid) {
  return oltid < LINE_ID_INSTANCES ? static_cast<int8_t>(g_cust_mode[oltid]) : 0;
}

int32_t line_id_set_all_debug_cfg(uint8_t value) {
  return set_debug(__func__, value, ALL_CATEGORIES_FIRST, ALL_CATEGORIES_LAST);
}

int32_t line_id_set_level_debug_cfg(uint8_t value) {
  return value <= 2 ? line_id_dbg_level_set(value) : refuse(__func__, value);
}

// ---- operator overrides

int32_t line_id_override_param_cfg(uint8_t oltid, uint8_t letter, const char* text, uint32_t len) {
  if (text == nullptr) return refuse_null(__func__);
  if (len > LINE_ID_TEXT_SIZE - 1) return refuse_len(__func__, len, LINE_ID_ERR_TOO_LONG);
  if (line_id_cfg_of(oltid) == nullptr) return refuse(__func__, oltid);
  char terminated[LINE_ID_TEXT_SIZE] = {};
  std::memcpy(terminated, text, len);
  const int32_t first = oltid * static_cast<int32_t>(SETS_PER_INSTANCE);
  for (int32_t kind = 0; kind < static_cast<int32_t>(SETS_PER_INSTANCE); ++kind) {
    line_id_write_param_force(first + kind, letter, terminated);
  }
  return LINE_ID_OK;
}

int32_t line_id_unoverride_param_cfg(uint8_t letter) {
  // ODD: a letter is released for every instance, whichever it was pinned for.
  for (int32_t set = 0; set < static_cast<int32_t>(LINE_ID_PARAM_SETS); ++set) line_id_set_param_flag(set, letter, 0);
  return LINE_ID_OK;
}
