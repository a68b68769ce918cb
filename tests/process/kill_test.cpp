// Clients and agents killed in the middle of an exchange: at every point of it, and at random.
//
// A killed process leaves the shared objects as they are after one of its writes. So the victim is run one instruction
// at a time, and killed after its first write, its second, and so on to the last: no kill can leave anything else. The
// other side is stopped meanwhile, so that all writes are the victim's.
#include "tests/process/harness.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int64_t WAIT_TICKS = 600;
constexpr int64_t SLACK_US = 2000000; // for a loaded machine
constexpr int STEPS_AT_REST = 20000;  // from one write of an exchange to the next it is 1000

// What the processes share, as it was when last looked at.
class shared_state {
public:
  shared_state() {
    for (const char* suffix :
         {"mem.1000", "mem.2000", "sem.set_mem_mutex", "sem.get_mem_mutex", "sem.get_mem_sync", "q.95"}) {
      const int fd = open(shared_path(suffix).c_str(), O_RDONLY | O_CLOEXEC);
      struct stat facts = {};
      EXPECT_EQ(fstat(fd, &facts), 0) << suffix;
      const auto size = static_cast<size_t>(facts.st_size);
      const void* memory = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
      EXPECT_NE(memory, MAP_FAILED) << suffix;
      objects_.push_back({memory, octets(size)});
      close(fd);
    }
    changed();
  }
  ~shared_state() {
    for (const object& each : objects_) munmap(const_cast<void*>(each.memory), each.seen.size());
  }
  shared_state(const shared_state&) = delete;
  shared_state& operator=(const shared_state&) = delete;

  bool changed() {
    bool any = false;
    for (object& each : objects_) {
      if (std::memcmp(each.memory, each.seen.data(), each.seen.size()) == 0) continue;
      std::memcpy(each.seen.data(), each.memory, each.seen.size());
      any = true;
    }
    return any;
  }

private:
  struct object {
    const void* memory;
    octets seen;
  };
  std::vector<object> objects_;
};

// ---- one thread at a time

bool is_asleep(pid_t thread) {
  std::ifstream stat("/proc/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(stat, line);
  const size_t at = line.rfind(')');
  return at != std::string::npos && line[at + 2] == 'S';
}

void wait_until_asleep(pid_t thread) {
  for (int quiet = 0; quiet < 3; pause_us(300)) quiet = is_asleep(thread) ? quiet + 1 : 0;
}

bool wait_stop(pid_t thread) {
  int status = 0;
  return waitpid(thread, &status, __WALL) == thread && WIFSTOPPED(status);
}

void freeze(pid_t thread) {
  ASSERT_EQ(ptrace(PTRACE_SEIZE, thread, nullptr, nullptr), 0) << std::strerror(errno);
  ASSERT_EQ(ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr), 0);
  ASSERT_TRUE(wait_stop(thread));
}

void thaw(pid_t thread) { ASSERT_EQ(ptrace(PTRACE_DETACH, thread, nullptr, nullptr), 0); }

enum class step { DONE, ASLEEP, FINISHED };

// One instruction. A thread that goes to sleep in it is left running.
step run_one(pid_t thread, bool resume = true) {
  if (resume) ptrace(PTRACE_SINGLESTEP, thread, nullptr, nullptr);
  int status = 0;
  int quiet = 0;
  for (int polls = 0;; ++polls) {
    const pid_t got = waitpid(thread, &status, __WALL | WNOHANG);
    if (got == thread) return WIFSTOPPED(status) && WSTOPSIG(status) != SIGSTOP ? step::DONE : step::FINISHED;
    if (polls < 100) continue;
    quiet = is_asleep(thread) ? quiet + 1 : 0;
    if (quiet == 2) return step::ASLEEP;
    pause_us(100);
  }
}

// ---- the tests

class kills : public testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(line_id_init_share_resource(nullptr), 0); }

  void expect_frames_pass() { ASSERT_EQ(agent_.sub_option(test_line(8), 1), CIRCUIT_ID); }

  // A child about to make a call, stopped.
  static pid_t stopped_client(int32_t (*call)()) {
    const pid_t client = start_child([call] {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      std::raise(SIGSTOP);
      call();
      std::raise(SIGSTOP);
      return 0;
    });
    EXPECT_TRUE(wait_stop(client));
    return client;
  }

  // Kills a client after `writes` of its writes to shared objects. True when its call was over before.
  bool kill_client(int32_t (*call)(), int writes) {
    wait_until_asleep(agent_.worker());
    freeze(agent_.worker());
    const pid_t client = stopped_client(call);
    shared_state shared;
    step last = step::DONE;
    for (int done = 0; done < writes && last != step::FINISHED;) {
      last = run_one(client);
      if (last == step::ASLEEP) { // it waits for its answer: one more place to die at
        if (++done == writes) break;
        thaw(agent_.worker());
        while (run_one(client, false) == step::ASLEEP) {
        }
        wait_until_asleep(agent_.worker());
        freeze(agent_.worker());
        shared.changed();
      } else if (shared.changed()) {
        ++done;
      }
    }
    ::kill(client, SIGKILL);
    while (waitpid(client, nullptr, __WALL) != client) {
    }
    thaw(agent_.worker());
    return last == step::FINISHED;
  }

  // Kills the agent after `writes` of its worker's. True when the worker had come to rest before: it writes no more.
  bool kill_agent(const std::function<void()>& request, int writes) {
    wait_until_asleep(agent_.worker());
    freeze(agent_.worker());
    request();
    shared_state shared;
    int idle_steps = 0;
    for (int done = 0; done < writes && idle_steps < STEPS_AT_REST; ++idle_steps) {
      run_one(agent_.worker());
      if (!shared.changed()) continue;
      ++done;
      idle_steps = 0;
    }
    ::kill(agent_.pid(), SIGKILL);
    while (waitpid(agent_.worker(), nullptr, __WALL) != agent_.worker()) { // before its process can be reaped
    }
    agent_.kill();
    return idle_steps == STEPS_AT_REST;
  }

  // 0 when everything works; else the refusal of the operator's calls, which must be the documented one.
  int32_t check_channel(uint16_t frame) {
    const int64_t start = now_us();
    const int32_t set = line_id_set_frame_no(1, frame);
    const int32_t got = line_id_get_frame_no(1);
    EXPECT_TRUE(set == 0 || set == -25) << set;
    EXPECT_TRUE(got == -27 || got == (set == 0 ? frame : line_id_get_frame_no(1))) << got;
    EXPECT_LE(now_us() - start, 3 * WAIT_TICKS * tick_us() + SLACK_US);
    return set != 0 ? set : got == -27 ? got : 0;
  }

  void restart_and_check() {
    agent_.restart();
    ASSERT_EQ(check_channel(123), 0) << "a restart frees the channel, for the clients that are attached";
    expect_frames_pass();
  }

  agent_process agent_{true};
};

// The order of the outcomes, each once.
std::string squeezed(std::string outcomes) {
  outcomes.erase(std::unique(outcomes.begin(), outcomes.end()), outcomes.end());
  return outcomes;
}

// What each kill led to, one letter each: o works as before, n works and the dead client's command was carried out, s
// and g: the set side or the get side is taken until the agent starts again.
TEST_F(kills, a_client_at_every_point_of_a_set) {
  const auto call = [] { return line_id_set_rack_no(2, 7); };
  std::string outcomes;
  for (bool over = false; !over && !HasFailure();) {
    ASSERT_EQ(line_id_set_rack_no(2, 6), 0);
    over = kill_client(call, static_cast<int>(outcomes.size()));
    expect_frames_pass();
    const int32_t result = check_channel(static_cast<uint16_t>(outcomes.size()));
    const int32_t rack = line_id_get_rack_no(2);
    outcomes += result == -25 ? 's' : result != 0 ? '?' : rack == 7 ? 'n' : rack == 6 ? 'o' : '?';
    if (result != 0) restart_and_check();
  }
  std::printf("set: %s\n", outcomes.c_str());
  EXPECT_EQ(squeezed(outcomes), "osn");
}

TEST_F(kills, a_client_at_every_point_of_a_get) {
  const auto call = [] { return line_id_get_rack_no(2); };
  std::string outcomes;
  for (bool over = false; !over && !HasFailure();) {
    over = kill_client(call, static_cast<int>(outcomes.size()));
    expect_frames_pass();
    const int32_t result = check_channel(static_cast<uint16_t>(outcomes.size()));
    outcomes += result == -27 ? 'g' : result == 0 ? 'o' : '?';
    if (result != 0) restart_and_check();
  }
  std::printf("get: %s\n", outcomes.c_str());
  EXPECT_EQ(squeezed(outcomes), "ogo");
}

// The client that was waiting gets the answer (+) or a code (-) within its wait.
TEST_F(kills, the_agent_at_every_point_of_a_get) {
  constexpr int NO_ANSWER = 1;
  constexpr int WRONG = 2;
  std::string outcomes;
  for (bool over = false; !over && !HasFailure();) {
    ASSERT_EQ(line_id_set_rack_no(2, 6), 0);
    ASSERT_EQ(line_id_get_rack_no(2), 6);
    ASSERT_EQ(line_id_get_frame_no(2), 0) << "no old answer in the area";
    pid_t client = 0;
    const auto request = [&client] {
      client = start_child([] {
        const int64_t start = now_us();
        const int32_t got = line_id_get_rack_no(2);
        if (now_us() - start > 2 * WAIT_TICKS * tick_us() + SLACK_US) return WRONG;
        return got == 6 ? 0 : got == -23 || got == -24 ? NO_ANSWER : WRONG;
      });
      wait_until_asleep(client);
    };
    over = kill_agent(request, static_cast<int>(outcomes.size()));
    EXPECT_EQ(line_id_is_service_running(), 0);
    const int code = wait_child(client);
    outcomes += code == 0 ? '+' : code == NO_ANSWER ? '-' : '?';
    restart_and_check();
  }
  std::printf("answer: %s\n", outcomes.c_str());
  EXPECT_EQ(outcomes.find('?'), std::string::npos);
  EXPECT_EQ(outcomes[0], '-');
}

// Without an agent, the mutex stays with a command that nobody has carried out (-) until the next start.
TEST_F(kills, the_agent_at_every_point_of_a_set) {
  std::string outcomes;
  for (bool over = false; !over && !HasFailure();) {
    over = kill_agent([] { EXPECT_EQ(line_id_set_rack_no(2, 6), 0); }, static_cast<int>(outcomes.size()));
    const int32_t next = line_id_set_rack_no(2, 7);
    outcomes += next == -25 ? '-' : next == 0 ? '+' : '?';
    restart_and_check();
    EXPECT_EQ(line_id_get_rack_no(2), 0) << "what a former agent was told is gone";
  }
  std::printf("command: %s\n", outcomes.c_str());
  EXPECT_EQ(outcomes.find('?'), std::string::npos);
  EXPECT_EQ(outcomes[0], '-');
}

// Sets and gets until it is killed; counts what worked. A restarted agent has its own settings, so 0 is right as well.
[[noreturn]] void run_client(std::atomic<uint32_t>& worked, std::atomic<int32_t>& wrong) {
  for (uint16_t rack = 1;; rack = static_cast<uint16_t>(rack % 30000 + 1)) {
    const int64_t start = now_us();
    const int32_t set = line_id_set_rack_no(2, rack);
    const int32_t got = line_id_get_rack_no(2);
    const bool codes =
        (set == 0 || set == -25 || set == -21) &&
        (got >= 0 ? got == rack || got == rack - 1 || got == 0 : got == -27 || got == -21 || got == -23 || got == -24);
    if (!codes) wrong = got != 0 ? got : set;
    if (now_us() - start > 3 * WAIT_TICKS * tick_us() + SLACK_US) wrong = 999;
    if (set == 0 && got == rack) ++worked;
  }
}

TEST_F(kills, agents_and_clients_at_random) {
  const uint32_t seed = setting("LINE_ID_TEST_SEED", std::random_device()());
  const uint32_t kills_in_all = setting("LINE_ID_TEST_KILLS", 30);
  std::printf("seed %u, %u kills\n", seed, kills_in_all);
  std::mt19937 random(seed);
  struct results {
    std::atomic<uint32_t> worked;
    std::atomic<int32_t> wrong;
  };
  void* memory = mmap(nullptr, sizeof(results), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* client_results = new (memory) results{};
  const size_t objects = shared_objects();
  uint32_t wedged = 0;
  for (uint32_t i = 0; i < kills_in_all && !HasFailure(); i += 2) {
    const pid_t client = start_child([&]() -> int { run_client(client_results->worked, client_results->wrong); });
    pause_us(random() % 3000);
    agent_.restart();
    const uint32_t worked = client_results->worked;
    const int64_t end = now_us() + 10 * WAIT_TICKS * tick_us() + SLACK_US;
    while (client_results->worked == worked && now_us() < end) pause_us(200);
    EXPECT_NE(client_results->worked, worked) << "a live client works again after a restart";
    pause_us(random() % 3000);
    kill_child(client);
    expect_frames_pass();
    if (check_channel(static_cast<uint16_t>(i)) == 0) continue;
    ++wedged;
    restart_and_check();
    ++i;
  }
  EXPECT_EQ(client_results->wrong, 0);
  EXPECT_EQ(shared_objects(), objects);
  EXPECT_EQ(agent_.room(), POOL_UNITS);
  std::printf("%u of the dead clients held a mutex; %zu shared objects before and after\n", wedged, objects);
  munmap(memory, sizeof(results));
}

} // namespace
