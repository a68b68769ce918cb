// The packet path alone: settings put straight into the store, sends recorded, a queue and a pool of its own.
#pragma once

#include "config/channel.h"
#include "core/init_flag.h"
#include "packet/pool.h"
#include "tests/support/frames.h"
#include "tests/unit/config/config_test.h"

#include <map>
#include <string>

struct recorded_send {
  uint8_t oltid;
  uint8_t direct;
  uint16_t port;
  octets frame;
  bool operator==(const recorded_send&) const = default;
};
inline std::vector<recorded_send> g_recorded_sends;
inline int g_send_answer = 0;

inline int record_send(uint8_t oltid, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len) {
  g_recorded_sends.push_back({oltid, direct, port, octets(frame, frame + len)});
  return g_send_answer;
}
class packet_test : public ConfigTest {
protected:
  static constexpr uint32_t UNITS = 4;

  void SetUp() override {
    ConfigTest::SetUp();
    g_recorded_sends.clear();
    g_send_answer = 0;
    g_device_if.send_eth_frame = record_send;
    g_line_id_common_cfg[0].option82_enable = 1;
    g_line_id_common_cfg[0].option18_enable = 1;
    g_line_id_common_cfg[0].pppoe_plus_enable = 1;
    line_id_set_data_init_done_cfg(1);
    ASSERT_EQ(pal_sem_create(&g_line_id_pkt_sem, 2), 0);
    ASSERT_EQ(line_id_buf_pool_init(UNITS), 0);
    pal_msgQ_id id = g_line_id_msg_id;
    ASSERT_EQ(pal_msgQ_create_ex(&id, 0, PAL_MSGQ_RESERVED + 3, 9, 0), 0); // room for three frames
    g_line_id_msg_id = id;
    units = line_id_buf_pool_free_count();
  }
  void TearDown() override {
    octets message;
    while (receive_message(message)) {
    }
    EXPECT_EQ(line_id_buf_pool_free_count(), units) << "a pool unit is missing";
    pal_msgQ_id id = g_line_id_msg_id;
    pal_msgQ_close(&id);
    g_line_id_msg_id = id;
    line_id_set_data_init_done_cfg(0);
    ConfigTest::TearDown();
  }

  static bool receive_message(octets& message) {
    message.assign(9, 0);
    return pal_msgQ_receive_wait_priority(g_line_id_msg_id, message.data(), 9, 0, -6) == 9;
  }

  // Counters that are not zero, by index.
  static std::map<uint32_t, uint32_t> counters() {
    std::map<uint32_t, uint32_t> found;
    for (uint32_t i = 0; i < LINE_ID_STATICS_TOTALS; ++i) {
      if (const uint32_t value = line_id_statics_value(i); value != 0) found[i] = value;
    }
    return found;
  }

  uint32_t units = 0;
};

using counted = std::map<uint32_t, uint32_t>;
