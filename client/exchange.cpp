// The exchanges of the configuration calls.
#include "client/exchange.h"

#include <cstring>

#include "config/channel.h"
#include "core/log.h"

namespace {

constexpr uint32_t MAC_LEN = 6;

int32_t post(line_id_msg_kind kind, uint16_t code, uint8_t oltid) {
  const line_id_msg msg = {kind, code, oltid, 0};
  return pal_msgQ_send_priority(g_line_id_msg_id, &msg, sizeof(msg), LINE_ID_MSG_PRIORITY_CFG);
}

// The get area against the request, once the agent has signalled.
int32_t take_reply(uint8_t oltid, uint16_t code, void* reply, uint32_t len) {
  const line_id_cmd_area* area = line_id_get_cfg_mem(oltid);
  if (area == LINE_ID_NO_AREA) return LINE_ID_ERR_NO_AREA;
  line_id_cmd_area answer; // other processes can write the area at any time
  std::memcpy(&answer, area, sizeof(answer));
  if (answer.code != static_cast<int16_t>(code)) return LINE_ID_ERR_REPLY_CODE;
  if (answer.length != len || len > LINE_ID_PAYLOAD_LEN) return LINE_ID_ERR_REPLY_LEN;
  std::memcpy(reply, answer.payload, len);
  return LINE_ID_OK;
}

} // namespace

int32_t client_fail(const char* function, int32_t result) {
  line_id_log_error(function, __LINE__, "%s failed(%d).\r\n", function, result);
  return result;
}

int32_t client_set(const char* function, uint8_t oltid, uint16_t code, std::initializer_list<client_part> payload) {
  line_id_cmd_area command = {};
  command.oltid = oltid;
  command.code = static_cast<int16_t>(code);
  for (const client_part& part : payload) {
    if (part.len > LINE_ID_PAYLOAD_LEN - command.length) return client_fail(function, LINE_ID_ERR);
    std::memcpy(command.payload + command.length, part.octets, part.len);
    command.length += part.len;
  }

  if (line_id_set_mem_mutex_take() != LINE_ID_OK) return client_fail(function, LINE_ID_ERR_SET_MUTEX);
  line_id_cmd_area* area = line_id_set_cfg_mem(oltid);
  if (area == LINE_ID_NO_AREA) {
    line_id_set_mem_mutex_give();
    return client_fail(function, LINE_ID_ERR_NO_AREA);
  }
  std::memcpy(area, &command, sizeof(command));
  if (post(MSG_SET, 0, oltid) < 0) {
    line_id_set_mem_mutex_give();
    return client_fail(function, LINE_ID_ERR_SEND_MSG);
  }
  return LINE_ID_OK; // the agent gives the mutex back
}

int32_t client_set_octet(const char* function, uint8_t oltid, uint16_t code, uint8_t value, uint8_t lo, uint8_t hi,
                         int32_t refusal) {
  if (value < lo || value > hi) return client_fail(function, refusal);
  return client_set(function, oltid, code, {{&value, sizeof(value)}});
}

int32_t client_set_text(const char* function, uint8_t oltid, uint16_t code, const void* text, uint32_t len,
                        uint32_t limit) {
  if (text == nullptr || len > limit) return client_fail(function, LINE_ID_ERR);
  return client_set(function, oltid, code, {{text, len}});
}

int32_t client_set_mac(const char* function, uint8_t oltid, uint16_t code, const uint8_t* mac, uint32_t len) {
  if (mac == nullptr || len != MAC_LEN) return client_fail(function, LINE_ID_ERR);
  return client_set(function, oltid, code, {{mac, len}});
}

int32_t client_set_record(const char* function, uint8_t oltid, uint16_t code, const void* record, uint32_t len) {
  if (record == nullptr) return client_fail(function, LINE_ID_ERR_NULL);
  return client_set(function, oltid, code, {{record, len}});
}

int32_t client_get(const char* function, uint8_t oltid, uint16_t code, void* reply, uint32_t len) {
  if (reply == nullptr) return client_fail(function, LINE_ID_ERR_NULL);
  if (line_id_get_mem_mutex_take() != LINE_ID_OK) return client_fail(function, LINE_ID_ERR_GET_MUTEX);
  line_id_get_mem_sync_drain();
  int32_t ret = LINE_ID_ERR_SEND_MSG;
  if (post(MSG_GET, code, oltid) >= 0) {
    line_id_get_mem_sync_take(); // ODD: after a time-out the area is judged as it stands.
    ret = take_reply(oltid, code, reply, len);
  }
  line_id_get_mem_mutex_give();
  return ret < 0 ? client_fail(function, ret) : ret;
}

int32_t client_show(const char* function, uint8_t oltid, uint16_t code) {
  return post(MSG_SHOW, code, oltid) < 0 ? client_fail(function, LINE_ID_ERR_SEND_MSG) : LINE_ID_OK;
}
