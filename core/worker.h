// The agent's single worker: takes messages off the queue, runs configuration commands at once and frames as events.
#pragma once

#include "platform/lib_comm.h"

#include <cstdint>

// Create the event-thread instance and run its loop until line_id_stop: 0, or -9, -100. Only `name` is used.
int32_t line_id_start(int32_t arg0, int32_t arg1, const char* name, int32_t arg3);

// One turn: receive one message, waiting up to `wait` ticks, and dispatch it. The result of what it called; -1 when
// nothing was received. The worker only.
int32_t line_id_msg_func(void* arg, int32_t wait);
