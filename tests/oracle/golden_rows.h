// Frames that the agent rebuilds, each with its configuration and the identity that the rebuilt frame must carry.
#pragma once

#include "tests/support/agent.h"

#include <functional>
#include <span>

struct golden {
  const char* name;
  std::function<void(agent_config&)> configure;
  std::function<octets(frame_builder)> frame;
  uint8_t direct;
  const char* protocol;
  const char* circuit;
  const char* remote;
};

std::span<const golden> golden_rows();

// An Ethernet header with VLANs 100 and up.
frame_builder tagged(uint32_t tags);
