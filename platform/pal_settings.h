// What a deployment may set for this layer, and the names of shared objects that follow from it.
#pragma once

#include <array>
#include <cstdint>

constexpr uint32_t PAL_DEFAULT_TICK_US = 10000;

// LINE_ID_IPC_PREFIX (1 to 64 of A-Z a-z 0-9 . _ -; otherwise "lineid") keeps deployments on one device apart.
// LINE_ID_TICK_US (100 to 1000000; otherwise 10000) is the length of a tick in microseconds. Both are read at the first
// call and stay for the life of the process; a process with raised privileges gets the defaults.
uint32_t pal_tick_us();

// "/<prefix>.<suffix>", as shm_open takes it; empty when that is too long. Any thread.
using pal_object_path = std::array<char, 128>;
pal_object_path pal_object_name(const char* suffix);
