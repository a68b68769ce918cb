// Messages from the threads of a process to a receiver among them.
//
// A sender takes the next position with one atomic operation, fills the slot there and says so in the slot; the
// receiver takes filled slots in order, and needs none. Nobody waits for anybody, except the receiver for a sender that
// has taken a position and not filled it yet.
#pragma once

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

struct pal_own_slots {
  uint32_t mask;   // of a slot's index in a position
  uint32_t stride; // octets from slot to slot
  uint32_t size;   // of a message
};

// The slots lie behind it, a power of two of them, as positions count on for ever and wrap. Senders and the receiver
// work on a cache line each, and look at the other's when they find the ring full or empty.
struct pal_own_ring {
  uint8_t apart[64];
  struct {
    pal_own_slots slots;
    std::atomic<uint32_t> end;        // the position that the next sender takes
    std::atomic<uint32_t> seen_first; // where the receiver was when a sender looked
  } senders;
  uint8_t apart_too[64];
  struct {
    pal_own_slots slots;
    std::atomic<uint32_t> first; // the position of the next message
  } receiver;
  uint8_t apart_as_well[64];
};

// In front of a message.
struct pal_own_slot {
  std::atomic<uint32_t> filled; // its position + 1, once the message is there
};

// For at least so many messages of this size, or null.
inline pal_own_ring* pal_own_ring_make(uint32_t depth, uint32_t size) {
  constexpr uint32_t ALIGN = alignof(uint64_t);
  const uint32_t slots = std::bit_ceil(depth);
  const uint32_t stride = (static_cast<uint32_t>(sizeof(pal_own_slot)) + size + ALIGN - 1) / ALIGN * ALIGN;
  void* memory = std::calloc(1, sizeof(pal_own_ring) + size_t{slots} * stride);
  if (memory == nullptr) return nullptr;
  auto* ring = new (memory) pal_own_ring{};
  ring->senders.slots = ring->receiver.slots = {slots - 1, stride, size};
  return ring;
}

inline pal_own_slot* pal_own_slot_at(pal_own_ring& ring, const pal_own_slots& slots, uint32_t position) {
  auto* first = reinterpret_cast<uint8_t*>(&ring + 1);
  return reinterpret_cast<pal_own_slot*>(first + size_t{position & slots.mask} * slots.stride);
}

inline uint8_t* pal_own_message_of(pal_own_slot* slot) { return reinterpret_cast<uint8_t*>(slot + 1); }

// Short records are copied such that a field of four octets at either end can be read back at once: a load that spans
// two stores would wait for both.
inline void pal_own_copy(void* to, const void* from, uint32_t size) {
  constexpr uint32_t END = sizeof(uint32_t);
  if (size < 2 * END || size > 4 * END) {
    std::memcpy(to, from, size);
    return;
  }
  auto* into = static_cast<uint8_t*>(to);
  const auto* out_of = static_cast<const uint8_t*>(from);
  std::memcpy(into, out_of, END);
  for (uint32_t i = END; i < size - END; ++i) into[i] = out_of[i];
  std::memcpy(into + size - END, out_of + size - END, END);
}

// False when `room` messages lie there already; `size` is that of all. `before` runs once there is a place, before the
// receiver can have the message. The taking of the position comes before whatever this thread looks at next.
template <class Before>
bool pal_own_ring_put(pal_own_ring& ring, uint32_t room, const void* message, uint32_t size, Before before) {
  auto& [slots, end, seen_first] = ring.senders;
  // Negative when others have moved both ends since: then this one's taking fails, and it looks again.
  const auto is_full = [room](uint32_t position, uint32_t first) {
    return static_cast<int32_t>(position - first) >= static_cast<int32_t>(room);
  };
  uint32_t position = end.load(std::memory_order_relaxed);
  do {
    if (is_full(position, seen_first.load(std::memory_order_acquire))) [[unlikely]] {
      const uint32_t first = ring.receiver.first.load(std::memory_order_acquire);
      if (is_full(position, first)) return false;
      seen_first.store(first, std::memory_order_release);
    }
  } while (!end.compare_exchange_weak(position, position + 1, std::memory_order_seq_cst, std::memory_order_relaxed));
  before();
  pal_own_slot* slot = pal_own_slot_at(ring, slots, position);
  pal_own_copy(pal_own_message_of(slot), message, size);
  slot->filled.store(position + 1, std::memory_order_release);
  return true;
}

// ---- the receiver only

// Whether a sender is about to fill the next slot.
inline bool pal_own_ring_is_taken(const pal_own_ring& ring) {
  return ring.senders.end.load() != ring.receiver.first.load(std::memory_order_relaxed);
}

inline bool pal_own_ring_get(pal_own_ring& ring, void* message) {
  auto& [slots, first] = ring.receiver;
  const uint32_t position = first.load(std::memory_order_relaxed);
  pal_own_slot* slot = pal_own_slot_at(ring, slots, position);
  if (slot->filled.load(std::memory_order_acquire) != position + 1) return false;
  pal_own_copy(message, pal_own_message_of(slot), slots.size);
  first.store(position + 1, std::memory_order_release); // from here on the slot may be filled again
  return true;
}

// Forget what lies there.
inline void pal_own_ring_empty(pal_own_ring& ring) {
  ring.receiver.first.store(ring.senders.end.load(), std::memory_order_release);
}
