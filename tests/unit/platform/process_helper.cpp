// Child processes for the platform tests, and the objects they share.
#include "process_helper.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/pal_settings.h"

namespace {

constexpr int64_t CHILD_PATIENCE_MS = 10000;

const bool g_is_prepared = [] {
  setenv("LINE_ID_IPC_PREFIX", ("test-" + std::to_string(getpid())).c_str(), 0);
  setenv("LINE_ID_TICK_US", "1000", 0);
  return true;
}();

class unlink_objects : public testing::Environment {
public:
  void TearDown() override {
    const std::string prefix = std::filesystem::path(shared_file("")).filename();
    for (const auto& each : std::filesystem::directory_iterator("/dev/shm")) {
      if (each.path().filename().string().starts_with(prefix)) unlink(each.path().c_str());
    }
  }
};
const testing::Environment* const g_unlink_objects = testing::AddGlobalTestEnvironment(new unlink_objects);

} // namespace

pid_t start_child(const std::function<int()>& body) {
  std::fflush(nullptr); // nothing is printed twice
  const pid_t child = fork();
  if (child == 0) _exit(body());
  return child;
}

int wait_child(pid_t child) {
  int status = 0;
  for (const int64_t end = now_ms() + CHILD_PATIENCE_MS; now_ms() < end; pause_ms(1)) {
    if (waitpid(child, &status, WNOHANG) == child) {
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
  }
  kill_child(child);
  return -1;
}

void kill_child(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

int run_anew(const char* test, const char* name1, const char* value1, const char* name2, const char* value2) {
  const std::string filter = std::string("--gtest_filter=") + test;
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  return wait_child(start_child([&] {
    setenv(name1, value1, 1);
    setenv(name2, value2, 1);
    execl(program.c_str(), program.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1", filter.c_str(),
          nullptr);
    return 127;
  }));
}

int64_t now_ms() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void pause_ms(int64_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

std::string shared_file(const char* suffix) { return std::string("/dev/shm") + pal_object_name(suffix).data(); }
