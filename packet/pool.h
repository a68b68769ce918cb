// The pool of packet units: frames under way, allocated once.
//
// Host threads take units (state ingress) and announce them (queued); the worker takes them over (in work) and gives
// them back. The two lists change only while the pool semaphore is held. The worker needs neither: what it gives back
// lies in a ring, from which whoever takes the semaphore next puts it on the free list. A unit's frame and packet
// information belong to the thread that took it; neither is cleared between uses, so nothing behind `length` may ever
// be read.
#pragma once

#include "core/records.h"
#include "platform/pal.h"

#include <atomic>
#include <cstdint>

struct line_id_buf_pool {
  line_id_unit* units;
  line_id_unit* used_list;
  line_id_unit* freed_list;
};
static_assert(sizeof(line_id_buf_pool) == 3 * sizeof(void*));

extern uint32_t g_line_id_buf_pool_num; // units of the pool to come; the host, before the worker starts
extern std::atomic<line_id_buf_pool*> g_line_id_pkt_pool; // null until made; then for the life of the process
extern pal_sem g_line_id_pkt_sem;                         // made before the pool

// Make the pool: 0, or -91. Without memory for the descriptor there is no pool, and 0. A pool that exists is kept and
// the units that nobody works on any more are taken back. The thread that is to become the worker.
int32_t line_id_buf_pool_init(uint32_t count);

// A unit in state ingress, or null: no pool, no unit free, or the semaphore not had within 5 ticks. Any thread.
line_id_unit* line_id_buf_pool_alloc(pal_sem* sem);
// Give a unit back: the result of the semaphore's release; 0 for null. Any thread that owns the unit.
int32_t line_id_buf_pool_free(line_id_unit* unit, pal_sem* sem);
// The same without waiting for anybody. The worker only.
void line_id_buf_pool_give_back(line_id_unit* unit);

// The name of a unit in a queue message: its index + 1.
uint32_t line_id_buf_pool_handle(const line_id_unit* unit);
// Hand a unit over to the worker, once its message of `kind` has a place and before it can be received.
void line_id_buf_pool_mark_queued(line_id_unit* unit, uint16_t kind);
// The unit that a message names, now in work; null unless the unit exists and is queued for this kind. The worker.
line_id_unit* line_id_buf_pool_take_queued(uint32_t handle, uint16_t kind);

// Give back every unit that is queued or in work, while no worker runs: how many.
uint32_t line_id_buf_pool_reclaim();
// Units that can be had. Any thread.
uint32_t line_id_buf_pool_free_count();
