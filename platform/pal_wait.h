// Deadlines on the monotonic clock, and sleeping on a word that other threads or processes change.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <sched.h>

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
// The same for a word of this process whose changes may go by unannounced: sleeps a millisecond at most.
bool pal_word_nap(std::atomic<uint32_t>& word, uint32_t expected, const pal_deadline& deadline);
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

// For what is held for some ten nanoseconds by a thread that may have been interrupted, or even stopped: looks, then
// gives its core away, then sleeps between looks. False when `look` still says so after `patience_ms`.
template <class Look> bool pal_look_until(Look look, int64_t patience_ms) {
  constexpr int LOOKS = 50;
  constexpr int YIELDS = 50;
  constexpr timespec NAP = {0, 200000};
  for (int tries = 0; tries < LOOKS + YIELDS; ++tries) {
    if (tries < LOOKS) {
      pal_pause();
    } else {
      sched_yield();
    }
    if (look()) return true;
  }
  for (const int64_t end = pal_now_ms() + patience_ms; pal_now_ms() < end;) {
    nanosleep(&NAP, nullptr);
    if (look()) return true;
  }
  return false;
}
