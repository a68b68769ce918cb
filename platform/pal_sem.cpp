// Binary semaphores: one word each, private or in shared memory.
//
// Neither take nor give makes a system call unless somebody waits. A give wakes every sleeper and those that lose sleep
// again, so it does not matter which of them has died; a mark left by a dead sleeper costs one wake that finds nobody.
//
// A lock of this process alone is given with a plain store, which costs a frame less than an atomic exchange and keeps
// no mark: its sleepers are counted beside it.
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

struct own_record : sem_record {
  std::atomic<uint32_t> lock_sleepers;
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

bool is_own_lock(const pal_sem& sem) { return sem.kind == LOCK_KIND; } // a named one has another bit
own_record& own_record_of(sem_record& record) { return static_cast<own_record&>(record); }

// The holder of a lock is most likely at work on another core, and done in less time than a sleep takes.
bool look_and_take(std::atomic<uint32_t>& word) {
  for (int looks = 0; looks < LOCK_LOOKS; ++looks) {
    pal_pause();
    if (try_take(word)) return true;
  }
  return false;
}

// A give on another core may pass by a sleeper that is counted at the same moment: sleepers look again by themselves.
int32_t sleep_for_lock(own_record& record, const pal_deadline& deadline) {
  record.lock_sleepers.fetch_add(1);
  bool taken = try_take(record.word);
  for (bool in_time = true; !taken && in_time; taken = try_take(record.word)) {
    in_time = pal_word_nap(record.word, 0, deadline);
  }
  record.lock_sleepers.fetch_sub(1);
  return taken ? 0 : -1;
}

void give_lock(own_record& record) {
  record.word.store(FREE, std::memory_order_release);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (__builtin_expect(record.lock_sleepers.load(std::memory_order_relaxed) != 0, 0)) {
    pal_word_wake_all(record.word, pal_word::OWN);
  }
}

__attribute__((noinline)) int32_t take_later(sem_record& record, const pal_sem& sem, int32_t ticks) {
  if (ticks == 0) return -1;
  if (is_own_lock(sem)) {
    return look_and_take(record.word) ? 0 : sleep_for_lock(own_record_of(record), pal_deadline_after(ticks));
  }
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

void give(sem_record& record, const pal_sem& sem) {
  if (is_own_lock(sem)) [[likely]]
    return give_lock(own_record_of(record));
  const bool waited = (record.word.fetch_or(FREE, std::memory_order_release) & WAITED) != 0;
  if (__builtin_expect(waited, 0)) wake_takers(record.word, word_kind(sem));
}

void set_count(sem_record& record, uint32_t count, const pal_sem& sem) {
  if (count != 0) {
    give(record, sem);
  } else {
    record.word.fetch_and(~FREE, std::memory_order_acquire);
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
    set_count(*record_of(storage), count, *storage);
  } else {
    auto* record = new (std::nothrow) own_record{{RECORD_MAGIC, count != 0 ? FREE : 0}, 0};
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
  if (is_private(*storage)) delete &own_record_of(*record_of(storage));
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
  give(*record, *sem);
  return 0;
}

int32_t pal_sem_reset(pal_sem* sem, uint32_t count) {
  sem_record* record = record_of(sem);
  if (record == nullptr) return -1;
  set_count(*record, count, *sem);
  return 0;
}

int32_t pal_sem_count(pal_sem* sem) {
  const sem_record* record = record_of(sem);
  if (record == nullptr) return -1;
  return (record->word.load(std::memory_order_relaxed) & FREE) != 0 ? 1 : 0;
}
