// The pool of packet units: lists, unit states, handles.
#include "packet/pool.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

constexpr uint32_t UNITS = 4;

// A pool of this test's own, in place of any other test's, which makes its own anew.
class pool_test : public testing::Test {
protected:
  void SetUp() override {
    drop_pool();
    ASSERT_EQ(pal_sem_create(&g_line_id_pkt_sem, 2), 0);
    ASSERT_EQ(line_id_buf_pool_init(UNITS), 0);
  }
  void TearDown() override { drop_pool(); }

  static void drop_pool() {
    line_id_buf_pool* pool = g_line_id_pkt_pool.exchange(nullptr);
    if (pool == nullptr) return;
    delete[] pool->units;
    delete pool;
  }

  static line_id_unit* alloc() { return line_id_buf_pool_alloc(&g_line_id_pkt_sem); }
  static int32_t free_unit(line_id_unit* unit) { return line_id_buf_pool_free(unit, &g_line_id_pkt_sem); }
  static line_id_unit* queued(uint16_t kind) {
    line_id_unit* unit = alloc();
    if (unit != nullptr) line_id_buf_pool_mark_queued(unit, kind);
    return unit;
  }
};

} // namespace

TEST_F(pool_test, hands_out_the_last_unit_first_and_every_unit_once) {
  line_id_unit* const units = g_line_id_pkt_pool.load()->units;
  for (uint32_t i = UNITS; i > 0; --i) {
    line_id_unit* unit = alloc();
    ASSERT_EQ(unit, &units[i - 1]);
    EXPECT_EQ(unit->length, 0U);
    EXPECT_EQ(unit->pkt_info_ptr->reserved[31], 0);
    EXPECT_EQ(line_id_buf_pool_handle(unit), i);
  }
  EXPECT_EQ(alloc(), nullptr);
  EXPECT_EQ(line_id_buf_pool_free_count(), 0U);

  // Given back from the middle, the end and the front of the used list; the last one back is the first one out.
  for (const uint32_t i : {1U, 3U, 0U, 2U}) EXPECT_EQ(free_unit(&units[i]), 0);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS);
  for (const uint32_t i : {2U, 0U, 3U, 1U}) EXPECT_EQ(alloc(), &units[i]);
  EXPECT_EQ(alloc(), nullptr);
  for (const uint32_t i : {3U, 3U, 0U, 0U}) { // a unit back and out again while others stay out
    EXPECT_EQ(free_unit(&units[i]), 0);
    EXPECT_EQ(alloc(), &units[i]);
  }
  EXPECT_EQ(g_line_id_pkt_pool.load()->freed_list, nullptr);
  uint32_t used = 0;
  for (const line_id_unit* unit = g_line_id_pkt_pool.load()->used_list; unit != nullptr; unit = unit->next) ++used;
  EXPECT_EQ(used, UNITS);
}

TEST_F(pool_test, freeing_null_needs_no_semaphore) {
  ASSERT_EQ(pal_sem_take(&g_line_id_pkt_sem, 0), 0);
  EXPECT_EQ(free_unit(nullptr), 0);
  EXPECT_EQ(alloc(), nullptr); // after 5 ticks
  pal_sem_give(&g_line_id_pkt_sem);
  EXPECT_EQ(line_id_buf_pool_free(alloc(), nullptr), -1); // not had: the unit stays in use
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS - 1);
}

TEST_F(pool_test, freeing_twice_changes_nothing) {
  line_id_unit* first = alloc();
  line_id_unit* second = alloc();
  EXPECT_EQ(free_unit(first), 0);
  EXPECT_EQ(free_unit(first), 0);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS - 1);
  EXPECT_EQ(free_unit(second), 0);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS);
  for (uint32_t i = 0; i < UNITS; ++i) EXPECT_NE(alloc(), nullptr);
  EXPECT_EQ(alloc(), nullptr);
}

// Given back by the worker, who waits for nobody.
TEST_F(pool_test, what_the_worker_gives_back_comes_out_last_one_first) {
  line_id_unit* units[UNITS];
  for (uint32_t round = 0; round < 3; ++round) { // past the ring's end
    for (line_id_unit*& unit : units) unit = alloc();
    ASSERT_EQ(pal_sem_take(&g_line_id_pkt_sem, 0), 0);
    for (const uint32_t i : {2U, 0U, 0U, 3U}) line_id_buf_pool_give_back(units[i]); // one of them twice
    pal_sem_give(&g_line_id_pkt_sem);
    EXPECT_EQ(free_unit(units[0]), 0) << "not in use any more";
    EXPECT_EQ(free_unit(units[1]), 0);
    for (const uint32_t i : {3U, 0U, 2U, 1U}) EXPECT_EQ(alloc(), units[i]) << i;
    EXPECT_EQ(alloc(), nullptr);
    for (line_id_unit* unit : units) line_id_buf_pool_give_back(unit);
    EXPECT_EQ(line_id_buf_pool_reclaim(), 0U);
    EXPECT_EQ(line_id_buf_pool_free_count(), UNITS);
  }
}

TEST_F(pool_test, a_handle_is_taken_once_and_only_for_its_kind) {
  line_id_unit* unit = queued(MSG_DHCPV4);
  const uint32_t handle = line_id_buf_pool_handle(unit);
  const uint32_t forged[] = {0, handle - 1, UNITS + 1, 0xFFFFFFFF};
  for (const uint32_t other : forged) EXPECT_EQ(line_id_buf_pool_take_queued(other, MSG_DHCPV4), nullptr) << other;
  // The last would wrap to the same state.
  const uint16_t kinds[] = {MSG_SET, MSG_DHCPV6, MSG_PPPOE, 6, 0x100 + MSG_DHCPV4};
  for (const uint16_t kind : kinds) EXPECT_EQ(line_id_buf_pool_take_queued(handle, kind), nullptr) << kind;

  EXPECT_EQ(line_id_buf_pool_take_queued(handle, MSG_DHCPV4), unit);
  EXPECT_EQ(line_id_buf_pool_take_queued(handle, MSG_DHCPV4), nullptr); // repeated
  EXPECT_EQ(free_unit(unit), 0);
  EXPECT_EQ(line_id_buf_pool_take_queued(handle, MSG_DHCPV4), nullptr); // left over
  // A kind that wraps to "free" must not take a free unit.
  EXPECT_EQ(line_id_buf_pool_take_queued(handle, 0x100 - UNIT_QUEUED), nullptr);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS);
}

TEST_F(pool_test, a_pool_that_exists_is_kept_and_cleaned) {
  line_id_buf_pool* pool = g_line_id_pkt_pool.load();
  line_id_unit* ingress = alloc();
  queued(MSG_DHCPV6);
  line_id_unit* work = queued(MSG_DHCPV4);
  ASSERT_EQ(line_id_buf_pool_take_queued(line_id_buf_pool_handle(work), MSG_DHCPV4), work);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS - 3);

  EXPECT_EQ(line_id_buf_pool_init(UNITS * 100), 0);
  EXPECT_EQ(g_line_id_pkt_pool.load(), pool);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS - 1); // a host thread still fills its unit
  EXPECT_EQ(line_id_buf_pool_reclaim(), 0U);
  EXPECT_EQ(free_unit(ingress), 0);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS);
}

TEST_F(pool_test, threads_share_the_pool_without_losing_a_unit) {
  constexpr int ROUNDS = 2000;
  std::atomic<uint32_t> mixed{0};
  std::atomic<bool> posted[UNITS + 1] = {}; // handles that a message names
  auto ingress = [&](uint8_t mark) {
    for (int i = 0; i < ROUNDS; ++i) {
      line_id_unit* unit = alloc();
      if (unit == nullptr) continue;
      unit->data[0] = mark;
      unit->length = mark;
      if (mark == 1) {
        line_id_buf_pool_mark_queued(unit, MSG_DHCPV4);
        posted[line_id_buf_pool_handle(unit)] = true; // the worker's
        continue;
      }
      if (unit->data[0] != mark || unit->length != mark) ++mixed;
      free_unit(unit);
    }
  };
  std::atomic<bool> done{false};
  auto worker = [&] {
    while (!done) {
      for (uint32_t handle = 1; handle <= UNITS; ++handle) {
        if (!posted[handle].exchange(false)) continue;
        line_id_unit* unit = line_id_buf_pool_take_queued(handle, MSG_DHCPV4);
        if (unit == nullptr) {
          ++mixed;
          continue;
        }
        if (unit->data[0] != unit->length) ++mixed;
        line_id_buf_pool_give_back(unit);
      }
      std::this_thread::yield();
    }
  };
  std::thread taker(worker);
  std::vector<std::thread> threads;
  for (uint8_t mark = 1; mark <= 3; ++mark) threads.emplace_back(ingress, mark);
  for (std::thread& thread : threads) thread.join();
  done = true;
  taker.join();
  line_id_buf_pool_reclaim();
  EXPECT_EQ(mixed, 0U);
  EXPECT_EQ(line_id_buf_pool_free_count(), UNITS);
}
