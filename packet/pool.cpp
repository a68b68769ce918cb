// The pool of packet units.
#include "packet/pool.h"

#include "core/log.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>

uint32_t g_line_id_buf_pool_num = 1000;
std::atomic<line_id_buf_pool*> g_line_id_pkt_pool{nullptr};
pal_sem g_line_id_pkt_sem;

namespace {

constexpr int32_t ALLOC_TICKS = 5; // a trap thread of the host is not held up for longer

// Units of g_line_id_pkt_pool; written before the pool is published.
uint32_t g_pool_units = 0;

// What the worker has given back: no unit twice, so there is room for all. Positions count on for ever and wrap.
struct returned_ring {
  std::unique_ptr<line_id_unit*[]> units;
  uint32_t mask;
  alignas(64) std::atomic<uint32_t> end; // moved by the worker
  alignas(64) uint32_t first;            // moved with the semaphore held
};
returned_ring g_returned;

uint8_t queued_state(uint16_t kind) { return static_cast<uint8_t>(UNIT_QUEUED + kind); }

void push_freed(line_id_buf_pool& pool, line_id_unit* unit) {
  unit->next = pool.freed_list;
  if (pool.freed_list != nullptr) pool.freed_list->prev = unit;
  pool.freed_list = unit;
}

line_id_unit* pop_freed(line_id_buf_pool& pool) {
  line_id_unit* unit = pool.freed_list;
  pool.freed_list = unit->next;
  if (pool.freed_list != nullptr) pool.freed_list->prev = nullptr;
  return unit;
}

void push_used(line_id_buf_pool& pool, line_id_unit* unit) {
  unit->next = pool.used_list;
  if (pool.used_list != nullptr) pool.used_list->prev = unit;
  pool.used_list = unit;
  unit->prev = nullptr;
}

void unlink_used(line_id_buf_pool& pool, line_id_unit* unit) {
  if (unit->prev != nullptr) {
    unit->prev->next = unit->next;
  } else {
    pool.used_list = unit->next;
  }
  if (unit->next != nullptr) unit->next->prev = unit->prev;
}

void move_to_freed(line_id_buf_pool& pool, line_id_unit* unit) {
  unlink_used(pool, unit);
  push_freed(pool, unit);
}

void collect_returned(line_id_buf_pool& pool) {
  for (const uint32_t end = g_returned.end.load(std::memory_order_acquire); g_returned.first != end;) {
    move_to_freed(pool, g_returned.units[g_returned.first++ & g_returned.mask]);
  }
}

// False, with a warning, for a unit that is not in use.
bool is_in_use(const line_id_unit* unit, const char* function, int line) {
  if (unit->state.load(std::memory_order_acquire) != UNIT_FREE) [[likely]]
    return true;
  if (line_id_log_enabled(LOG_GENERAL, 1)) {
    line_id_log_trace("[LNID_WARN]", function, line, "%s: the unit is not in use.\r", function);
  }
  return false;
}

} // namespace

int32_t line_id_set_line_id_buf_pool_num(uint32_t count) {
  g_line_id_buf_pool_num = count;
  return LINE_ID_OK;
}

int32_t line_id_buf_pool_init(uint32_t count) {
  if (g_line_id_pkt_pool.load(std::memory_order_acquire) != nullptr) {
    line_id_buf_pool_reclaim();
    return LINE_ID_OK;
  }
  std::unique_ptr<line_id_buf_pool> pool(new (std::nothrow) line_id_buf_pool{});
  // ODD: without a descriptor there is no pool, and start-up goes on; every allocation then fails.
  if (pool == nullptr) return LINE_ID_OK;

  std::unique_ptr<line_id_unit[]> units;
  std::unique_ptr<line_id_unit*[]> returned;
  const uint64_t places = std::bit_ceil(std::max(uint64_t{count}, uint64_t{1}));
  if (uint64_t{count} * sizeof(line_id_unit) <= PTRDIFF_MAX) {
    units.reset(new (std::nothrow) line_id_unit[count]);
    if (units != nullptr) returned.reset(new (std::nothrow) line_id_unit*[static_cast<size_t>(places)]);
  }
  if (returned == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_buf_pool_init malloc failed(%d).\r\n", LINE_ID_ERR_MALLOC);
    return LINE_ID_ERR_MALLOC;
  }
  for (uint32_t i = 0; i < count; ++i) {
    units[i].length = 0;
    units[i].info = {};
    units[i].pkt_info_ptr = &units[i].info;
    units[i].prev = nullptr;
    units[i].state.store(UNIT_FREE, std::memory_order_relaxed);
    push_freed(*pool, &units[i]);
  }
  g_returned.units = std::move(returned);
  g_returned.mask = static_cast<uint32_t>(places - 1);
  g_returned.first = g_returned.end.load(std::memory_order_relaxed);
  pool->units = units.release();
  g_pool_units = count;
  g_line_id_pkt_pool.store(pool.release(), std::memory_order_release);
  return LINE_ID_OK;
}

line_id_unit* line_id_buf_pool_alloc(pal_sem* sem) {
  // Tested before the semaphore, which is made before the pool: a frame that is too early touches neither.
  line_id_buf_pool* pool = g_line_id_pkt_pool.load(std::memory_order_acquire);
  if (pool == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_buf_pool_alloc NULL == pool.\r");
    return nullptr;
  }
  if (pal_sem_take(sem, ALLOC_TICKS) != 0) {
    LINE_ID_INFO(LOG_GENERAL, "can not get sem. \r");
    return nullptr;
  }
  line_id_unit* unit = nullptr;
  collect_returned(*pool);
  if (pool->freed_list == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_buf_pool_alloc NULL == pool->freed_list.\r");
  } else {
    unit = pop_freed(*pool);
    push_used(*pool, unit);
    unit->state.store(UNIT_INGRESS, std::memory_order_relaxed);
  }
  pal_sem_give(sem);
  return unit;
}

int32_t line_id_buf_pool_free(line_id_unit* unit, pal_sem* sem) {
  if (unit == nullptr) return LINE_ID_OK;
  const int32_t taken = pal_sem_take(sem, -1);
  if (taken != 0) {
    LINE_ID_INFO(LOG_GENERAL, "can not get sem. \r");
    return taken;
  }
  line_id_buf_pool* pool = g_line_id_pkt_pool.load(std::memory_order_acquire);
  if (pool == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_buf_pool_free NULL == pool.\r");
  } else if (is_in_use(unit, __func__, __LINE__)) {
    unit->state.store(UNIT_FREE, std::memory_order_release);
    move_to_freed(*pool, unit);
  }
  return pal_sem_give(sem);
}

void line_id_buf_pool_give_back(line_id_unit* unit) {
  if (!is_in_use(unit, __func__, __LINE__)) return;
  unit->state.store(UNIT_FREE, std::memory_order_relaxed);
  const uint32_t end = g_returned.end.load(std::memory_order_relaxed);
  g_returned.units[end & g_returned.mask] = unit;
  g_returned.end.store(end + 1, std::memory_order_release);
}

uint32_t line_id_buf_pool_handle(const line_id_unit* unit) {
  const line_id_buf_pool* pool = g_line_id_pkt_pool.load(std::memory_order_acquire);
  return static_cast<uint32_t>(unit - pool->units) + 1;
}

void line_id_buf_pool_mark_queued(line_id_unit* unit, uint16_t kind) {
  unit->state.store(queued_state(kind), std::memory_order_release);
}

line_id_unit* line_id_buf_pool_take_queued(uint32_t handle, uint16_t kind) {
  line_id_buf_pool* pool = g_line_id_pkt_pool.load(std::memory_order_acquire);
  if (pool == nullptr || handle == 0 || handle > g_pool_units) return nullptr;
  if (kind < MSG_DHCPV4 || kind > MSG_PPPOE) return nullptr;
  line_id_unit* unit = &pool->units[handle - 1];
  if (unit->state.load(std::memory_order_acquire) != queued_state(kind)) return nullptr;
  unit->state.store(UNIT_IN_WORK, std::memory_order_relaxed); // the worker alone moves queued units on
  return unit;
}

uint32_t line_id_buf_pool_reclaim() {
  line_id_buf_pool* pool = g_line_id_pkt_pool.load(std::memory_order_acquire);
  if (pool == nullptr || pal_sem_take(&g_line_id_pkt_sem, -1) != 0) return 0;
  collect_returned(*pool);
  uint32_t reclaimed = 0;
  for (uint32_t i = 0; i < g_pool_units; ++i) {
    line_id_unit* unit = &pool->units[i];
    const uint8_t state = unit->state.load(std::memory_order_acquire);
    if (state == UNIT_FREE || state == UNIT_INGRESS) continue;
    unit->state.store(UNIT_FREE, std::memory_order_release);
    move_to_freed(*pool, unit);
    ++reclaimed;
  }
  pal_sem_give(&g_line_id_pkt_sem);
  return reclaimed;
}

uint32_t line_id_buf_pool_free_count() {
  line_id_buf_pool* pool = g_line_id_pkt_pool.load(std::memory_order_acquire);
  if (pool == nullptr || pal_sem_take(&g_line_id_pkt_sem, -1) != 0) return 0;
  collect_returned(*pool);
  uint32_t count = 0;
  for (const line_id_unit* unit = pool->freed_list; unit != nullptr; unit = unit->next) ++count;
  pal_sem_give(&g_line_id_pkt_sem);
  return count;
}
