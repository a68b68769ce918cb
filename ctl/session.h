// The exchange with the agent: attaching, judging results, and making sure that an answer is an answer. One thread.
#pragma once

#include "ctl/settings.h"

#include <functional>
#include <optional>

// Attaches to the agent; `key` as for line_id_init_share_resource. Throws ctl_failure: no agent, another user's.
void session_open(std::optional<uint32_t> key);

// Throws ctl_failure for a result below 0; `what` stands before the reason.
void session_check(int32_t result, const std::string& what);

// A number from a call that returns it in one int with its failures: 0 and the number, or the failure's code. A number
// that could be a code is asked for again, once the agent has proved to answer.
int32_t session_number(const std::function<int32_t()>& call, uint8_t oltid, int32_t& number);

// Waits until the agent has served all that was sent before. Throws ctl_failure.
void session_barrier(uint8_t oltid, const std::string& what);

// Reads a setting that can be read. A call whose wait runs out takes what an earlier answer left behind, so another
// setting is read first: both cannot come from the same left-over. Throws ctl_failure.
setting_value session_read(const setting_row& row, uint8_t oltid);
// Sends a setting and waits until the agent has served it. Throws ctl_failure.
void session_write(const setting_row& row, uint8_t oltid, const setting_value& value);
