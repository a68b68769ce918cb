// Collecting and printing what was measured.
#include "bench/targets.h"

#include <cstdio>
#include <cstdlib>

group_result report::add_group(const std::string& name, const std::vector<contender>& group) {
  group_result result = run_group(plan, group);
  for (size_t i = 0; i < group.size(); ++i) {
    measured row = {name, group[i].name, {}};
    for (const auto& run : result.runs) row.nanoseconds.push_back(run[i].nanoseconds);
    times.push_back(row);
  }
  return result;
}

namespace {

size_t index_of(const group_result& from, const std::string& name) {
  for (size_t i = 0; i < from.names.size(); ++i) {
    if (from.names[i] == name) return i;
  }
  std::fprintf(stderr, "no contender %s\n", name.c_str());
  std::exit(1);
}

} // namespace

void report::add_ratio(const std::string& group, const std::string& name, const group_result& from,
                       const char* numerator, const char* denominator, double limit, bool at_least) {
  const size_t above = index_of(from, numerator);
  const size_t below = index_of(from, denominator);
  target row = {group, name, {}, limit, at_least, "x"};
  for (const auto& run : from.runs) row.values.push_back(run[above].ratio / run[below].ratio);
  add(row);
}
