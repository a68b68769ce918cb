// Waking: a frame to the idle worker, and a client's get from another process, against bare exchanges of the same
// shape. Everything is on one core, where the scheduler's share is the same for all.
#include "bench/desk.h"
#include "bench/targets.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/futex.h>
#include <new>
#include <sched.h>
#include <semaphore.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr uint32_t EXCHANGES = 400;    // of each kind in a round: one, the first, finds the caches cold
constexpr uint32_t EXCHANGE_LEN = 307; // octets each way

void stay_on_one_core(bool stay) {
  static cpu_set_t before;
  if (stay) {
    sched_getaffinity(0, sizeof(before), &before);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof(one), &one);
  } else {
    sched_setaffinity(0, sizeof(before), &before);
  }
}

struct exchange {
  const char* name;
  std::function<void()> once;
};

double quantile(std::vector<double>& values, double part) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

struct quantiles {
  double p50;
  double p99;
};

// All exchanges of a kind in a row, kinds in turn, for all rounds of a run: quantiles[run][kind]. Each finds the other
// side asleep.
std::vector<std::vector<quantiles>> time_exchanges(report& into, const std::string& group,
                                                   const std::vector<exchange>& kinds) {
  std::vector<std::vector<quantiles>> found;
  std::vector<measured> rows;
  for (const exchange& each : kinds) {
    rows.push_back({group, std::string(each.name) + " p50", {}});
    rows.push_back({group, std::string(each.name) + " p99", {}});
    each.once();
  }
  for (uint32_t run = 0; run < into.plan.runs; ++run) {
    std::vector<std::vector<double>> taken(kinds.size());
    for (uint32_t round = 0; round < into.plan.rounds; ++round) {
      for (size_t kind = 0; kind < kinds.size(); ++kind) {
        for (uint32_t i = 0; i < EXCHANGES; ++i) {
          const int64_t start = now_ns();
          kinds[kind].once();
          taken[kind].push_back(static_cast<double>(now_ns() - start));
          sched_yield(); // woken by the answer, this thread interrupts the other one on its way to sleep
        }
      }
    }
    found.emplace_back();
    for (size_t kind = 0; kind < kinds.size(); ++kind) {
      found.back().push_back({quantile(taken[kind], 0.5), quantile(taken[kind], 0.99)});
      rows[2 * kind].nanoseconds.push_back(found.back()[kind].p50);
      rows[2 * kind + 1].nanoseconds.push_back(found.back()[kind].p99);
    }
  }
  into.times.insert(into.times.end(), rows.begin(), rows.end());
  return found;
}

// How often and for how long the machine takes the core from a loop that only reads the clock. Where that happens to
// more than one exchange in a hundred, their slowest hundredth says nothing about themselves.
void measure_pauses(report& into) {
  constexpr double SHORTEST = 5000; // nanoseconds
  const double watched = into.smoke ? 1e7 : 1e9;
  measured lasting = {"core taken away", "for, p50", {}};
  measured apart = {"core taken away", "every", {}};
  for (uint32_t run = 0; run < into.plan.runs; ++run) {
    std::vector<double> pauses;
    const int64_t start = now_ns();
    for (int64_t last = start; static_cast<double>(last - start) < watched;) {
      const int64_t now = now_ns();
      if (static_cast<double>(now - last) >= SHORTEST) pauses.push_back(static_cast<double>(now - last));
      last = now;
    }
    apart.nanoseconds.push_back(watched / std::max<double>(1, static_cast<double>(pauses.size())));
    lasting.nanoseconds.push_back(pauses.empty() ? 0 : quantile(pauses, 0.5));
  }
  into.times.push_back(lasting);
  into.times.push_back(apart);
}

// ---- a frame to the idle worker, in this process

sem_t g_ping;
sem_t g_pong;

void measure_idle_worker(report& into) {
  desk_start(desk_mode::WHOLE);
  sem_init(&g_ping, 0, 0);
  sem_init(&g_pong, 0, 0);
  std::thread worker = bench_start_worker();
  bool ends = false;
  std::thread partner([&ends] {
    for (sem_wait(&g_ping); !ends; sem_wait(&g_ping)) sem_post(&g_pong);
  });
  const octets frame = bench_frame(LINE_ID_DHCPV4);
  const line_id_append_info line = bench_line();
  const auto hand_in = [&] { return bench_hand_in(frame, LINE_ID_DHCPV4, line); };
  g_after_send = [] { sem_post(&g_pong); };
  const auto found = time_exchanges(into, "idle worker",
                                    {{"semaphores",
                                      [] {
                                        sem_post(&g_ping);
                                        sem_wait(&g_pong);
                                      }},
                                     {"frame", [&] {
                                        while (hand_in() != LINE_ID_OK) sched_yield();
                                        sem_wait(&g_pong);
                                      }}});
  g_after_send = nullptr;
  ends = true;
  sem_post(&g_ping);
  partner.join();
  bench_stop_worker(worker);
  target against = {"frame to idle worker", "p50 / semaphores'", {}, 1.1, false, "x"};
  target tail = {"frame to idle worker", "p99 / own p50", {}, 1.6, false, "x"};
  for (const auto& run : found) {
    against.values.push_back(run[1].p50 / run[0].p50);
    tail.values.push_back(run[1].p99 / run[1].p50);
  }
  into.add(against);
  into.add(tail);
}

// ---- a client's get from another process

// What a bare exchange shares: whose turn it is, and the octets.
struct shared_page {
  std::atomic<uint32_t> turn;
  uint8_t octets[EXCHANGE_LEN];
};

void hand_over(shared_page& page, uint32_t to) {
  page.turn.store(to, std::memory_order_release);
  syscall(SYS_futex, &page.turn, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void wait_turn(shared_page& page, uint32_t mine) {
  for (uint32_t seen = page.turn.load(std::memory_order_acquire); seen != mine; seen = page.turn.load()) {
    syscall(SYS_futex, &page.turn, FUTEX_WAIT, seen, nullptr, nullptr, 0);
  }
}

// A child of this process that ends with it.
template <class Body> pid_t start_child(Body body) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  body();
  _exit(0);
}

void answer_futex(shared_page& page) {
  uint8_t octets[EXCHANGE_LEN];
  for (;;) {
    wait_turn(page, 1);
    std::memcpy(octets, page.octets, sizeof(octets));
    std::memcpy(page.octets, octets, sizeof(octets));
    hand_over(page, 2);
  }
}

void answer_socket(int fd) {
  uint8_t octets[EXCHANGE_LEN];
  while (recv(fd, octets, sizeof(octets), 0) > 0) send(fd, octets, sizeof(octets), 0);
}

// The client is a child of its own, so that this process can still become an agent with private objects.
void be_client(report& into, const std::vector<int>& to_parent) {
  auto* page =
      new (mmap(nullptr, sizeof(shared_page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) shared_page{};
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) return;
  const pid_t children[] = {start_child([page] { answer_futex(*page); }),
                            start_child([&ends] { answer_socket(ends[1]); }), start_child([] {
                              desk_start(desk_mode::WHOLE, true);
                              line_id_proc_entry(nullptr);
                            })};
  for (int tries = 0; tries < 500 && line_id_is_service_running() != 1; ++tries) usleep(10000);
  usleep(100000);
  line_id_init_share_resource(nullptr);
  uint8_t octets[EXCHANGE_LEN] = {};
  bool failed = line_id_get_option82_enable(0) != 1;
  const auto found = time_exchanges(into, "client get",
                                    {{"futex",
                                      [&] {
                                        std::memcpy(page->octets, octets, sizeof(octets));
                                        hand_over(*page, 1);
                                        wait_turn(*page, 2);
                                        std::memcpy(octets, page->octets, sizeof(octets));
                                      }},
                                     {"seqpacket",
                                      [&] {
                                        send(ends[0], octets, sizeof(octets), 0);
                                        recv(ends[0], octets, sizeof(octets), 0);
                                      }},
                                     {"get", [&] { failed = line_id_get_option82_enable(0) != 1 || failed; }},
                                     {"set", [&] { failed = line_id_set_option82_enable(0, 1) < 0 || failed; }}});
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  bench_remove_shared_objects();
  for (const auto& run : found) {
    if (failed || write(to_parent[1], run.data(), run.size() * sizeof(run[0])) < 0) _exit(1);
  }
}

void measure_client(report& into) {
  int ends[2];
  if (pipe(ends) != 0) return;
  const pid_t client = start_child([&] { be_client(into, {ends[0], ends[1]}); });
  close(ends[1]);
  target against = {"client get", "p50 / futex p50", {}, 1.15, false, "x"};
  target tail = {"client get", "p99 / seqpacket p50", {}, 1, false, "x"};
  constexpr const char* NAMES[] = {"futex p50", "futex p99", "seqpacket p50", "seqpacket p99",
                                   "get p50",   "get p99",   "set p50",       "set p99"};
  std::vector<measured> rows;
  for (const char* name : NAMES) rows.push_back({"client get", name, {}});
  quantiles run[std::size(NAMES) / 2];
  while (read(ends[0], run, sizeof(run)) == static_cast<ssize_t>(sizeof(run))) {
    against.values.push_back(run[2].p50 / run[0].p50);
    tail.values.push_back(run[2].p99 / run[1].p50);
    for (size_t i = 0; i < rows.size(); ++i) {
      rows[i].nanoseconds.push_back(i % 2 == 0 ? run[i / 2].p50 : run[i / 2].p99);
    }
  }
  close(ends[0]);
  waitpid(client, nullptr, 0);
  if (against.values.empty()) {
    std::fprintf(stderr, "the client of another process measured nothing\n");
    std::exit(1);
  }
  into.times.insert(into.times.end(), rows.begin(), rows.end());
  into.add(against);
  into.add(tail);
}

} // namespace

void measure_wake(report& into) {
  stay_on_one_core(true);
  measure_pauses(into);
  measure_client(into);
  measure_idle_worker(into);
  stay_on_one_core(false);
}
