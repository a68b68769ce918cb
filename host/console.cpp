// Standard output, standard error and the pipe behind the agent's messages.
#include "host/console.h"

#include "host/failure.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::string_view SYNC_LINE = "\x01sync";
constexpr int BAR_WIDTH = 40;
constexpr std::chrono::milliseconds BAR_DELAY{500};

struct console_state {
  FILE* out = nullptr; // the user's standard output; set before the reader starts
  FILE* pipe = nullptr;
  int saved_stdout = -1;
  std::thread reader;

  std::mutex lock; // guards what follows, for the reader and all callers
  std::condition_variable synced;
  uint32_t sync_count = 0;
  console_mode mode = CONSOLE_HOLD;
  std::vector<std::string> held;
  std::string watched;
  std::function<void()> seen;

  std::mutex error_lock; // guards standard error and the bar
  int bar_percent = -1;  // drawn, or -1
};
console_state g_console;

void clear_bar() {
  if (g_console.bar_percent >= 0) std::fprintf(stderr, "\r\x1b[K");
  g_console.bar_percent = -1;
}

void take_line(std::string line) {
  std::erase(line, '\r');
  std::function<void()> seen;
  {
    const std::lock_guard<std::mutex> guard(g_console.lock);
    if (line == SYNC_LINE) {
      ++g_console.sync_count;
      g_console.synced.notify_all();
      return;
    }
    if (!g_console.watched.empty() && line.find(g_console.watched) != std::string::npos) {
      g_console.watched.clear();
      seen = std::exchange(g_console.seen, nullptr);
    }
    if (g_console.mode == CONSOLE_HOLD) g_console.held.push_back(line);
    if (g_console.mode == CONSOLE_HOLD) line.clear();
  }
  if (seen) seen();
  if (!line.empty()) console_note("agent: " + line);
}

void read_pipe() {
  char* line = nullptr;
  size_t size = 0;
  for (ssize_t len; (len = getline(&line, &size, g_console.pipe)) >= 0;) {
    if (len > 0 && line[len - 1] == '\n') --len;
    take_line(std::string(line, static_cast<size_t>(len)));
  }
  std::free(line);
}

[[noreturn]] void cannot_move() {
  throw host_failure(EXIT_AGENT, std::string("cannot move standard output: ") + std::strerror(errno));
}

} // namespace

void console_open() {
  std::fflush(stdout);
  int ends[2];
  g_console.saved_stdout = dup(STDOUT_FILENO);
  const int own = g_console.saved_stdout >= 0 ? dup(STDOUT_FILENO) : -1;
  if (own < 0 || (g_console.out = fdopen(own, "w")) == nullptr) cannot_move();
  if (pipe(ends) != 0 || (g_console.pipe = fdopen(ends[0], "r")) == nullptr) cannot_move();
  if (dup2(ends[1], STDOUT_FILENO) < 0) cannot_move();
  close(ends[1]);
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  g_console.reader = std::thread(read_pipe);
}

void console_close() {
  std::fflush(stdout);
  dup2(g_console.saved_stdout, STDOUT_FILENO); // the last writing end: the reader sees the end of the pipe
  g_console.reader.join();
  close(g_console.saved_stdout);
  std::fclose(g_console.pipe);
  std::fclose(g_console.out);
}

FILE* console_out() { return g_console.out; }

void console_note(std::string_view text) {
  const std::lock_guard<std::mutex> guard(g_console.error_lock);
  clear_bar();
  std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

void console_set_mode(console_mode mode) {
  const std::lock_guard<std::mutex> guard(g_console.lock);
  g_console.mode = mode;
}

std::vector<std::string> console_take_held() {
  std::unique_lock<std::mutex> guard(g_console.lock);
  const uint32_t before = g_console.sync_count;
  guard.unlock();
  // A line of our own behind all that is in the stream; the agent may have left a line unfinished.
  std::printf("\n%s\n", SYNC_LINE.data());
  std::fflush(stdout);
  guard.lock();
  g_console.synced.wait(guard, [before] { return g_console.sync_count != before; });
  std::vector<std::string> lines = std::exchange(g_console.held, {});
  if (!lines.empty() && lines.back().empty()) lines.pop_back();
  return lines;
}

void console_watch(std::string text, std::function<void()> seen) {
  const std::lock_guard<std::mutex> guard(g_console.lock);
  g_console.watched = std::move(text);
  g_console.seen = std::move(seen);
}

void console_progress(double share) {
  static const bool terminal = isatty(STDERR_FILENO) == 1;
  static const auto start = std::chrono::steady_clock::now();
  if (!terminal || std::chrono::steady_clock::now() - start < BAR_DELAY) return;
  const std::lock_guard<std::mutex> guard(g_console.error_lock);
  const int percent = static_cast<int>(std::clamp(share, 0.0, 1.0) * 100);
  if (percent == g_console.bar_percent) return;
  const int filled = percent * BAR_WIDTH / 100;
  std::fprintf(stderr, "\r%3d %% [%s%s]", percent, std::string(filled, '#').c_str(),
               std::string(BAR_WIDTH - filled, ' ').c_str());
  std::fflush(stderr);
  g_console.bar_percent = percent;
}

void console_progress_end() {
  const std::lock_guard<std::mutex> guard(g_console.error_lock);
  clear_bar();
}
