// An agent in another process for the tests of this folder; the test program itself is its client, over the shared
// library and the public header alone.
#pragma once

#include "tests/process/children.h"
#include "tests/process/protocol.h"
#include "tests/support/frames.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

class agent_process {
public:
  // Up and taking frames when the constructor returns. `quiet`: what it prints is thrown away.
  explicit agent_process(bool quiet = false);
  // Ends it in good order and checks its exit code, unless it was killed.
  ~agent_process();
  agent_process(const agent_process&) = delete;
  agent_process& operator=(const agent_process&) = delete;

  void start();
  void kill();    // SIGKILL
  void restart(); // kill and start
  pid_t pid() const { return pid_; }
  pid_t worker() const { return worker_; }

  agent_reply ask(agent_op op, uint32_t times = 1);
  agent_reply ask(agent_op op, const octets& frame, const line_id_append_info& line, uint8_t direct = 1,
                  uint32_t times = 1);
  // The frame that left, empty when it was dropped or refused.
  octets feed(const octets& frame, const line_id_append_info& line, uint8_t direct = 1);
  std::string events();
  // What the agent printed since the last call.
  std::string output();
  // Sub-option of the Option 82 that a subscriber's DISCOVER gets on this line: 1 Circuit-ID, 2 Remote-ID.
  std::string sub_option(const line_id_append_info& line, uint8_t code);
  // Frames that the agent holds while the worker stands still with the first; nothing else may be under way.
  uint32_t room();

private:
  pid_t pid_ = 0;
  pid_t worker_ = 0;
  int socket_ = -1;
  int output_ = -1;
  off_t output_read_ = 0;
};

// S-VLAN 100, C-VLAN 200, PON 5, ONU 42, port 7, GEM 1001, line-ID switch 1.
line_id_append_info test_line(uint8_t oltid = 0);
// Its Circuit-ID with the agent's own settings.
constexpr const char* CIRCUIT_ID = "0 0/0/0:100.200 0/0/0/3/0/5/ONU42 GP";

octets discover();

uint32_t tick_us();
// Number in the environment, or `otherwise`.
uint32_t setting(const char* name, uint32_t otherwise);
