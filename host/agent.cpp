// The agent's life in the host.
#include "host/agent.h"

#include "host/console.h"
#include "host/failure.h"

#include <chrono>
#include <pthread.h>
#include <sched.h>

namespace {

constexpr std::chrono::seconds START_LIMIT{10};
constexpr const char* START_LINE = "lineid start ."; // printed by the agent when its queue and pool are there

[[noreturn]] void agent_failure(const std::string& what, int32_t code) {
  throw host_failure(EXIT_AGENT, what + " (" + std::to_string(code) + ")");
}

// So that waking this thread does not interrupt the one that hands frames in, when both share a core: one switch then
// serves all the frames that there are, instead of two switches for each.
void batch_this_thread() {
  constexpr sched_param NO_PRIORITY = {};
  pthread_setschedparam(pthread_self(), SCHED_BATCH, &NO_PRIORITY);
}

} // namespace

running_agent::running_agent(const line_map& map, frame_events& events, const agent_options& options) {
  if (options.other_processes && line_id_is_service_running() == 1) {
    throw host_failure(EXIT_AGENT, "another agent serves already; LINE_ID_IPC_PREFIX keeps several apart");
  }
  load_instances(map, events, options.other_processes);
  line_id_set_line_id_buf_pool_num(options.pool_units);
  start_worker();
  try {
    barrier();
    apply_settings(map);
    barrier();
  } catch (...) {
    stop_worker();
    throw;
  }
}

running_agent::~running_agent() { stop_worker(); }

void running_agent::load_instances(const line_map& map, frame_events& events, bool other_processes) {
  const line_id_hal_func_table hal = hal_install(map, events);
  for (const auto& instance : map.instances) {
    line_id_ex_cfg_table table = instance->table;
    table.fmt_list = &instance->formats;
    table.cross_process_shared_mem = other_processes ? 1 : 0;
    const int32_t ret = line_id_data_init(instance->id, instance->mode, &table, &hal);
    if (ret < 0) agent_failure("the agent refuses the settings of instance " + std::to_string(instance->id), ret);
  }
  const int32_t ret = line_id_init_def_white_list_func(&map.agent.white_list);
  if (ret < 0) agent_failure("the agent refuses the white list", ret);
}

void running_agent::start_worker() {
  console_watch(START_LINE, [this] {
    const std::lock_guard<std::mutex> guard(lock_);
    started_ = true;
    changed_.notify_all();
  });
  worker_ = std::thread([this] {
    batch_this_thread();
    line_id_proc_entry(nullptr);
    const std::lock_guard<std::mutex> guard(lock_);
    ended_ = true;
    changed_.notify_all();
  });
  std::unique_lock<std::mutex> guard(lock_);
  const bool answered = changed_.wait_for(guard, START_LIMIT, [this] { return started_ || ended_; });
  if (answered && !ended_) return;
  guard.unlock();
  stop_worker();
  throw host_failure(EXIT_AGENT, "the agent does not start");
}

void running_agent::stop_worker() {
  console_watch("", nullptr);
  line_id_stop();
  if (worker_.joinable()) worker_.join();
}

void running_agent::barrier() {
  // Commands are served between frames, so the answer comes when none is under way.
  const int32_t ret = line_id_get_option82_enable(0);
  if (ret < 0) agent_failure("the agent does not answer", ret);
}

std::vector<std::string> running_agent::statistics() {
  console_take_held();
  console_set_mode(CONSOLE_HOLD);
  const int32_t ret = line_id_show_pkt_statistics();
  if (ret < 0) agent_failure("the agent does not report its statistics", ret);
  barrier(); // behind the report, which was asked for first
  std::vector<std::string> lines = console_take_held();
  console_set_mode(CONSOLE_RELAY);
  return lines;
}
