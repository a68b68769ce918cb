// The set commands of more than a switch: what their client calls send, and which lengths the agent takes.
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

// All but the commands of one octet, which the settings test sends.
const std::vector<command_row>& command_rows();
constexpr int16_t ONE_OCTET[] = {0,  1,  2,  3,  4,  5,  18, 19, 20, 21, 22, 23, 30,
                                 34, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 50};
