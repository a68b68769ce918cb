// Setters of the policies, from the rows of config/settings.def.
#include "config/policy.h"

#include "core/log.h"

uint8_t g_policy_cfg_table[LINE_ID_POLICY_SLOTS];

namespace {

int32_t set_policy(const char* function, uint32_t index, uint8_t value, uint8_t lo, uint8_t hi, int32_t refusal) {
  if (value < lo || value > hi) {
    LINE_ID_WARN(LOG_GENERAL, "%s failed(%d).\r\n", function, value);
    return refusal;
  }
  g_policy_cfg_table[index] = value;
  return LINE_ID_OK;
}

} // namespace

#define LINE_ID_POLICY(name, index, lo, hi, refusal, step)                                                             \
  int32_t line_id_set_##name##_cfg(uint8_t value) { return set_policy(__func__, index, value, lo, hi, refusal); }

#include "config/settings.def"
