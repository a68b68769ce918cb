// Semaphores, message queues, shared memory and ticks over POSIX. The only folder that calls POSIX.
//
// One tick is 10 ms, unless the deployment sets LINE_ID_TICK_US. Objects that processes share are named after
// LINE_ID_IPC_PREFIX ("lineid" unless set), created with mode 0600, and checked for their size when attached. Both are
// read from the environment once, with secure_getenv. Waits use the monotonic clock; a wait of -1 is for ever.
#pragma once

#include <cstdint>

// ---- ticks

uint32_t pal_tickget(); // since an arbitrary start; wraps

// ---- semaphores: binary, the count is capped at 1, given by any thread

// A handle; the state behind it is private or shared, and lives as long as the process. Copies name the same semaphore.
struct pal_sem {
  void* state;
  uint32_t kind;
};

// Kind 2: unnamed, free. Calling it again for a live semaphore keeps it. 0, or -1.
int32_t pal_sem_create(pal_sem* sem, uint32_t kind);
// Unnamed, with an initial count of 0 or 1. Calling it again keeps the semaphore and sets its count. `storage` holds it
// and may be `sem`. 0, or -1.
int32_t pal_sem_create_ex(pal_sem* sem, uint32_t kind, uint32_t count, pal_sem* storage);
// Named, shared between processes: attaches, or creates it with `count`. `storage` or null. An unnamed semaphore that
// was kept there is given up: nobody may be using it.
pal_sem* pal_sem_open(pal_sem* storage, uint32_t kind, const char* name, uint32_t count);
// Waits up to `ticks` (0: does not wait). 0, or -1 when the time is over or the semaphore is absent.
int32_t pal_sem_take(pal_sem* sem, int32_t ticks);
// 0, or -1 for an absent semaphore.
int32_t pal_sem_give(pal_sem* sem);
// Set the count in place, clients stay attached. The agent's start only.
int32_t pal_sem_reset(pal_sem* sem, uint32_t count);
// The count, 0 or 1, or -1: for tests and reports.
int32_t pal_sem_count(pal_sem* sem);

// ---- prioritised message queues: the smaller number first, first-in first-out within one priority

using pal_msgQ_id = int32_t; // 0: none

// Slots that only priority 1 may take, so that configuration always finds room.
constexpr uint32_t PAL_MSGQ_RESERVED = 64;
constexpr uint32_t PAL_MSGQ_FIRST = 1;      // that priority
constexpr uint32_t PAL_MSGQ_PRIORITIES = 4; // 0 to 3

// Create or attach the queue of a key; key 0 is a queue of this process alone. An id that is already open for the same
// key, depth (more than the reserve, at most 65536) and size (1 to 256) is kept, another one is closed first. 0, or -1.
int32_t pal_msgQ_create_ex(pal_msgQ_id* id, uint32_t key, uint32_t depth, uint32_t size, uint32_t flags);
// Never waits for room. 0, or -1: full, absent, a length other than the queue's, or no such priority; also when a
// process that lives but does not run has been holding the queue's lock for 50 ms, with priority 1 for 600 ticks.
int32_t pal_msgQ_send_priority(pal_msgQ_id id, const void* message, uint32_t len, uint32_t priority);
// The same to whoever receives in this process, after all messages of other kinds. No other process sees these
// messages, and none can hold them up; they count against the room that the reserve leaves. Allocates nothing.
// `before(arg)`, unless null, is called once there is room, and before the receiver can have the message.
int32_t pal_msgQ_send_own(pal_msgQ_id id, const void* message, uint32_t len, void (*before)(void* arg) = nullptr,
                          void* arg = nullptr);
// Octets received, or -1 when `wait` ticks have passed; so long a message may lie there whose sender was killed while
// it woke the receiver. An absent queue, or one whose lock a stopped process holds, lets them pass too, unless `wait`
// is for ever: then it fails at once. One thread of a process at a time. `flags` is not used.
int32_t pal_msgQ_receive_wait_priority(pal_msgQ_id id, void* buffer, uint32_t size, int32_t wait, int32_t flags);
// 1 when no other process can send to the queue, 0 when one can, -1 for an absent queue.
int32_t pal_msgQ_is_private(pal_msgQ_id id);
// Give the queue up in this process (its shared state stays). Tests and processes that detach.
void pal_msgQ_close(pal_msgQ_id* id);

// ---- shared memory

// The segment of a key, zeroed when it was created; all-ones (PAL_NO_MEM) on failure. The same key gives the same
// address within a process.
void* pal_share_mem_init(uint32_t key, uint32_t size);
inline void* const PAL_NO_MEM =
    reinterpret_cast<void*>(~static_cast<uintptr_t>(0)); // NOLINT(performance-no-int-to-ptr)

// ---- who serves this prefix

// Claim the prefix for this process's agent; the claim ends with the process or with pal_service_release. 0 (also when
// this process already holds it), or -1 when another process does.
int32_t pal_service_claim();
void pal_service_release();
// 1 when some process holds the claim.
int32_t pal_service_is_claimed();
