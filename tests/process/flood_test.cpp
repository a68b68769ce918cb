// Configuration under floods of frames: nothing lost, every answer right, served before waiting frames and in time.
#include "tests/process/harness.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t CLIENTS = 4;
constexpr uint32_t WAIT_TICKS = 600;

class flood : public testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(line_id_init_share_resource(nullptr), 0); }

  void start_flood() { agent_.ask(OP_FLOOD, discover(), test_line()); }

  // Frames in are frames out: all of them carry what their line's first frame carried, and every unit is free again.
  agent_counts stop_flood() {
    agent_.ask(OP_FLOOD_STOP);
    EXPECT_EQ(agent_.ask(OP_SETTLE).result, 0);
    const agent_counts counts = agent_.ask(OP_FLUSH).counts;
    EXPECT_EQ(counts.accepted, counts.hooked);
    EXPECT_EQ(counts.accepted, counts.sent) << "good frames are not dropped";
    EXPECT_EQ(counts.wrong, 0U);
    EXPECT_EQ(agent_.room(), POOL_UNITS);
    return counts;
  }

  agent_process agent_;
};

// A client process: sets and gets on an instance of its own, so that each get must give what the set before it set.
int configure(uint8_t oltid, uint32_t rounds) {
  int64_t slowest_set = 0;
  int64_t slowest_get = 0;
  const auto timed = [](int64_t& slowest, const auto& call) {
    const int64_t start = now_us();
    const int32_t result = call();
    slowest = std::max(slowest, now_us() - start);
    return result;
  };
  for (uint32_t i = 1; i <= rounds; ++i) {
    const auto rack = static_cast<uint16_t>(i);
    if (i % 4 != 0) {
      if (timed(slowest_set, [&] { return line_id_set_rack_no(oltid, rack); }) != 0) return 1;
      if (timed(slowest_get, [&] { return line_id_get_rack_no(oltid); }) != rack) return 2;
    } else {
      const std::string format(i % 200 + 1, static_cast<char>('a' + oltid));
      const auto len = static_cast<uint32_t>(format.size());
      char text[LINE_ID_FORMAT_LEN] = {};
      if (timed(slowest_set, [&] { return line_id_set_remote_id_format(oltid, format.data(), len); }) != 0) return 3;
      if (timed(slowest_get, [&] { return line_id_get_remote_id_format(oltid, text); }) != 0) return 4;
      if (std::string(text, strnlen(text, sizeof(text))) != format) return 5;
    }
  }
  if (slowest_set > static_cast<int64_t>(WAIT_TICKS * tick_us())) return 6;
  return slowest_get > 2 * static_cast<int64_t>(WAIT_TICKS * tick_us()) ? 7 : 0;
}

// A subscriber who floods the ingress cannot lock the operator out, whose four clients work at a time.
TEST_F(flood, an_operator_is_answered_at_full_flood) {
  const uint32_t calls = setting("LINE_ID_TEST_CALLS", 10000);
  start_flood();
  const agent_counts before = agent_.ask(OP_FLUSH).counts;
  const int64_t start = now_us();
  do {
    std::vector<pid_t> clients;
    for (uint8_t oltid = 0; oltid < CLIENTS; ++oltid) {
      clients.push_back(start_child([=] { return configure(oltid, calls / CLIENTS); }));
    }
    for (const pid_t client : clients) EXPECT_EQ(wait_child(client), 0);
  } while (agent_.ask(OP_FLUSH).counts.refused == 0 && now_us() < start + 20000000);
  const int64_t took = now_us() - start;
  const agent_counts after = stop_flood();
  std::printf("%u sets and %u gets in %.1f s, beside %u frames accepted and %u refused\n", calls, calls,
              static_cast<double>(took) / 1e6, after.accepted - before.accepted, after.refused);
  EXPECT_GT(after.refused, 0U) << "the flood fills the pool";
  EXPECT_GT(after.accepted, before.accepted);
  for (uint8_t oltid = 0; oltid < CLIENTS; ++oltid) {
    const uint32_t last = calls / CLIENTS;
    EXPECT_EQ(line_id_get_rack_no(oltid), static_cast<int32_t>(last - (last % 4 == 0 ? 1 : 0)));
  }
}

TEST_F(flood, configuration_is_served_before_waiting_frames) {
  EXPECT_EQ(agent_.ask(OP_HOLD, discover(), test_line()).result, 0);
  agent_.ask(OP_POST, discover(), test_line(), 1, 3);
  EXPECT_EQ(line_id_set_option82_enable(1, 0), 0);
  agent_.ask(OP_RELEASE);
  EXPECT_EQ(agent_.ask(OP_SETTLE).result, 0);
  EXPECT_EQ(agent_.events(), "sent 1 100.200\ntrap 1/1/0\nsent 1 100.1\nsent 2 100.2\nsent 3 100.3\n");
}

TEST_F(flood, a_full_pool_refuses_and_counts_and_the_frames_in_it_are_right) {
  const auto dropped = [this] {
    agent_.output();
    line_id_show_pkt_statistics();
    line_id_get_rack_no(0);
    const std::string report = agent_.output();
    const size_t at = report.find("dhcpv4_pkt_dropped__up:");
    return at == std::string::npos ? std::string("none") : report.substr(at + 23, report.find('\r', at) - at - 23);
  };
  EXPECT_EQ(line_id_reset_statistics(0), 0);
  EXPECT_EQ(dropped(), "0");
  agent_.events();
  EXPECT_EQ(agent_.room(), POOL_UNITS);
  EXPECT_EQ(dropped(), "1");
  std::string sent = "sent 1 100.200\n";
  for (uint32_t i = 1; i < POOL_UNITS; ++i) sent += "sent " + std::to_string(i) + " 100." + std::to_string(i) + "\n";
  EXPECT_EQ(agent_.events(), sent);
}

} // namespace
