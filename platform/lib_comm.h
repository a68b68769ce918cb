// The event thread: one worker that runs queued events and, between them, fetches work with a function.
#pragma once

#include <atomic>
#include <cstdint>

struct lib_comm_event; // opaque

// What an event runs: `function(task)`, with the event's argument in the record.
struct lib_comm_task {
  int32_t (*function)(lib_comm_task* task);
  void* argument;
};

struct lib_comm_lib {
  char name[16];
  int32_t tick_timeout; // ticks; the longest single wait of the fetch function
  int32_t log_option;
  void* log_channel;
  std::atomic<uint32_t> stop_flags; // bit 0: stop
  struct lib_comm_state* state;
};

// Called when no event is due, with the instance as `arg` and a bounded wait in ticks; negative when nothing came. It
// may wait longer if whoever stops the instance wakes it.
using lib_comm_fetch_func = int32_t (*)(void* arg, int32_t wait);

// A new instance, or null. It is counted: lib_comm_release frees it when neither the loop nor a stopper uses it.
lib_comm_lib* lib_comm_lib_create(const char* name);
int32_t lib_comm_lib_start(lib_comm_lib* lib);
// Ends the loop; from any thread. 0, or -9 for null.
int32_t lib_comm_lib_stop(lib_comm_lib* lib);
void lib_comm_retain(lib_comm_lib* lib);
void lib_comm_release(lib_comm_lib* lib);
void* lib_comm_openzlog(lib_comm_lib* lib, int32_t option, int32_t size, int32_t flag);

// The next task, or null when the instance is stopping. Runs `fetch` while no event is due; a time-out of it does not
// end the loop. The worker only.
lib_comm_task* lib_comm_thread_fetch_with_func(lib_comm_lib* lib, lib_comm_task* task, lib_comm_fetch_func fetch,
                                               int32_t wait);
int32_t lib_comm_thread_call(lib_comm_task* task);
// Queue `function(argument)` behind the events that are due: 0, or -1 when there is no room. The worker, from its fetch
// function and its events.
int32_t lib_comm_thread_add_event(lib_comm_lib* lib, int32_t (*function)(lib_comm_task*), void* argument, int32_t flag);
// Take back an event that was queued and not run, after the loop has ended: its argument, or null when there is none.
void* lib_comm_thread_drop_event(lib_comm_lib* lib);
