// An agent that other processes configure, without frames.
#pragma once

#include "host/line_map.h"

#include <atomic>
#include <cstdint>

// Runs until `ended` is set, by a signal handler perhaps. Throws host_failure.
void serve(uint32_t pool_units, const line_map& map, const std::atomic<bool>& ended);
