// The calls that can be made to fail: the linker sends the agent's here (--wrap), and this program's allocations.
#include "tests/faults/seam.h"

#include "platform/lib_comm.h"
#include "platform/pal.h"

#include <cstdlib>
#include <new>

namespace {

struct plan {
  fault what;
  uint32_t left;
};
thread_local plan g_plan;
thread_local bool g_failed;
thread_local uint64_t g_allocations;

bool fails(fault what) {
  if (g_plan.what != what || --g_plan.left != 0) return false;
  g_plan = {};
  g_failed = true;
  return true;
}

} // namespace

void seam_fail(fault what, uint32_t nth) {
  g_plan = {what, nth};
  g_failed = false;
}

bool seam_failed() { return g_failed; }

uint64_t seam_allocations() { return g_allocations; }

void* operator new(size_t size) {
  ++g_allocations;
  if (void* memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return fails(ALLOCATION) ? nullptr : ::operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return fails(ALLOCATION) ? nullptr : ::operator new[](size);
}
void* operator new[](size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
  ++g_allocations;
  return fails(ALLOCATION) ? nullptr : std::aligned_alloc(static_cast<size_t>(align), size);
}
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }

// A wrapped function: what --wrap names __wrap_NAME stands in for NAME, and __real_NAME is the function itself.
#define SEAM(what, type, name, parameters, arguments, failure)                                                         \
  type real_##what parameters __asm__("__real_" name);                                                                 \
  type wrap_##what parameters __asm__("__wrap_" name);                                                                 \
  type wrap_##what parameters { return fails(what) ? (failure) : real_##what arguments; }

extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  ++g_allocations;
  return fails(ALLOCATION) ? nullptr : __real_calloc(count, size);
}
extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size) {
  ++g_allocations;
  return __real_malloc(size);
}
extern "C" void* __real_realloc(void* memory, size_t size);
extern "C" void* __wrap_realloc(void* memory, size_t size);
extern "C" void* __wrap_realloc(void* memory, size_t size) {
  ++g_allocations;
  return __real_realloc(memory, size);
}
SEAM(SEM_CREATE, int32_t, "_Z14pal_sem_createP7pal_semj", (pal_sem * sem, uint32_t kind), (sem, kind), -1)
SEAM(SEM_OPEN, pal_sem*, "_Z12pal_sem_openP7pal_semjPKcj",
     (pal_sem * storage, uint32_t kind, const char* name, uint32_t count), (storage, kind, name, count), nullptr)
SEAM(SEM_TAKE, int32_t, "_Z12pal_sem_takeP7pal_semi", (pal_sem * sem, int32_t ticks), (sem, ticks), -1)
SEAM(QUEUE_CREATE, int32_t, "_Z18pal_msgQ_create_exPijjjj",
     (pal_msgQ_id * id, uint32_t key, uint32_t depth, uint32_t size, uint32_t flags), (id, key, depth, size, flags), -1)
SEAM(QUEUE_SEND, int32_t, "_Z17pal_msgQ_send_owniPKvjPFvPvES1_",
     (pal_msgQ_id id, const void* message, uint32_t len, void (*before)(void* arg), void* arg),
     (id, message, len, before, arg), -1)
SEAM(SHARED_MEMORY, void*, "_Z18pal_share_mem_initjj", (uint32_t key, uint32_t size), (key, size), PAL_NO_MEM)
SEAM(EVENT_ADD, int32_t, "_Z25lib_comm_thread_add_eventP12lib_comm_libPFiP13lib_comm_taskEPvi",
     (lib_comm_lib * lib, int32_t (*function)(lib_comm_task*), void* argument, int32_t flag),
     (lib, function, argument, flag), -1)
SEAM(WORKER_START, int32_t, "_Z18lib_comm_lib_startP12lib_comm_lib", (lib_comm_lib * lib), (lib), -1)
