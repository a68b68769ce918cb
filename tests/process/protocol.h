// What the tests ask of an agent process, and its answers: one message each over a socket at descriptor 0.
#pragma once

#include "line_id.h"

#include <cstdint>

constexpr uint32_t POOL_UNITS = 64;   // frames that the agent process holds at most
constexpr uint32_t FLOOD_THREADS = 4; // host threads of a flood, on ports 100 to 103
constexpr uint8_t FLOOD_INSTANCE = 8; // tests leave its settings alone while a flood runs
constexpr uint32_t MAX_EVENT_TEXT = 4096;

enum agent_op : uint32_t {
  OP_FEED,       // hand the frame in and wait until it has left or was dropped
  OP_POST,       // hand it in `times` times, ports 1 and up, C-VLAN = port, until one is refused; do not wait
  OP_HOLD,       // hand it in and wait until the worker stands still in the packet hook with it
  OP_RELEASE,    // and goes on
  OP_SETTLE,     // wait until every accepted frame has passed the hook, and no send is under way
  OP_FLOOD,      // host threads hand the frame in without a pause
  OP_FLOOD_STOP, // until this
  OP_EVENTS,     // what the callbacks saw since the last OP_EVENTS: "trap 3/1/1" and "sent <port> <VLANs>", in order
  OP_FLUSH,      // standard output is complete
};

struct agent_request {
  agent_op op;
  uint32_t times;
  uint32_t len;
  uint32_t direct;
  line_id_append_info line;
  uint8_t frame[LINE_ID_MAX_FRAME_LEN];
};

// Frames since the agent came up. Every accepted frame ends in the hook, and leaves or is dropped.
struct agent_counts {
  uint32_t accepted;
  uint32_t refused;
  uint32_t hooked;
  uint32_t sent;
  uint32_t wrong; // of a flood: other than the first frame that left by the same port
};

struct agent_reply {
  int32_t result; // of the last receive call
  int32_t worker; // thread id of the worker
  agent_counts counts;
  uint32_t len; // the frame that left last, by OP_FEED; or text, by OP_EVENTS
  uint8_t octets[MAX_EVENT_TEXT];
};
