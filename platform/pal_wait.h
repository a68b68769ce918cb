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

int64_t pal_now_ms(); // monotonic

// Sleep while `word` holds `expected`, until pal_word_wake_all. False when the deadline has passed; true otherwise,
// also without cause: the caller looks again. A word of this process alone costs the kernel less than one in shared
// memory; who waits and who wakes must say the same.
enum class pal_word : uint8_t { OWN, SHARED };
bool pal_word_wait(std::atomic<uint32_t>& word, uint32_t expected, const pal_deadline& deadline, pal_word kind);
void pal_word_wake_all(std::atomic<uint32_t>& word, pal_word kind);

// Between two looks at a word that another thread is about to change.
inline void pal_pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
  asm volatile("yield");
#endif
}

// Sleep until the deadline; does nothing when that is never.
void pal_sleep_until(const pal_deadline& deadline);
