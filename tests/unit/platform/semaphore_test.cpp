// Semaphores: the cap, timed waits, and waking across threads and processes, dead ones included.
#include "platform/pal.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/time.h>
#include <thread>
#include <vector>

#include "tests/process/children.h"

namespace {

// Unnamed semaphores are static here: they live as long as the process, as they do in the agent.
pal_sem named(const char* name, uint32_t count) {
  pal_sem sem = {};
  EXPECT_EQ(pal_sem_open(&sem, 1, name, count), &sem);
  return sem;
}

TEST(semaphore, is_capped_at_one_private_and_shared) {
  static pal_sem own = {};
  ASSERT_EQ(pal_sem_create(&own, 2), 0);
  for (pal_sem sem : {own, named("cap", 1)}) {
    EXPECT_EQ(pal_sem_count(&sem), 1);
    EXPECT_EQ(pal_sem_give(&sem), 0);
    EXPECT_EQ(pal_sem_give(&sem), 0);
    EXPECT_EQ(pal_sem_take(&sem, 0), 0);
    EXPECT_EQ(pal_sem_take(&sem, 0), -1);
    EXPECT_EQ(pal_sem_count(&sem), 0);
  }
  EXPECT_EQ(pal_sem_count(&own), 0) << "a copy of the handle is another semaphore";
}

TEST(semaphore, creating_again_keeps_the_object) {
  static pal_sem sem = {};
  ASSERT_EQ(pal_sem_create(&sem, 2), 0);
  const void* state = sem.state;
  ASSERT_EQ(pal_sem_take(&sem, 0), 0);
  EXPECT_EQ(pal_sem_create(&sem, 2), 0);
  EXPECT_EQ(pal_sem_count(&sem), 0) << "a held semaphore was freed";
  EXPECT_EQ(pal_sem_create_ex(&sem, 1, 1, &sem), 0);
  EXPECT_EQ(pal_sem_count(&sem), 1);
  EXPECT_EQ(pal_sem_create_ex(&sem, 1, 0, &sem), 0);
  EXPECT_EQ(pal_sem_count(&sem), 0);
  EXPECT_EQ(sem.state, state);

  // From private to shared and back: each kind gets its own state.
  EXPECT_EQ(pal_sem_open(&sem, 1, "again", 1), &sem);
  EXPECT_EQ(pal_sem_create_ex(&sem, 1, 0, &sem), 0);
  pal_sem shared = named("again", 0);
  EXPECT_EQ(pal_sem_count(&shared), 1) << "an unnamed semaphore shares the state of a named one";
}

TEST(semaphore, refuses_what_is_absent) {
  pal_sem none = {};
  EXPECT_EQ(pal_sem_take(&none, 0), -1);
  EXPECT_EQ(pal_sem_give(&none), -1);
  EXPECT_EQ(pal_sem_take(nullptr, -1), -1);
  EXPECT_EQ(pal_sem_create(nullptr, 2), -1);
  EXPECT_EQ(pal_sem_open(&none, 1, "no/such", 1), nullptr);
}

TEST(semaphore, timed_take_lasts_its_ticks_through_signals) {
  static pal_sem sem = {};
  ASSERT_EQ(pal_sem_create_ex(&sem, 2, 0, &sem), 0);
  struct sigaction ignore = {};
  ignore.sa_handler = [](int) {};
  sigaction(SIGALRM, &ignore, nullptr);
  const itimerval often = {{0, 2000}, {0, 2000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const int64_t start = now_ms();
  EXPECT_EQ(pal_sem_take(&sem, 60), -1);
  const int64_t took = now_ms() - start;
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_GE(took, 59);
  EXPECT_LT(took, 2000);
}

TEST(semaphore, excludes_and_wakes_many_threads) {
  static pal_sem sem = {};
  ASSERT_EQ(pal_sem_create(&sem, 2), 0);
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&counter] {
      for (int turn = 0; turn < 5000; ++turn) {
        ASSERT_EQ(pal_sem_take(&sem, turn % 2 == 0 ? -1 : 10000), 0);
        ++counter;
        if (turn % 4 == 0) std::this_thread::yield(); // lets the others fall asleep
        pal_sem_give(&sem);
      }
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(counter, 20000);
}

TEST(semaphore, dead_waiters_break_nothing) {
  pal_sem sem = named("dead", 0);
  pal_sem done = named("done", 0);
  for (int turn = 0; turn < 20; ++turn) {
    const pid_t dying[2] = {start_child([&] { return pal_sem_take(&sem, -1); }),
                            start_child([&] { return pal_sem_take(&sem, -1); })};
    const pid_t living = start_child([&] { return pal_sem_take(&sem, -1) == 0 && pal_sem_give(&done) == 0 ? 0 : 1; });
    pause_ms(turn % 4);
    for (const pid_t each : dying) kill_child(each);
    EXPECT_EQ(pal_sem_give(&sem), 0);
    EXPECT_EQ(pal_sem_take(&done, 5000), 0) << "the living waiter was not woken";
    EXPECT_EQ(wait_child(living), 0);
    EXPECT_EQ(pal_sem_take(&sem, 2), -1) << "more was taken out than given";
  }
}

// All on one processor, so that the waiter that is woken first mostly dies before it runs.
TEST(semaphore, a_waiter_that_dies_when_woken_does_not_keep_the_others_asleep) {
  cpu_set_t all, one;
  ASSERT_EQ(sched_getaffinity(0, sizeof(all), &all), 0);
  CPU_ZERO(&one);
  for (size_t cpu = 0; CPU_COUNT(&one) == 0; ++cpu) {
    if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &one);
  }
  ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
  pal_sem sem = named("woken", 0);
  for (int turn = 0; turn < 20; ++turn) {
    const pid_t dying = start_child([&] { return pal_sem_take(&sem, -1); });
    pause_ms(5);
    const pid_t living = start_child([&] { return pal_sem_take(&sem, -1); });
    pause_ms(5);
    EXPECT_EQ(pal_sem_give(&sem), 0);
    kill_child(dying);
    pause_ms(5);
    if (pal_sem_count(&sem) == 1) pause_ms(500); // a slow machine
    EXPECT_EQ(pal_sem_count(&sem), 0) << "free, and the living waiter sleeps";
    pal_sem_give(&sem);
    EXPECT_EQ(wait_child(living), 0);
    pal_sem_reset(&sem, 0);
  }
  sched_setaffinity(0, sizeof(all), &all);
}

TEST(semaphore, reset_sets_the_count_and_wakes) {
  pal_sem sem = named("reset", 1);
  EXPECT_EQ(pal_sem_reset(&sem, 0), 0);
  EXPECT_EQ(pal_sem_count(&sem), 0);
  std::thread waiter([&] { EXPECT_EQ(pal_sem_take(&sem, 5000), 0); });
  pause_ms(10);
  EXPECT_EQ(pal_sem_reset(&sem, 1), 0);
  waiter.join();
}

} // namespace
