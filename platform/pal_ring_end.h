// The end of a ring that several threads of this process write, one at a time: twice its position, and one more while a
// thread writes there. Taking and moving it are one atomic operation each; the reader takes nothing.
#pragma once

#include "platform/pal_wait.h"

#include <atomic>
#include <cstdint>

using pal_ring_end = std::atomic<uint32_t>;

constexpr uint32_t PAL_RING_STEP = 2; // from one position to the next; they count on for ever and wrap

inline uint32_t pal_ring_index(uint32_t position) { return position / PAL_RING_STEP; }

inline uint32_t pal_ring_position(const pal_ring_end& end) { return end.load() & ~uint32_t{1}; }

inline bool pal_ring_try_hold(pal_ring_end& end, uint32_t& position) {
  position = pal_ring_position(end);
  return end.compare_exchange_strong(position, position + 1, std::memory_order_acquire, std::memory_order_relaxed);
}

// Hold the end, which is at `position` then: false when a thread that does not run has held it for 50 ms.
inline bool pal_ring_hold(pal_ring_end& end, uint32_t& position) {
  constexpr int64_t PATIENCE_MS = 50;
  if (__builtin_expect(pal_ring_try_hold(end, position), 1)) return true;
  return pal_look_until([&] { return pal_ring_try_hold(end, position); }, PATIENCE_MS);
}

// Let go of the end with what was written before `position`. Ordered before whatever this thread reads next.
inline void pal_ring_release(pal_ring_end& end, uint32_t position) { end.exchange(position); }
