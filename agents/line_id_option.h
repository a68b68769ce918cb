// The rewriting of a line-identity option: DHCPv4's Option 82 and PPPoE's vendor tag differ in a few facts, which a
// rule holds; what is done to them is the same.
//
// An option is code, length and, for PPPoE, the vendor id, then the sub-options 1 (Circuit-ID) and 2 (Remote-ID). A new
// one is built within bounds, and the output frame and its length change only when it is whole and fits. The worker
// only.
//
// The functions are templates of their rule, so that an agent has its rule's facts built in. Public are those at the
// end.
#pragma once

#include "config/store.h"
#include "core/log.h"
#include "core/records.h"
#include "lineid/circuit_id.h"
#include "lineid/remote_id.h"
#include "lineid/sub_option.h"
#include "packet/frame.h"

#include <cstring>

// Operations on an option and on its sub-options.
enum line_id_operation : uint8_t {
  OPERATION_KEEP = 0,
  OPERATION_INSERT = 1,
  OPERATION_MODIFY = 2,
  OPERATION_REPLACE = 3,
  OPERATION_REMOVE = 4,
};

struct line_id_option_rule {
  uint8_t log;
  uint8_t head_len;     // octets in front of the sub-options
  uint8_t value_offset; // octets in front of what the length field counts
  bool needs_rest;      // something must follow the option: at least DHCPv4's End
  uint32_t max_value_len;
  int32_t (*circuitid_up_policy)();
  int32_t (*remoteid_up_policy)();
  int32_t (*dn_strip)();
  void (*write_head)(uint8_t* option, uint32_t value_len);
  void (*close)(const line_id_inf_info* info); // of a rewritten frame, or null when the caller closes it
  // What traces call things.
  const char* option_name;
  const char* packet_name;
  const char* circuit_id_step;
  const char* replace_step;
  int32_t replace_code; // of an option without identifiers that could not be replaced
};

namespace line_id_option {

constexpr int32_t POLICY_ANEW = 1;
constexpr int32_t POLICY_KEEP = 2;
constexpr int32_t STRIP_ON = 1;
constexpr uint32_t SAVED_REMOTE_LEN = 255;

// The longest option that is built anew: 8 octets of head and both longest sub-options.
constexpr uint32_t NEW_LEN = 8 + 2 * LINE_ID_SUB_OPTION_LEN;
// Building stops once the option cannot fit a frame any more; until then there is room for both longest sub-options.
constexpr uint32_t BUILT_LEN = LINE_ID_REBUILT_LEN + 2 * LINE_ID_SUB_OPTION_LEN;

// An option under construction, its head still to be written.
struct built_option {
  uint8_t* octets;
  uint32_t len; // head included
  uint32_t circuit_len;
  uint32_t remote_len;
};

// An option of the received frame, and for whom it is rewritten.
struct option_job {
  uint8_t oltid;
  const uint8_t* old;
  uint32_t old_len;
  line_id_inf_info* info;
  line_id_text_source from;
  uint32_t offset = static_cast<uint32_t>(old - info->origin_pkt_ptr);
};
inline option_job job_of(uint8_t oltid, const uint8_t* old, uint32_t old_len, line_id_inf_info* info) {
  return {oltid, old, old_len, info, line_id_text_source_of(oltid, info)};
}
// Of the new option, in the output frame.
inline uint8_t* place_of(const option_job& job) { return job.info->new_pkt + job.offset; }

// ---- sub-options

// A received sub-option with its header, or none.
struct old_sub_option {
  const uint8_t* whole;
  uint16_t len;
};
inline constexpr old_sub_option NO_SUB_OPTION = {nullptr, 0};

// What tells the two identifiers apart; a template's argument, so that each is called straight away.
struct identifier_row {
  uint8_t type;
  uint8_t line_id_inf_info::*profile; // the frame's VLAN profile for it, or 0
  // What `replace` puts behind its head, without traces and profile.
  int32_t (*print)(const line_id_text_source& from, uint8_t* text, const line_id_inf_info* info);
  int32_t (*replace)(uint8_t, const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);
  int32_t (*modify)(uint8_t, const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);
  int32_t (*remove)(const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);
  int32_t (*keep)(const uint8_t*, uint16_t, uint8_t*, uint16_t*);
  line_id_switch_field enable;
  int32_t (*line_id_option_rule::*up_policy)();
  uint32_t built_option::*built_len;
  int32_t failure;
  const char* name;
};
inline constexpr identifier_row CIRCUIT_ID = {
    .type = LINE_ID_SUB_CIRCUIT_ID,
    .profile = &line_id_inf_info::cid,
    .print = [](const line_id_text_source& from, uint8_t* text,
                const line_id_inf_info* info) { return line_id_print_circuit_id_untraced(from, text, 0, info); },
    .replace = line_id_circuit_id_replace,
    .modify = line_id_circuit_id_modify,
    .remove = line_id_circuit_id_remove,
    .keep = line_id_circuit_id_none,
    .enable = &line_id_common_cfg::circuitid_enable,
    .up_policy = &line_id_option_rule::circuitid_up_policy,
    .built_len = &built_option::circuit_len,
    .failure = LINE_ID_ERR_CIRCUIT_ID,
    .name = "circuit_id",
};
inline constexpr identifier_row REMOTE_ID = {
    .type = LINE_ID_SUB_REMOTE_ID,
    .profile = &line_id_inf_info::rid,
    .print = line_id_print_remote_id_untraced,
    .replace = line_id_remote_id_replace,
    .modify = line_id_remote_id_modify,
    .remove = line_id_remote_id_remove,
    .keep = line_id_remote_id_none,
    .enable = &line_id_common_cfg::remoteid_enable,
    .up_policy = &line_id_option_rule::remoteid_up_policy,
    .built_len = &built_option::remote_len,
    .failure = LINE_ID_ERR_REMOTE_ID,
    .name = "remote_id",
};

inline uint8_t effective_op(int32_t policy, int32_t enable, uint8_t op) {
  if (policy == POLICY_ANEW) return OPERATION_REPLACE;
  if (policy == POLICY_KEEP || enable == 0) return OPERATION_KEEP;
  return op;
}

// Without traces and profile a new sub-option is its text and a head.
template <const line_id_option_rule& rule, const identifier_row& id>
int32_t build_new(const option_job& job, const old_sub_option& old, uint8_t* dest, uint16_t* new_len) {
  if (rule.log != LOG_NONE || job.info->*id.profile != 0 || job.from.letters == nullptr) {
    return id.replace(job.oltid, old.whole, old.len, dest, new_len, job.info);
  }
  const int32_t len = id.print(job.from, dest + LINE_ID_SUB_OPTION_HEAD, job.info);
  if (len < 0) return LINE_ID_ERR;
  line_id_close_sub_option(dest, id.type, static_cast<uint32_t>(len), new_len);
  return LINE_ID_OK;
}

template <const line_id_option_rule& rule, const identifier_row& id>
int32_t build(const option_job& job, const old_sub_option& old, uint8_t* dest, uint16_t* new_len, uint8_t op) {
  *new_len = 0;
  switch (effective_op((rule.*id.up_policy)(), line_id_get_switch(job.from.cfg, id.enable), op)) {
  case OPERATION_KEEP: return old.whole != nullptr ? id.keep(old.whole, old.len, dest, new_len) : LINE_ID_OK;
  case OPERATION_INSERT:
  case OPERATION_REPLACE: return build_new<rule, id>(job, old, dest, new_len);
  case OPERATION_MODIFY: return id.modify(job.oltid, old.whole, old.len, dest, new_len, job.info);
  case OPERATION_REMOVE: return id.remove(old.whole, old.len, dest, new_len, job.info);
  default: LINE_ID_WARN(rule.log, "Unknown msg!\r\n"); return LINE_ID_OK;
  }
}

template <const line_id_option_rule& rule, const identifier_row& id>
int32_t process(const option_job& job, const old_sub_option& old, uint8_t* dest, uint16_t* new_len, uint8_t op) {
  const int32_t ret = build<rule, id>(job, old, dest, new_len, op);
  LINE_ID_INFO(rule.log, "%s %s proc, *new_sub_opt_len = %d.\r\n", rule.option_name, id.name, *new_len);
  return ret;
}

// `step` is what a failure is called.
template <const line_id_option_rule& rule, const identifier_row& id>
int32_t append(const option_job& job, const old_sub_option& old, uint8_t op, built_option& built, const char* step) {
  uint16_t len = 0;
  const int32_t ret = process<rule, id>(job, old, built.octets + built.len, &len, op);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(rule.log, "%s return %d, failed!\r\n", step, ret);
    return id.failure;
  }
  built.len += len;
  built.*id.built_len += len;
  return LINE_ID_OK;
}

// ---- the whole option

// 0 while the value, and the frame with it, are short enough.
template <const line_id_option_rule& rule> int32_t check_lengths(const option_job& job, const built_option& built) {
  const uint32_t value_len = built.len - rule.value_offset;
  if (rule.max_value_len < BUILT_LEN && value_len > rule.max_value_len) {
    LINE_ID_WARN(rule.log, "too long new option string len %d.\r\n. Pass through.\r\n", static_cast<int>(value_len));
    return LINE_ID_ERR_LENGTH;
  }
  if (job.info->origin_pkt_len + built.len > LINE_ID_REBUILT_LEN + job.old_len) {
    LINE_ID_WARN(rule.log, "%s packet exceeds %d octects after inserting tag. Dropped.\r\n", rule.packet_name,
                 static_cast<int>(LINE_ID_REBUILT_LEN));
    return LINE_ID_ERR_OPTION;
  }
  return LINE_ID_OK;
}

// The output frame: what was in front of the old option (copied at entry), the new option, which may be in its place
// already, what was behind the old one.
template <const line_id_option_rule& rule>
void put_into_frame(const option_job& job, uint8_t* place, const uint8_t* option, uint32_t option_len) {
  line_id_inf_info* info = job.info;
  const uint32_t rest_len = info->origin_pkt_len - job.offset - job.old_len;
  if (option_len > 0 && option != place) std::memcpy(place, option, option_len);
  if (rest_len > 0) std::memcpy(place + option_len, job.old + job.old_len, rest_len);
  info->new_pkt_len = static_cast<uint16_t>(job.offset + option_len + rest_len);
  if (rule.close != nullptr) rule.close(info);
}

template <const line_id_option_rule& rule>
void finish_option(const option_job& job, uint8_t* place, const built_option& built) {
  rule.write_head(built.octets, built.len - rule.value_offset);
  put_into_frame<rule>(job, place, built.octets, built.len);
}

template <const line_id_option_rule& rule>
int32_t build_anew(const option_job& job, uint8_t* place, built_option& built) {
  int32_t ret = append<rule, CIRCUIT_ID>(job, NO_SUB_OPTION, OPERATION_REPLACE, built, rule.circuit_id_step);
  if (ret != LINE_ID_OK) return ret;
  // ODD: a new Option 82 without its Remote-ID is reported in PPPoE's words.
  ret = append<rule, REMOTE_ID>(job, NO_SUB_OPTION, OPERATION_REPLACE, built, "pppoe_plus_remote_id_proc");
  if (ret == LINE_ID_OK) ret = check_lengths<rule>(job, built);
  if (ret != LINE_ID_OK) return ret;
  if (rule.needs_rest && job.old + job.old_len == job.info->origin_pkt_ptr + job.info->origin_pkt_len) {
    LINE_ID_WARN(rule.log, "rest_pkt_len > 1536 ,dropped\r\n");
    return LINE_ID_ERR_LENGTH;
  }
  finish_option<rule>(job, place, built);
  return LINE_ID_OK;
}

template <const line_id_option_rule& rule>
__attribute__((cold, noinline)) int32_t replace_without_room(uint8_t oltid, const uint8_t* old, uint32_t old_len,
                                                             line_id_inf_info* info) {
  const option_job job = job_of(oltid, old, old_len, info);
  uint8_t spare[BUILT_LEN];
  built_option built = {spare, rule.head_len, 0, 0};
  return build_anew<rule>(job, place_of(job), built);
}

// Built where it belongs if there is room for the longest; after a failure the received octets come back.
template <const line_id_option_rule& rule> LINE_ID_FLAT int32_t replace_option(const option_job& job) {
  if (job.offset > LINE_ID_SCRATCH_LEN - NEW_LEN) {
    return replace_without_room<rule>(job.oltid, job.old, job.old_len, job.info);
  }
  uint8_t* place = place_of(job);
  built_option built = {place, rule.head_len, 0, 0};
  const int32_t ret = build_anew<rule>(job, place, built);
  if (ret != LINE_ID_OK) std::memcpy(place, job.old, job.info->origin_pkt_len - job.offset);
  return ret;
}

// The received sub-options 1 and 2, in the order in which they came; others are discarded.
template <const line_id_option_rule& rule> int32_t modify_sub_options(const option_job& job, built_option& built) {
  const uint32_t head_len = rule.head_len;
  packet_reader subs = reader_over(job.old + head_len, job.old_len > head_len ? job.old_len - head_len : 0);
  option_view sub;
  option_result found = option_next(subs, DHCP4_OPTION_RULE, sub);
  for (; found == OPTION_FOUND; found = option_next(subs, DHCP4_OPTION_RULE, sub)) {
    const old_sub_option old = {sub.value - LINE_ID_SUB_OPTION_HEAD, static_cast<uint16_t>(sub.whole_len)};
    int32_t ret = LINE_ID_OK;
    if (sub.code == LINE_ID_SUB_CIRCUIT_ID) {
      ret = append<rule, CIRCUIT_ID>(job, old, OPERATION_MODIFY, built, rule.circuit_id_step);
    } else if (sub.code == LINE_ID_SUB_REMOTE_ID) {
      // ODD: a received Remote-ID that fails is reported in the Circuit-ID's words.
      ret = append<rule, REMOTE_ID>(job, old, OPERATION_MODIFY, built, rule.circuit_id_step);
    }
    if (ret == LINE_ID_OK) ret = check_lengths<rule>(job, built); // what has grown too long stays too long
    if (ret != LINE_ID_OK) return ret;
  }
  if (found == OPTION_END) return LINE_ID_OK;
  LINE_ID_WARN(rule.log, "Invalid sub-option length.\r\n");
  return LINE_ID_ERR_SUB_OPTION;
}

// The Circuit-ID that was missing goes in front of the Remote-ID.
template <const line_id_option_rule& rule> int32_t complete_circuit_id(const option_job& job, built_option& built) {
  if (built.remote_len > SAVED_REMOTE_LEN) {
    // ODD: for PPPoE too the message names Option 82, here and in the completing steps.
    LINE_ID_WARN(rule.log, "line_id_dhcp_option82_modify remote_id_len(%d) is exceeded.\r\n",
                 static_cast<int>(built.remote_len));
    return LINE_ID_ERR;
  }
  LINE_ID_INFO(rule.log, "no circuit_id, add by cfg.\r\n");
  uint8_t saved[SAVED_REMOTE_LEN];
  std::memcpy(saved, built.octets + rule.head_len, built.remote_len);
  built.len = rule.head_len;
  const int32_t ret = append<rule, CIRCUIT_ID>(job, NO_SUB_OPTION, OPERATION_INSERT, built, "option82 circuit_id_proc");
  if (ret != LINE_ID_OK) return ret;
  std::memcpy(built.octets + built.len, saved, built.remote_len);
  built.len += built.remote_len;
  return LINE_ID_OK;
}

template <const line_id_option_rule& rule> int32_t modify_option(const option_job& job) {
  uint8_t octets[BUILT_LEN];
  built_option built = {octets, rule.head_len, 0, 0};
  int32_t ret = modify_sub_options<rule>(job, built);
  if (ret != LINE_ID_OK) return ret;
  if (built.circuit_len == 0 && built.remote_len == 0) {
    LINE_ID_INFO(rule.log, "no circuit_id and remoteid, add by cfg.\r\n");
    ret = replace_option<rule>(job);
    if (ret == LINE_ID_OK) return LINE_ID_OK;
    LINE_ID_WARN(rule.log, "%s return %d, failed!\r\n", rule.replace_step, ret);
    return rule.replace_code;
  }
  if (built.remote_len == 0) {
    LINE_ID_INFO(rule.log, "no remoteid, add remote_id by cfg.\r\n");
    ret = append<rule, REMOTE_ID>(job, NO_SUB_OPTION, OPERATION_INSERT, built, "option82 remote_id_proc");
  } else if (built.circuit_len == 0) {
    ret = complete_circuit_id<rule>(job, built);
  }
  if (ret != LINE_ID_OK) return ret;
  LINE_ID_INFO(rule.log, "new_tag_value_len = %d, len_diff = %d\r\n", static_cast<int>(built.len - rule.value_offset),
               static_cast<int>(built.len - job.old_len));
  ret = check_lengths<rule>(job, built);
  if (ret == LINE_ID_OK) finish_option<rule>(job, place_of(job), built);
  return ret;
}

template <const line_id_option_rule& rule> int32_t refuse_null() {
  LINE_ID_WARN(rule.log, "old_tag_ptr OR info is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
  return LINE_ID_ERR_NULL;
}

template <const line_id_option_rule& rule> bool removes_instead(const line_id_inf_info* info) {
  if (info->pkt_info_ptr->reserved[LINE_ID_EXT_CIRCUIT_BY_VLAN] != 1) return false;
  LINE_ID_INFO(rule.log, "circuit_id based on vlan switch enable,remove circuitid\r\n");
  return true;
}

} // namespace line_id_option

// Write one sub-option at `dest`, which has room for 258 octets, and store its whole length, 0 for none. `old` is the
// received one with its header, or null. The up policy and the identifier's enable come before `op`. 0, or the
// builder's code.
template <const line_id_option_rule& rule>
int32_t line_id_option_circuit_id(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* dest, uint16_t* new_len,
                                  uint8_t op, line_id_inf_info* info) {
  using namespace line_id_option;
  return process<rule, CIRCUIT_ID>(job_of(oltid, old, old_len, info), {old, old_len}, dest, new_len, op);
}
template <const line_id_option_rule& rule>
int32_t line_id_option_remote_id(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* dest, uint16_t* new_len,
                                 uint8_t op, line_id_inf_info* info) {
  using namespace line_id_option;
  return process<rule, REMOTE_ID>(job_of(oltid, old, old_len, info), {old, old_len}, dest, new_len, op);
}

// Rewrite the option at `old` in the received frame, whose whole length is `old_len`; the output frame and its length
// change only on success. An insertion replaces an option of length 0. Replace and modify: 0; -9 null; -107 Circuit-ID,
// -108 Remote-ID; -109 a sub-option runs past the option; -40 value too long; -39 frame too long; -1 Remote-ID too long
// to be kept behind a new Circuit-ID; the rule's own code.
template <const line_id_option_rule& rule>
int32_t line_id_option_remove(const uint8_t* old, uint32_t old_len, line_id_inf_info* info) {
  using namespace line_id_option;
  if (old == nullptr || info == nullptr) return refuse_null<rule>();
  const option_job job = {0, old, old_len, info, {}};
  put_into_frame<rule>(job, place_of(job), nullptr, 0);
  return LINE_ID_OK;
}
template <const line_id_option_rule& rule>
int32_t line_id_option_replace(uint8_t oltid, const uint8_t* old, uint32_t old_len, line_id_inf_info* info) {
  using namespace line_id_option;
  if (old == nullptr || info == nullptr) return refuse_null<rule>();
  return replace_option<rule>(job_of(oltid, old, old_len, info));
}
template <const line_id_option_rule& rule>
int32_t line_id_option_modify(uint8_t oltid, const uint8_t* old, uint32_t old_len, line_id_inf_info* info) {
  using namespace line_id_option;
  return old != nullptr && info != nullptr ? modify_option<rule>(job_of(oltid, old, old_len, info))
                                           : refuse_null<rule>();
}

// Carry out an operation. Insert, replace and modify become a removal when the line's circuit-id is based on VLAN;
// removal is -1 unless the strip setting is 1; keep and unknown operations do nothing. `from` is the frame's.
template <const line_id_option_rule& rule>
int32_t line_id_option_operate(uint8_t oltid, const line_id_text_source& from, const uint8_t* old, uint32_t old_len,
                               uint8_t op, line_id_inf_info* info) {
  using namespace line_id_option;
  switch (op) {
  case OPERATION_KEEP: return LINE_ID_OK;
  case OPERATION_INSERT:
  case OPERATION_REPLACE:
  case OPERATION_MODIFY:
    if (removes_instead<rule>(info)) return line_id_option_remove<rule>(old, old_len, info);
    if (old == nullptr) return refuse_null<rule>();
    return op == OPERATION_MODIFY ? modify_option<rule>({oltid, old, old_len, info, from})
                                  : replace_option<rule>({oltid, old, old_len, info, from});
  case OPERATION_REMOVE:
    return rule.dn_strip() == STRIP_ON ? line_id_option_remove<rule>(old, old_len, info) : LINE_ID_ERR;
  default: LINE_ID_WARN(rule.log, "Unknown msg!\r\n"); return LINE_ID_OK;
  }
}
