// Binary semaphores: one word each, private or in shared memory.
//
// Neither take nor give makes a system call unless somebody waits. A give wakes every sleeper and those that lose sleep
// again, so it does not matter which of them has died; a mark left by a dead sleeper costs one wake that finds nobody.
#include "platform/pal.h"

#include <cstdio>
#include <new>

#include "platform/pal_shared.h"
#include "platform/pal_wait.h"

namespace {

constexpr uint32_t FREE = 1;   // bits of the word
constexpr uint32_t WAITED = 2; // somebody may be asleep; set before sleeping, cleared only after a wake

constexpr uint32_t RECORD_MAGIC = 0x314D4553; // "SEM1"
constexpr uint32_t NAMED = 0x80000000;        // in pal_sem::kind: the record is shared
constexpr uint32_t LOCK_KIND = 2;             // held for moments: a short look costs less than sleeping
constexpr int LOCK_LOOKS = 100;

struct sem_record {
  std::atomic<uint32_t> magic; // written last
  std::atomic<uint32_t> word;
};

sem_record* record_of(const pal_sem* sem) { return sem == nullptr ? nullptr : static_cast<sem_record*>(sem->state); }

bool is_private(const pal_sem& sem) { return sem.state != nullptr && (sem.kind & NAMED) == 0; }

bool init_record(void* record, const void* count) {
  auto* sem = static_cast<sem_record*>(record);
  if (sem->magic.load(std::memory_order_acquire) != 0) return true;
  sem->word.store(*static_cast<const uint32_t*>(count) != 0 ? FREE : 0, std::memory_order_relaxed);
  sem->magic.store(RECORD_MAGIC, std::memory_order_release);
  return true;
}

pal_word word_kind(const pal_sem& sem) { return (sem.kind & NAMED) != 0 ? pal_word::SHARED : pal_word::OWN; }

bool try_take(std::atomic<uint32_t>& word) {
  uint32_t seen = word.load(std::memory_order_relaxed);
  while ((seen & FREE) != 0) {
    if (word.compare_exchange_weak(seen, seen & ~FREE, std::memory_order_acquire, std::memory_order_relaxed))
      return true;
  }
  return false;
}

// The holder of a lock is most likely at work on another core, and done in less time than a sleep takes.
bool look_and_take(std::atomic<uint32_t>& word) {
  for (int looks = 0; looks < LOCK_LOOKS; ++looks) {
    pal_pause();
    if (try_take(word)) return true;
  }
  return false;
}

__attribute__((noinline)) int32_t take_later(sem_record& record, const pal_sem& sem, int32_t ticks) {
  if (ticks == 0) return -1;
  if (sem.kind == LOCK_KIND && look_and_take(record.word)) return 0;
  const pal_deadline deadline = pal_deadline_after(ticks);
  for (;;) {
    const uint32_t seen = record.word.fetch_or(WAITED, std::memory_order_relaxed);
    const bool in_time = (seen & FREE) != 0 || pal_word_wait(record.word, seen | WAITED, deadline, word_kind(sem));
    if (try_take(record.word)) return 0;
    if (!in_time) return -1;
  }
}

__attribute__((noinline)) void wake_takers(std::atomic<uint32_t>& word, pal_word kind) {
  // The mark goes only after the wake: if this process dies in between, the next give still wakes.
  pal_word_wake_all(word, kind);
  uint32_t unclaimed = FREE | WAITED;
  word.compare_exchange_strong(unclaimed, FREE, std::memory_order_relaxed);
}

// A word of this process alone may lose its mark at once: who does not get the semaphore sets it again.
void give(std::atomic<uint32_t>& word, pal_word kind) {
  const uint32_t before = kind == pal_word::OWN ? word.exchange(FREE, std::memory_order_release)
                                                : word.fetch_or(FREE, std::memory_order_release);
  const bool waited = (before & WAITED) != 0;
  if (__builtin_expect(waited, 0)) wake_takers(word, kind);
}

void set_count(std::atomic<uint32_t>& word, uint32_t count, pal_word kind) {
  if (count != 0) {
    give(word, kind);
  } else {
    word.fetch_and(~FREE, std::memory_order_acquire);
  }
}

} // namespace

int32_t pal_sem_create(pal_sem* sem, uint32_t kind) {
  if (sem != nullptr && is_private(*sem)) return 0;
  return pal_sem_create_ex(sem, kind, 1, sem);
}

int32_t pal_sem_create_ex(pal_sem* sem, uint32_t kind, uint32_t count, pal_sem* storage) {
  if (sem == nullptr || storage == nullptr) return -1;
  if (is_private(*storage)) {
    set_count(record_of(storage)->word, count, pal_word::OWN);
  } else {
    auto* record = new (std::nothrow) sem_record{RECORD_MAGIC, count != 0 ? FREE : 0};
    if (record == nullptr) return -1;
    *storage = {record, kind & ~NAMED};
  }
  if (sem != storage) *sem = *storage;
  return 0;
}

pal_sem* pal_sem_open(pal_sem* storage, uint32_t kind, const char* name, uint32_t count) {
  if (storage == nullptr || name == nullptr) return nullptr;
  char suffix[64] = "";
  const int len = std::snprintf(suffix, sizeof(suffix), "sem.%s", name);
  if (len < 0 || static_cast<size_t>(len) >= sizeof(suffix)) return nullptr;
  auto* record = static_cast<sem_record*>(pal_shared_attach(suffix, sizeof(sem_record), init_record, &count));
  if (record == nullptr || record->magic.load(std::memory_order_acquire) != RECORD_MAGIC) return nullptr;
  if (is_private(*storage)) delete record_of(storage);
  *storage = {record, kind | NAMED};
  return storage;
}

int32_t pal_sem_take(pal_sem* sem, int32_t ticks) {
  sem_record* record = record_of(sem);
  if (record == nullptr) return -1;
  return __builtin_expect(try_take(record->word), 1) ? 0 : take_later(*record, *sem, ticks);
}

int32_t pal_sem_give(pal_sem* sem) {
  sem_record* record = record_of(sem);
  if (record == nullptr) return -1;
  give(record->word, word_kind(*sem));
  return 0;
}

int32_t pal_sem_reset(pal_sem* sem, uint32_t count) {
  sem_record* record = record_of(sem);
  if (record == nullptr) return -1;
  set_count(record->word, count, word_kind(*sem));
  return 0;
}

int32_t pal_sem_count(pal_sem* sem) {
  const sem_record* record = record_of(sem);
  if (record == nullptr) return -1;
  return (record->word.load(std::memory_order_relaxed) & FREE) != 0 ? 1 : 0;
}
