// Every set command: what its client call sends, and which lengths the agent takes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct command_row {
  int16_t code;
  int32_t (*call)();   // the client call, for instance 3
  std::string payload; // what it sends
  int32_t shortest;    // lengths that the agent takes, and its answers to shorter and longer ones
  int32_t longest;
  int32_t too_short;
  int32_t too_long;
};

const std::vector<command_row>& command_rows();
