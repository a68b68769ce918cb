// Deadlines on the monotonic clock, and sleeping on a word that other threads or processes change.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

struct pal_deadline {
  timespec at; // monotonic
  bool never;  // wait for ever; `at` is not used
};

// `ticks` from now; a negative number is never.
pal_deadline pal_deadline_after(int32_t ticks);

// Sleep while `word` holds `expected`, until pal_word_wake_all. False when the deadline has passed; true otherwise,
// also without cause: the caller looks again. The word may lie in shared memory.
bool pal_word_wait(std::atomic<uint32_t>& word, uint32_t expected, const pal_deadline& deadline);
void pal_word_wake_all(std::atomic<uint32_t>& word);

// Sleep until the deadline; does nothing when that is never.
void pal_sleep_until(const pal_deadline& deadline);
