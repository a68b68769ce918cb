// Message queues: order, the reserve, waking, and what other processes may do to a shared one.
#include "platform/pal.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/pal_own_ring.h"
#include "tests/process/children.h"

namespace {

constexpr uint32_t DEPTH = 2048;
constexpr uint32_t SIZE = 9;

pal_msgQ_id open_queue(uint32_t key) {
  pal_msgQ_id id = 0;
  EXPECT_EQ(pal_msgQ_create_ex(&id, key, DEPTH, SIZE, 0), 0);
  return id;
}

// A message: sender, number, and the number's complement, so that a torn one shows.
struct __attribute__((packed)) numbered {
  uint8_t sender;
  uint32_t number;
  uint32_t complement;
};
static_assert(sizeof(numbered) == SIZE);

constexpr uint32_t OWN = 4; // in place of a priority: as to this process itself

int32_t send_number(pal_msgQ_id id, uint32_t number, uint32_t priority, uint8_t sender = 0) {
  const numbered message = {sender, number, ~number};
  if (priority == OWN) return pal_msgQ_send_own(id, &message, SIZE);
  return pal_msgQ_send_priority(id, &message, SIZE, priority);
}

// The next number, or -1 when there is none; -2 for a torn message.
int64_t next_number(pal_msgQ_id id, int32_t wait = 0) {
  numbered message = {};
  if (pal_msgQ_receive_wait_priority(id, &message, SIZE, wait, -6) != static_cast<int32_t>(SIZE)) return -1;
  return message.complement == ~message.number ? message.number : -2;
}

// The record of a shared queue, as any process of the user may map it.
uint8_t* map_record(const char* suffix) {
  const int fd = open(shared_path(suffix).c_str(), O_RDWR);
  void* record = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return static_cast<uint8_t*>(record);
}

TEST(queue, serves_smaller_priorities_first_and_in_order) {
  pal_msgQ_id id = open_queue(0);
  const uint32_t priorities[] = {3, 1, OWN, 3, 2, 0, OWN, 1, 3};
  for (uint32_t i = 0; i < 9; ++i) ASSERT_EQ(send_number(id, i, priorities[i]), 0);
  for (const int64_t expected : {5, 1, 7, 4, 0, 3, 8, 2, 6, -1}) EXPECT_EQ(next_number(id), expected);
  pal_msgQ_close(&id);
}

TEST(queue, keeps_its_last_slots_for_configuration) {
  pal_msgQ_id id = open_queue(21);
  for (uint32_t round = 0; round < 2; ++round) { // the second round wraps
    for (uint32_t i = 0; i < 1984; ++i) ASSERT_EQ(send_number(id, i, 3), 0) << i;
    EXPECT_EQ(send_number(id, 0, 3), -1);
    EXPECT_EQ(send_number(id, 0, 0), -1);
    for (uint32_t i = 0; i < 64; ++i) ASSERT_EQ(send_number(id, 5000 + i, 1), 0) << i;
    EXPECT_EQ(send_number(id, 0, 1), -1);
    EXPECT_EQ(next_number(id), 5000);
    EXPECT_EQ(send_number(id, 0, 3), -1) << "a packet took a slot of the reserve";
    EXPECT_EQ(send_number(id, 5064, 1), 0);
    for (int64_t i = 5001; i <= 5064; ++i) ASSERT_EQ(next_number(id), i);
    for (int64_t i = 0; i < 1984; ++i) ASSERT_EQ(next_number(id), i);
    EXPECT_EQ(next_number(id), -1);
  }
}

TEST(queue, own_messages_have_a_room_of_their_own) {
  pal_msgQ_id id = open_queue(30);
  for (uint32_t round = 0; round < 2; ++round) { // the second round wraps
    while (send_number(id, 0, 3) == 0) {         // as other processes may
    }
    for (uint32_t i = 0; i < 1984; ++i) ASSERT_EQ(send_number(id, i, OWN), 0) << i;
    EXPECT_EQ(send_number(id, 0, OWN), -1);
    EXPECT_EQ(send_number(id, 5000, 1), 0);
    EXPECT_EQ(wait_child(start_child([] { return next_number(open_queue(30)) == 5000 ? 0 : 1; })), 0);
    for (uint32_t i = 0; i < 1984; ++i) ASSERT_EQ(next_number(id), 0);
    for (int64_t i = 0; i < 1984; ++i) ASSERT_EQ(next_number(id), i);
    EXPECT_EQ(next_number(id), -1);
  }
}

TEST(queue, refuses_what_does_not_fit) {
  pal_msgQ_id id = open_queue(22);
  uint8_t buffer[16] = {};
  EXPECT_EQ(pal_msgQ_send_priority(id, buffer, 8, 1), -1);
  EXPECT_EQ(pal_msgQ_send_priority(id, buffer, 10, 1), -1);
  EXPECT_EQ(pal_msgQ_send_priority(id, buffer, 9, 4), -1);
  EXPECT_EQ(pal_msgQ_send_priority(id, nullptr, 9, 1), -1);
  EXPECT_EQ(pal_msgQ_send_own(id, buffer, 8), -1);
  EXPECT_EQ(pal_msgQ_send_own(id, nullptr, 9), -1);
  for (const pal_msgQ_id absent : {0, -1, 31, 33, 1 << 30}) {
    EXPECT_EQ(pal_msgQ_send_priority(absent, buffer, 9, 1), -1);
    EXPECT_EQ(pal_msgQ_send_own(absent, buffer, 9), -1);
    EXPECT_EQ(pal_msgQ_receive_wait_priority(absent, buffer, 9, 0, 0), -1);
  }
  EXPECT_EQ(send_number(id, 7, 1), 0);
  EXPECT_EQ(pal_msgQ_receive_wait_priority(id, buffer, 8, 0, 0), -1);
  EXPECT_EQ(pal_msgQ_receive_wait_priority(id, nullptr, 9, 0, 0), -1);
  EXPECT_EQ(next_number(id), 7);

  const struct {
    uint32_t key, depth, size;
  } shapes[] = {{22, DEPTH, 10}, {22, 2047, SIZE}, {22, 6146, 3}, // the last has the same number of octets
                {23, 64, SIZE},  {23, DEPTH, 0},   {23, 0xFFFFFFFF, SIZE}, {23, DEPTH, 0xFFFFFFFF}};
  for (const auto& shape : shapes) {
    pal_msgQ_id refused = 0;
    const auto create = [&] { return pal_msgQ_create_ex(&refused, shape.key, shape.depth, shape.size, 0); };
    EXPECT_EQ(create(), -1) << shape.depth;
    EXPECT_EQ(wait_child(start_child([&] { return create() == -1 ? 0 : 1; })), 0) << shape.depth;
  }
}

TEST(queue, an_open_id_is_kept_for_its_key_only) {
  pal_msgQ_id id = open_queue(0);
  const pal_msgQ_id before = id;
  ASSERT_EQ(send_number(id, 1, 3), 0);
  EXPECT_EQ(pal_msgQ_create_ex(&id, 0, DEPTH, SIZE, 0), 0);
  EXPECT_EQ(id, before);
  EXPECT_EQ(next_number(id), 1);
  pal_msgQ_id other = open_queue(0);
  ASSERT_EQ(send_number(id, 2, 3), 0);
  EXPECT_EQ(next_number(other), -1) << "two private queues are one";

  ASSERT_EQ(send_number(id, 3, OWN), 0);
  for (int turn = 0; turn < 100; ++turn) { // no entry is lost by changing between them
    ASSERT_EQ(pal_msgQ_create_ex(&id, 24, DEPTH, SIZE, 0), 0);
    ASSERT_EQ(pal_msgQ_create_ex(&id, 0, DEPTH, SIZE, 0), 0);
  }
  EXPECT_EQ(next_number(id), -1) << "a private queue opened anew is not empty";
  pal_msgQ_close(&id);
  pal_msgQ_close(&other);
  EXPECT_EQ(id, 0);
  EXPECT_EQ(send_number(before, 1, 1), -1);
}

TEST(queue, receive_waits_its_ticks_and_wakes_on_a_send) {
  pal_msgQ_id id = open_queue(25);
  for (const pal_msgQ_id which : {id, 0}) { // an absent queue lets the time pass as well
    const int64_t start = now_ms();
    const uint32_t start_tick = pal_tickget();
    EXPECT_EQ(next_number(which, 30), -1);
    for (const int64_t took : {now_ms() - start, int64_t{pal_tickget() - start_tick}}) {
      EXPECT_GE(took, 29);
      EXPECT_LT(took, 2000);
    }
  }
  const pid_t child = start_child([&] {
    for (uint32_t i = 0; i < 200; ++i) {
      if (i % 50 == 0) pause_ms(5);
      if (send_number(id, i, 3) != 0) return 1;
    }
    return 0;
  });
  for (int64_t i = 0; i < 200; ++i) ASSERT_EQ(next_number(id, -1), i);
  EXPECT_EQ(wait_child(child), 0);
}

// The receiver empties the queue and goes to sleep while the next message comes, a little later each time.
void expect_woken_for_each(uint32_t priority) {
  constexpr uint32_t ROUNDS = 30000;
  pal_msgQ_id id = open_queue(0);
  std::atomic<int64_t> taken{-1};
  std::thread sender([&] {
    for (uint32_t i = 0; i < ROUNDS; ++i) {
      while (taken != static_cast<int64_t>(i) - 1) std::this_thread::yield();
      for (uint32_t spin = i % 200; spin > 0; --spin) asm volatile("");
      send_number(id, i, priority);
    }
  });
  uint32_t late = 0;
  for (int64_t i = 0; i < ROUNDS; ++i) {
    for (int64_t number = -1; number != i; ++late) number = next_number(id, 1000);
    taken = i;
  }
  sender.join();
  EXPECT_EQ(late, ROUNDS) << "waits, one for each message";
  pal_msgQ_close(&id);
}

TEST(queue, a_message_is_not_slept_through) {
  expect_woken_for_each(3);
  expect_woken_for_each(OWN);
}

TEST(queue, many_senders_lose_nothing) {
  constexpr uint8_t SENDERS = 4;
  constexpr uint32_t EACH = 5000;
  pal_msgQ_id id = open_queue(0);
  std::vector<std::thread> threads;
  for (uint8_t sender = 0; sender < SENDERS; ++sender) {
    threads.emplace_back([id, sender] {
      for (uint32_t i = 0; i < EACH; ++i) {
        while (send_number(id, i, sender % 2 == 0 ? 1 : OWN, sender) != 0) std::this_thread::yield();
      }
    });
  }
  uint32_t due[SENDERS] = {};
  for (uint32_t i = 0; i < SENDERS * EACH; ++i) {
    numbered message = {};
    ASSERT_EQ(pal_msgQ_receive_wait_priority(id, &message, SIZE, 10000, 0), static_cast<int32_t>(SIZE));
    ASSERT_LT(message.sender, SENDERS);
    ASSERT_EQ(message.number, due[message.sender]++);
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(next_number(id), -1);
  pal_msgQ_close(&id);
}

// A sender that is interrupted between taking its position and filling it.
TEST(own_ring, a_message_waits_for_the_one_that_was_taken_before_it) {
  pal_own_ring* ring = pal_own_ring_make(4, SIZE);
  ASSERT_NE(ring, nullptr);
  char got[SIZE] = "";
  uint32_t announced = 0;
  const auto put = [&](const char* text) {
    return pal_own_ring_put(*ring, 3, text, SIZE, [&] {
      ++announced;
      EXPECT_TRUE(pal_own_ring_is_taken(*ring));
      EXPECT_FALSE(pal_own_ring_get(*ring, got)) << "received before it was announced";
    });
  };
  for (uint32_t round = 0; round < 9; ++round) { // past the ring's end
    const uint32_t taken = ring->senders.end.fetch_add(1);
    EXPECT_TRUE(put("abcdefgh"));
    EXPECT_FALSE(pal_own_ring_get(*ring, got));
    EXPECT_TRUE(pal_own_ring_is_taken(*ring));
    EXPECT_TRUE(put("ijklmnop"));
    EXPECT_FALSE(put("qrstuvwx")) << "what is taken fills the room";
    EXPECT_EQ(announced, 2 * round + 2) << "announced without a place";
    pal_own_slot* slot = pal_own_slot_at(*ring, ring->senders.slots, taken);
    std::memcpy(pal_own_message_of(slot), "01234567", SIZE);
    slot->filled = taken + 1;
    for (const char* expected : {"01234567", "abcdefgh", "ijklmnop"}) {
      EXPECT_TRUE(pal_own_ring_get(*ring, got));
      EXPECT_STREQ(got, expected);
    }
    EXPECT_FALSE(pal_own_ring_is_taken(*ring));
  }
  std::free(ring);
}

TEST(queue, attaching_waits_for_a_creator_at_work) {
  const int fd = open(shared_path("q.28").c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  const pid_t child = start_child([] { return send_number(open_queue(28), 1, 3) == 0 ? 0 : 1; });
  pause_ms(50);
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0);
  EXPECT_EQ(lseek(fd, 0, SEEK_END), 0) << "two creators at work at once";
  flock(fd, LOCK_UN); // the child has the descriptor too: closing it here frees nothing
  close(fd);
  EXPECT_EQ(wait_child(child), 0);
  EXPECT_EQ(next_number(open_queue(28)), 1);
}

// The queue is empty after messages that are whole, sent in this turn and in order within their priority.
void expect_sound(pal_msgQ_id id, uint8_t turn) {
  uint32_t due[4] = {};
  numbered message = {};
  for (uint32_t count = 0; pal_msgQ_receive_wait_priority(id, &message, SIZE, 0, 0) > 0; ++count) {
    ASSERT_LT(count, DEPTH);
    ASSERT_EQ(message.complement, ~message.number);
    ASSERT_EQ(message.sender, turn);
    uint32_t& next = due[message.number % 4];
    ASSERT_GE(message.number, next);
    next = message.number + 1;
  }
}

// Children send and receive as fast as they can and are killed wherever they are, mostly while they hold the lock; some
// are stopped first.
TEST(queue, survives_killed_and_stopped_processes) {
  pal_msgQ_id id = open_queue(26);
  std::minstd_rand random(1);
  for (uint8_t turn = 0; turn < 150; ++turn) {
    const pid_t child = start_child([&] {
      for (uint32_t i = 0;; i += 2) {
        send_number(id, i, i % 4, turn);
        send_number(id, i + 1, (i + 1) % 4, turn);
        next_number(id);
      }
      return 0;
    });
    usleep(300 + static_cast<useconds_t>(random() % 1500));
    const int64_t start = now_ms();
    if (turn % 50 == 0) {
      kill(child, SIGSTOP);
      next_number(id);
      next_number(id);
      ASSERT_LT(now_ms() - start, 1000) << "a stopped process holds up the others, turn " << static_cast<int>(turn);
    }
    kill_child(child);

    ASSERT_NO_FATAL_FAILURE(expect_sound(id, turn)) << "turn " << static_cast<int>(turn);
    ASSERT_EQ(send_number(id, 78, 3), 0) << "turn " << static_cast<int>(turn);
    ASSERT_EQ(next_number(id), 78);
    ASSERT_LT(now_ms() - start, 3000);
  }
}

// A process that lives and does not run, as on a busy machine: the lock lies behind twelve words.
TEST(queue, configuration_waits_for_a_lock_that_others_give_up_on_and_frames_do_not_need) {
  constexpr size_t LOCK = 12 * sizeof(uint32_t);
  pal_msgQ_id id = open_queue(29);
  int held[2];
  int wanted[2];
  ASSERT_EQ(pipe(held) + pipe(wanted), 0);
  const pid_t child = start_child([&] {
    auto* lock = reinterpret_cast<pthread_mutex_t*>(map_record("q.29") + LOCK);
    char sign = 0;
    if (pthread_mutex_lock(lock) != 0 || write(held[1], &sign, 1) != 1 || read(wanted[0], &sign, 1) != 1) return 1;
    pause_ms(150);
    return pthread_mutex_unlock(lock);
  });
  ASSERT_EQ(send_number(id, 0, 1), 0);
  char sign = 0;
  ASSERT_EQ(read(held[0], &sign, 1), 1);
  EXPECT_EQ(send_number(id, 1, 3), -1);
  const int64_t start = now_ms();
  for (uint32_t i = 10; i < 30; ++i) {
    ASSERT_EQ(send_number(id, i, OWN), 0);
    ASSERT_EQ(next_number(id, 100), i);
  }
  EXPECT_LT(now_ms() - start, 200) << "frames wait for another process";
  ASSERT_EQ(write(wanted[1], &sign, 1), 1);
  EXPECT_EQ(send_number(id, 2, 1), 0);
  EXPECT_EQ(wait_child(child), 0);
  EXPECT_EQ(next_number(id), 0);
  EXPECT_EQ(next_number(id), 2);
  EXPECT_EQ(next_number(id), -1);
  for (const int fd : {held[0], held[1], wanted[0], wanted[1]}) close(fd);
}

// The ring positions lie behind four words; whatever they hold, nothing outside the record is touched.
TEST(queue, scribbled_positions_do_no_harm) {
  constexpr size_t POSITIONS = 4 * sizeof(uint32_t);
  pal_msgQ_id id = open_queue(27);
  uint8_t* record = map_record("q.27");
  std::minstd_rand random(2);
  for (int turn = 0; turn < 2000; ++turn) {
    for (size_t i = 0; i < 8; ++i) {
      const uint32_t value =
          turn % 2 == 0 ? static_cast<uint32_t>(random()) * 4 : static_cast<uint32_t>(2040 + random() % 20);
      std::memcpy(record + POSITIONS + i * sizeof(value), &value, sizeof(value));
    }
    for (uint32_t priority = 0; priority < 4; ++priority) send_number(id, 1, priority);
    for (int i = 0; i < 8; ++i) next_number(id);
  }
  munmap(record, 4096);
  while (next_number(id) != -1) {
  }
  EXPECT_EQ(send_number(id, 5, 3), 0);
  EXPECT_EQ(next_number(id), 5);
}

} // namespace
