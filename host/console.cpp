// Standard output and the pipe behind the agent's messages.
#include "host/console.h"

#include "host/console_notes.h"
#include "host/console_socket.h"
#include "host/failure.h"

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::string_view MARK = "mark ";
constexpr char ESCAPE = '\x01'; // begins the host's own words among the agent's

struct console_state {
  FILE* out = nullptr; // the user's standard output; set before the reader starts
  FILE* pipe = nullptr;
  int saved_stdout = -1;
  std::thread reader;
  std::string secret; // set before the reader starts

  std::mutex lock; // guards what follows, for the reader and all callers
  std::condition_variable synced;
  uint32_t sync_count = 0;
  console_mode mode = CONSOLE_HOLD;
  std::vector<std::string> held;
  std::string watched;
  std::function<void()> seen;
};
console_state g_console;

void take_line(std::string line) {
  std::erase(line, '\r');
  console_socket_send(line);
  std::function<void()> seen;
  {
    const std::lock_guard<std::mutex> guard(g_console.lock);
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

// The host's own words carry what no agent can print by chance.
std::string own_word(std::string_view what) { return ESCAPE + g_console.secret + std::string(what); }

void take_own_word(std::string_view what) {
  if (what.substr(0, MARK.size()) == MARK) {
    console_socket_mark(static_cast<uint32_t>(std::strtoul(what.data() + MARK.size(), nullptr, 10)));
    return;
  }
  const std::lock_guard<std::mutex> guard(g_console.lock);
  ++g_console.sync_count;
  g_console.synced.notify_all();
}

void read_pipe() {
  char* line = nullptr;
  size_t size = 0;
  const std::string own = own_word("");
  for (ssize_t len; (len = getline(&line, &size, g_console.pipe)) >= 0;) {
    if (len > 0 && line[len - 1] == '\n') --len;
    const std::string text(line, static_cast<size_t>(len));
    const size_t at = text.find(own);
    // The agent may have left the line before the host's word unfinished.
    if (at != 0) take_line(text.substr(0, at));
    if (at != std::string::npos) take_own_word(text.substr(at + own.size()));
  }
  std::free(line);
}

std::string random_word() {
  std::random_device device;
  return std::to_string(device()) + "." + std::to_string(device()) + ".";
}

[[noreturn]] void cannot_move() {
  throw host_failure(EXIT_AGENT, std::string("cannot move standard output: ") + std::strerror(errno));
}

} // namespace

void console_open(console_patience patience) {
  std::fflush(stdout);
  g_console.secret = random_word();
  console_notes_open(patience == CONSOLE_DROP);
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
  console_socket_close();
  console_notes_close();
  close(g_console.saved_stdout);
  std::fclose(g_console.pipe);
  std::fclose(g_console.out);
}

FILE* console_out() { return g_console.out; }

std::string console_publish() {
  // Asked for on the socket's thread: the word goes behind all that the agent has printed.
  return console_socket_open([](uint32_t reader) {
    std::printf("%s%u\n", own_word(MARK).c_str(), reader);
    std::fflush(stdout);
  });
}

void console_set_mode(console_mode mode) {
  const std::lock_guard<std::mutex> guard(g_console.lock);
  g_console.mode = mode;
}

std::vector<std::string> console_take_held() {
  std::unique_lock<std::mutex> guard(g_console.lock);
  const uint32_t before = g_console.sync_count;
  guard.unlock();
  std::printf("%s\n", own_word("sync").c_str()); // behind all that is in the stream
  std::fflush(stdout);
  guard.lock();
  g_console.synced.wait(guard, [before] { return g_console.sync_count != before; });
  return std::exchange(g_console.held, {});
}

void console_watch(std::string text, std::function<void()> seen) {
  const std::lock_guard<std::mutex> guard(g_console.lock);
  g_console.watched = std::move(text);
  g_console.seen = std::move(seen);
}
