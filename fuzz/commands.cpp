// The configuration channel as other processes can use it: forged messages and command areas, with frames under way.
//
// An input is a row of steps: an octet that says what, and what it needs.
#include "fuzz/case.h"

#include "antispoof/binding_table.h"
#include "config/channel.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/log.h"
#include "lineid/params.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

enum step : uint8_t { SET_COMMAND, GET_COMMAND, MESSAGE, FRAME, WORKER, STEPS };
constexpr int MAX_STEPS = 40;

struct steps {
  const uint8_t* data;
  size_t left;

  // What is missing reads as 0.
  template <class Value> Value take() {
    Value value = {};
    const size_t len = std::min(left, sizeof(value));
    std::memcpy(&value, data, len);
    data += len;
    left -= len;
    return value;
  }
};

// Messages of the input's own making are under way: which command they carry out is unknown.
bool g_forged;

void post(const line_id_msg& msg, uint32_t priority) {
  pal_msgQ_send_priority(g_line_id_msg_id, &msg, sizeof(msg), priority);
}

// A command area as a client leaves it; with the high bit of its length octet, the length is another number.
void write_area(steps& from, line_id_cmd_area* area) {
  struct __attribute__((packed)) head {
    uint8_t code;
    uint8_t oltid;
    uint8_t len;
  };
  const auto command = from.take<head>();
  area->code = static_cast<int8_t>(command.code); // 0 to 127 and the negative ones
  area->oltid = command.oltid;
  area->length = (command.len & 128) != 0 ? from.take<uint32_t>() : command.len & 127U;
  const size_t len = std::min<size_t>({(command.len & 127U) * 4, from.left, LINE_ID_PAYLOAD_LEN});
  if (area->length == 64) area->length = LINE_ID_FORMAT_LEN; // the templates' own length
  if (len > 0) std::memcpy(area->payload, from.data, len);
  from.data += len;
  from.left -= len;
}

// Octets that a set command carries, by its code; of other codes that is not known here.
struct lengths {
  uint32_t low, high;
};
std::map<int, lengths> set_lengths() {
  std::map<int, lengths> known;
#define LINE_ID_SWITCH(name, call, code, lo, hi, refusal, field, trap) known[code] = {1, 1};
#define LINE_ID_SWITCH_SET(name, call, code, lo, hi) known[code] = {1, 1};
#define LINE_ID_WORD(name, code, type, result, field, push) known[code] = {sizeof(type), sizeof(type)};
#define LINE_ID_FORMAT(name, code, field, complaint) known[code] = {0, LINE_ID_FORMAT_LEN};
#define LINE_ID_TEXT(name, code, size, field) known[code] = {0, size};
#define LINE_ID_BLOCK(name, code, record) known[code] = {sizeof(record), sizeof(record)};
#include "config/settings.def"
  return known;
}

// A command of a wrong length changes nothing, and a client that waits goes on.
void run_set(uint8_t oltid) {
  static const std::map<int, lengths> known = set_lengths();
  static line_id_common_cfg before;
  const line_id_cmd_area* area = line_id_set_cfg_mem(oltid);
  const auto found = known.find(area->code);
  const bool refused =
      found != known.end() && (area->length < found->second.low || area->length > found->second.high) && !g_forged;
  if (refused) std::memcpy(&before, &g_line_id_common_cfg[oltid], sizeof(before));
  pal_sem_take(g_line_id_set_mem_mutex, 0);
  post({MSG_SET, 0, oltid, 0}, LINE_ID_MSG_PRIORITY_CFG);
  agent_run();
  FUZZ_CHECK(pal_sem_count(g_line_id_set_mem_mutex) == 1, "the set areas are still locked");
  FUZZ_CHECK(!refused || std::memcmp(&before, &g_line_id_common_cfg[oltid], sizeof(before)) == 0,
             "command %d of %u octets changed a setting", area->code, area->length);
}

// An answer comes, and holds nothing but the setting: the rest of the area is as the client left it.
void run_get(uint8_t oltid, uint8_t code) {
  const line_id_cmd_area* area = line_id_get_cfg_mem(oltid);
  const line_id_cmd_area before = *area;
  pal_sem_take(g_line_id_get_mem_sync, 0);
  post({MSG_GET, code, oltid, 0}, LINE_ID_MSG_PRIORITY_CFG);
  const bool forged = g_forged;
  agent_run();
  if (forged) return;
  FUZZ_CHECK(pal_sem_count(g_line_id_get_mem_sync) == 1, "no answer to query %u", code);
  FUZZ_CHECK(area->code == code, "an answer to %u is marked %d", code, area->code);
  const size_t used = std::min<size_t>(area->length, LINE_ID_PAYLOAD_LEN);
  FUZZ_CHECK(std::memcmp(area->payload + used, before.payload + used, LINE_ID_PAYLOAD_LEN - used) == 0,
             "more than the %zu octets of the answer to %u", used, code);
}

// Frames that were queued. Each leaves once, whatever the messages say.
uint32_t feed(uint8_t which, const line_id_append_info& line) {
  static const octets frames[] = {
      eth().dhcp4(DISCOVER).option(53, {DISCOVER}).end(),
      eth().dhcp4(REQUEST).option(53, {REQUEST}).option(82, tlv1(1, text("0 0/0/0:9.8 x/0/0/0/0/0/0 EP"))).end(),
      eth().dhcp6(SOLICIT).option(1, {0, 3}).done(),
      eth().pppoe(PADI).option(0x0101, {}).done(),
  };
  const octets& frame = frames[which % std::size(frames)];
  const auto receive = which % std::size(frames) == 3 ? line_id_pppoe_receive : line_id_dhcp_receive;
  const exact_copy copy(frame);
  const uint32_t before = agent_free_units();
  receive(copy.at.get(), static_cast<uint32_t>(frame.size()), 11, LINE_ID_UPSTREAM, &line);
  return before - agent_free_units();
}

uint32_t run_step(steps& from) {
  switch (from.take<uint8_t>() % STEPS) {
  case SET_COMMAND: {
    const uint8_t oltid = from.take<uint8_t>() % 4; // other areas are alike
    write_area(from, line_id_set_cfg_mem(oltid));
    run_set(oltid);
    g_forged = false;
    return 0;
  }
  case GET_COMMAND: {
    const uint8_t oltid = from.take<uint8_t>() % 4;
    write_area(from, line_id_get_cfg_mem(oltid));
    run_get(oltid, from.take<uint8_t>());
    g_forged = false;
    return 0;
  }
  case MESSAGE: {
    const auto msg = from.take<line_id_msg>();
    post(msg, from.take<uint8_t>() % PAL_MSGQ_PRIORITIES);
    g_forged = true;
    return 0;
  }
  case FRAME: {
    line_id_append_info line = test_line();
    line.ext[LINE_ID_EXT_OLTID] = from.take<uint8_t>() % 4;
    line.ext[LINE_ID_EXT_CID] = from.take<uint8_t>();
    const auto which = from.take<uint8_t>();
    if ((which & 128) != 0) line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 0; // passed on as it is
    return feed(which, line);
  }
  default:
    agent_run();
    g_forged = false;
    return 0;
  }
}

// The agent still answers: a set and a get of one setting through the areas.
void check_answers() {
  constexpr int16_t FORMAT_TYPE = 5;
  line_id_cmd_area* area = line_id_set_cfg_mem(0);
  *area = {};
  area->code = FORMAT_TYPE;
  area->length = 1;
  area->payload[0] = 2;
  post({MSG_SET, 0, 0, 0}, LINE_ID_MSG_PRIORITY_CFG);
  *line_id_get_cfg_mem(0) = {};
  post({MSG_GET, FORMAT_TYPE, 0, 0}, LINE_ID_MSG_PRIORITY_CFG);
  agent_run();
  const line_id_cmd_area answer = *line_id_get_cfg_mem(0);
  FUZZ_CHECK(answer.code == FORMAT_TYPE && answer.length == 1 && answer.payload[0] == 2, "a set and a get failed");
  FUZZ_CHECK(pal_sem_count(g_line_id_set_mem_mutex) == 1 && pal_sem_count(g_line_id_get_mem_sync) == 1,
             "an exchange was not completed");
}

// The settings as they were after the start: all that a command can change, but for the counters. A restart for each
// input would be twenty times slower.
line_id_common_cfg g_started[LINE_ID_INSTANCES];

void start() {
  std::freopen("/dev/null", "w", stdout);
  FUZZ_CHECK(agent_start(agent_defaults()) == 0 && agent_add_instance(agent_defaults(), 1) == 0, "no start");
  std::memcpy(g_started, g_line_id_common_cfg, sizeof(g_started));
}

void restore() {
  std::memcpy(g_line_id_common_cfg, g_started, sizeof(g_started));
  line_id_set_init_param();
  for (uint8_t oltid = 0; oltid < 2; ++oltid) line_id_set_ani_param_cfg(oltid, "an1", 3, 1, 2);
  const line_id_white_list nothing = {};
  line_id_set_trans_white_list_obj(&nothing);
  line_id_set_dhcpv6_option18_level(1);
  line_id_set_gemport_cfg(0, 0);
  line_id_dbg_level_set(0);
  g_line_id_debug_bits = 0;
  line_id_clear_dhcp_binding_table();
  line_id_clear_pppoe_binding_table();
  line_id_channel_reset();
  for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES; ++oltid) {
    *line_id_set_cfg_mem(oltid) = {};
    *line_id_get_cfg_mem(oltid) = {};
  }
  g_forged = false;
  g_agent.hook_calls = 0;
  g_agent.sent.clear();
  g_agent.traps.clear();
  g_agent.logs.clear();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool started = (start(), true);
  if (!started) return -1;
  restore();
  steps from = {data, size};
  uint32_t queued = 0;
  for (int i = 0; i < MAX_STEPS && from.left > 0; ++i) queued += run_step(from);
  agent_run();
  FUZZ_CHECK(agent_free_units() == agent_units(), "%u of %u units are free", agent_free_units(), agent_units());
  FUZZ_CHECK(g_agent.hook_calls == queued, "%u frames were queued, the hook saw %u", queued, g_agent.hook_calls);
  check_answers();
  return 0;
}
