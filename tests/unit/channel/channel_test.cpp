// Areas and semaphores in both modes.
#include "tests/unit/channel/channel_test.h"

#include "config/message_server.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/device_if.h"
#include "core/log.h"
#include "packet/protocol_table.h"

#include <cstring>
#include <mutex>
#include <set>

void channel_test::SetUp() {
  std::memset(&g_line_id_common_cfg, 0, sizeof(g_line_id_common_cfg));
  g_trans_white_list_obj = {};
  g_line_id_ptl_reg_func = {};
  line_id_reset_statistics_cfg();
  line_id_init_params();
  line_id_dbg_level_set(0);
  g_line_id_debug_bits = 0;
  log_lines.clear();
  g_device_if = {};
  g_device_if.log_output = [](const char* text, int32_t, const char*) {
    static std::mutex lock; // client and server may both log
    const std::lock_guard<std::mutex> guard(lock);
    log_lines.push_back(text);
    return 0;
  };
  open(0);
}

void channel_test::TearDown() {
  g_device_if = {};
  line_id_dbg_level_set(0);
  g_line_id_debug_bits = 0;
}

void channel_test::open(int32_t mode) {
  ASSERT_EQ(line_id_sem_init(mode), 0);
  line_id_channel_reset();
  ASSERT_EQ(line_id_cfg_mem_init(mode), 0);
  pal_msgQ_id id = g_line_id_msg_id;
  ASSERT_EQ(pal_msgQ_create_ex(&id, mode == 1 ? 95 : 0, 2048, 9, 0), 0);
  g_line_id_msg_id = id;
  while (receive()) {
  }
  const line_id_cmd_area zero = {};
  for (uint8_t oltid = 0; oltid < 9; ++oltid) {
    std::memcpy(line_id_set_cfg_mem(oltid), &zero, sizeof(zero));
    std::memcpy(line_id_get_cfg_mem(oltid), &zero, sizeof(zero));
  }
}

std::optional<line_id_msg> channel_test::receive(int32_t wait) {
  line_id_msg msg = {};
  if (pal_msgQ_receive_wait_priority(g_line_id_msg_id, &msg, sizeof(msg), wait, 0) != 9) return std::nullopt;
  return msg;
}

void channel_test::serve(const line_id_msg& msg) {
  switch (msg.kind) {
  case 0: line_id_set_cfg_msg_proc(msg.oltid); break;
  case 1: line_id_get_cfg_msg_proc(msg.oltid, msg.code); break;
  case 2: line_id_show_cfg_msg_proc(msg.oltid, msg.code); break;
  default: ADD_FAILURE() << "kind " << msg.kind;
  }
}

bool channel_test::turn() {
  const auto msg = receive();
  if (msg) serve(*msg);
  return msg.has_value();
}

void channel_test::fill_set_area(uint8_t oltid, int16_t code, const std::string& payload, uint32_t len) {
  line_id_cmd_area area = {};
  area.code = code;
  area.length = len;
  std::memcpy(area.payload, payload.data(), payload.size());
  std::memcpy(line_id_set_cfg_mem(oltid), &area, sizeof(area));
}

std::string channel_test::counts() {
  return std::to_string(pal_sem_count(g_line_id_set_mem_mutex)) +
         std::to_string(pal_sem_count(g_line_id_get_mem_mutex)) + std::to_string(pal_sem_count(g_line_id_get_mem_sync));
}

std::string channel_test::payload_of(const line_id_cmd_area* area, size_t len) {
  return {reinterpret_cast<const char*>(area->payload), len};
}

serving::serving()
    : thread_([this] {
        while (!stop_) {
          if (const auto msg = receive(5)) serve(*msg);
        }
      }) {}

serving::~serving() {
  stop_ = true;
  thread_.join();
}

namespace {

TEST_F(channel_test, nine_areas_for_each_direction_in_process_and_one_between_processes) {
  std::set<const void*> areas;
  for (uint8_t oltid = 0; oltid < 9; ++oltid) {
    areas.insert(line_id_set_cfg_mem(oltid));
    areas.insert(line_id_get_cfg_mem(oltid));
  }
  EXPECT_EQ(areas.size(), 18U);
  EXPECT_EQ(areas.count(LINE_ID_NO_AREA), 0U);
  const line_id_cmd_area* own = line_id_set_cfg_mem(4);
  open(1);
  EXPECT_EQ(line_id_set_cfg_mem(0), line_id_set_cfg_mem(8));
  EXPECT_EQ(line_id_get_cfg_mem(0), line_id_get_cfg_mem(8));
  EXPECT_NE(line_id_set_cfg_mem(0), line_id_get_cfg_mem(0));
  for (int start = 0; start < 2; ++start) {
    open(0);
    EXPECT_EQ(line_id_set_cfg_mem(4), own) << "the private areas are used again";
  }
}

TEST_F(channel_test, absent_areas_read_as_all_ones) {
  line_id_cmd_area* kept = g_line_id_set_mem[2];
  g_line_id_set_mem[2] = nullptr;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(line_id_set_cfg_mem(2)), UINTPTR_MAX);
  EXPECT_FALSE(line_id_channel_is_open());
  g_line_id_set_mem[2] = kept;
  EXPECT_TRUE(line_id_channel_is_open());
  for (const uint8_t oltid : ABSENT_INSTANCES) {
    EXPECT_EQ(line_id_set_cfg_mem(oltid), LINE_ID_NO_AREA);
    EXPECT_EQ(line_id_get_cfg_mem(oltid), LINE_ID_NO_AREA);
  }
  const pal_msgQ_id queue = g_line_id_msg_id;
  g_line_id_msg_id = 0;
  EXPECT_FALSE(line_id_channel_is_open());
  g_line_id_msg_id = queue;
}

TEST_F(channel_test, semaphores_start_at_1_1_0_and_keep_their_counts) {
  for (int32_t mode : {0, 1}) {
    open(mode);
    EXPECT_EQ(line_id_set_mem_mutex_take(), 0);
    EXPECT_EQ(line_id_get_mem_mutex_take(), 0);
    EXPECT_EQ(line_id_get_mem_sync_give(), 0);
    EXPECT_EQ(line_id_sem_init(mode), 0);
    EXPECT_EQ(counts(), "001");
    line_id_channel_reset();
    EXPECT_EQ(counts(), "110");
    line_id_set_mem_mutex_give();
    EXPECT_EQ(line_id_set_mem_mutex_take(), 0);
    EXPECT_EQ(counts(), "010") << "a forged give does not double the mutex";
  }
}

TEST_F(channel_test, takes_give_up_after_600_ticks) {
  line_id_set_mem_mutex_take();
  line_id_get_mem_mutex_take();
  const uint32_t start = pal_tickget();
  EXPECT_EQ(line_id_set_mem_mutex_take(), -96);
  const uint32_t waited = pal_tickget() - start;
  EXPECT_GE(waited, 600U);
  EXPECT_LT(waited, 900U);
  EXPECT_EQ(line_id_get_mem_mutex_take(), -97);
  EXPECT_EQ(line_id_get_mem_sync_take(), -98);
  EXPECT_EQ(log_lines, (std::vector<std::string>{"pal_sem_take, failed(-96).\r\n", "pal_sem_take, failed(-97).\r\n",
                                                 "pal_sem_take, failed(-98).\r\n"}));
}

} // namespace
