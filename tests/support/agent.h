// An agent in the test's own process: callbacks that record, facts that the test chooses, worker turns run inline.
#pragma once

#include "include/line_id.h"
#include "tests/support/frames.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

struct sent_frame {
  uint8_t oltid;
  uint8_t direct;
  uint16_t port;
  octets frame;
};

struct trap_rule {
  uint8_t oltid;
  uint8_t protocol;
  uint8_t enable;
  bool operator==(const trap_rule&) const = default;
};

// What the callbacks saw, and what they answer. The inline worker and the test share one thread.
struct test_agent {
  std::vector<sent_frame> sent;
  std::vector<line_id_alarm> alarms;
  std::vector<trap_rule> traps;
  std::vector<std::string> logs;
  uint32_t hook_calls;

  uint16_t olt_slot;          // 3
  uint16_t onu_slot;          // 1
  uint16_t onu_sub_slot;      // 2
  uint8_t form;               // GP
  line_id_onu_reg_info onu;   // onu_id "ONU42", onu_rpc_ponno 5, onu_losn 1, texts "N1" and "C1", type 9
  line_id_onu_port_info port; // Ethernet, number 7
  int32_t send_result;        // what the send callback answers
  int32_t facts_result;       // what get_onu_reg_info_by_optional_elem answers
  line_id_hal_func_table hal;
};
extern test_agent g_agent;

// A start-up configuration: owns the format list that its table points at once agent_start takes it.
struct agent_config {
  line_id_ex_cfg_table table;
  line_id_fmt_list formats;
  uint8_t cust_mode;
};

// All agents and both spoofing tables registered, all four protocols and both identifiers on, CTC, standard type 0,
// Remote-ID "%m" (option 37 "%m"), every policy 0, strips 0, 0 and 1, in-process.
agent_config agent_defaults();

// The record above as it is at first: what the callbacks answer by default, nothing seen.
void agent_reset_record();

// The line of most tests: S-VLAN 100, C-VLAN 200, PON 5, ONU 42, port 7, GEM 1001, instance 0, line-ID switch 1.
line_id_append_info test_line();

// Empties store, tables, counters and the record above, then brings instance `oltid` up with an access node "an1",
// rack 1, frame 2. Result of line_id_data_init. The Circuit-ID of test_line() is then
// "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP".
int32_t agent_start(agent_config config, uint8_t oltid = 0);

// A second instance beside the first, nothing emptied.
int32_t agent_add_instance(agent_config config, uint8_t oltid);

struct outcome {
  int32_t result; // of the receive call
  std::vector<sent_frame> sent;
};

// Hand a frame in from a heap copy of exactly its size, by its EtherType, and run the worker until nothing is left.
outcome agent_feed(const octets& frame, uint8_t direct, const line_id_append_info& line = test_line(),
                   uint32_t src_port = 11);

// Run worker turns until queue and events are empty.
void agent_run();

// Units that are free, and in all.
uint32_t agent_free_units();
uint32_t agent_units();

// Every frame cut at every length goes through a running agent; what comes out is never longer than the scratch frame.
void agent_feed_truncated(const octets& frame, uint8_t direct, const line_id_append_info& line = test_line());

// Tears down with the pool whole.
class agent_test : public testing::Test {
protected:
  void TearDown() override { EXPECT_EQ(agent_free_units(), agent_units()) << "a pool unit is missing"; }
};
