// What a replay tells the user: a line for each frame, and the table or the JSON object at the end.
#pragma once

#include "host/window.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct frame_counts {
  uint32_t read;
  uint32_t trapped;
  uint32_t rebuilt;
  uint32_t passed;
  uint32_t dropped;
  uint32_t refused;
};

class replay_report {
public:
  replay_report(bool json, bool verbose) : json_(json), verbose_(verbose) {}

  void count(const frame_record& frame);
  // The summary. `statistics`: the agent's own report, or empty.
  void finish(const std::string& capture, const std::string& output, const std::vector<std::string>& statistics);
  // Frames written to the output.
  uint32_t written() const;
  uint32_t without_line() const { return without_line_; }

private:
  void print_frame(const frame_record& frame) const;
  void print_frame_json(const frame_record& frame) const;
  void print_table(const std::vector<std::string>& statistics) const;
  void print_json(const std::string& capture, const std::string& output,
                  const std::vector<std::string>& statistics) const;
  frame_counts total() const;

  bool json_;
  bool verbose_;
  std::map<std::pair<uint8_t, uint8_t>, frame_counts> counts_; // by protocol and direction
  std::map<int32_t, uint32_t> refusals_;                       // by result
  uint32_t alarms_ = 0;
  uint32_t without_line_ = 0;
};
