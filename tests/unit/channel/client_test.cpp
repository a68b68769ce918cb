// The configuration calls: what they refuse, what they send, and whole exchanges with a server.
#include "config/message_server.h"
#include "config/store.h"
#include "core/log.h"
#include "tests/unit/channel/channel_test.h"
#include "tests/unit/channel/commands.h"

#include <cstring>

namespace {

class client_test : public channel_test {
protected:
  static void expect_idle(const char* what) {
    EXPECT_FALSE(receive()) << what;
    EXPECT_EQ(counts().substr(0, 2), "11") << what;
  }
};

TEST_F(client_test, commands_are_sent_as_the_server_reads_them) {
  for (const command_row& row : command_rows()) {
    ASSERT_EQ(row.call(), 0) << row.code;
    EXPECT_EQ(pal_sem_count(g_line_id_set_mem_mutex), 0) << "the server's to give";
    const line_id_cmd_area* area = line_id_set_cfg_mem(3);
    EXPECT_EQ(area->code, row.code);
    EXPECT_EQ(area->oltid, 3);
    EXPECT_EQ(area->length, row.payload.size()) << row.code;
    EXPECT_EQ(payload_of(area, row.payload.size()), row.payload) << row.code;
    const auto msg = receive();
    ASSERT_TRUE(msg);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&*msg), 9), "\0\0\0\0\x03\0\0\0\0"s);
    serve(*msg);
    EXPECT_EQ(pal_sem_count(g_line_id_set_mem_mutex), 1) << row.code;
  }
}

TEST_F(client_test, blocks_without_an_instance_configure_instance_0) {
  line_id_circuit_id_config block = {};
  block.enable = LINE_ID_ENABLE_OPTION18;
  line_id_circuit_id_format_mode mode = {};
  mode.line_id_format_type = 2;
  EXPECT_EQ(line_id_set_circuit_id_config(&block), 0);
  EXPECT_TRUE(turn());
  EXPECT_EQ(line_id_set_circuit_id_format_mode(&mode), 0);
  EXPECT_TRUE(turn());
  EXPECT_EQ(line_id_get_option18_enable_cfg(0), 1);
  EXPECT_EQ(line_id_get_line_id_format_type_cfg(0), 2);
}

TEST_F(client_test, reports_are_only_posted) {
  EXPECT_EQ(line_id_show_dhcp_binding(4), 0);
  const auto msg = receive();
  ASSERT_TRUE(msg);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&*msg), 9), "\2\0\3\0\4\0\0\0\0"s);
  expect_idle("show");
}

TEST_F(client_test, an_absent_queue_gives_the_mutex_back) {
  const pal_msgQ_id queue = g_line_id_msg_id;
  g_line_id_msg_id = 0;
  EXPECT_EQ(line_id_set_option82_enable(0, 1), -21);
  EXPECT_EQ(line_id_get_option82_enable(0), -21);
  EXPECT_EQ(line_id_show_lineid_status(0), -21);
  g_line_id_msg_id = queue;
  expect_idle("no queue");
}

TEST_F(client_test, waits_run_out) {
  line_id_set_mem_mutex_take();
  EXPECT_EQ(line_id_set_option82_enable(0, 1), -25);
  line_id_get_mem_mutex_take();
  EXPECT_EQ(line_id_get_option82_enable(0), -27);
  line_id_channel_reset();
  expect_idle("timed out");
}

TEST_F(client_test, values_come_back) {
  line_id_common_cfg& cfg = g_line_id_common_cfg[8];
  cfg.line_id_format_type = 0x80;
  std::memset(cfg.option37_format, 'o', 256);
  std::memset(cfg.ani_str, 'a', 50);
  std::strcpy(cfg.uplink_type, "eth");
  const serving server;
  EXPECT_EQ(line_id_get_line_id_format_type(8), -128);
  // One octet more than the call may write.
  const auto text_of = [](int32_t (*get)(uint8_t, char*), size_t size) {
    std::string text(size + 1, '~');
    EXPECT_EQ(get(8, text.data()), 0);
    return text;
  };
  EXPECT_EQ(text_of(line_id_get_option37_format, 256), std::string(256, 'o') + "~");
  EXPECT_EQ(text_of(line_id_get_ani_str, 50), std::string(50, 'a') + "~");
  EXPECT_EQ(text_of(line_id_get_uplink_type, 32), padded("eth", 32) + "~");
  EXPECT_EQ(line_id_get_rack_no(9), -22);
  EXPECT_EQ(static_cast<int32_t>(line_id_get_dhcp_valid_binding_count(9)), -22);
}

TEST_F(client_test, foreign_replies_are_refused) {
  const struct {
    int16_t code;
    uint32_t len;
    int32_t result;
  } rows[] = {{1, 1, -23}, {-1, 1, -23}, {0, 2, -24}, {0, 0, -24}, {0, 0xFFFFFFFF, -24}, {0, 1, 7}};
  for (const auto& row : rows) {
    std::thread answers([&row] {
      if (receive(500)) *line_id_get_cfg_mem(3) = {row.code, row.len, 3, {7}};
      line_id_get_mem_sync_give();
    });
    EXPECT_EQ(line_id_get_option82_enable(3), row.result);
    answers.join();
    expect_idle("foreign reply");
  }
}

TEST_F(client_test, a_late_answer_does_not_shift_the_next_ones) {
  g_line_id_common_cfg[3].rack_no = 11;
  g_line_id_common_cfg[3].frame_no = 12;
  EXPECT_EQ(line_id_get_rack_no(3), -23) << "nobody answers in time";
  EXPECT_TRUE(turn()) << "now somebody does";
  EXPECT_EQ(pal_sem_count(g_line_id_get_mem_sync), 1);
  const serving server;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(line_id_get_frame_no(3), 12);
    EXPECT_EQ(line_id_get_rack_no(3), 11);
  }
}

TEST_F(client_test, many_threads_do_not_disturb_each_other) {
  const serving server;
  std::vector<std::thread> threads;
  for (uint8_t oltid = 0; oltid < 4; ++oltid) {
    threads.emplace_back([oltid] {
      for (uint16_t i = 1; i <= 200; ++i) {
        ASSERT_EQ(line_id_set_rack_no(oltid, i), 0);
        ASSERT_EQ(line_id_get_rack_no(oltid), i) << "commands are carried out in order";
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

} // namespace
