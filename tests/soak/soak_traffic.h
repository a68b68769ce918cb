// Traffic of the long run: subscribers' frames at a steady rate, and clients that come, configure and go.
#pragma once

#include "include/line_id.h"

#include <atomic>
#include <cstdint>
#include <vector>

// Mixed frames at `rate` a second until `stop`; one of several threads, told apart by `seed`.
void soak_send_frames(uint32_t rate, uint32_t seed, const std::atomic<bool>& stop);

// A frame that the agent always queues, and its line.
std::vector<uint8_t> soak_plain_frame();
line_id_append_info soak_line(uint32_t subscriber);

// A client process's life: `calls` sets and gets over instances 0 to 3. How many failed.
uint32_t soak_run_client(uint32_t calls, uint32_t seed);
// The settings that the run ends with: all protocols on, none transparent. 0, or how many calls failed.
uint32_t soak_restore_settings();
