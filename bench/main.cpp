// The measurements: runs the groups side by side and prints what was measured as JSON.
#include "bench/targets.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

struct part {
  const char* name;
  void (*measure)(report& into);
};
constexpr part PARTS[] = {
    // the first two fork, while nothing has been started here
    {"memory", measure_memory}, {"wake", measure_wake}, {"agents", measure_agents},     {"growth", measure_growth},
    {"text", measure_text},     {"path", measure_path}, {"bindings", measure_bindings}, {"queues", measure_queues},
};

struct interval {
  double lowest;
  double middle;
  double highest;
};

interval interval_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {values.front(), median(values), values.back()};
}

bool is_met(const target& row) {
  const interval found = interval_of(row.values);
  return row.at_least ? found.lowest >= row.limit : found.highest <= row.limit;
}

void print_json(FILE* to, const report& all) {
  nlohmann::ordered_json out;
  for (const target& row : all.targets) {
    const interval found = interval_of(row.values);
    out["targets"].push_back({{"group", row.group},
                              {"name", row.name},
                              {"median", found.middle},
                              {"lowest", found.lowest},
                              {"highest", found.highest},
                              {"limit", row.limit},
                              {"at_least", row.at_least},
                              {"unit", row.unit},
                              {"met", is_met(row)}});
  }
  for (const measured& row : all.times) {
    const interval found = interval_of(row.nanoseconds);
    out["times"].push_back({{"group", row.group},
                            {"name", row.name},
                            {"nanoseconds", found.middle},
                            {"lowest", found.lowest},
                            {"highest", found.highest}});
  }
  std::fprintf(to, "%s\n", out.dump(1).c_str());
}

int usage() {
  std::fputs("usage: bench_targets [--smoke] [PART...]\nparts:", stderr);
  for (const part& each : PARTS) std::fprintf(stderr, " %s", each.name);
  std::fputs("\n", stderr);
  return 2;
}

} // namespace

int main(int argc, char** argv) {
  report all;
  std::vector<const part*> wanted;
  for (int i = 1; i < argc; ++i) {
    const auto* named = std::find_if(std::begin(PARTS), std::end(PARTS),
                                     [&](const part& each) { return std::strcmp(each.name, argv[i]) == 0; });
    if (std::strcmp(argv[i], "--smoke") == 0) {
      all.smoke = true;
    } else if (named != std::end(PARTS)) {
      wanted.push_back(named);
    } else {
      return usage();
    }
  }
  if (all.smoke) all.plan = {1, 3, 5};

  setenv("LINE_ID_IPC_PREFIX", ("lineid.bench." + std::to_string(getpid())).c_str(), 1);
  // The agent reports its start on standard output, which belongs to the table.
  FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  for (const part& each : PARTS) {
    if (wanted.empty() || std::find(wanted.begin(), wanted.end(), &each) != wanted.end()) each.measure(all);
  }
  print_json(out, all);
  std::fclose(out);
  return 0;
}
