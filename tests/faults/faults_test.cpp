// What fails at start-up gives the step's code and leaves a next start possible; what fails under a frame costs that
// frame alone.
#include "agents/dhcp6.h"
#include "antispoof/binding_table.h"
#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "core/device_if.h"
#include "core/service.h"
#include "core/worker.h"
#include "lineid/format.h"
#include "lineid/params.h"
#include "packet/pool.h"
#include "tests/faults/seam.h"
#include "tests/process/children.h"
#include "tests/support/agent.h"

#include <chrono>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;

// ---- start-up

int32_t built_in_profile() { return line_id_data_init(0, LINE_ID_MODE_OLT, nullptr, &g_agent.hal); }

int32_t own_table() { return agent_add_instance(agent_defaults(), 0); }

int32_t resources() { return line_id_init_sys_resource(nullptr); }

int32_t shared_resources() {
  line_id_set_cross_process_shared_mem_cfg(1);
  return line_id_init_sys_resource(nullptr);
}

int32_t client() { return line_id_init_share_resource(nullptr); }

// The whole way to the loop, on this thread; stopped as soon as it runs.
int32_t worker() {
  std::atomic<bool> done{false};
  std::thread stopper([&done] {
    while (!done && line_id_stop() != 0) std::this_thread::sleep_for(1ms);
  });
  const int32_t ret = line_id_proc_entry(nullptr);
  done = true;
  stopper.join();
  return ret;
}

struct start_row {
  const char* name;
  int32_t (*start)();
  fault what;
  // The result when the first, second, ... call of the kind fails, until one would come too late.
  std::vector<int32_t> results;
};

std::vector<int32_t> joined(std::initializer_list<std::vector<int32_t>> parts) {
  std::vector<int32_t> all;
  for (const std::vector<int32_t>& each : parts) all.insert(all.end(), each.begin(), each.end());
  return all;
}
std::vector<int32_t> times(size_t count, int32_t result) { return std::vector<int32_t>(count, result); }

const start_row START_ROWS[] = {
    // Two tables and their formats, the parameters; without its semaphore a binding table refuses later.
    {"built-in profile", built_in_profile, ALLOCATION, {-17, -17, -17, -17, 0, 0}},
    {"own table", own_table, ALLOCATION, {-17, 0, 0}},
    // Four semaphores; the pool's descriptor, without which a start goes on, its units and their ring; areas; the queue
    // and its own ring.
    {"resources", resources, ALLOCATION, joined({times(4, -92), {0, -45, -45}, times(18, -19), {-1, -1}})},
    {"shared resources", shared_resources, ALLOCATION, {-92, -92, -92, -92, 0, -45, -45, -19, -19, -1, -1}},
    {"resources", resources, SEM_CREATE, {-92}},
    {"shared resources", shared_resources, SEM_OPEN, times(3, -92)},
    {"shared resources", shared_resources, SHARED_MEMORY, times(18, -19)},
    {"resources", resources, QUEUE_CREATE, {-1}},
    {"worker", worker, SEM_CREATE, {-1}},
    {"worker", worker, QUEUE_CREATE, {-1}},
    {"worker", worker, ALLOCATION, joined({times(4, -1), {0}, times(22, -1), {-9, -9}})},
    {"worker", worker, WORKER_START, {-100}},
    {"client", client, SEM_OPEN, times(3, -18)},
    {"client", client, SHARED_MEMORY, times(18, -19)},
    {"client", client, QUEUE_CREATE, {-20}},
};

// A frame gets through: the agent is up, whatever failed before.
bool frame_passes() {
  line_id_set_cross_process_shared_mem_cfg(0);
  if (agent_start(agent_defaults()) != 0) return false;
  const octets frame = eth().dhcp4(DISCOVER).option(53, {DISCOVER}).end();
  const outcome out = agent_feed(frame, LINE_ID_UPSTREAM);
  return out.result == 0 && out.sent.size() == 1 && out.sent[0].frame.size() > frame.size();
}

// One start in a process of its own, then one in which nothing fails. What was not as expected, or "".
std::string start_with_fault(const start_row& row, uint32_t nth, int32_t expected, bool reached) {
  agent_reset_record();
  seam_fail(row.what, nth);
  const int32_t ret = row.start();
  const bool failed = seam_failed();
  seam_fail(NO_FAULT);
  if (failed != reached) return reached ? "the call did not come" : "there are more calls than the row has";
  if (ret != expected) return "result " + std::to_string(ret);
  const int32_t again = row.start();
  if (again != 0) return "the next start gave " + std::to_string(again);
  return row.start != client && !frame_passes() ? "no frame passes after the next start" : "";
}

TEST(faults, each_step_of_a_start_has_its_code_and_can_be_tried_again) {
  ASSERT_EQ(g_line_id_pkt_pool.load(), nullptr) << "the children start from nothing: this test is the first";
  for (const start_row& row : START_ROWS) {
    for (size_t nth = 1; nth <= row.results.size() + 1; ++nth) {
      const bool reached = nth <= row.results.size();
      const int32_t expected = reached ? row.results[nth - 1] : 0;
      SCOPED_TRACE(row.name + (", call " + std::to_string(nth)) + " of kind " + std::to_string(row.what));
      const auto start = [&] { return start_with_fault(row, static_cast<uint32_t>(nth), expected, reached); };
      EXPECT_EQ(text_of_child(start), "");
      unlink_shared_objects();
    }
  }
}

TEST(faults, a_start_without_a_pool_takes_no_frame) {
  const auto start = [] {
    agent_reset_record();
    if (own_table() != 0) return std::string("no configuration");
    seam_fail(ALLOCATION, 5);
    if (resources() != 0 || !seam_failed()) return std::string("the start did not go on");
    const octets frame = eth().dhcp6(SOLICIT).done();
    const line_id_append_info line = test_line();
    const int32_t ret = line_id_dhcp_receive(frame.data(), static_cast<uint32_t>(frame.size()), 1, 1, &line);
    return "a frame gave " + std::to_string(ret);
  };
  EXPECT_EQ(text_of_child(start), "a frame gave -45");
}

// ---- frames

TEST(faults, a_failure_under_a_frame_drops_that_frame_alone) {
  const struct {
    const char* name;
    octets frame;
    uint32_t dropped; // the counter of dropped upstream frames; two protocols are exchanged
  } frames[] = {
      {"DHCPv4", eth().dhcp4(DISCOVER).option(53, {DISCOVER}).end(), 10},
      {"DHCPv6", eth().dhcp6(SOLICIT).option(1, {0, 3}).done(), 16},
      {"PPPoE", eth().pppoe(PADI).option(0x0101, {}).done(), 13},
  };
  const struct {
    const char* name;
    fault what;
    int32_t result; // of the receive call
  } faults[] = {{"the pool's semaphore", SEM_TAKE, -45}, {"the queue", QUEUE_SEND, -21}, {"the event", EVENT_ADD, 0}};
  for (const auto& row : frames) {
    for (const auto& fault : faults) {
      SCOPED_TRACE(std::string(row.name) + ", " + fault.name);
      ASSERT_EQ(agent_start(agent_defaults()), 0);
      seam_fail(fault.what);
      const outcome out = agent_feed(row.frame, LINE_ID_UPSTREAM);
      EXPECT_TRUE(seam_failed());
      EXPECT_EQ(out.result, fault.result);
      EXPECT_EQ(out.sent.size(), 0U);
      EXPECT_EQ(g_line_id_statics[row.dropped], 1U);
      EXPECT_EQ(agent_free_units(), agent_units());
      EXPECT_EQ(agent_feed(row.frame, LINE_ID_UPSTREAM).sent.size(), 1U);
      EXPECT_EQ(g_line_id_statics[row.dropped], 1U);
    }
  }
}

TEST(faults, a_binding_that_cannot_be_stored_lets_the_frame_pass) {
  const octets padr = eth().pppoe(PADR).option(0x0105, {0, 0, 0x0D, 0xE9, 1, 1, 'x'}).done();
  const uint8_t* mac = SUBSCRIBER_MAC.at;
  agent_config config = agent_defaults();
  config.table.pppoe_anti_spoofing_enable = 1;
  struct row {
    fault what;
    uint32_t nth; // the pool's semaphore comes first
    int32_t code;
  };
  for (const row& each : {row{ALLOCATION, 1, -91}, row{SEM_TAKE, 2, -94}}) {
    ASSERT_EQ(agent_start(config), 0);
    g_agent.logs.clear();
    seam_fail(each.what, each.nth);
    EXPECT_EQ(agent_feed(padr, LINE_ID_UPSTREAM).sent.size(), 1U);
    EXPECT_TRUE(seam_failed());
    ASSERT_FALSE(g_agent.logs.empty());
    EXPECT_NE(g_agent.logs[0].find("(" + std::to_string(each.code) + ")"), std::string::npos) << g_agent.logs[0];
    line_id_binding_place place = {};
    EXPECT_EQ(line_id_search_pppoe_binding_table(mac, &place), -1) << "nothing is bound";
    EXPECT_EQ(agent_feed(padr, LINE_ID_UPSTREAM).sent.size(), 1U);
    EXPECT_EQ(line_id_search_pppoe_binding_table(mac, &place), 0);
    EXPECT_EQ(agent_free_units(), agent_units());
  }
}

// Every protocol both ways, from the receive call to the send callback; learning a new MAC address apart.
TEST(faults, a_frame_on_its_road_allocates_nothing) {
  static uint32_t sent;
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  line_id_set_pppoe_anti_spoofing_enable_cfg(0, 1);
  g_device_if.send_eth_frame = [](uint8_t, uint8_t, uint16_t, const uint8_t*, uint32_t) {
    ++sent;
    return 0;
  };
  const octets old = join({tlv1(1, text("an9/1.2/x/home/1/2 GP")), tlv1(2, text("home"))});
  const struct {
    const char* name;
    octets frame;
    uint8_t direct;
    decltype(line_id_dhcp_receive)* receive;
  } rows[] = {
      {"DHCPv4 up", eth().dhcp4(DISCOVER).option(53, {1}).end(), 1, line_id_dhcp_receive},
      {"DHCPv4 up, identified", eth().dhcp4(REQUEST).option(53, {3}).option(82, old).end(), 1, line_id_dhcp_receive},
      {"DHCPv4 down", eth().dhcp4(OFFER).option(53, {2}).option(82, old).end(), 2, line_id_dhcp_receive},
      {"DHCPv6 up", eth().dhcp6(SOLICIT).option(1, {0, 3, 0, 1}).done(), 1, line_id_dhcp_receive},
      {"DHCPv6 down", eth().relay6(RELAY_REPL, 0, link_local(7)).option(9, dhcp6_message(REPLY, {tlv2(2, {1})})).done(),
       2, line_id_dhcp_receive},
      {"PPPoE up", eth().pppoe(PADI).option(0x0101, {}).done(), 1, line_id_pppoe_receive},
      {"PPPoE up, identified", eth().pppoe(PADR).option(0x0105, join({{0, 0, 0x0D, 0xE9}, old})).done(), 1,
       line_id_pppoe_receive},
      {"PPPoE down", eth().pppoe(PADO).option(0x0101, {}).done(), 2, line_id_pppoe_receive},
  };
  ASSERT_GT(seam_allocations(), 8U) << "the frames of this test are not counted";
  const line_id_append_info line = test_line();
  for (const auto& row : rows) {
    uint64_t before = 0;
    sent = 0;
    for (int turn = 0; turn < 2; ++turn) { // the first may learn
      before = seam_allocations();
      row.receive(row.frame.data(), static_cast<uint32_t>(row.frame.size()), 11, row.direct, &line);
      agent_run();
    }
    EXPECT_EQ(sent, 2U) << row.name;
    EXPECT_EQ(seam_allocations() - before, 0U) << row.name;
  }
}

TEST(faults, a_letter_without_a_buffer_and_without_memory) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  line_id_set_param(0, 'n', nullptr);
  seam_fail(ALLOCATION);
  EXPECT_EQ(line_id_write_param(0, 'n', "text", PARAM_SET), -9);
  seam_fail(ALLOCATION);
  EXPECT_EQ(line_id_write_param_force(0, 'n', "text"), -1);
  seam_fail(ALLOCATION);
  EXPECT_EQ(line_id_parse_params(0, "%n", "text", 4), -1);
  EXPECT_STREQ(line_id_get_param_text(0, 'n'), "");
  EXPECT_EQ(line_id_parse_params(0, "%n", "text", 4), 0);
  EXPECT_STREQ(line_id_get_param_text(0, 'n'), "text");
}

TEST(faults, an_option_37_that_cannot_be_printed_drops_the_frame) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  line_id_set_option18_cfg(0, 0); // it would be the first to fail
  const octets frame = eth().dhcp6(SOLICIT).done();
  line_id_pkt_info pkt = {};
  pkt.packet_type = 200; // no such parameter set
  line_id_inf_info info = {};
  info.pkt_info_ptr = &pkt;
  octets out(LINE_ID_SCRATCH_LEN);
  uint16_t len = 0;
  const auto frame_len = static_cast<uint32_t>(frame.size());
  EXPECT_EQ(line_id_dhcpv6_relay_forward_proc(0, frame.data(), frame_len, out.data(), &len, &info), -115);
  EXPECT_EQ(len, 0);
}

} // namespace
