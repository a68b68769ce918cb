// The mark that configuration data has been loaded.
#include "core/init_flag.h"

#include "core/records.h"

std::atomic<uint32_t> g_data_init_done{0};

uint32_t line_id_get_data_init_done_cfg() { return g_data_init_done.load(std::memory_order_acquire); }

int32_t line_id_set_data_init_done_cfg(uint32_t value) {
  g_data_init_done.store(value, std::memory_order_release);
  return LINE_ID_OK;
}
