// The mark that configuration data has been loaded: nothing is processed before.
#pragma once

#include <atomic>
#include <cstdint>

// 0, then 1. Written where the configuration is loaded (release), read by host threads and the worker (acquire).
extern std::atomic<uint32_t> g_data_init_done;

uint32_t line_id_get_data_init_done_cfg();
// Always 0.
int32_t line_id_set_data_init_done_cfg(uint32_t value);
