// The agent in this process: brought up with a line map, its worker on a thread of its own, taken down at the end.
#pragma once

#include "host/hal.h"
#include "host/line_map.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct agent_options {
  uint32_t pool_units;
  bool other_processes; // other processes may configure it
};

// Throws host_failure (EXIT_AGENT) when the agent cannot be started, refuses a setting or does not answer.
class running_agent {
public:
  // `map` and `events` outlive it.
  running_agent(const line_map& map, frame_events& events, const agent_options& options);
  ~running_agent();
  running_agent(const running_agent&) = delete;
  running_agent& operator=(const running_agent&) = delete;

  // Returns when the worker has finished the frame that it had under way.
  void barrier();
  // The agent's own report, line by line.
  std::vector<std::string> statistics();

private:
  void load_instances(const line_map& map, frame_events& events, bool other_processes);
  void start_worker();
  void stop_worker();

  std::thread worker_;
  std::mutex lock_; // guards what follows
  std::condition_variable changed_;
  bool started_ = false;
  bool ended_ = false;
};

// Client calls: what the start-up table does not carry. Throws as above.
void apply_settings(const line_map& map);
