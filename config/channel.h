// The way from client calls to the worker: command areas, the three semaphores that guard them, and the message queue.
//
// Two modes. In-process (0): private areas, one for each instance and direction, and unnamed semaphores; clients are
// threads of the agent's process. Cross-process (1): one shared area for each direction, which all instances use, and
// named semaphores. The agent takes its mode from the policy, client processes always use mode 1.
//
// Opened at start-up, before any client call of the process; live objects are kept when they are opened again.
//
// A set: the client takes set_mem_mutex, fills the set area and posts; the server gives the mutex back after the
// command has run. A get: the client holds get_mem_mutex throughout; the server writes the get area and gives
// get_mem_sync. A show needs neither.
#pragma once

#include "core/records.h"
#include "platform/pal.h"

#include <atomic>
#include <cstdint>

constexpr int32_t LINE_ID_CROSS_PROCESS = 1; // the mode

// The areas of each instance; all-ones or null where there is none. Read through the lookups alone.
extern std::atomic<line_id_cmd_area*> g_line_id_set_mem[LINE_ID_INSTANCES];
extern std::atomic<line_id_cmd_area*> g_line_id_get_mem[LINE_ID_INSTANCES];

extern std::atomic<pal_sem*> g_line_id_set_mem_mutex;
extern std::atomic<pal_sem*> g_line_id_get_mem_mutex;
extern std::atomic<pal_sem*> g_line_id_get_mem_sync;

// The agent's queue; created or attached by core/service. Written last, so that who sees it sees the rest as well.
extern std::atomic<pal_msgQ_id> g_line_id_msg_id;

// ---- opening

// Get areas, then set areas: 0, -90 or -89. A new area is zeroed.
int32_t line_id_cfg_mem_init(int32_t mode);
int32_t line_id_set_cfg_mem_init(int32_t mode); // 0, -89 shared, -91 private
int32_t line_id_get_cfg_mem_init(int32_t mode); // 0, -90 shared, -91 private
int32_t line_id_cfg_set_share_mem_init(uint8_t oltid);
int32_t line_id_cfg_get_share_mem_init(uint8_t oltid);

// All three semaphores: 0 or -1. Those that are there keep their counts.
int32_t line_id_sem_init(int32_t mode);
int32_t line_id_set_mem_mutex_init(int32_t mode); // 0, -93 named, -92 unnamed; so do the next two
int32_t line_id_get_mem_mutex_init(int32_t mode);
int32_t line_id_get_mem_sync_init(int32_t mode);

// Put the semaphores into their initial state, 1, 1 and 0, in place: attached clients stay attached. The agent alone,
// at its start and in cross-process mode only while it holds the claim on the prefix.
void line_id_channel_reset();

// Semaphores, areas and queue are all open in this process.
bool line_id_channel_is_open();

// ---- use

// The area of an instance; LINE_ID_NO_AREA, all-ones, when it is absent or `oltid` is above 8.
line_id_cmd_area* line_id_set_cfg_mem(uint8_t oltid);
line_id_cmd_area* line_id_get_cfg_mem(uint8_t oltid);
#define LINE_ID_NO_AREA (static_cast<line_id_cmd_area*>(PAL_NO_MEM))

// Wait up to 600 ticks: 0, or -96, -97, -98.
int32_t line_id_set_mem_mutex_take();
int32_t line_id_get_mem_mutex_take();
int32_t line_id_get_mem_sync_take();
// Always 0.
int32_t line_id_set_mem_mutex_give();
int32_t line_id_get_mem_mutex_give();
int32_t line_id_get_mem_sync_give();

// Take back a signal that a timed-out get left, without waiting.
void line_id_get_mem_sync_drain();
