// The event thread: a ring of due events, and the loop's next step.
#include "platform/lib_comm.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "include/line_id.h"

namespace {

constexpr uint32_t STOP_FLAG = 1;

// The longest wait of a fetch, so that a stop is seen within 50 ms.
constexpr int32_t STOP_TICKS = 5;

// The worker runs each event before it fetches again; a fetch that adds more is told so. A power of two, as positions
// count on for ever and wrap.
constexpr uint32_t MAX_EVENTS = 64;
static_assert((MAX_EVENTS & (MAX_EVENTS - 1)) == 0);

} // namespace

struct lib_comm_event {
  int32_t (*function)(lib_comm_task* task);
  void* argument;
};

// What the log channel was opened with. The agent's messages go through core/log.h: the channel carries none.
struct lib_comm_log {
  int32_t option;
  int32_t size;
  int32_t flag;
};

struct lib_comm_state {
  std::atomic<uint32_t> references;
  std::atomic<bool> started;
  lib_comm_log log;
  uint32_t first; // the position of the next event due
  uint32_t end;   // where the next one goes
  lib_comm_event events[MAX_EVENTS];
};

namespace {

bool next_event(lib_comm_state& state, lib_comm_event& event) {
  if (state.first == state.end) return false;
  event = state.events[state.first++ % MAX_EVENTS];
  return true;
}

} // namespace

lib_comm_lib* lib_comm_lib_create(const char* name) {
  if (name == nullptr) return nullptr;
  auto* lib = new (std::nothrow) lib_comm_lib{};
  auto* state = new (std::nothrow) lib_comm_state{};
  if (lib == nullptr || state == nullptr) {
    delete lib;
    delete state;
    return nullptr;
  }
  std::snprintf(lib->name, sizeof(lib->name), "%s", name);
  state->references.store(1, std::memory_order_relaxed);
  lib->state = state;
  return lib;
}

int32_t lib_comm_lib_start(lib_comm_lib* lib) {
  if (lib == nullptr) return LINE_ID_ERR_NULL;
  return lib->state->started.exchange(true) ? LINE_ID_ERR : LINE_ID_OK;
}

int32_t lib_comm_lib_stop(lib_comm_lib* lib) {
  if (lib == nullptr) return LINE_ID_ERR_NULL;
  lib->stop_flags.fetch_or(STOP_FLAG);
  return LINE_ID_OK;
}

void lib_comm_retain(lib_comm_lib* lib) { lib->state->references.fetch_add(1, std::memory_order_relaxed); }

void lib_comm_release(lib_comm_lib* lib) {
  if (lib->state->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  delete lib->state;
  delete lib;
}

void* lib_comm_openzlog(lib_comm_lib* lib, int32_t option, int32_t size, int32_t flag) {
  if (lib == nullptr) return nullptr;
  lib->state->log = {option, size, flag};
  return &lib->state->log;
}

lib_comm_task* lib_comm_thread_fetch_with_func(lib_comm_lib* lib, lib_comm_task* task, lib_comm_fetch_func fetch,
                                               int32_t wait) {
  if (lib == nullptr || task == nullptr || fetch == nullptr) return nullptr;
  const int32_t longest = std::clamp(wait > 0 ? wait : lib->tick_timeout, 1, STOP_TICKS);
  while ((lib->stop_flags.load() & STOP_FLAG) == 0) {
    lib_comm_event event = {};
    if (next_event(*lib->state, event)) {
      *task = {event.function, event.argument};
      return task;
    }
    fetch(lib, longest);
  }
  return nullptr;
}

int32_t lib_comm_thread_call(lib_comm_task* task) {
  return task != nullptr && task->function != nullptr ? task->function(task) : LINE_ID_ERR_NULL;
}

int32_t lib_comm_thread_add_event(lib_comm_lib* lib, int32_t (*function)(lib_comm_task*), void* argument, int32_t) {
  if (lib == nullptr || function == nullptr) return LINE_ID_ERR;
  lib_comm_state& state = *lib->state;
  if (state.end - state.first == MAX_EVENTS) return LINE_ID_ERR;
  state.events[state.end++ % MAX_EVENTS] = {function, argument};
  return LINE_ID_OK;
}

void* lib_comm_thread_drop_event(lib_comm_lib* lib) {
  if (lib == nullptr) return nullptr;
  lib_comm_event event = {};
  return next_event(*lib->state, event) ? event.argument : nullptr;
}
