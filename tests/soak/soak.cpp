// The long run: mixed traffic, reconfiguration and client churn; memory, rate and latency sampled every second, every
// frame and every pool unit accounted for at the end.
#include "tests/soak/soak_agent.h"
#include "tests/soak/soak_traffic.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr uint32_t INGRESS_THREADS = 3;
constexpr uint32_t CLIENTS = 2;       // at a time
constexpr uint32_t CLIENT_CALLS = 50; // of one client's life
constexpr uint64_t MEMORY_SLACK_KIB = 1024;

struct options {
  double minutes = 30;
  uint32_t rate = 20000;
  uint32_t seed = 1;
  std::string csv;
};

struct client_churn {
  std::atomic<uint64_t> lives{0};
  std::atomic<uint64_t> failed_calls{0};
};

struct sample {
  uint64_t rss_kib;
  uint64_t in;
  std::array<uint64_t, 48 * latency_histogram::STEPS> latency;
};

uint64_t rss_kib() {
  uint64_t all = 0;
  uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

sample take_sample() {
  sample now = {rss_kib(), g_soak.in, {}};
  std::copy(g_soak.latency.counts.begin(), g_soak.latency.counts.end(), now.latency.begin());
  return now;
}

// Microseconds that a share of the frames between two samples stayed below.
double quantile_us(const sample& before, const sample& after, double share) {
  uint64_t total = 0;
  for (size_t i = 0; i < after.latency.size(); ++i) total += after.latency[i] - before.latency[i];
  const auto wanted = static_cast<uint64_t>(static_cast<double>(total) * share);
  uint64_t seen = 0;
  for (size_t i = 0; i < after.latency.size(); ++i) {
    seen += after.latency[i] - before.latency[i];
    if (seen > wanted) return static_cast<double>(latency_histogram::upper_bound(static_cast<uint32_t>(i))) / 1000;
  }
  return 0;
}

// One client process after the other: each attaches, configures and goes.
void churn_clients(uint32_t seed, const std::atomic<bool>& stop, client_churn& churn) {
  while (!stop) {
    const std::string seed_text = std::to_string(seed += CLIENTS);
    const char* arguments[] = {"soak", "client", "--seed", seed_text.c_str(), nullptr};
    pid_t child = 0;
    int status = 0;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, const_cast<char**>(arguments), environ) != 0 ||
        waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
      churn.failed_calls += CLIENT_CALLS;
      return;
    }
    churn.failed_calls += static_cast<uint64_t>(WEXITSTATUS(status));
    ++churn.lives;
  }
}

FILE* g_out = nullptr; // the user's standard output: the agent prints its reports on the process's own

// The agent's reports go nowhere from here on.
bool silence_agent() {
  const int own = dup(STDOUT_FILENO);
  g_out = own >= 0 ? fdopen(own, "w") : nullptr;
  return g_out != nullptr && std::freopen("/dev/null", "w", stdout) != nullptr;
}

bool check(bool holds, const char* what) {
  std::fprintf(g_out, "%-58s %s\n", what, holds ? "yes" : "NO");
  return holds;
}

// Peaks of resident memory: while the tables fill, and from then on.
struct memory_peaks {
  uint64_t warm_kib = 0;
  uint64_t late_kib = 0;
};

struct outcome {
  sample first, last;
  memory_peaks memory;
  uint32_t units;
  int32_t stop_result;
};

bool report(const options& given, const outcome& seen, const client_churn& churn) {
  const uint64_t dropped = g_soak.queued - g_soak.sent;
  std::fprintf(g_out, "\n%.1f minutes, %" PRIu64 " frames, %" PRIu64 " clients with %u calls each\n", given.minutes,
               g_soak.in.load(), churn.lives.load(), CLIENT_CALLS);
  std::fprintf(g_out,
               "sent %" PRIu64 ", passed at once %" PRIu64 ", dropped %" PRIu64 ", refused %" PRIu64 ", alarms %" PRIu64
               "\n",
               g_soak.sent.load(), g_soak.passed.load(), dropped, g_soak.refused.load(), g_soak.alarms.load());
  std::fprintf(g_out, "receive call to send: p50 %.1f us, p99 %.1f us\n", quantile_us(seen.first, seen.last, 0.5),
               quantile_us(seen.first, seen.last, 0.99));
  std::fprintf(g_out, "resident memory: %" PRIu64 " KiB at most in the first fifth, %" PRIu64 " KiB after it\n\n",
               seen.memory.warm_kib, seen.memory.late_kib);
  bool good = check(g_soak.in == g_soak.refused + g_soak.passed + g_soak.queued && g_soak.hooked == g_soak.queued,
                    "every frame is accounted for");
  good &= check(g_soak.strays == 0, "nothing was sent twice or unasked");
  good &= check(seen.units == SOAK_POOL_UNITS, "every pool unit came back");
  if (given.minutes >= 1)
    good &= check(seen.memory.late_kib <= seen.memory.warm_kib + MEMORY_SLACK_KIB, "memory stays flat");
  good &= check(churn.lives > 0 && churn.failed_calls == 0, "no client's call failed");
  good &= check(seen.stop_result == 0, "the agent stopped cleanly, started again and stopped");
  return good;
}

int run(const options& given) {
  if (!silence_agent() || !soak_agent_start()) {
    std::fprintf(stderr, "soak: the agent does not start\n");
    return 1;
  }
  std::FILE* csv = std::fopen(given.csv.c_str(), "w");
  if (csv == nullptr) {
    std::perror(given.csv.c_str());
    soak_agent_stop();
    return 2;
  }
  std::setvbuf(csv, nullptr, _IOLBF, BUFSIZ);
  std::fputs("second,rss_kib,frames_per_s,p50_us,p99_us,refused,client_lives,failed_calls\n", csv);
  std::atomic<bool> stop{false};
  client_churn churn;
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < INGRESS_THREADS; ++i) {
    threads.emplace_back(soak_send_frames, std::max(1U, given.rate / INGRESS_THREADS), given.seed + i, std::cref(stop));
  }
  for (uint32_t i = 0; i < CLIENTS; ++i) {
    threads.emplace_back(churn_clients, given.seed + i, std::cref(stop), std::ref(churn));
  }
  outcome seen = {};
  seen.first = seen.last = take_sample();
  const auto start = steady::now();
  const auto count = static_cast<uint32_t>(std::max(2.0, given.minutes * 60));
  for (uint32_t i = 1; i <= count; ++i) {
    std::this_thread::sleep_until(start + seconds(i));
    const sample before = seen.last;
    const sample now = seen.last = take_sample();
    uint64_t& peak = i <= count / 5 ? seen.memory.warm_kib : seen.memory.late_kib;
    peak = std::max(peak, now.rss_kib);
    std::fprintf(csv, "%u,%" PRIu64 ",%" PRIu64 ",%.1f,%.1f,%" PRIu64 ",%" PRIu64 ",%" PRIu64 "\n", i, now.rss_kib,
                 now.in - before.in, quantile_us(before, now, 0.5), quantile_us(before, now, 0.99),
                 g_soak.refused.load(), churn.lives.load(), churn.failed_calls.load());
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  std::fclose(csv);
  soak_wait_drained();
  churn.failed_calls += soak_restore_settings();
  const std::vector<uint8_t> frame = soak_plain_frame();
  seen.units = soak_count_units(frame.data(), static_cast<uint32_t>(frame.size()), soak_line(0));
  seen.stop_result = soak_agent_stop();
  // A second life in the same process takes frames as the first did.
  if (!soak_agent_start() ||
      soak_count_units(frame.data(), static_cast<uint32_t>(frame.size()), soak_line(0)) != seen.units) {
    seen.stop_result = -1;
  }
  seen.stop_result |= soak_agent_stop();
  return report(given, seen, churn) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  CLI::App app("The Line ID agent under mixed traffic, reconfiguration and client churn.", "soak");
  options given;
  CLI::App* long_run = app.add_subcommand("run", "the long run");
  long_run->add_option("minutes", given.minutes)->check(CLI::PositiveNumber);
  long_run->add_option("--csv", given.csv, "samples, one line a second")->required();
  long_run->add_option("--rate", given.rate, "frames a second")->check(CLI::Range(100, 1000000))->capture_default_str();
  long_run->add_option("--seed", given.seed)->capture_default_str();
  CLI::App* client = app.add_subcommand("client", "one client's life; its exit status: calls that failed");
  client->add_option("--seed", given.seed);
  app.require_subcommand(1);
  CLI11_PARSE(app, argc, argv);
  if (client->parsed()) return static_cast<int>(std::min(soak_run_client(CLIENT_CALLS, given.seed), CLIENT_CALLS));
  return run(given);
}
