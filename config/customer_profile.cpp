// Built-in customer profiles, and the steps that apply a start-up table to the store.
#include "config/customer_profile.h"

#include <cstring>
#include <memory>
#include <new>

#include "agents/registration.h"
#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/protocol_table.h"

namespace {

constexpr uint8_t TECH_NORMS = 5; // access technologies, 0 to 4

// What the profiles differ in. Common to all: the three agents registered, Circuit-ID on, every other switch off, no
// custom Circuit-ID, CTC formats, exceptions by result. DHCP and PPPoE are always treated alike.
struct profile_row {
  const char* remote_id;
  const char* option37;
  uint8_t spoof_reg;
  uint8_t std_fmt_type;
  uint8_t circuitid_up_policy;
  uint8_t remoteid_up_policy;
  uint8_t tag_dn_strip;
  uint8_t dhcpv6_tag_dn_strip;
  uint8_t shared_mem;
};
constexpr profile_row OLT_GPON = {"%h", "%h", 1, 0, 0, 0, 1, 1, 0};
constexpr profile_row OLT_EPON = {"", "%m", 2, 0, 0, 2, 1, 1, 0};
constexpr profile_row SFU = {"", "", 2, 0, 1, 2, 0, 1, 1};
// ODD: this strip value is one that the setter refuses, so the profile cannot be applied unless the host adjusts it.
constexpr profile_row MDU_GPON = {"%m", "%m", 2, 1, 1, 1, 1, 0, 0};
constexpr profile_row MDU_EPON = {"%m", "%m", 2, 1, 1, 1, 1, 1, 0};
constexpr profile_row DSL = {"%m", "%m", 2, 2, 1, 1, 1, 1, 0};

bool is_epon(uint8_t tech_norms) { return tech_norms == 2 || tech_norms == 3; }

void fill_table(const profile_row& row, line_id_ex_cfg_table* table) {
  line_id_fmt_list* formats = table->fmt_list;
  *table = {};
  table->dhcp_reg = table->dhcpv6_reg = table->pppoe_reg = 1;
  table->dhcp_spoof_reg = table->pppoe_spoof_reg = row.spoof_reg;
  table->circuitid_enable = 1;
  table->fmt_list = formats;
  table->line_id_format_type = 1;
  table->def_std_fmt_type = row.std_fmt_type;
  table->dhcp_circuitid_up_policy = table->pppoe_circuitid_up_policy = row.circuitid_up_policy;
  table->dhcp_remoteid_up_policy = table->pppoe_remoteid_up_policy = row.remoteid_up_policy;
  table->dhcp_tag_dn_strip = table->pppoe_tag_dn_strip = row.tag_dn_strip;
  table->dhcpv6_tag_dn_strip = row.dhcpv6_tag_dn_strip;
  table->cross_process_shared_mem = row.shared_mem;
  *formats = {};
  std::strcpy(formats->remote_id, row.remote_id);
  std::strcpy(formats->option37, row.option37);
}

int32_t build(const char* function, const profile_row& row, uint8_t tech_norms, line_id_ex_cfg_table* table) {
  if (tech_norms >= TECH_NORMS) {
    line_id_log_error(function, __LINE__, "tech_norms is err, failed(%d).\r\n", LINE_ID_ERR_TECH_NORMS);
    return LINE_ID_ERR_TECH_NORMS;
  }
  if (table == nullptr) {
    line_id_log_error(function, __LINE__, "ex_cfg_table  is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (table->fmt_list == nullptr) {
    line_id_log_error(function, __LINE__, "fmt_list  is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  fill_table(row, table);
  return LINE_ID_OK;
}

using profile_builder = int32_t (*)(uint8_t tech_norms, line_id_ex_cfg_table* table);
constexpr profile_builder BUILDERS[] = {line_id_obtain_olt_cfg_table_content, line_id_obtain_sfu_cfg_table_content,
                                        line_id_obtain_mdu_cfg_table_content, line_id_obtain_dsl_cfg_table_content};

template <class Object> std::unique_ptr<Object> allocate_zeroed(const char* function, const char* name) {
  std::unique_ptr<Object> object(new (std::nothrow) Object{});
  if (object == nullptr) {
    line_id_log_error(function, __LINE__, "%s malloc failed(%d).\r\n", name, LINE_ID_ERR_MALLOC);
  }
  return object;
}

// ---- applying a table

// One step of the enable stage: what is set, and start-up's result when the setter refuses.
struct enable_step {
  const char* setter;
  int32_t (*apply)(uint8_t oltid, const line_id_ex_cfg_table& table);
  int32_t code;
};

#define STEP(name, arguments, code)                                                                                    \
  {                                                                                                                    \
    "line_id_set_" #name "_cfg",                                                                                       \
        []([[maybe_unused]] uint8_t oltid, const line_id_ex_cfg_table& table) {                                        \
          return line_id_set_##name##_cfg arguments;                                                                   \
        },                                                                                                             \
        code                                                                                                           \
  }
constexpr enable_step ENABLE_STEPS[] = {
    STEP(option82, (oltid, table.option82_enable), LINE_ID_ERR_STEP_OPTION82),
    STEP(option18, (oltid, table.option18_enable), LINE_ID_ERR_STEP_OPTION18),
    STEP(option37, (oltid, table.option37_enable), LINE_ID_ERR_STEP_OPTION37),
    STEP(pppoe_plus, (oltid, table.pppoe_plus_enable), LINE_ID_ERR_STEP_PPPOE_PLUS),
    STEP(circuitid, (oltid, table.circuitid_enable), LINE_ID_ERR_STEP_CIRCUITID),
    STEP(remoteid, (oltid, table.remoteid_enable), LINE_ID_ERR_STEP_REMOTEID),
    STEP(dhcpv4_debug, (table.dhcpv4_debug), LINE_ID_ERR_STEP_DHCPV4_DEBUG),
    STEP(dhcpv6_debug, (table.dhcpv6_debug), LINE_ID_ERR_STEP_DHCPV6_DEBUG),
    STEP(pppoe_plus_debug, (table.pppoe_plus_debug), LINE_ID_ERR_STEP_PPPOE_DEBUG),
    STEP(pppoe_anti_spoofing_enable, (oltid, table.pppoe_anti_spoofing_enable), LINE_ID_ERR_STEP_PPPOE_SPOOF),
    STEP(dhcp_anti_spoofing_enable, (oltid, table.dhcp_anti_spoofing_enable), LINE_ID_ERR_STEP_DHCP_SPOOF),
    STEP(dhcp_anti_spoofing_active, (oltid, table.dhcp_anti_spoofing_active), LINE_ID_ERR_STEP_DHCP_ACTIVE),
    STEP(circuit_id_custom_format, (oltid, table.fmt_list->circuit_id, LINE_ID_FORMAT_LEN),
         LINE_ID_ERR_STEP_CIRCUIT_FORMAT),
    STEP(remote_id_format, (oltid, table.fmt_list->remote_id, LINE_ID_FORMAT_LEN), LINE_ID_ERR_STEP_REMOTE_FORMAT),
    STEP(option37_format, (oltid, table.fmt_list->option37, LINE_ID_FORMAT_LEN), LINE_ID_ERR_STEP_OPTION37_FORMAT),
    // ODD: the last step answers with the code of the Remote-ID step.
    STEP(line_id_format_type, (oltid, table.line_id_format_type), LINE_ID_ERR_STEP_REMOTEID),
};
#undef STEP

// One step of the policy stage.
struct policy_step {
  const char* setter;
  int32_t (*apply)(const line_id_ex_cfg_table& table);
  int32_t code;
};

#define LINE_ID_POLICY(name, index, lo, hi, refusal, step)                                                             \
  {"line_id_set_" #name "_cfg",                                                                                        \
   [](const line_id_ex_cfg_table& table) { return line_id_set_##name##_cfg(table.name); }, step},
constexpr policy_step POLICY_STEPS[] = {
#include "config/settings.def"
};

int32_t report_step(const char* function, const char* step, int32_t code) {
  line_id_log_error(function, __LINE__, "%s failed(%d).\r\n", step, code);
  return code;
}

} // namespace

int32_t line_id_obtain_olt_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table) {
  return build(__func__, is_epon(tech_norms) ? OLT_EPON : OLT_GPON, tech_norms, table);
}
int32_t line_id_obtain_sfu_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table) {
  return build(__func__, SFU, tech_norms, table);
}
int32_t line_id_obtain_mdu_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table) {
  return build(__func__, is_epon(tech_norms) ? MDU_EPON : MDU_GPON, tech_norms, table);
}
int32_t line_id_obtain_dsl_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table) {
  return build(__func__, DSL, tech_norms, table);
}

int32_t line_id_obtain_cust_cfg_table_content(uint8_t cust_mode, uint8_t tech_norms,
                                              line_id_ex_cfg_table* ex_cfg_table) {
  if (cust_mode < LINE_ID_MODE_OLT || cust_mode > LINE_ID_MODE_DSL) {
    LINE_ID_ERROR("cust_mode is err, failed(%d).\r\n", LINE_ID_ERR_CUST_MODE);
    return LINE_ID_ERR_CUST_MODE;
  }
  if (tech_norms >= TECH_NORMS) {
    LINE_ID_ERROR("tech_norms is err, failed(%d).\r\n", LINE_ID_ERR_TECH_NORMS);
    return LINE_ID_ERR_TECH_NORMS;
  }
  if (ex_cfg_table == nullptr || ex_cfg_table->fmt_list == nullptr) {
    LINE_ID_ERROR("ex_cfg_table or fmt_list is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  const auto formats = allocate_zeroed<line_id_fmt_list>(__func__, "fmt_list");
  if (formats == nullptr) return LINE_ID_ERR_MALLOC;
  line_id_ex_cfg_table table = {};
  table.fmt_list = formats.get();
  const int32_t ret = BUILDERS[cust_mode - LINE_ID_MODE_OLT](tech_norms, &table);
  if (ret != LINE_ID_OK) return ret;
  table.fmt_list = ex_cfg_table->fmt_list;
  *ex_cfg_table = table;
  *table.fmt_list = *formats;
  return LINE_ID_OK;
}

int32_t line_id_init_policy_cfg_func(const line_id_ex_cfg_table* table) {
  for (const policy_step& step : POLICY_STEPS) {
    if (step.apply(*table) < 0) return report_step(__func__, step.setter, step.code);
  }
  return LINE_ID_OK;
}

int32_t line_id_init_until_cfg_func(uint8_t oltid, const line_id_ex_cfg_table* table) {
  for (const enable_step& step : ENABLE_STEPS) {
    if (step.apply(oltid, *table) < 0) return report_step(__func__, step.setter, step.code);
  }
  return LINE_ID_OK;
}

int32_t line_id_init_statics_cfg_func() { return line_id_reset_statistics_cfg(); }

int32_t line_id_register_common_cfg_func(uint8_t oltid, const line_id_ex_cfg_table* ex_cfg_table) {
  if (ex_cfg_table == nullptr) {
    LINE_ID_ERROR("ex_cfg_table is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (line_id_init_policy_cfg_func(ex_cfg_table) < 0) {
    return report_step(__func__, "line_id_init_policy_cfg_func", LINE_ID_ERR_INIT_POLICY);
  }
  if (line_id_init_until_cfg_func(oltid, ex_cfg_table) < 0) {
    return report_step(__func__, "line_id_init_until_cfg_func", LINE_ID_ERR_INIT_ENABLE);
  }
  if (line_id_set_init_param() < 0) return report_step(__func__, "line_id_set_init_param", LINE_ID_ERR_INIT_PARAM);
  return line_id_init_statics_cfg_func();
}

namespace {

// Apply the built-in profile of a mode; technology 0 always.
int32_t apply_profile(uint8_t oltid, uint8_t cust_mode) {
  const auto table = allocate_zeroed<line_id_ex_cfg_table>(__func__, "cfg_table_ptr");
  if (table == nullptr) return LINE_ID_ERR_MALLOC;
  const auto formats = allocate_zeroed<line_id_fmt_list>(__func__, "fmt_list");
  if (formats == nullptr) return LINE_ID_ERR_MALLOC;
  table->fmt_list = formats.get();
  if (line_id_obtain_cust_cfg_table_content(cust_mode, 0, table.get()) < 0) {
    return report_step(__func__, "line_id_obtain_cust_cfg_table_content", LINE_ID_ERR_CUST_TABLE);
  }
  const int32_t ret = line_id_register_common_cfg_func(oltid, table.get());
  return ret < 0 ? report_step(__func__, "line_id_register_common_cfg_func", ret) : ret;
}

} // namespace

int32_t line_id_cfg_data_init(uint8_t oltid, uint8_t cust_mode, const line_id_ex_cfg_table* ex_cfg_table) {
  int32_t ret;
  if (ex_cfg_table != nullptr) {
    ret = line_id_register_common_cfg_func(oltid, ex_cfg_table);
    if (ret < 0) report_step(__func__, "line_id_register_common_cfg_func", ret);
  } else {
    ret = apply_profile(oltid, cust_mode);
  }
  if (ret < 0) return ret;
  line_id_set_cust_mode_cfg(oltid, cust_mode);
  line_id_protocol_reg_func();
  line_id_int_protocol_func_data();
  return ret;
}
