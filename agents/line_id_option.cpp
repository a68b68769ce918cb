// The rewriting of a line-identity option, for DHCPv4 and PPPoE alike.
#include "agents/line_id_option.h"

#include "config/store.h"
#include "core/log.h"
#include "lineid/circuit_id.h"
#include "lineid/remote_id.h"
#include "lineid/sub_option.h"
#include "packet/frame.h"

#include <cstring>

namespace {

constexpr int32_t POLICY_ANEW = 1;
constexpr int32_t POLICY_KEEP = 2;
constexpr int32_t STRIP_ON = 1;
constexpr uint32_t SAVED_REMOTE_LEN = 255;

// Building stops once the option cannot fit a frame any more; until then there is room for both longest sub-options.
constexpr uint32_t BUILT_LEN = LINE_ID_REBUILT_LEN + 2 * LINE_ID_SUB_OPTION_LEN;

// An option under construction, its head still to be written.
struct built_option {
  uint8_t octets[BUILT_LEN];
  uint32_t len; // head included
  uint32_t circuit_len;
  uint32_t remote_len;
};

// An option of the received frame, and for whom it is rewritten.
struct option_job {
  const line_id_option_rule& rule;
  uint8_t oltid;
  const uint8_t* old;
  uint32_t old_len;
  line_id_inf_info* info;
};

// ---- sub-options

// A received sub-option with its header, or none.
struct old_sub_option {
  const uint8_t* whole;
  uint16_t len;
};
constexpr old_sub_option NO_SUB_OPTION = {nullptr, 0};

// What tells the two identifiers apart.
struct identifier_row {
  int32_t (*replace)(uint8_t, const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);
  int32_t (*modify)(uint8_t, const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);
  int32_t (*remove)(const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);
  int32_t (*keep)(const uint8_t*, uint16_t, uint8_t*, uint16_t*);
  int32_t (*enable)(uint8_t oltid);
  int32_t (*line_id_option_rule::*up_policy)();
  uint32_t built_option::*built_len;
  int32_t failure;
  const char* name;
};
constexpr identifier_row CIRCUIT_ID = {
    .replace = line_id_circuit_id_replace,
    .modify = line_id_circuit_id_modify,
    .remove = line_id_circuit_id_remove,
    .keep = line_id_circuit_id_none,
    .enable = line_id_get_circuitid_cfg,
    .up_policy = &line_id_option_rule::circuitid_up_policy,
    .built_len = &built_option::circuit_len,
    .failure = LINE_ID_ERR_CIRCUIT_ID,
    .name = "circuit_id",
};
constexpr identifier_row REMOTE_ID = {
    .replace = line_id_remote_id_replace,
    .modify = line_id_remote_id_modify,
    .remove = line_id_remote_id_remove,
    .keep = line_id_remote_id_none,
    .enable = line_id_get_remote_id_enable_cfg,
    .up_policy = &line_id_option_rule::remoteid_up_policy,
    .built_len = &built_option::remote_len,
    .failure = LINE_ID_ERR_REMOTE_ID,
    .name = "remote_id",
};

uint8_t effective_op(int32_t policy, int32_t enable, uint8_t op) {
  if (policy == POLICY_ANEW) return OPERATION_REPLACE;
  if (policy == POLICY_KEEP || enable == 0) return OPERATION_KEEP;
  return op;
}

int32_t build(const line_id_option_rule& rule, const identifier_row& id, uint8_t oltid, const old_sub_option& old,
              uint8_t* dest, uint16_t* new_len, uint8_t op, line_id_inf_info* info) {
  *new_len = 0;
  switch (effective_op((rule.*id.up_policy)(), id.enable(oltid), op)) {
  case OPERATION_KEEP: return old.whole != nullptr ? id.keep(old.whole, old.len, dest, new_len) : LINE_ID_OK;
  case OPERATION_INSERT:
  case OPERATION_REPLACE: return id.replace(oltid, old.whole, old.len, dest, new_len, info);
  case OPERATION_MODIFY: return id.modify(oltid, old.whole, old.len, dest, new_len, info);
  case OPERATION_REMOVE: return id.remove(old.whole, old.len, dest, new_len, info);
  default: LINE_ID_WARN(rule.log, "Unknown msg!\r\n"); return LINE_ID_OK;
  }
}

int32_t process(const line_id_option_rule& rule, const identifier_row& id, uint8_t oltid, const old_sub_option& old,
                uint8_t* dest, uint16_t* new_len, uint8_t op, line_id_inf_info* info) {
  const int32_t ret = build(rule, id, oltid, old, dest, new_len, op, info);
  LINE_ID_INFO(rule.log, "%s %s proc, *new_sub_opt_len = %d.\r\n", rule.option_name, id.name, *new_len);
  return ret;
}

// `step` is what a failure is called.
int32_t append(const option_job& job, const identifier_row& id, const old_sub_option& old, uint8_t op,
               built_option& built, const char* step) {
  uint16_t len = 0;
  const int32_t ret = process(job.rule, id, job.oltid, old, built.octets + built.len, &len, op, job.info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(job.rule.log, "%s return %d, failed!\r\n", step, ret);
    return id.failure;
  }
  built.len += len;
  built.*id.built_len += len;
  return LINE_ID_OK;
}

// ---- the whole option

void begin_option(const line_id_option_rule& rule, built_option& built) {
  built.len = rule.head_len;
  built.circuit_len = 0;
  built.remote_len = 0;
}

// 0 while the value, and the frame with it, are short enough.
int32_t check_lengths(const option_job& job, const built_option& built) {
  const uint32_t value_len = built.len - job.rule.value_offset;
  if (value_len > job.rule.max_value_len) {
    LINE_ID_WARN(job.rule.log, "too long new option string len %d.\r\n. Pass through.\r\n",
                 static_cast<int>(value_len));
    return LINE_ID_ERR_LENGTH;
  }
  if (job.info->origin_pkt_len + built.len > LINE_ID_REBUILT_LEN + job.old_len) {
    LINE_ID_WARN(job.rule.log, "%s packet exceeds %d octects after inserting tag. Dropped.\r\n", job.rule.packet_name,
                 static_cast<int>(LINE_ID_REBUILT_LEN));
    return LINE_ID_ERR_OPTION;
  }
  return LINE_ID_OK;
}

// The output frame: what was in front of the old option (copied at entry), the new option, what was behind the old one.
void put_into_frame(const option_job& job, const uint8_t* option, uint32_t option_len) {
  line_id_inf_info* info = job.info;
  const uint32_t offset = static_cast<uint32_t>(job.old - info->origin_pkt_ptr);
  const uint32_t rest_len = info->origin_pkt_len - offset - job.old_len;
  uint8_t* dest = info->new_pkt + offset;
  if (option_len > 0) std::memcpy(dest, option, option_len);
  if (rest_len > 0) std::memcpy(dest + option_len, job.old + job.old_len, rest_len);
  info->new_pkt_len = static_cast<uint16_t>(offset + option_len + rest_len);
  if (job.rule.close != nullptr) job.rule.close(info);
}

void finish_option(const option_job& job, built_option& built) {
  job.rule.write_head(built.octets, built.len - job.rule.value_offset);
  put_into_frame(job, built.octets, built.len);
}

int32_t replace_option(const option_job& job) {
  built_option built;
  begin_option(job.rule, built);
  int32_t ret = append(job, CIRCUIT_ID, NO_SUB_OPTION, OPERATION_REPLACE, built, job.rule.circuit_id_step);
  if (ret != LINE_ID_OK) return ret;
  // ODD: a new Option 82 without its Remote-ID is reported in PPPoE's words.
  ret = append(job, REMOTE_ID, NO_SUB_OPTION, OPERATION_REPLACE, built, "pppoe_plus_remote_id_proc");
  if (ret == LINE_ID_OK) ret = check_lengths(job, built);
  if (ret != LINE_ID_OK) return ret;
  if (job.rule.needs_rest && job.old + job.old_len == job.info->origin_pkt_ptr + job.info->origin_pkt_len) {
    LINE_ID_WARN(job.rule.log, "rest_pkt_len > 1536 ,dropped\r\n");
    return LINE_ID_ERR_LENGTH;
  }
  finish_option(job, built);
  return LINE_ID_OK;
}

// The received sub-options 1 and 2, in the order in which they came; others are discarded.
int32_t modify_sub_options(const option_job& job, built_option& built) {
  const uint32_t head_len = job.rule.head_len;
  packet_reader subs = reader_over(job.old + head_len, job.old_len > head_len ? job.old_len - head_len : 0);
  option_view sub;
  option_result found = option_next(subs, DHCP4_OPTION_RULE, sub);
  for (; found == OPTION_FOUND; found = option_next(subs, DHCP4_OPTION_RULE, sub)) {
    const old_sub_option old = {sub.value - LINE_ID_SUB_OPTION_HEAD, static_cast<uint16_t>(sub.whole_len)};
    int32_t ret = LINE_ID_OK;
    if (sub.code == LINE_ID_SUB_CIRCUIT_ID) {
      ret = append(job, CIRCUIT_ID, old, OPERATION_MODIFY, built, job.rule.circuit_id_step);
    } else if (sub.code == LINE_ID_SUB_REMOTE_ID) {
      // ODD: a received Remote-ID that fails is reported in the Circuit-ID's words.
      ret = append(job, REMOTE_ID, old, OPERATION_MODIFY, built, job.rule.circuit_id_step);
    }
    if (ret == LINE_ID_OK) ret = check_lengths(job, built); // what has grown too long stays too long
    if (ret != LINE_ID_OK) return ret;
  }
  if (found == OPTION_END) return LINE_ID_OK;
  LINE_ID_WARN(job.rule.log, "Invalid sub-option length.\r\n");
  return LINE_ID_ERR_SUB_OPTION;
}

// The Circuit-ID that was missing goes in front of the Remote-ID.
int32_t complete_circuit_id(const option_job& job, built_option& built) {
  if (built.remote_len > SAVED_REMOTE_LEN) {
    // ODD: for PPPoE too the message names Option 82, here and in the completing steps.
    LINE_ID_WARN(job.rule.log, "line_id_dhcp_option82_modify remote_id_len(%d) is exceeded.\r\n",
                 static_cast<int>(built.remote_len));
    return LINE_ID_ERR;
  }
  LINE_ID_INFO(job.rule.log, "no circuit_id, add by cfg.\r\n");
  uint8_t saved[SAVED_REMOTE_LEN];
  std::memcpy(saved, built.octets + job.rule.head_len, built.remote_len);
  built.len = job.rule.head_len;
  const int32_t ret = append(job, CIRCUIT_ID, NO_SUB_OPTION, OPERATION_INSERT, built, "option82 circuit_id_proc");
  if (ret != LINE_ID_OK) return ret;
  std::memcpy(built.octets + built.len, saved, built.remote_len);
  built.len += built.remote_len;
  return LINE_ID_OK;
}

int32_t modify_option(const option_job& job) {
  built_option built;
  begin_option(job.rule, built);
  int32_t ret = modify_sub_options(job, built);
  if (ret != LINE_ID_OK) return ret;
  if (built.circuit_len == 0 && built.remote_len == 0) {
    LINE_ID_INFO(job.rule.log, "no circuit_id and remoteid, add by cfg.\r\n");
    ret = replace_option(job);
    if (ret == LINE_ID_OK) return LINE_ID_OK;
    LINE_ID_WARN(job.rule.log, "%s return %d, failed!\r\n", job.rule.replace_step, ret);
    return job.rule.replace_code;
  }
  if (built.remote_len == 0) {
    LINE_ID_INFO(job.rule.log, "no remoteid, add remote_id by cfg.\r\n");
    ret = append(job, REMOTE_ID, NO_SUB_OPTION, OPERATION_INSERT, built, "option82 remote_id_proc");
  } else if (built.circuit_len == 0) {
    ret = complete_circuit_id(job, built);
  }
  if (ret != LINE_ID_OK) return ret;
  LINE_ID_INFO(job.rule.log, "new_tag_value_len = %d, len_diff = %d\r\n",
               static_cast<int>(built.len - job.rule.value_offset), static_cast<int>(built.len - job.old_len));
  ret = check_lengths(job, built);
  if (ret == LINE_ID_OK) finish_option(job, built);
  return ret;
}

int32_t refuse_null(const line_id_option_rule& rule) {
  LINE_ID_WARN(rule.log, "old_tag_ptr OR info is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
  return LINE_ID_ERR_NULL;
}

bool removes_instead(const line_id_option_rule& rule, const line_id_inf_info* info) {
  if (info->pkt_info_ptr->reserved[LINE_ID_EXT_CIRCUIT_BY_VLAN] != 1) return false;
  LINE_ID_INFO(rule.log, "circuit_id based on vlan switch enable,remove circuitid\r\n");
  return true;
}

} // namespace

int32_t line_id_option_circuit_id(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint16_t old_len,
                                  uint8_t* dest, uint16_t* new_len, uint8_t op, line_id_inf_info* info) {
  return process(rule, CIRCUIT_ID, oltid, {old, old_len}, dest, new_len, op, info);
}

int32_t line_id_option_remote_id(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint16_t old_len,
                                 uint8_t* dest, uint16_t* new_len, uint8_t op, line_id_inf_info* info) {
  return process(rule, REMOTE_ID, oltid, {old, old_len}, dest, new_len, op, info);
}

int32_t line_id_option_remove(const line_id_option_rule& rule, const uint8_t* old, uint32_t old_len,
                              line_id_inf_info* info) {
  if (old == nullptr || info == nullptr) return refuse_null(rule);
  put_into_frame({rule, 0, old, old_len, info}, nullptr, 0);
  return LINE_ID_OK;
}

int32_t line_id_option_replace(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint32_t old_len,
                               line_id_inf_info* info) {
  return old != nullptr && info != nullptr ? replace_option({rule, oltid, old, old_len, info}) : refuse_null(rule);
}

int32_t line_id_option_modify(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint32_t old_len,
                              line_id_inf_info* info) {
  return old != nullptr && info != nullptr ? modify_option({rule, oltid, old, old_len, info}) : refuse_null(rule);
}

int32_t line_id_option_operate(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint32_t old_len,
                               uint8_t op, line_id_inf_info* info) {
  switch (op) {
  case OPERATION_KEEP: return LINE_ID_OK;
  case OPERATION_INSERT:
  case OPERATION_REPLACE:
    return removes_instead(rule, info) ? line_id_option_remove(rule, old, old_len, info)
                                       : line_id_option_replace(rule, oltid, old, old_len, info);
  case OPERATION_MODIFY:
    return removes_instead(rule, info) ? line_id_option_remove(rule, old, old_len, info)
                                       : line_id_option_modify(rule, oltid, old, old_len, info);
  case OPERATION_REMOVE:
    return rule.dn_strip() == STRIP_ON ? line_id_option_remove(rule, old, old_len, info) : LINE_ID_ERR;
  default: LINE_ID_WARN(rule.log, "Unknown msg!\r\n"); return LINE_ID_OK;
  }
}
