// What is measured and held against a limit. Each function adds its groups to a report.
#pragma once

#include "bench/rounds.h"

#include <string>
#include <vector>

// One line of the table: a contender's figure in each run, and the limit that all of them must keep. Printed in the
// order in which it was added.
struct target {
  std::string group;
  std::string name;
  std::vector<double> values; // one for each run
  double limit = 0;
  bool at_least = false; // the values must reach the limit rather than stay under it
  std::string unit = "x";
};

struct measured {
  std::string group;
  std::string name;
  std::vector<double> nanoseconds; // one for each run
};

struct report {
  round_plan plan;
  bool smoke = false; // a single short pass, to see that everything runs
  std::vector<target> targets;
  std::vector<measured> times;

  group_result add_group(const std::string& name, const std::vector<contender>& group);
  // The ratio of one contender's time to another's, run by run.
  void add_ratio(const std::string& group, const std::string& name, const group_result& from, const char* numerator,
                 const char* denominator, double limit, bool at_least = false);
  void add(const target& row) { targets.push_back(row); }
};

void measure_agents(report& into);
void measure_growth(report& into);   // what a further tag or option costs
void measure_text(report& into);     // an identifier's text
void measure_bindings(report& into); // the binding tables
void measure_memory(report& into);   // of an agent, in a process of its own
void measure_queues(report& into);   // ours and others'
void measure_wake(report& into);     // waking the worker, and a client of another process; before any other part
void measure_path(report& into);     // the whole road of a frame
