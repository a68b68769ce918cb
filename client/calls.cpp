// The configuration calls that follow from the rows of config/settings.def; their prototypes are in include/line_id.h.
#include <type_traits>

#include "client/exchange.h"

#define LINE_ID_SWITCH(name, call, code, lo, hi, refusal, field, trap)                                                 \
  int32_t line_id_set_##call(uint8_t oltid, uint8_t value) {                                                           \
    return client_set_octet(__func__, oltid, code, value, lo, hi, refusal);                                            \
  }                                                                                                                    \
  int32_t line_id_get_##call(uint8_t oltid) { return client_get_value<int8_t>(__func__, oltid, code); }
#define LINE_ID_SWITCH_SET(name, call, code, lo, hi)                                                                   \
  int32_t line_id_set_##call(uint8_t oltid, uint8_t value) {                                                           \
    return client_set_octet(__func__, oltid, code, value, lo, hi, LINE_ID_ERR_RANGE);                                  \
  }
#define LINE_ID_GLOBAL_SET(name, code, lo, hi)                                                                         \
  int32_t line_id_set_##name(uint8_t oltid, uint8_t value) {                                                           \
    return client_set_octet(__func__, oltid, code, value, lo, hi, LINE_ID_ERR_RANGE);                                  \
  }
#define LINE_ID_DEBUG(name, code, category)                                                                            \
  int32_t line_id_set_##name(uint8_t oltid, uint8_t value) {                                                           \
    return client_set_octet(__func__, oltid, code, value, 0, 1, LINE_ID_ERR_RANGE);                                    \
  }
#define LINE_ID_WORD(name, code, type, result, field, push)                                                            \
  int32_t line_id_set_##name(uint8_t oltid, type value) {                                                              \
    return client_set(__func__, oltid, code, {{&value, sizeof(value)}});                                               \
  }                                                                                                                    \
  result line_id_get_##name(uint8_t oltid) {                                                                           \
    return static_cast<result>(client_get_value<std::make_signed_t<type>>(__func__, oltid, code));                     \
  }
#define LINE_ID_FORMAT(name, code, field, complaint)                                                                   \
  int32_t line_id_set_##name(uint8_t oltid, const char* text, uint32_t len) {                                          \
    return client_set_text(__func__, oltid, code, text, len, LINE_ID_FORMAT_LEN);                                      \
  }                                                                                                                    \
  int32_t line_id_get_##name(uint8_t oltid, char* buf) {                                                               \
    return client_get(__func__, oltid, code, buf, LINE_ID_FORMAT_LEN);                                                 \
  }
#define LINE_ID_TEXT(name, code, size, field)                                                                          \
  int32_t line_id_set_##name(uint8_t oltid, const char* text, uint32_t len) {                                          \
    return client_set_text(__func__, oltid, code, text, len, size);                                                    \
  }                                                                                                                    \
  int32_t line_id_get_##name(uint8_t oltid, char* buf) { return client_get(__func__, oltid, code, buf, size); }
#define LINE_ID_BLOCK(name, code, record)                                                                              \
  int32_t line_id_set_##name(const record* block) {                                                                    \
    return client_set_record(__func__, 0, code, block, sizeof(*block));                                                \
  }                                                                                                                    \
  int32_t volt_line_id_set_##name(uint8_t oltid, const record* block) {                                                \
    return client_set_record(__func__, oltid, code, block, sizeof(*block));                                            \
  }                                                                                                                    \
  int32_t line_id_get_##name(uint8_t oltid, record* block) {                                                           \
    return client_get(__func__, oltid, code, block, sizeof(*block));                                                   \
  }
#define LINE_ID_DELETE_BY_MAC(table, code, null_result)                                                                \
  int32_t line_id_del_##table##_anti_spoofing_entry_by_mac(uint8_t oltid, const uint8_t* mac, uint32_t len) {          \
    return client_set_mac(__func__, oltid, code, mac, len);                                                            \
  }
#define LINE_ID_DELETE_BY_ONU(table, code)                                                                             \
  int32_t line_id_del_##table##_anti_spoofing_entry_by_onu(uint8_t oltid, uint16_t pon, uint16_t onu) {                \
    return client_set(__func__, oltid, code, {{&pon, sizeof(pon)}, {&onu, sizeof(onu)}});                              \
  }
#define LINE_ID_SHOW(report, call, code)                                                                               \
  int32_t line_id_show_##call(uint8_t oltid) { return client_show(__func__, oltid, code); }
#include "config/settings.def"
