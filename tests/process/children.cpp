// Child processes of a test program, and the shared objects of both.
#include "tests/process/children.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int64_t CHILD_PATIENCE_US = 60000000;

const std::string PREFIX = "test-" + std::to_string(getpid());
const bool g_is_prepared =
    setenv("LINE_ID_IPC_PREFIX", PREFIX.c_str(), 1) == 0 && setenv("LINE_ID_TICK_US", "1000", 0) == 0;

std::vector<std::filesystem::path> objects_of_prefix() {
  std::vector<std::filesystem::path> found;
  for (const auto& each : std::filesystem::directory_iterator("/dev/shm")) {
    if (each.path().string().starts_with(shared_path(""))) found.push_back(each.path());
  }
  return found;
}

class unlink_objects : public testing::Environment {
  void TearDown() override { unlink_shared_objects(); }
};
const testing::Environment* const g_unlink_objects = testing::AddGlobalTestEnvironment(new unlink_objects);

} // namespace

pid_t start_child(const std::function<int()>& body) {
  std::fflush(nullptr); // nothing is printed twice
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _exit(body());
  }
  return child;
}

int wait_child(pid_t child) {
  int status = 0;
  for (const int64_t end = now_us() + CHILD_PATIENCE_US; now_us() < end; pause_us(500)) {
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

std::string text_of_child(const std::function<std::string()>& body) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = start_child([&] {
    std::freopen("/dev/null", "w", stdout);
    const std::string text = body();
    const bool told = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    std::exit(told ? 0 : 1); // and not _exit: coverage is written at the end
    return 0;
  });
  close(ends[1]);
  std::string text(2048, '\0');
  const ssize_t len = read(ends[0], text.data(), text.size());
  close(ends[0]);
  EXPECT_EQ(wait_child(child), 0);
  text.resize(len > 0 ? static_cast<size_t>(len) : 0);
  return text;
}

int64_t now_us() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void pause_us(int64_t us) { std::this_thread::sleep_for(std::chrono::microseconds(us)); }

std::string shared_path(const std::string& suffix) { return "/dev/shm/" + PREFIX + "." + suffix; }

size_t shared_objects() { return objects_of_prefix().size(); }

void unlink_shared_objects() {
  for (const auto& each : objects_of_prefix()) unlink(each.c_str());
}
