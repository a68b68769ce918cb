// The agent under a long run, with the account of every frame that was handed in.
#pragma once

#include "include/line_id.h"

#include <array>
#include <atomic>
#include <cstdint>

constexpr uint32_t SOAK_POOL_UNITS = 1000;

// Octave-wide steps divided in eight: upper bounds of nanoseconds, good to 12 %.
struct latency_histogram {
  static constexpr uint32_t STEPS = 8;
  std::array<std::atomic<uint64_t>, 48 * STEPS> counts{};

  void add(uint64_t ns);
  static uint64_t upper_bound(uint32_t bucket);
};

// Counters of the run. Ingress threads count what they hand in, the worker what became of it.
struct soak_account {
  std::atomic<uint64_t> in{0};      // receive calls
  std::atomic<uint64_t> refused{0}; // by the receive call
  std::atomic<uint64_t> passed{0};  // sent during the receive call
  std::atomic<uint64_t> queued{0};
  std::atomic<uint64_t> hooked{0}; // through the packet hook
  std::atomic<uint64_t> sent{0};   // by the worker
  std::atomic<uint64_t> alarms{0};
  std::atomic<uint64_t> strays{0}; // hooks or sends of frames that were not under way: none, unless the agent is broken
  latency_histogram latency;       // from the receive call to the worker's send
};
extern soak_account g_soak;

// Loads instances 0 to 3 and starts the worker; false when the agent does not come up. One agent in a process.
bool soak_agent_start();
// Stops it: the result of line_id_proc_entry.
int32_t soak_agent_stop();

// Hands one frame in, from any thread; the call's result.
int32_t soak_hand_in(bool pppoe, const uint8_t* frame, uint32_t len, uint8_t direct, const line_id_append_info& line);

// Waits until all that was queued went through the hook and the worker stands still; false after ten seconds.
bool soak_wait_drained();

// How many frames the resting agent takes at a time: each unit of the pool that is not lost.
uint32_t soak_count_units(const uint8_t* frame, uint32_t len, const line_id_append_info& line);
