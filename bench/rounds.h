// Side by side in one process: every round runs each contender of a group once, in changing order, so that what the
// machine does meanwhile meets all of them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct contender {
  std::string name;
  std::function<void(uint32_t)> run; // so many times
};

// One contender's figure of one run: the median over the rounds of nanoseconds a time, and of the ratio to the group's
// first contender in the same round.
struct figure {
  double nanoseconds;
  double ratio;
};

struct group_result {
  std::vector<std::string> names;
  std::vector<std::vector<figure>> runs; // [run][contender]
};

struct round_plan {
  uint32_t runs = 3;
  uint32_t rounds = 101;
  double slice_us = 60; // of one contender in one round
};

group_result run_group(const round_plan& plan, const std::vector<contender>& group);

double median(std::vector<double> values);
int64_t now_ns();

// Keep a value, and everything that memory holds, from being optimised away.
template <class Value> inline void keep(const Value& value) { asm volatile("" : : "r,m"(value) : "memory"); }
