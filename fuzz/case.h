// A fuzz input: settings, line, templates and a frame, laid out so that a mutation stays an input; and the agent that
// it is put before.
#pragma once

#include "tests/support/agent.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Says what was wrong with an input and aborts.
[[noreturn]] void fuzz_finding(const char* format, ...) __attribute__((format(printf, 1, 2)));
#define FUZZ_CHECK(condition, ...)                                                                                     \
  do {                                                                                                                 \
    if (!(condition)) fuzz_finding(__VA_ARGS__);                                                                       \
  } while (0)

// Bits of the settings' octets. All zero: everything on, CTC, by operation, nothing stripped, no spoofing check.
enum fuzz_way : uint8_t { // fuzz_settings::ways
  WAY_MEND = 1,           // length fields are put right before the frame is handed in
  WAY_SEND_FAILS = 2,
  WAY_FACTS_FAIL = 4,
  WAY_HOOK_WRITES = 8, // the parameter hook writes letters
  WAY_HOOK_MOVES = 16, // and moves the frame to instance 1
  WAY_IDENTITY = 32,   // the ONU's logical identity is not valid
  WAY_NO_SLOT = 64,    // the OLT's slot is 0
  WAY_TRACE = 128,     // all traces on
};
enum fuzz_off : uint8_t { // fuzz_settings::off
  OFF_OPTION82 = 1,
  OFF_OPTION18 = 2,
  OFF_OPTION37 = 4,
  OFF_PPPOE = 8,
  OFF_CIRCUIT_ID = 16,
  OFF_REMOTE_ID = 32,
  OFF_82_TRANSPARENT = 64, // turns transparency on
  OFF_PPPOE_TRANSPARENT = 128,
};
enum fuzz_strip : uint8_t { // fuzz_settings::strips; bits 4 and 5 are the exception policy
  STRIP_PPPOE = 1,
  STRIP_DHCP6_TWICE = 2,
  STRIP_LEVEL_0 = 4,
  STRIP_DHCP4 = 8,
};
enum fuzz_spoof : uint8_t { // fuzz_settings::spoofing; bits 4 and 5 are the valid binding count
  SPOOF_DHCP = 1,
  SPOOF_DHCP_ACTIVE = 2,
  SPOOF_PPPOE = 4,
  SPOOF_OTHER_FIRST = 8, // the same frame came from another ONU before
};
enum fuzz_white : uint8_t { WHITE_POLICY = 1, WHITE_DHCP = 2, WHITE_PPPOE = 4, WHITE_LISTED = 8 };

struct __attribute__((packed)) fuzz_settings {
  uint8_t down; // bit 0: downstream
  uint8_t ways;
  uint8_t off;
  uint8_t formats;  // low four bits: 0 CTC, 1 CNC, 2 custom; high four bits: standard type
  uint8_t policies; // low four bits: Circuit-ID up policy, high four bits: Remote-ID
  uint8_t strips;
  uint8_t spoofing;
  uint8_t white_list;
  uint8_t form;       // 0 GP, else LINE_ID_FORM_*
  uint8_t onu_id_len; // 0: "ONU42"; else a text of this length, up to 50
  line_id_append_info line;
  uint8_t circuit_len; // octets of the custom Circuit-ID template, which follows
  uint8_t remote_len;  // octets of the Remote-ID templates, which follow that
};

struct fuzz_case {
  fuzz_settings settings;
  octets circuit; // template
  octets remote;  // template
  octets frame;   // the rest
};

// False for an input too short for its settings.
bool fuzz_read(const uint8_t* data, size_t size, fuzz_case& input);
octets fuzz_write(const fuzz_case& input);

// Octets at the end of their own allocation, so that a read behind them is caught.
struct exact_copy {
  std::unique_ptr<uint8_t[]> at;
  explicit exact_copy(const octets& from);
};

// The agent, brought up on the first call, with the case's settings in the instances that its frame can reach. Standard
// output is closed. VLAN profiles 1 to 4 and 64 are there.
void fuzz_settle(const fuzz_case& input);

// The instance whose settings a line's frames go by.
uint8_t fuzz_instance(const line_id_append_info& line);

// One frame through ingress, queue, worker, agent and egress, and the checks that hold for every frame: sent once at
// most, seen by the hook exactly when it was queued, the pool whole.
outcome fuzz_feed(uint8_t protocol, const octets& frame, uint8_t direct, const line_id_append_info& line);

// A whole input: its frame behind two different frames of another subscriber must come out the same, and well-formed.
int fuzz_frame(uint8_t protocol, const uint8_t* data, size_t size);
