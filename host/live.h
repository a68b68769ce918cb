// The live host: a two-armed access node on network interfaces, which bridges subscriber ports and an uplink and puts
// the subscribers' protocols through the agent.
#pragma once

#include "host/line_map.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

struct live_options {
  std::vector<std::string> subscribers; // interfaces, all different
  std::string uplink;
  uint32_t pool_units;
};

// Runs until `ended` is set, by a signal handler perhaps, and then prints what crossed. Throws host_failure.
void live(const live_options& options, const line_map& map, const std::atomic<bool>& ended);
