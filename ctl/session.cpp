// The calls of the library, and what their results mean to an operator.
#include "ctl/session.h"

#include "ctl/failure.h"
#include "ctl/output.h"
#include "include/line_id.h"

#include <algorithm>
#include <cerrno>

namespace {

struct result_row {
  int32_t code;
  exit_status status;
  const char* text;
};
// What a call says when it could not reach the agent.
constexpr result_row CHANNEL_RESULTS[] = {
    {LINE_ID_ERR_SET_MUTEX, STATUS_TIMEOUT,
     "the agent does not take commands: the one before it was not carried out in time"},
    {LINE_ID_ERR_GET_MUTEX, STATUS_TIMEOUT, "another program holds the channel for queries"},
    {LINE_ID_ERR_SEND_MSG, STATUS_TIMEOUT, "the agent's queue is full or gone"},
    {LINE_ID_ERR_REPLY_CODE, STATUS_TIMEOUT, "the agent does not answer in time"},
    {LINE_ID_ERR_REPLY_LEN, STATUS_TIMEOUT, "the agent does not answer in time"},
    {LINE_ID_ERR_NO_AREA, STATUS_REFUSED, "the agent has no such instance"},
    {LINE_ID_ERR_SHARE_SEM, STATUS_PERMISSION,
     "cannot attach to the agent's semaphores, which may belong to another user"},
    {LINE_ID_ERR_SHARE_MEM, STATUS_PERMISSION, "cannot attach to the agent's memory, which may belong to another user"},
    {LINE_ID_ERR_SHARE_QUEUE, STATUS_PERMISSION,
     "cannot attach to the agent's queue, which may have another key or belong to another user"},
};

const result_row* channel_result(int32_t code) {
  const auto* row = std::find_if(std::begin(CHANNEL_RESULTS), std::end(CHANNEL_RESULTS),
                                 [code](const result_row& known) { return known.code == code; });
  return row != std::end(CHANNEL_RESULTS) ? row : nullptr;
}

constexpr const char* NO_AGENT = "no agent is running here that other processes can configure";

[[noreturn]] void fail(exit_status status, const std::string& what, const std::string& reason, int32_t code) {
  throw ctl_failure(status, what + ": " + reason + " (" + std::to_string(code) + ")");
}

// Two settings with answers of different length, neither of which a number could be mistaken for.
int32_t ask_address(uint8_t oltid) {
  uint32_t address = 0;
  return line_id_get_manage_ip(oltid, &address);
}

int32_t ask_access_node(uint8_t oltid) {
  char text[LINE_ID_ANI_LEN] = {};
  return line_id_get_ani_str(oltid, text);
}

bool answers_address(const setting_row& row) { return row.rule.kind == VALUE_ADDRESS; }

} // namespace

void session_open(std::optional<uint32_t> key) {
  errno = 0;
  if (line_id_is_service_running() == 0) {
    const bool foreign = errno == EACCES || errno == EPERM;
    if (foreign)
      throw ctl_failure(STATUS_PERMISSION, "the agent's shared objects belong to another user: run this as "
                                           "the user of the agent");
    throw ctl_failure(STATUS_NO_AGENT, NO_AGENT);
  }
  const uint32_t* given = key ? &*key : nullptr;
  session_check(output_hush([given] { return line_id_init_share_resource(given); }), "agent");
}

void session_check(int32_t result, const std::string& what) {
  if (result >= 0) return;
  const result_row* row = channel_result(result);
  if (row == nullptr) fail(STATUS_REFUSED, what, "the call refuses this", result);
  if (row->status == STATUS_TIMEOUT && line_id_is_service_running() == 0) {
    fail(STATUS_NO_AGENT, what, "the agent ended meanwhile", result);
  }
  fail(row->status, what, row->text, result);
}

int32_t session_number(const std::function<int32_t()>& call, uint8_t oltid, int32_t& number) {
  number = call();
  if (channel_result(number) == nullptr) return LINE_ID_OK;
  if (const int32_t ret = ask_address(oltid); ret < 0) return ret;
  if (const int32_t ret = ask_access_node(oltid); ret < 0) return ret;
  const int32_t first = number;
  number = call();
  // Both answers cannot be left over from one former answer, so the agent is there: what comes twice is the value.
  return number == first || channel_result(number) == nullptr ? LINE_ID_OK : number;
}

void session_barrier(uint8_t oltid, const std::string& what) {
  session_check(ask_address(oltid), what);
  session_check(ask_access_node(oltid), what);
}

setting_value session_read(const setting_row& row, uint8_t oltid) {
  session_check(answers_address(row) ? ask_access_node(oltid) : ask_address(oltid), row.name);
  setting_value value;
  session_check(row.read(oltid, value), row.name);
  return value;
}

void session_write(const setting_row& row, uint8_t oltid, const setting_value& value) {
  if (row.write == nullptr) {
    throw ctl_failure(STATUS_USAGE, std::string(row.name) +
                                        " travels with the circuit-ID block, which carries the host "
                                        "name as well: lineidctl block set " +
                                        row.name + "=... host-name=...");
  }
  session_check(row.write(oltid, value), row.name);
  session_barrier(oltid, row.name);
}
