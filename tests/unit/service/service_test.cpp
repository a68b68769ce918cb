// Start, stop and restart of the agent with its real worker, and what the worker makes of every kind of message.
#include "core/service.h"

#include "config/channel.h"
#include "core/init_flag.h"
#include "core/log.h"
#include "core/records.h"
#include "core/worker.h"
#include "packet/pool.h"
#include "platform/pal.h"
#include "tests/support/agent.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

// The shared objects of this program alone; named before the platform layer reads it.
const std::string PREFIX = "test-service-" + std::to_string(getpid());
const int g_prefix_set = setenv("LINE_ID_IPC_PREFIX", PREFIX.c_str(), 1);

// Callbacks for many threads: they only count.
std::atomic<uint32_t> g_sent;
std::atomic<uint32_t> g_sent_longer;
std::atomic<uint32_t> g_hooks;
uint32_t g_frame_len;

int count_send(uint8_t, uint8_t, uint16_t, const uint8_t*, uint32_t len) {
  ++g_sent;
  if (len > g_frame_len) ++g_sent_longer;
  return 0;
}

int count_hook(uint8_t, uint32_t, uint32_t, uint32_t, line_id_pkt_property*) {
  ++g_hooks;
  return 0;
}

octets discover() { return eth().dhcp4(DISCOVER).option(53, {DISCOVER}).end(); }

int32_t hand_in(const octets& frame) {
  const line_id_append_info line = test_line();
  return line_id_dhcp_receive(frame.data(), static_cast<uint32_t>(frame.size()), 1, 1, &line);
}

// The worker on a thread of its own, stopped at the end.
struct running_worker {
  std::atomic<int32_t> result{1};
  long sleeps = 0; // of its thread, in the end
  std::thread thread;

  running_worker() {
    thread = std::thread([this] {
      result = line_id_proc_entry(nullptr);
      rusage used = {};
      getrusage(RUSAGE_THREAD, &used);
      sleeps = used.ru_nvcsw;
    });
  }
  int32_t stop() {
    while (line_id_stop() != 0) std::this_thread::sleep_for(1ms); // until the loop is up
    thread.join();
    return result;
  }
  // Until a frame comes through: a start takes back what was queued before it.
  void wait_until_up() {
    const uint32_t before = g_hooks;
    while (g_hooks == before) {
      hand_in(discover());
      std::this_thread::sleep_for(20ms);
    }
    while (agent_free_units() < agent_units()) std::this_thread::sleep_for(1ms);
  }
  ~running_worker() {
    if (thread.joinable()) stop();
  }
};

class service_test : public agent_test {
protected:
  void SetUp() override {
    ASSERT_EQ(g_prefix_set, 0);
    ASSERT_EQ(agent_start(agent_defaults()), 0);
  }
};

int32_t post(uint16_t kind, uint32_t pointer, uint32_t priority, uint16_t code = 0) {
  const line_id_msg msg = {kind, code, 0, pointer};
  return pal_msgQ_send_priority(g_line_id_msg_id, &msg, sizeof(msg), priority);
}

TEST_F(service_test, data_init_refuses_what_it_cannot_use) {
  agent_config config = agent_defaults();
  line_id_ex_cfg_table table = config.table;
  EXPECT_EQ(line_id_data_init(0, 5, nullptr, nullptr), -13);
  EXPECT_EQ(line_id_data_init(0, 1, &table, nullptr), -9) << "no format list";
  table.fmt_list = &config.formats;
  line_id_hal_func_table hal = g_agent.hal;
  hal.send_eth_frame = nullptr;
  EXPECT_EQ(line_id_data_init(0, 1, &table, &hal), -16);
  table.pppoe_reg = 0;
  EXPECT_EQ(line_id_data_init(0, 1, &table, nullptr), -17);
  EXPECT_EQ(line_id_data_init(0, LINE_ID_MODE_MDU, nullptr, nullptr), -17) << "the built-in profile of an MDU";
  EXPECT_EQ(line_id_data_init(0, 0, nullptr, nullptr), -17) << "no profile for mode 0";
  table.pppoe_reg = 1;
  EXPECT_EQ(line_id_data_init(0, 0, &table, nullptr), 0) << "mode 0 with a table";
  EXPECT_EQ(line_id_data_init(0, LINE_ID_MODE_OLT, nullptr, nullptr), 0);
}

// What a start prints.
std::string start_output(const uint32_t* key) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(line_id_init_sys_resource(key), 0);
  return testing::internal::GetCapturedStdout();
}

TEST_F(service_test, the_default_key_is_announced_twice) {
  const std::string done = "create lineid message queue OK.\r\n";
  const std::string creating = "Creating Lineid Message Queue :";
  const uint32_t key = 7;
  EXPECT_NE(start_output(&key).find(creating + "key_id :0" + done), std::string::npos)
      << "in-process the key does not count";
  agent_config config = agent_defaults();
  config.table.cross_process_shared_mem = 1;
  ASSERT_EQ(agent_add_instance(config, 0), 0);
  std::string text = start_output(&key);
  EXPECT_NE(text.find(creating + "key_id :7" + done), std::string::npos) << text;
  text = start_output(nullptr);
  EXPECT_NE(text.find(creating + done + "key_id :95" + done), std::string::npos) << text;

  EXPECT_EQ(line_id_is_service_running(), 1);
  const pid_t second_agent = fork();
  if (second_agent == 0) _exit(line_id_init_sys_resource(nullptr) == LINE_ID_ERR_SEM_CREATE ? 0 : 1);
  int status = 1;
  waitpid(second_agent, &status, 0);
  EXPECT_EQ(status, 0) << "a second agent on the prefix is refused";
  EXPECT_EQ(pal_sem_count(g_line_id_set_mem_mutex), 1);
  EXPECT_EQ(line_id_init_share_resource(nullptr), 0) << "nothing to do where the resources are";
  pal_service_release();
  EXPECT_EQ(line_id_is_service_running(), 0);
  for (const char* name :
       {"sem.set_mem_mutex", "sem.get_mem_mutex", "sem.get_mem_sync", "mem.1000", "mem.2000", "q.7", "q.95", "claim"}) {
    EXPECT_EQ(shm_unlink(("/" + PREFIX + "." + name).c_str()), 0) << name;
  }
}

TEST_F(service_test, dropped_messages_complete_their_exchange) {
  ASSERT_EQ(line_id_set_mem_mutex_take(), 0);
  line_id_set_data_init_done_cfg(0);
  post(MSG_SET, 0, 1);
  post(MSG_GET, 0, 1);
  agent_run();
  line_id_set_data_init_done_cfg(1);
  EXPECT_EQ(pal_sem_count(g_line_id_set_mem_mutex), 1);
  EXPECT_EQ(pal_sem_count(g_line_id_get_mem_sync), 1);
  line_id_get_mem_sync_take();
}

TEST_F(service_test, forged_messages_change_nothing) {
  line_id_unit* unit = line_id_buf_pool_alloc(&g_line_id_pkt_sem);
  ASSERT_NE(unit, nullptr);
  const uint32_t handle = line_id_buf_pool_handle(unit);
  post(MSG_DHCPV4, handle, 3); // not queued
  post(MSG_DHCPV4, 0, 3);      // no unit
  post(MSG_DHCPV4, 0xFFFFFFFF, 3);
  post(MSG_PPPOE, agent_units() + 1, 3);
  post(7, handle, 3); // no such kind
  post(0xFFFF, handle, 1);
  agent_run();
  EXPECT_EQ(g_agent.hook_calls, 0U);
  line_id_buf_pool_mark_queued(unit, MSG_DHCPV4);
  post(MSG_PPPOE, handle, 3); // queued for another kind
  agent_run();
  EXPECT_EQ(g_agent.hook_calls, 0U);
  unit->length = 0;
  post(MSG_DHCPV4, handle, 3);
  post(MSG_DHCPV4, handle, 3); // once more: it is taken only once
  agent_run();
  EXPECT_EQ(g_agent.hook_calls, 1U);
}

TEST_F(service_test, stops_promptly_and_starts_again) {
  EXPECT_EQ(line_id_stop(), -9) << "nothing runs";
  for (int round = 0; round < 3; ++round) {
    running_worker worker;
    std::this_thread::sleep_for(20ms);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(worker.stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 150ms);
    EXPECT_EQ(line_id_stop(), -9);
  }
}

TEST_F(service_test, an_idle_agent_costs_next_to_nothing) {
  line_id_reg_custom_pkt_proc_if(count_hook);
  running_worker worker;
  worker.wait_until_up();
  const std::clock_t before = std::clock(); // processor time of all threads
  std::this_thread::sleep_for(2s);
  const std::clock_t spent = std::clock() - before;
  EXPECT_EQ(worker.stop(), 0);
  EXPECT_LT(spent, CLOCKS_PER_SEC / 20) << "50 ms in two seconds";
  EXPECT_LT(worker.sleeps, 10) << "the worker wakes though nobody can send but this process";
}

TEST_F(service_test, restart_takes_left_over_frames_back) {
  for (uint32_t i = 0; i < agent_units(); ++i) ASSERT_EQ(hand_in(discover()), 0);
  EXPECT_EQ(hand_in(discover()), -45);
  ASSERT_EQ(line_id_init_sys_resource(nullptr), 0);
  EXPECT_EQ(agent_free_units(), agent_units());
  agent_run();
  EXPECT_EQ(g_agent.hook_calls, 0U) << "left-over messages are gone";
}

TEST_F(service_test, hundred_thousand_frames_from_four_threads_are_all_accounted_for) {
  constexpr uint32_t THREADS = 4;
  constexpr uint32_t FRAMES = 25000;
  g_agent.hal.send_eth_frame = count_send;
  ASSERT_EQ(agent_add_instance(agent_defaults(), 0), 0);
  line_id_reg_custom_pkt_proc_if(count_hook);
  const octets good = discover();
  const octets dropped = eth().dhcp4(1, 68, 67).option(53, {OFFER}).end();
  g_frame_len = static_cast<uint32_t>(good.size());

  std::atomic<uint32_t> accepted{0};
  std::atomic<uint32_t> accepted_bad{0};
  {
    running_worker worker;
    worker.wait_until_up();
    g_sent = g_sent_longer = g_hooks = 0;
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < THREADS; ++t) {
      threads.emplace_back([&] {
        for (uint32_t i = 0; i < FRAMES; ++i) {
          const bool bad = i % 10 == 9;
          int32_t ret = -1;
          while ((ret = hand_in(bad ? dropped : good)) != 0) {
            ASSERT_TRUE(ret == -45 || ret == -21) << ret;
            std::this_thread::yield();
            if (i % 3 == 0) break; // some frames stay lost, others are tried again
          }
          if (ret == 0) ++(bad ? accepted_bad : accepted);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    while (g_hooks < accepted + accepted_bad) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(worker.stop(), 0);
  }
  EXPECT_EQ(g_hooks, accepted + accepted_bad);
  EXPECT_EQ(g_sent, accepted);
  EXPECT_EQ(g_sent_longer, g_sent) << "every frame that left carries Option 82";
  EXPECT_GT(accepted, THREADS * FRAMES / 2);
}

} // namespace
