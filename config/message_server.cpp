// The handlers of the configuration commands: bodies from the rows of config/settings.def, and those like no other.
#include "config/message_server.h"

#include <atomic>
#include <cstddef>
#include <cstring>

#include "config/channel.h"
#include "config/reports.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/vlan_profile.h"
#include "config/white_list.h"
#include "core/log.h"

namespace {

constexpr int16_t NO_CODE = -1;
constexpr int32_t ANI_TAIL_LEN = 4; // rack and frame, behind the text

// The helpers below log in the name of the handler that calls them.

// A fixed length, else -112.
int32_t check_exact(const char* function, const uint8_t* payload, int32_t len, size_t expected) {
  if (payload == nullptr) {
    line_id_log_error(function, __LINE__, "ptr_mtext is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (len != static_cast<int32_t>(expected)) {
    line_id_log_error(function, __LINE__, "failed(len = %d).\r\n", len);
    return LINE_ID_ERR_DATA_LEN;
  }
  return LINE_ID_OK;
}

// A length from `low` to `high`, else -157.
int32_t check_bounded(const char* function, const uint8_t* payload, int32_t len, int32_t low, int32_t high) {
  if (payload == nullptr) return check_exact(function, payload, len, 0);
  if (len < low || len > high) {
    line_id_log_error(function, __LINE__, "failed(len = %d).\r\n", len);
    return LINE_ID_ERR_TOO_LONG;
  }
  return LINE_ID_OK;
}

int32_t check_reply(const char* function, const uint8_t* reply, const uint32_t* len, const char* complaint) {
  if (reply != nullptr && len != nullptr) return LINE_ID_OK;
  line_id_log_error(function, __LINE__, "%s is NULL, failed(%d).\r\n", complaint, LINE_ID_ERR_NULL);
  return LINE_ID_ERR_NULL;
}

// After a time-out a client judges the area as it stands. An agent that died over it must not leave half an answer
// there that looks whole: the code is taken away first and comes last.
void write_answer(line_id_cmd_area* area, const line_id_cmd_area& answer) {
  constexpr size_t BEHIND_CODE = offsetof(line_id_cmd_area, length);
  area->code = NO_CODE;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  std::memcpy(reinterpret_cast<uint8_t*>(area) + BEHIND_CODE, reinterpret_cast<const uint8_t*>(&answer) + BEHIND_CODE,
              sizeof(answer) - BEHIND_CODE);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  area->code = answer.code;
}

constexpr const char* NO_REPLY = "ptr_mtext OR len";

template <class Value> Value value_at(const uint8_t* payload) {
  Value value;
  std::memcpy(&value, payload, sizeof(value));
  return value;
}

template <class Value> int32_t give_reply(uint8_t* reply, uint32_t* len, const Value& value) {
  static_assert(sizeof(value) <= LINE_ID_PAYLOAD_LEN);
  std::memcpy(reply, &value, sizeof(value));
  *len = sizeof(value);
  return LINE_ID_OK;
}

// A getter fills `Size` octets of the reply.
template <class Getter>
int32_t get_text(const char* function, uint8_t oltid, uint8_t* reply, uint32_t* len, uint32_t size, Getter getter) {
  const int32_t ret = check_reply(function, reply, len, NO_REPLY);
  if (ret < 0) return ret;
  getter(oltid, reinterpret_cast<char*>(reply));
  *len = size;
  return LINE_ID_OK;
}

// What a setter answered that carries its value into the parameter table.
int32_t pushed(const char* function, const char* setter, int32_t ret) {
  if (ret >= 0) return LINE_ID_OK;
  line_id_log_error(function, __LINE__, "%s fail(%d).!\r\n", setter, ret);
  return LINE_ID_ERR_PARAM_WRITE;
}

int32_t pushed_ani(const char* function, const char* setter, int32_t ret, int32_t len) {
  if (ret >= 0) return LINE_ID_OK;
  line_id_log_error(function, __LINE__, "%s failed(len = %d).\r\n", setter, len);
  return LINE_ID_ERR_PARAM_WRITE;
}

// The texts of LINE_ID_TEXT rows complain in their own ways.
int32_t pushed_ani_str(const char* function, const char* setter, int32_t ret, int32_t len) {
  return pushed_ani(function, setter, ret, len);
}
int32_t pushed_uplink_type(const char* function, const char* setter, int32_t ret, int32_t) {
  return pushed(function, setter, ret);
}

// ---- commands from the table

#define SET_HEAD(name) int32_t line_id_set_##name##_proc(uint8_t oltid, const uint8_t* payload, int32_t len)
#define GET_HEAD(name) int32_t line_id_get_##name##_proc(uint8_t oltid, uint8_t* reply, uint32_t* len)
#define SET_OCTET(name, ...)                                                                                           \
  int32_t line_id_set_##name##_proc([[maybe_unused]] uint8_t oltid, const uint8_t* payload, int32_t len) {             \
    const int32_t ret = check_exact(__func__, payload, len, 1);                                                        \
    if (ret == LINE_ID_OK) line_id_set_##name##_cfg(__VA_ARGS__);                                                      \
    return ret;                                                                                                        \
  }

// ODD: the Option 82 query complains of a missing length in the words for a missing reply.
#define LINE_ID_SWITCH(name, call, code, lo, hi, refusal, field, trap)                                                 \
  SET_OCTET(name, oltid, payload[0])                                                                                   \
  GET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_reply(__func__, reply, len, (code) == 0 ? "ptr_mtext" : NO_REPLY);                       \
    return ret < 0 ? ret : give_reply(reply, len, static_cast<int8_t>(line_id_get_##call##_cfg(oltid)));               \
  }
#define LINE_ID_SWITCH_SET(name, call, code, lo, hi) SET_OCTET(name, oltid, payload[0])
#define LINE_ID_GLOBAL_SET(name, code, lo, hi) SET_OCTET(name, payload[0])
#define LINE_ID_DEBUG(name, code, category) SET_OCTET(name, payload[0])
#define LINE_ID_WORD(name, code, type, result, field, push)                                                            \
  SET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_exact(__func__, payload, len, sizeof(type));                                             \
    if (ret < 0) return ret;                                                                                           \
    return pushed(__func__, "line_id_set_" #name "_cfg", line_id_set_##name##_cfg(oltid, value_at<type>(payload)));    \
  }                                                                                                                    \
  GET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_reply(__func__, reply, len, NO_REPLY);                                                   \
    return ret < 0 ? ret : give_reply(reply, len, static_cast<type>(line_id_get_##name##_cfg(oltid)));                 \
  }
#define LINE_ID_FORMAT(name, code, field, complaint)                                                                   \
  SET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_bounded(__func__, payload, len, 0, LINE_ID_FORMAT_LEN);                                  \
    if (ret == LINE_ID_OK) {                                                                                           \
      line_id_set_##name##_cfg(oltid, reinterpret_cast<const char*>(payload), static_cast<uint32_t>(len));             \
    }                                                                                                                  \
    return ret;                                                                                                        \
  }                                                                                                                    \
  GET_HEAD(name) { return get_text(__func__, oltid, reply, len, LINE_ID_FORMAT_LEN, line_id_get_##name##_cfg); }
#define LINE_ID_TEXT(name, code, size, field)                                                                          \
  SET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_bounded(__func__, payload, len, 0, size);                                                \
    if (ret < 0) return ret;                                                                                           \
    const char* text = reinterpret_cast<const char*>(payload);                                                         \
    return pushed_##name(__func__, "line_id_set_" #name "_cfg",                                                        \
                         line_id_set_##name##_cfg(oltid, text, static_cast<uint32_t>(len)), len);                      \
  }                                                                                                                    \
  GET_HEAD(name) { return get_text(__func__, oltid, reply, len, size, line_id_get_##name##_cfg); }
#define LINE_ID_BLOCK(name, code, record)                                                                              \
  SET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_exact(__func__, payload, len, sizeof(record));                                           \
    if (ret < 0) return ret;                                                                                           \
    const record block = value_at<record>(payload);                                                                    \
    line_id_set_##name##_cfg(oltid, &block);                                                                           \
    return LINE_ID_OK;                                                                                                 \
  }                                                                                                                    \
  GET_HEAD(name) {                                                                                                     \
    const int32_t ret = check_reply(__func__, reply, len, NO_REPLY);                                                   \
    if (ret < 0) return ret;                                                                                           \
    record block = value_at<record>(reply); /* what the getter leaves out stays */                                     \
    line_id_get_##name##_cfg(oltid, &block);                                                                           \
    return give_reply(reply, len, block);                                                                              \
  }
#define LINE_ID_DELETE_BY_MAC(table, code, null_result)                                                                \
  int32_t line_id_del_##table##_anti_spoofing_entry_by_mac_proc(uint8_t oltid, const uint8_t* payload, int32_t len) {  \
    const int32_t ret = check_exact(__func__, payload, len, LINE_ID_MAC_LEN);                                          \
    if (ret == LINE_ID_OK) {                                                                                           \
      line_id_del_##table##_anti_spoofing_entry_by_mac_cfg(oltid, payload, LINE_ID_MAC_LEN);                           \
    }                                                                                                                  \
    return ret;                                                                                                        \
  }
#define LINE_ID_DELETE_BY_ONU(table, code)                                                                             \
  int32_t line_id_del_##table##_anti_spoofing_entry_by_onu_proc(uint8_t oltid, const uint8_t* payload, int32_t len) {  \
    const int32_t ret = check_exact(__func__, payload, len, 2 * sizeof(uint16_t));                                     \
    if (ret == LINE_ID_OK) {                                                                                           \
      line_id_del_##table##_anti_spoofing_entry_by_onu_cfg(oltid, value_at<uint16_t>(payload),                         \
                                                           value_at<uint16_t>(payload + sizeof(uint16_t)));            \
    }                                                                                                                  \
    return ret;                                                                                                        \
  }
#define LINE_ID_SHOW(report, call, code)                                                                               \
  int32_t line_id_show_##report##_proc(uint8_t oltid) { return line_id_show_##report##_cfg(oltid); }
#define LINE_ID_SHOW_ACTION(report, code) LINE_ID_SHOW(report, report, code)
#include "config/settings.def"

// ---- commands that are like no other

SET_HEAD(ani_param) {
  const int32_t ret = check_bounded(__func__, payload, len, ANI_TAIL_LEN, LINE_ID_ANI_LEN + ANI_TAIL_LEN);
  if (ret < 0) return ret;
  const int32_t text_len = len - ANI_TAIL_LEN;
  const uint8_t* tail = payload + text_len;
  const int32_t set =
      line_id_set_ani_param_cfg(oltid, reinterpret_cast<const char*>(payload), static_cast<uint32_t>(text_len),
                                value_at<uint16_t>(tail), value_at<uint16_t>(tail + sizeof(uint16_t)));
  return pushed_ani(__func__, "line_id_set_ani_param_cfg", set, len);
}

SET_HEAD(manage_ip) {
  const int32_t ret = check_exact(__func__, payload, len, sizeof(uint32_t));
  if (ret < 0) return ret;
  return pushed(__func__, "line_id_set_manage_ip_cfg", line_id_set_manage_ip_cfg(oltid, value_at<uint32_t>(payload)));
}

GET_HEAD(manage_ip) {
  const int32_t ret = check_reply(__func__, reply, len, NO_REPLY);
  if (ret < 0) return ret;
  uint32_t address = 0;
  line_id_get_manage_ip_cfg(oltid, &address);
  return give_reply(reply, len, address);
}

SET_HEAD(remoteid_core_cardinnermac) {
  const int32_t ret = check_exact(__func__, payload, len, LINE_ID_MAC_LEN);
  if (ret < 0) return ret;
  return pushed(__func__, "line_id_set_remoteid_core_cardinnermac_cfg",
                line_id_set_remoteid_core_cardinnermac_cfg(oltid, payload, LINE_ID_MAC_LEN));
}

SET_HEAD(remote_id_enable_and_params) {
  const int32_t ret = check_exact(__func__, payload, len, 1 + LINE_ID_MAC_LEN);
  if (ret == LINE_ID_OK) {
    line_id_set_remote_id_enable_and_params_cfg(oltid, payload[0], payload + 1, LINE_ID_MAC_LEN);
  }
  return ret;
}

int32_t line_id_set_trans_white_list_proc(uint8_t, const uint8_t* payload, int32_t len) {
  const int32_t ret = check_exact(__func__, payload, len, LINE_ID_WHITE_LIST_BODY_LEN);
  if (ret == LINE_ID_OK) line_id_set_trans_white_list_cfg(payload);
  return ret;
}

int32_t line_id_reset_statistics_proc(uint8_t, const uint8_t* payload, int32_t len) {
  const int32_t ret = check_exact(__func__, payload, len, 0);
  if (ret == LINE_ID_OK) line_id_reset_statistics_cfg();
  return ret;
}

int32_t line_id_override_param_proc(uint8_t oltid, const uint8_t* payload, int32_t len) {
  if (len < 1) return check_exact(__func__, payload, len, 1); // no letter
  const int32_t ret = check_bounded(__func__, payload, len, 1, LINE_ID_TEXT_SIZE);
  if (ret == LINE_ID_OK) {
    line_id_override_param_cfg(oltid, payload[0], reinterpret_cast<const char*>(payload + 1),
                               static_cast<uint32_t>(len - 1));
  }
  return ret;
}

int32_t line_id_unoverride_param_proc(uint8_t, const uint8_t* payload, int32_t len) {
  const int32_t ret = check_exact(__func__, payload, len, 1);
  if (ret == LINE_ID_OK) line_id_unoverride_param_cfg(payload[0]);
  return ret;
}

#undef SET_HEAD
#undef GET_HEAD
#undef SET_OCTET

// ---- tables

// Does not compile when two rows have one code.
template <class Table, class Handler> constexpr void place(Table& table, uint32_t code, Handler handler) {
  if (table.at(code) != nullptr) throw "code used twice";
  table.at(code) = handler;
}

consteval auto set_table() {
  std::array<line_id_set_handler, LINE_ID_SET_CODES> table = {};
#define LINE_ID_SWITCH(name, call, code, lo, hi, refusal, field, trap) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_SWITCH_SET(name, call, code, lo, hi) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_GLOBAL_SET(name, code, lo, hi) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_DEBUG(name, code, category) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_WORD(name, code, type, result, field, push) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_FORMAT(name, code, field, complaint) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_TEXT(name, code, size, field) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_BLOCK(name, code, record) place(table, code, line_id_set_##name##_proc);
#define LINE_ID_DELETE_BY_MAC(table_name, code, null_result)                                                           \
  place(table, code, line_id_del_##table_name##_anti_spoofing_entry_by_mac_proc);
#define LINE_ID_DELETE_BY_ONU(table_name, code)                                                                        \
  place(table, code, line_id_del_##table_name##_anti_spoofing_entry_by_onu_proc);
#define LINE_ID_ACTION(handler, code) place(table, code, line_id_##handler##_proc);
#include "config/settings.def"
  return table;
}

consteval auto get_table() {
  std::array<line_id_get_handler, LINE_ID_GET_CODES> table = {};
#define LINE_ID_SWITCH(name, call, code, lo, hi, refusal, field, trap) place(table, code, line_id_get_##name##_proc);
#define LINE_ID_WORD(name, code, type, result, field, push) place(table, code, line_id_get_##name##_proc);
#define LINE_ID_FORMAT(name, code, field, complaint) place(table, code, line_id_get_##name##_proc);
#define LINE_ID_TEXT(name, code, size, field) place(table, code, line_id_get_##name##_proc);
#define LINE_ID_BLOCK(name, code, record) place(table, code, line_id_get_##name##_proc);
#define LINE_ID_ACTION_GET(handler, code) place(table, code, line_id_##handler##_proc);
#include "config/settings.def"
  return table;
}

consteval auto show_table() {
  std::array<line_id_show_handler, LINE_ID_SHOW_CODES> table = {};
#define LINE_ID_SHOW(report, call, code) place(table, code, line_id_show_##report##_proc);
#define LINE_ID_SHOW_ACTION(report, code) place(table, code, line_id_show_##report##_proc);
#include "config/settings.def"
  return table;
}

// Codes come from other processes: outside the table means no handler.
template <class Table> typename Table::value_type handler_of(const Table& table, int32_t code) {
  return code >= 0 && static_cast<size_t>(code) < table.size() ? table[static_cast<size_t>(code)] : nullptr;
}

} // namespace

constexpr std::array<line_id_set_handler, LINE_ID_SET_CODES> line_id_set_proc_func = set_table();
constexpr std::array<line_id_get_handler, LINE_ID_GET_CODES> line_id_get_proc_func = get_table();
constexpr std::array<line_id_show_handler, LINE_ID_SHOW_CODES> line_id_show_proc_func = show_table();

// ---- exchanges

int32_t line_id_set_cfg_msg_proc(uint8_t oltid) {
  const line_id_cmd_area* area = line_id_set_cfg_mem(oltid);
  if (area == LINE_ID_NO_AREA) {
    line_id_set_mem_mutex_give();
    LINE_ID_ERROR("line_id_set_cfg_mem failed(%d).\r\n", LINE_ID_ERR_CFG_MEM);
    return LINE_ID_ERR_CFG_MEM;
  }
  line_id_cmd_area command; // other processes can write the area at any time
  std::memcpy(&command, area, sizeof(command));
  LINE_ID_INFO(LOG_CFG, "line_id_set_cfg_msg_proc,line_id_set_proc_func(%d).\r\n", command.code);
  const line_id_set_handler handler = handler_of(line_id_set_proc_func, command.code);
  if (handler != nullptr) handler(oltid, command.payload, static_cast<int32_t>(command.length));
  line_id_set_mem_mutex_give();
  return LINE_ID_OK;
}

int32_t line_id_get_cfg_msg_proc(uint8_t oltid, uint16_t code) {
  line_id_cmd_area* area = line_id_get_cfg_mem(oltid);
  if (area == LINE_ID_NO_AREA) {
    line_id_get_mem_sync_give();
    LINE_ID_ERROR("line_id_get_cfg_mem failed(%d).\r\n", LINE_ID_ERR_CFG_MEM);
    return LINE_ID_ERR_CFG_MEM;
  }
  line_id_cmd_area answer;
  std::memcpy(&answer, area, sizeof(answer));
  answer.code = static_cast<int16_t>(code);
  LINE_ID_INFO(LOG_CFG, "line_id_get_cfg_msg_proc,line_id_get_proc_func(%d).\r\n", code);
  const line_id_get_handler handler = handler_of(line_id_get_proc_func, code);
  uint32_t len = answer.length;
  if (handler != nullptr) handler(oltid, answer.payload, &len);
  answer.length = len;
  write_answer(area, answer);
  line_id_get_mem_sync_give();
  return LINE_ID_OK;
}

int32_t line_id_show_cfg_msg_proc(uint8_t oltid, uint16_t code) {
  LINE_ID_INFO(LOG_CFG, "line_id_show_cfg_msg_proc,line_id_show_proc_func(%d).\r\n", code);
  const line_id_show_handler handler = handler_of(line_id_show_proc_func, code);
  if (handler != nullptr) handler(oltid);
  return LINE_ID_OK;
}
