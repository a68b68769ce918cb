// The event thread: order of events, stopping, and what is left over.
#include "platform/lib_comm.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "platform/pal.h"
#include "tests/process/children.h"

namespace {

std::vector<intptr_t> g_ran; // the worker of the running test
std::atomic<int32_t> g_fetches;
std::atomic<int32_t> g_longest_wait;

int32_t note_event(lib_comm_task* task) {
  g_ran.push_back(reinterpret_cast<intptr_t>(task->argument));
  return 0;
}

// Nothing ever comes: the queue is absent.
int32_t fetch_nothing(void*, int32_t wait) {
  ++g_fetches;
  if (wait > g_longest_wait) g_longest_wait = wait;
  uint8_t buffer[9];
  return pal_msgQ_receive_wait_priority(0, buffer, sizeof(buffer), wait, -6);
}

lib_comm_lib* start_lib() {
  g_ran.clear();
  g_fetches = 0;
  g_longest_wait = 0;
  lib_comm_lib* lib = lib_comm_lib_create("LINEID");
  EXPECT_NE(lib, nullptr);
  lib->tick_timeout = 1000;
  EXPECT_NE(lib_comm_openzlog(lib, 0, 1000, 1), nullptr);
  EXPECT_EQ(lib_comm_lib_start(lib), 0);
  EXPECT_EQ(lib_comm_lib_start(lib), -1);
  return lib;
}

int32_t add(lib_comm_lib* lib, intptr_t number) {
  return lib_comm_thread_add_event(lib, note_event, reinterpret_cast<void*>(number), 0);
}

void run_loop(lib_comm_lib* lib, lib_comm_fetch_func fetch) {
  lib_comm_task task = {};
  while (lib_comm_thread_fetch_with_func(lib, &task, fetch, 0) != nullptr) lib_comm_thread_call(&task);
}

TEST(event_thread, an_idle_loop_sleeps_and_stops_soon) {
  lib_comm_lib* lib = start_lib();
  lib_comm_retain(lib);
  std::thread worker([lib] {
    run_loop(lib, fetch_nothing);
    lib_comm_release(lib);
  });
  pause_ms(200);
  const int64_t start = now_ms();
  EXPECT_EQ(lib_comm_lib_stop(lib), 0);
  lib_comm_release(lib); // the worker may still be in its loop
  worker.join();
  EXPECT_LT(now_ms() - start, 100);
  EXPECT_EQ(g_longest_wait, 5);
  EXPECT_GE(g_fetches, 2);
  EXPECT_LE(g_fetches, 60) << "the loop spins";
  EXPECT_EQ(lib_comm_lib_stop(nullptr), -9);
}

// Each turn announces the next number as an event; the fifth stops the loop with its event still queued.
int32_t fetch_numbers(void* arg, int32_t) {
  auto* lib = static_cast<lib_comm_lib*>(arg);
  const int32_t number = ++g_fetches;
  add(lib, number);
  if (number == 5) {
    add(lib, 6);
    lib_comm_lib_stop(lib);
  }
  return -1; // no result of a fetch ends the loop
}

TEST(event_thread, runs_events_in_order_and_gives_back_the_rest) {
  lib_comm_lib* lib = start_lib();
  add(lib, 100);
  add(lib, 101);
  run_loop(lib, fetch_numbers);
  EXPECT_EQ(g_ran, (std::vector<intptr_t>{100, 101, 1, 2, 3, 4}));
  EXPECT_EQ(lib_comm_thread_drop_event(lib), reinterpret_cast<void*>(5));
  EXPECT_EQ(lib_comm_thread_drop_event(lib), reinterpret_cast<void*>(6));
  EXPECT_EQ(lib_comm_thread_drop_event(lib), nullptr);
  lib_comm_release(lib);
}

TEST(event_thread, says_when_there_is_no_room) {
  lib_comm_lib* lib = start_lib();
  for (intptr_t i = 1; i <= 64; ++i) ASSERT_EQ(add(lib, i), 0);
  EXPECT_EQ(add(lib, 65), -1);
  EXPECT_EQ(lib_comm_thread_drop_event(lib), reinterpret_cast<void*>(1));
  EXPECT_EQ(add(lib, 65), 0);
  EXPECT_EQ(add(lib, 66), -1);
  EXPECT_EQ(lib_comm_thread_add_event(lib, nullptr, nullptr, 0), -1);
  lib_comm_release(lib);
}

} // namespace
