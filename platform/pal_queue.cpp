// Message queues: one ring for each priority in one record, private or in shared memory, under a lock that survives the
// death of its holder; and beside the record a ring of this process's own messages to itself, which no other process
// can hold up.
//
// An operation takes effect with a single store (a ring's tail or head), so whatever its process dies at, the record
// holds the state before or after it, and the next holder has nothing to mend. What another process may have scribbled
// is checked before it is used as an index; shape and sizes come from this process's own table.
#include "platform/pal.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <pthread.h>

#include "platform/pal_own_ring.h"
#include "platform/pal_settings.h"
#include "platform/pal_shared.h"
#include "platform/pal_wait.h"

namespace {

constexpr uint32_t MAX_QUEUES = 32;
constexpr uint32_t MAX_DEPTH = 65536;
constexpr uint32_t MAX_MESSAGE = 256;
constexpr int64_t LOCK_MS = 50;           // patience with a lock's holder
constexpr int64_t LOCK_FIRST_TICKS = 600; // the same for messages of the first priority: as for a client's answer

constexpr uint32_t RECORD_MAGIC = 0x31525551; // "QUR1"
constexpr int32_t EMPTY = 0;
constexpr int32_t UNUSABLE = -1;

// Slots head to tail - 1 hold messages; a ring has one slot more than the queue's depth, so that full is not empty.
struct ring {
  std::atomic<uint32_t> head; // stored last by a receiver
  std::atomic<uint32_t> tail; // stored last by a sender
};

struct queue_record {
  std::atomic<uint32_t> magic; // written last
  uint32_t depth;
  uint32_t message_size;
  std::atomic<uint32_t> asleep; // 1: a receiver may be asleep on this word
  ring rings[PAL_MSGQ_PRIORITIES];
  pthread_mutex_t lock; // guards the rings
};

struct shape {
  uint32_t key;
  uint32_t depth;
  uint32_t message_size;
  bool operator==(const shape&) const = default;
};

// A queue of this process. Record and ring are kept when the queue is closed and used again for the same shape, so that
// a late sender cannot fault.
struct queue {
  queue_record* record; // null: the entry was never used
  pal_own_ring* own;
  shape is;
  std::atomic<bool> open;
};

// Opened and closed under the lock, used without it. Any thread.
queue g_queues[MAX_QUEUES];
std::mutex g_queues_lock;

queue* find_queue(pal_msgQ_id id) {
  if (id < 1 || static_cast<uint32_t>(id) > MAX_QUEUES) return nullptr;
  queue& found = g_queues[id - 1];
  return found.open.load(std::memory_order_acquire) ? &found : nullptr;
}

pal_word word_kind(const queue& of) { return of.is.key == 0 ? pal_word::OWN : pal_word::SHARED; }

// ---- the record

uint32_t slots_of(const shape& is) { return is.depth + 1; }

uint32_t record_size(const shape& is) {
  return static_cast<uint32_t>(sizeof(queue_record)) + PAL_MSGQ_PRIORITIES * slots_of(is) * is.message_size;
}

bool init_lock(pthread_mutex_t& lock, bool shared) {
  if (!shared) return pthread_mutex_init(&lock, nullptr) == 0; // its holder cannot die alone
  pthread_mutexattr_t attr;
  if (pthread_mutexattr_init(&attr) != 0) return false;
  const bool done = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
                    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST) == 0 &&
                    pthread_mutex_init(&lock, &attr) == 0;
  pthread_mutexattr_destroy(&attr);
  return done;
}

bool init_record(void* memory, const void* arg) {
  auto* record = static_cast<queue_record*>(memory);
  const shape& is = *static_cast<const shape*>(arg);
  if (record->magic.load(std::memory_order_acquire) != 0) return true;
  new (record) queue_record{};
  record->depth = is.depth;
  record->message_size = is.message_size;
  if (!init_lock(record->lock, is.key != 0)) return false;
  record->magic.store(RECORD_MAGIC, std::memory_order_release);
  return true;
}

bool is_of_shape(const queue_record& record, const shape& is) {
  return record.magic.load(std::memory_order_acquire) == RECORD_MAGIC && record.depth == is.depth &&
         record.message_size == is.message_size;
}

queue_record* private_record(const shape& is) {
  void* memory = std::calloc(1, record_size(is));
  if (memory == nullptr || init_record(memory, &is)) return static_cast<queue_record*>(memory);
  std::free(memory);
  return nullptr;
}

queue_record* shared_record(const shape& is) {
  char suffix[16] = "";
  std::snprintf(suffix, sizeof(suffix), "q.%u", static_cast<unsigned>(is.key));
  auto* record = static_cast<queue_record*>(pal_shared_attach(suffix, record_size(is), init_record, &is));
  return record != nullptr && is_of_shape(*record, is) ? record : nullptr;
}

// The lock is held for some ten nanoseconds, so it is mostly free. A holder that has died is told by the lock itself.
bool lock_record(queue_record& record, int64_t patience_ms = LOCK_MS) {
  int ret = pthread_mutex_trylock(&record.lock);
  if (__builtin_expect(ret == EBUSY, 0)) {
    pal_look_until([&] { return (ret = pthread_mutex_trylock(&record.lock)) != EBUSY; }, patience_ms);
  }
  if (ret == EOWNERDEAD) ret = pthread_mutex_consistent(&record.lock);
  return ret == 0;
}

// ---- its rings, under the lock

struct span {
  uint32_t head;
  uint32_t tail;
};

span read_ring(ring& of, uint32_t slots) {
  const span found = {of.head.load(std::memory_order_relaxed), of.tail.load(std::memory_order_relaxed)};
  if (found.head < slots && found.tail < slots) return found;
  of.head.store(0, std::memory_order_relaxed); // scribbled upon: what it held is lost
  of.tail.store(0, std::memory_order_relaxed);
  return {0, 0};
}

uint32_t count_messages(const queue_record& record, uint32_t slots) {
  uint32_t count = 0;
  for (const ring& each : record.rings) {
    const uint32_t head = each.head.load(std::memory_order_relaxed);
    const uint32_t tail = each.tail.load(std::memory_order_relaxed);
    if (head < slots && tail < slots) count += tail >= head ? tail - head : slots + tail - head;
  }
  return count;
}

uint8_t* slot_at(const queue& of, uint32_t priority, uint32_t index) {
  auto* slots = reinterpret_cast<uint8_t*>(of.record + 1);
  return slots + (static_cast<size_t>(priority) * slots_of(of.is) + index) * of.is.message_size;
}

uint32_t next_slot(uint32_t index, uint32_t slots) { return index + 1 == slots ? 0 : index + 1; }

// Without the lock, which the woken receiver needs at once. A receiver sets the mark and looks once more, a sender
// moves its ring's end and looks for the mark: one of them sees the other. The mark goes before the wake: a receiver on
// its way to sleep finds it gone and turns back. While it stands every sender wakes; one that dies between the two
// leaves the receiver to the end of its wait.
void wake_receiver(const queue& of) {
  queue_record& record = *of.record;
  if (record.asleep.load() == 0) return;
  record.asleep.store(0, std::memory_order_relaxed);
  pal_word_wake_all(record.asleep, word_kind(of));
}

// For a lock that a message of this priority needs.
int64_t lock_patience_ms(uint32_t priority) {
  return priority == PAL_MSGQ_FIRST ? LOCK_FIRST_TICKS * pal_tick_us() / 1000 : LOCK_MS;
}

bool put_message(const queue& to, const void* message, uint32_t priority) {
  const uint32_t slots = slots_of(to.is);
  const uint32_t room = priority == PAL_MSGQ_FIRST ? to.is.depth : to.is.depth - PAL_MSGQ_RESERVED;
  if (count_messages(*to.record, slots) >= room) return false;
  ring& into = to.record->rings[priority];
  const uint32_t tail = read_ring(into, slots).tail;
  std::memcpy(slot_at(to, priority, tail), message, to.is.message_size);
  into.tail.store(next_slot(tail, slots)); // before the look for a sleeper
  return true;
}

bool get_message(const queue& from, void* message) {
  const uint32_t slots = slots_of(from.is);
  for (uint32_t priority = 0; priority < PAL_MSGQ_PRIORITIES; ++priority) {
    ring& out_of = from.record->rings[priority];
    const span used = read_ring(out_of, slots);
    if (used.head == used.tail) continue;
    std::memcpy(message, slot_at(from, priority, used.head), from.is.message_size);
    out_of.head.store(next_slot(used.head, slots), std::memory_order_release);
    return true;
  }
  return false;
}

bool has_message(const queue_record& record) {
  uint32_t differ = 0;
#pragma GCC unroll 4
  for (const ring& each : record.rings) differ |= each.head.load(std::memory_order_relaxed) ^ each.tail.load();
  return differ != 0;
}

// ---- both

// Octets received, EMPTY or UNUSABLE: other processes' messages first. While they cannot be had, our own can.
int32_t receive_one(const queue& from, void* message, int64_t patience_ms) {
  bool got = false;
  int32_t result = EMPTY;
  if (__builtin_expect(has_message(*from.record), 0)) {
    if (pal_own_ring_is_taken(*from.own)) patience_ms = 0;
    if (lock_record(*from.record, patience_ms)) {
      got = get_message(from, message);
      pthread_mutex_unlock(&from.record->lock);
    } else {
      result = UNUSABLE;
    }
  }
  got = got || pal_own_ring_get(*from.own, message);
  return got ? static_cast<int32_t>(from.is.message_size) : result;
}

// Sleeps until a message comes or the time is over, unless one is there already: what receive_one says.
int32_t receive_after_sleep(const queue& from, void* message, const pal_deadline& deadline) {
  std::atomic<uint32_t>& asleep = from.record->asleep;
  int32_t got = EMPTY;
  bool in_time = true;
  while (got <= 0 && in_time) {
    asleep.exchange(1);
    got = receive_one(from, message, 0);
    // A sender that has taken a position does not look for the mark again: its message is there in a moment.
    if (got <= 0 && pal_own_ring_is_taken(*from.own)) {
      pal_look_until([&] { return (got = receive_one(from, message, 0)) > 0; }, LOCK_MS);
    }
    if (got > 0) break; // the mark may be another receiver's, too, and stays
    in_time = (got == EMPTY || !deadline.never) && pal_word_wait(asleep, 1, deadline, word_kind(from));
    if (in_time) got = receive_one(from, message, LOCK_MS);
  }
  return got;
}

// A closed entry of the shape, else one never used; null when there is none.
queue* pick_entry(const shape& is) {
  queue* unused = nullptr;
  for (queue& each : g_queues) {
    if (each.record == nullptr) {
      if (unused == nullptr) unused = &each;
    } else if (!each.open.load(std::memory_order_relaxed) && each.is == is) {
      return &each;
    }
  }
  return unused;
}

void empty_queue(queue& of) {
  if (!lock_record(*of.record)) return;
  for (ring& each : of.record->rings) each.head.store(each.tail.load(std::memory_order_relaxed));
  pthread_mutex_unlock(&of.record->lock);
  if (of.own != nullptr) pal_own_ring_empty(*of.own);
}

} // namespace

int32_t pal_msgQ_create_ex(pal_msgQ_id* id, uint32_t key, uint32_t depth, uint32_t size, uint32_t) {
  if (id == nullptr || depth <= PAL_MSGQ_RESERVED || depth > MAX_DEPTH || size == 0 || size > MAX_MESSAGE) return -1;
  const shape is = {key, depth, size};
  const std::lock_guard<std::mutex> guard(g_queues_lock);
  if (queue* live = find_queue(*id)) {
    if (live->is == is) return 0;
    live->open.store(false, std::memory_order_relaxed);
  }
  *id = 0;
  queue* entry = pick_entry(is);
  if (entry == nullptr) return -1;
  if (entry->record == nullptr) {
    entry->record = key == 0 ? private_record(is) : shared_record(is);
    entry->is = is;
  } else if (key == 0) {
    empty_queue(*entry);
  }
  if (entry->record != nullptr && entry->own == nullptr) entry->own = pal_own_ring_make(is.depth, is.message_size);
  if (entry->own == nullptr) return -1;
  entry->open.store(true, std::memory_order_release);
  *id = static_cast<pal_msgQ_id>(entry - g_queues) + 1;
  return 0;
}

int32_t pal_msgQ_send_priority(pal_msgQ_id id, const void* message, uint32_t len, uint32_t priority) {
  const queue* to = find_queue(id);
  if (to == nullptr || message == nullptr || len != to->is.message_size || priority >= PAL_MSGQ_PRIORITIES) return -1;
  if (!lock_record(*to->record, lock_patience_ms(priority))) return -1;
  const bool sent = put_message(*to, message, priority);
  pthread_mutex_unlock(&to->record->lock);
  if (!sent) return -1;
  wake_receiver(*to);
  return 0;
}

int32_t pal_msgQ_send_own(pal_msgQ_id id, const void* message, uint32_t len, void (*before)(void* arg), void* arg) {
  const queue* to = find_queue(id);
  if (to == nullptr || message == nullptr || len != to->is.message_size) return -1;
  const auto announce = [before, arg] {
    if (before != nullptr) before(arg);
  };
  if (!pal_own_ring_put(*to->own, to->is.depth - PAL_MSGQ_RESERVED, message, len, announce)) return -1;
  wake_receiver(*to);
  return 0;
}

int32_t pal_msgQ_receive_wait_priority(pal_msgQ_id id, void* buffer, uint32_t size, int32_t wait, int32_t) {
  const queue* from = find_queue(id);
  const bool usable = from != nullptr && buffer != nullptr && size >= from->is.message_size;
  int32_t got = usable ? receive_one(*from, buffer, LOCK_MS) : UNUSABLE;
  if (got > 0) return got;
  const pal_deadline deadline = pal_deadline_after(wait);
  if (!usable) {
    pal_sleep_until(deadline); // the time passes here too, so that no caller's loop spins
  } else if (wait != 0) {
    got = receive_after_sleep(*from, buffer, deadline);
  }
  return got > 0 ? got : -1;
}

int32_t pal_msgQ_is_private(pal_msgQ_id id) {
  const queue* of = find_queue(id);
  if (of == nullptr) return -1;
  return of->is.key == 0 ? 1 : 0;
}

void pal_msgQ_close(pal_msgQ_id* id) {
  if (id == nullptr) return;
  const std::lock_guard<std::mutex> guard(g_queues_lock);
  if (queue* live = find_queue(*id)) live->open.store(false, std::memory_order_relaxed);
  *id = 0;
}
