// The ONU types whose frames are passed transparently.
#include "config/white_list.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "core/log.h"

line_id_white_list g_trans_white_list_obj;

static_assert(offsetof(line_id_white_list, trans_policy) == LINE_ID_WHITE_LIST_BODY_LEN);

namespace {

int32_t refuse(const char* what, int32_t code) {
  LINE_ID_WARN(LOG_GENERAL, "param is %s, failed(%d).\r\n", what, code);
  return code;
}

} // namespace

int32_t line_id_set_trans_white_list_obj(const line_id_white_list* list) {
  if (list == nullptr) return refuse("NULL", LINE_ID_ERR_NULL);
  if (list->trans_policy > 1) return refuse("err", LINE_ID_ERR_WHITE_LIST);
  if (list->dhcp_enable > 1) return refuse("err", LINE_ID_ERR_PARAM);
  if (list->pppoe_enable > 1) return refuse("err", LINE_ID_ERR_PARAM);
  if (list->num > LINE_ID_WHITE_LIST_TYPES) {
    LINE_ID_INFO(LOG_GENERAL, "\r\nnum = %d. Overflow!\r\n", list->num);
    return LINE_ID_ERR_LEVEL;
  }
  g_trans_white_list_obj = *list;
  return LINE_ID_OK;
}

int32_t line_id_get_trans_white_list_obj(line_id_white_list* list) {
  if (list == nullptr) return refuse("NULL", LINE_ID_ERR_NULL);
  *list = g_trans_white_list_obj;
  return LINE_ID_OK;
}

int32_t line_id_set_trans_white_list_cfg(const uint8_t* body) {
  if (body == nullptr) return refuse("NULL", LINE_ID_ERR_NULL);
  std::memcpy(&g_trans_white_list_obj, body, LINE_ID_WHITE_LIST_BODY_LEN);
  return LINE_ID_OK;
}

int32_t line_id_get_trans_white_list_cfg(uint8_t* body) {
  if (body == nullptr) return refuse("NULL", LINE_ID_ERR_NULL);
  std::memcpy(body, &g_trans_white_list_obj, LINE_ID_WHITE_LIST_BODY_LEN);
  return LINE_ID_OK;
}

int32_t line_id_is_onutype_match(uint16_t onu_type) {
  // The count came unchecked when another process set the list.
  const uint32_t count = std::min<uint32_t>(g_trans_white_list_obj.num, LINE_ID_WHITE_LIST_TYPES);
  if (count == 0) LINE_ID_WARN(LOG_GENERAL, "line_id_is_onutype_match failed.\r");
  for (uint32_t i = 0; i < count; ++i) {
    const uint16_t listed = g_trans_white_list_obj.onu_type[i];
    if (listed == onu_type) return LINE_ID_OK;
  }
  return LINE_ID_ERR;
}
