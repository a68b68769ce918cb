// The published console of the agent.
#include "ctl/console_reader.h"

#include "ctl/failure.h"
#include "host/console_path.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

using steady = std::chrono::steady_clock;
constexpr std::chrono::seconds MARK_LIMIT{10};

class console_reader {
public:
  explicit console_reader(int fd) : fd_(fd) {}
  ~console_reader() { close(fd_); }
  console_reader(const console_reader&) = delete;
  console_reader& operator=(const console_reader&) = delete;

  // What came before the next mark.
  std::string until_mark();

private:
  void receive(steady::time_point end);
  [[noreturn]] static void broken(const std::string& why) {
    throw ctl_failure(STATUS_TIMEOUT, "the report cannot be read: the host's console " + why);
  }

  int fd_;
  std::string received_;
};

std::string console_reader::until_mark() {
  const char request = CONSOLE_MARK_REQUEST;
  if (send(fd_, &request, 1, MSG_NOSIGNAL) != 1) broken("is closed");
  const std::string mark = CONSOLE_MARK_LINE + std::string("\n");
  const auto end = steady::now() + MARK_LIMIT;
  for (size_t searched = 0;;) {
    const size_t at = received_.find(mark, searched);
    if (at != std::string::npos && (at == 0 || received_[at - 1] == '\n')) {
      std::string before = received_.substr(0, at);
      received_.erase(0, at + mark.size());
      return before;
    }
    searched = received_.size() - std::min(received_.size(), mark.size());
    receive(end);
  }
}

void console_reader::receive(steady::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady::now()).count();
  pollfd wanted = {fd_, POLLIN, 0};
  const int ready = left > 0 ? poll(&wanted, 1, static_cast<int>(left)) : 0;
  if (ready < 0 && errno == EINTR) return;
  if (ready <= 0) broken("does not answer in time");
  char part[4096];
  const ssize_t len = recv(fd_, part, sizeof(part), 0);
  if (len <= 0) broken("is closed");
  received_.append(part, static_cast<size_t>(len));
}

// The connected socket, or -1 when nobody publishes one.
int connect_console() {
  const std::string path = console_socket_path();
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) return -1;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  const timeval limit = {MARK_LIMIT.count(), 0}; // for a host that stands still and takes no more connections
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
  const int reason = errno;
  close(fd);
  if (reason == EACCES) throw ctl_failure(STATUS_PERMISSION, "the agent's console belongs to another user: " + path);
  return -1;
}

} // namespace

report_outcome console_report(const std::function<void()>& ask, std::string& report) {
  const int fd = connect_console();
  if (fd < 0) {
    ask();
    return REPORT_ELSEWHERE;
  }
  console_reader reader(fd);
  reader.until_mark(); // surely attached; what the agent printed before is nobody's report
  ask();
  report = reader.until_mark();
  std::erase(report, '\r');
  return REPORT_READ;
}
