// The writer of standard error, and the progress bar on it.
#include "host/console_notes.h"

#include "host/console.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr size_t MAX_WAITING = 10000; // notes
constexpr size_t CHUNK = 4096;        // a pipe that is ready takes so many octets at once (PIPE_BUF)
constexpr int POLL_MS = 100;
constexpr int CLOSING_POLLS = 5; // without progress
constexpr int BAR_WIDTH = 40;
constexpr std::chrono::milliseconds BAR_DELAY{500};

struct notes_state {
  std::thread writer;

  std::mutex lock; // guards what follows
  std::condition_variable changed;
  std::deque<std::string> waiting;
  uint64_t dropped = 0;
  bool may_drop = false;
  bool closing = true; // no writer runs
  bool bar_drawn = false;
  int bar_percent = -1;
};
notes_state g_notes;

bool is_closing() {
  const std::lock_guard<std::mutex> guard(g_notes.lock);
  return g_notes.closing;
}

// False when standard error takes nothing while the console closes, or not any more.
bool write_out(std::string_view text) {
  for (int idle = 0; !text.empty();) {
    pollfd ready = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&ready, 1, POLL_MS) <= 0) {
      if (is_closing() && ++idle >= CLOSING_POLLS) return false;
      continue;
    }
    const ssize_t len = write(STDERR_FILENO, text.data(), std::min(text.size(), CHUNK));
    if (len < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (len > 0) text.remove_prefix(static_cast<size_t>(len));
  }
  return true;
}

// What to write next; empty when the console has closed and all is written.
std::string next_text() {
  std::unique_lock<std::mutex> guard(g_notes.lock);
  g_notes.changed.wait(guard, [] { return !g_notes.waiting.empty() || g_notes.closing; });
  std::string text;
  if (g_notes.bar_drawn && !g_notes.waiting.empty()) text = "\r\x1b[K";
  g_notes.bar_drawn = false;
  g_notes.bar_percent = -1;
  while (!g_notes.waiting.empty() && text.size() < CHUNK) {
    text += g_notes.waiting.front() + "\n";
    g_notes.waiting.pop_front();
  }
  if (g_notes.dropped > 0) {
    text += "warning: " + std::to_string(g_notes.dropped) + " lines are lost here: they were not read in time\n";
    g_notes.dropped = 0;
  }
  g_notes.changed.notify_all();
  return text;
}

void write_notes() {
  for (std::string text; !(text = next_text()).empty();) {
    if (write_out(text)) continue;
    const std::lock_guard<std::mutex> guard(g_notes.lock);
    g_notes.may_drop = true; // nobody will ever read them
    if (g_notes.closing) return;
  }
}

void add_text(std::string text) {
  std::unique_lock<std::mutex> guard(g_notes.lock);
  if (g_notes.closing) { // before and after a run
    guard.unlock();
    std::fprintf(stderr, "%s\n", text.c_str());
    return;
  }
  const auto has_room = [] { return g_notes.waiting.size() < MAX_WAITING; };
  if (!g_notes.may_drop) g_notes.changed.wait(guard, [&] { return has_room() || g_notes.may_drop || g_notes.closing; });
  if (has_room()) {
    g_notes.waiting.push_back(std::move(text));
  } else {
    ++g_notes.dropped;
  }
  g_notes.changed.notify_all();
}

} // namespace

void console_notes_open(bool may_drop) {
  g_notes.may_drop = may_drop;
  g_notes.closing = false;
  g_notes.writer = std::thread(write_notes);
}

void console_notes_close() {
  {
    const std::lock_guard<std::mutex> guard(g_notes.lock);
    g_notes.closing = true;
    g_notes.changed.notify_all();
  }
  if (g_notes.writer.joinable()) g_notes.writer.join();
}

void console_note(std::string_view text) { add_text(std::string(text)); }

void console_progress(double share) {
  static const bool terminal = isatty(STDERR_FILENO) == 1;
  static const auto start = std::chrono::steady_clock::now();
  if (!terminal || std::chrono::steady_clock::now() - start < BAR_DELAY) return;
  const std::lock_guard<std::mutex> guard(g_notes.lock);
  const int percent = static_cast<int>(std::clamp(share, 0.0, 1.0) * 100);
  if (percent == g_notes.bar_percent || !g_notes.waiting.empty()) return;
  const int filled = percent * BAR_WIDTH / 100;
  std::fprintf(stderr, "\r%3d %% [%s%s]", percent, std::string(filled, '#').c_str(),
               std::string(BAR_WIDTH - filled, ' ').c_str());
  std::fflush(stderr);
  g_notes.bar_drawn = true;
  g_notes.bar_percent = percent;
}

void console_progress_end() {
  const std::lock_guard<std::mutex> guard(g_notes.lock);
  if (g_notes.bar_drawn) std::fprintf(stderr, "\r\x1b[K");
  g_notes.bar_drawn = false;
  g_notes.bar_percent = -1;
}
