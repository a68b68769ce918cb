// Ticks, deadlines and sleeping: the monotonic clock and the kernel's wait-on-a-word call.
#include "platform/pal_wait.h"

#include <cerrno>
#include <climits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/pal.h"
#include "platform/pal_settings.h"

namespace {

constexpr int64_t US_PER_S = 1000000;
constexpr int64_t US_PER_MS = 1000;
constexpr int64_t NS_PER_US = 1000;

// 32-bit targets have a second call for the 64-bit time of newer C libraries.
#ifdef SYS_futex_time64
constexpr long FUTEX_CALL = sizeof(time_t) > sizeof(long) ? SYS_futex_time64 : SYS_futex;
#else
constexpr long FUTEX_CALL = SYS_futex;
#endif
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);

int64_t monotonic_us(clockid_t clock = CLOCK_MONOTONIC) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * US_PER_S + now.tv_nsec / NS_PER_US;
}

pal_deadline deadline_at(int64_t us) {
  pal_deadline deadline = {};
  deadline.at.tv_sec = static_cast<time_t>(us / US_PER_S);
  deadline.at.tv_nsec = static_cast<long>(us % US_PER_S * NS_PER_US);
  return deadline;
}

bool is_later(const timespec& one, const timespec& other) {
  return one.tv_sec != other.tv_sec ? one.tv_sec > other.tv_sec : one.tv_nsec > other.tv_nsec;
}

// The kernel's wait-on-a-word call: 0 or more, or a negative error number.
long futex(std::atomic<uint32_t>& word, int operation, uint32_t value, const timespec* until, uint32_t mask) {
#if defined(__x86_64__) && defined(__LP64__)
  // Straight into the kernel. Whoever comes back from there has to look up anew where each page lies, and mispredicts
  // where each function returns to that was called before: the C library's costs an exchange of two threads 0.1 us.
  register const timespec* fourth asm("r10") = until;
  register const void* fifth asm("r8") = nullptr;
  register uint64_t sixth asm("r9") = mask;
  long ret = FUTEX_CALL;
  asm volatile("syscall"
               : "+a"(ret)
               : "D"(&word), "S"(operation), "d"(value), "r"(fourth), "r"(fifth), "r"(sixth)
               : "rcx", "r11", "memory");
  return ret;
#else
  const long ret = syscall(FUTEX_CALL, &word, operation, value, until, nullptr, mask);
  return ret >= 0 ? ret : -errno;
#endif
}

int flag_of(pal_word kind) { return kind == pal_word::OWN ? FUTEX_PRIVATE_FLAG : 0; }

} // namespace

uint32_t pal_tickget() {
  // Each frame asks. The same clock as it stood at the kernel's last tick is several times cheaper to read, and exact
  // enough unless the deployment's ticks are as short as the kernel's. To divide by a constant is cheaper, too.
  constexpr int64_t DEFAULT_US = PAL_DEFAULT_TICK_US;
  static_assert(US_PER_S % DEFAULT_US == 0);
  const auto tick_us = static_cast<int64_t>(pal_tick_us());
  if (__builtin_expect(tick_us != DEFAULT_US, 0)) {
    const bool coarse = tick_us > DEFAULT_US;
    return static_cast<uint32_t>(monotonic_us(coarse ? CLOCK_MONOTONIC_COARSE : CLOCK_MONOTONIC) / tick_us);
  }
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  const auto part = static_cast<uint32_t>(now.tv_nsec) / static_cast<uint32_t>(DEFAULT_US * NS_PER_US);
  return static_cast<uint32_t>(now.tv_sec) * static_cast<uint32_t>(US_PER_S / DEFAULT_US) + part;
}

pal_deadline pal_deadline_after(int32_t ticks) {
  if (ticks < 0) return {{}, true};
  return deadline_at(monotonic_us() + static_cast<int64_t>(ticks) * pal_tick_us());
}

int64_t pal_now_ms() { return monotonic_us() / US_PER_MS; }

bool pal_word_wait(std::atomic<uint32_t>& word, uint32_t expected, const pal_deadline& deadline, pal_word kind) {
  const timespec* until = deadline.never ? nullptr : &deadline.at;
  const long ret = futex(word, FUTEX_WAIT_BITSET | flag_of(kind), expected, until, FUTEX_BITSET_MATCH_ANY);
  return ret == 0 || ret == -EAGAIN || ret == -EINTR; // any other failure would fail again: it counts as time over
}

bool pal_word_nap(std::atomic<uint32_t>& word, uint32_t expected, const pal_deadline& deadline) {
  constexpr int64_t NAP_US = 1000;
  const pal_deadline nap = deadline_at(monotonic_us() + NAP_US);
  if (!deadline.never && !is_later(deadline.at, nap.at)) return pal_word_wait(word, expected, deadline, pal_word::OWN);
  pal_word_wait(word, expected, nap, pal_word::OWN);
  return true;
}

void pal_word_wake_all(std::atomic<uint32_t>& word, pal_word kind) {
  futex(word, FUTEX_WAKE | flag_of(kind), INT_MAX, nullptr, 0);
}

void pal_sleep_until(const pal_deadline& deadline) {
  if (deadline.never) return;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline.at, nullptr) == EINTR) {
  }
}
