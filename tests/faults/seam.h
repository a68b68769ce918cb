// Makes what the agent asks of the machine fail, once, at a chosen call. Linked in front of the platform layer.
#pragma once

#include <cstdint>

enum fault : uint8_t {
  NO_FAULT,
  ALLOCATION, // operator new (std::nothrow), calloc
  SEM_CREATE,
  SEM_OPEN,
  SEM_TAKE,
  QUEUE_CREATE,
  QUEUE_SEND,
  SHARED_MEMORY,
  EVENT_ADD,
  WORKER_START,
};

// From now on, the `nth` call (from 1) of that kind on this thread fails; NO_FAULT takes it back.
void seam_fail(fault what, uint32_t nth = 1);
// Whether the call came.
bool seam_failed();

// How often this thread has allocated, by whichever function.
uint64_t seam_allocations();
