// Side by side in one process.
#include "bench/rounds.h"

#include <algorithm>
#include <ctime>

int64_t now_ns() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

namespace {

double time_ns(const contender& each, uint32_t times) {
  const int64_t start = now_ns();
  each.run(times);
  return static_cast<double>(now_ns() - start) / times;
}

// How often a contender runs in a slice.
uint32_t times_for(const contender& each, double slice_us) {
  each.run(1);
  uint32_t times = 1;
  while (times < 1U << 20 && time_ns(each, times) * times < slice_us * 500) times *= 2;
  return times;
}

} // namespace

group_result run_group(const round_plan& plan, const std::vector<contender>& group) {
  group_result result;
  std::vector<uint32_t> times;
  for (const contender& each : group) {
    result.names.push_back(each.name);
    times.push_back(times_for(each, plan.slice_us));
  }
  const size_t size = group.size();
  for (uint32_t run = 0; run < plan.runs; ++run) {
    std::vector<std::vector<double>> taken(size);
    std::vector<std::vector<double>> ratio(size);
    for (uint32_t round = 0; round < plan.rounds; ++round) {
      for (size_t i = 0; i < size; ++i) {
        const size_t at = (round % 2 == 0 ? i + round / 2 : size + round / 2 - i) % size;
        taken[at].push_back(time_ns(group[at], times[at]));
      }
      for (size_t i = 0; i < size; ++i) ratio[i].push_back(taken[i].back() / taken[0].back());
    }
    std::vector<figure> figures;
    for (size_t i = 0; i < size; ++i) figures.push_back({median(taken[i]), median(ratio[i])});
    result.runs.push_back(figures);
  }
  return result;
}
