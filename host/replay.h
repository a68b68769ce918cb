// Replays a capture through the agent: frames in, frames out, in the order and with the times of the capture.
#pragma once

#include "host/line_map.h"

#include <atomic>
#include <cstdint>
#include <string>

struct replay_options {
  std::string capture;
  std::string output;
  uint8_t direct; // of all frames, or 0: by the message
  uint32_t pool_units;
  bool verbose;
  bool json;
  bool statistics;
  bool progress;
  bool hold; // other processes configure the agent before the first frame
};

// Throws host_failure; the output then does not exist. `interrupted` may be set by a signal handler: the replay ends
// with EXIT_INTERRUPTED.
void replay(const replay_options& options, const line_map& map, const std::atomic<bool>& interrupted);
