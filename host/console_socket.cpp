// Readers of the agent's console.
#include "host/console_socket.h"

#include "host/console.h"
#include "host/console_path.h"
#include "host/failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t MAX_UNREAD = 4U << 20; // octets; more than the largest report has
constexpr size_t MAX_READERS = 16;
constexpr int BACKLOG = 4;

struct console_client {
  int fd;
  uint32_t number;
  std::string unread;
};

struct socket_state {
  int listener = -1;
  int wake[2] = {-1, -1};
  std::string path;
  std::function<void(uint32_t)> ask_mark;
  std::thread server;

  std::mutex lock; // guards what follows
  std::vector<console_client> clients;
  uint32_t next_number = 0;
  bool ended = false;
};
socket_state g_socket;

void wake_server() {
  if (write(g_socket.wake[1], "", 1) < 0) return; // full: it is awake
}

// With the lock held. A reader that leaves too much unread is cut off.
void add_unread(console_client& client, std::string_view text) {
  if (client.unread.size() + text.size() > MAX_UNREAD) {
    shutdown(client.fd, SHUT_RDWR);
  } else {
    client.unread.append(text);
  }
}

// False when the reader has gone.
bool serve_client(console_client& client, short events, bool& wants_mark) {
  if ((events & (POLLERR | POLLHUP)) != 0) return false;
  if ((events & POLLIN) != 0) {
    char word[64];
    const ssize_t len = recv(client.fd, word, sizeof(word), MSG_DONTWAIT);
    if (len == 0 || (len < 0 && errno != EAGAIN)) return false;
    wants_mark = len > 0 && std::memchr(word, CONSOLE_MARK_REQUEST, static_cast<size_t>(len)) != nullptr;
  }
  if (client.unread.empty()) return true;
  const ssize_t len = send(client.fd, client.unread.data(), client.unread.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (len > 0) client.unread.erase(0, static_cast<size_t>(len));
  return len >= 0 || errno == EAGAIN;
}

void accept_client() {
  const int fd = accept4(g_socket.listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) return;
  const std::lock_guard<std::mutex> guard(g_socket.lock);
  if (g_socket.clients.size() < MAX_READERS) {
    g_socket.clients.push_back({fd, g_socket.next_number++, {}});
  } else {
    close(fd);
  }
}

std::vector<pollfd> wanted_events() {
  const std::lock_guard<std::mutex> guard(g_socket.lock);
  std::vector<pollfd> polled = {{g_socket.wake[0], POLLIN, 0}, {g_socket.listener, POLLIN, 0}};
  for (const console_client& client : g_socket.clients) {
    polled.push_back({client.fd, static_cast<short>(client.unread.empty() ? POLLIN : POLLIN | POLLOUT), 0});
  }
  return polled;
}

// Readers that asked for a mark.
std::vector<uint32_t> serve_clients(const std::vector<pollfd>& polled) {
  std::vector<uint32_t> asked;
  const std::lock_guard<std::mutex> guard(g_socket.lock);
  std::erase_if(g_socket.clients, [&](console_client& client) {
    for (size_t i = 2; i < polled.size(); ++i) {
      if (polled[i].fd != client.fd) continue;
      bool wants_mark = false;
      const bool stays = serve_client(client, polled[i].revents, wants_mark);
      if (!stays) close(client.fd);
      if (stays && wants_mark) asked.push_back(client.number);
      return !stays;
    }
    return false;
  });
  return asked;
}

bool has_ended() {
  const std::lock_guard<std::mutex> guard(g_socket.lock);
  return g_socket.ended;
}

void serve_readers() {
  while (!has_ended()) {
    std::vector<pollfd> polled = wanted_events();
    if (poll(polled.data(), polled.size(), -1) < 0) continue;
    char octets[64];
    if ((polled[0].revents & POLLIN) != 0 && read(g_socket.wake[0], octets, sizeof(octets)) < 0) continue;
    for (const uint32_t reader : serve_clients(polled)) g_socket.ask_mark(reader);
    if ((polled[1].revents & POLLIN) != 0) accept_client();
  }
}

// The folder of our own for the socket: nobody else may put one there.
bool make_folder(const std::string& path) {
  if (std::getenv("LINE_ID_CONSOLE") != nullptr) return true; // the user's own choice
  const std::string folder = path.substr(0, path.rfind('/'));
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) return false;
  struct stat found = {};
  const bool ours = lstat(folder.c_str(), &found) == 0 && S_ISDIR(found.st_mode) && found.st_uid == geteuid() &&
                    (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
  if (!ours) errno = EPERM;
  return ours;
}

// A listening socket at `address`; -1 with errno set.
int listen_at(const sockaddr_un& address) {
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  if (connect(fd, generic, sizeof(address)) == 0) {
    close(fd);
    throw host_failure(EXIT_AGENT, std::string("another host publishes its console at ") + address.sun_path);
  }
  if (errno == ECONNREFUSED) unlink(address.sun_path); // of a host that has died
  const mode_t before = umask(S_IRWXG | S_IRWXO | S_IXUSR);
  const bool bound = bind(fd, generic, sizeof(address)) == 0 && listen(fd, BACKLOG) == 0;
  const int reason = errno;
  umask(before);
  if (bound) return fd;
  close(fd);
  errno = reason;
  return -1;
}

int open_listener(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return make_folder(path) ? listen_at(address) : -1;
}

} // namespace

std::string console_socket_open(std::function<void(uint32_t)> ask_mark) {
  std::string path = console_socket_path();
  g_socket.listener = open_listener(path);
  if (g_socket.listener < 0 || pipe2(g_socket.wake, O_CLOEXEC | O_NONBLOCK) != 0) {
    console_note("warning: the agent's console cannot be published at " + path + ": " + std::strerror(errno));
    return {};
  }
  g_socket.path = path;
  g_socket.ask_mark = std::move(ask_mark);
  g_socket.ended = false;
  g_socket.server = std::thread(serve_readers);
  return path;
}

void console_socket_close() {
  if (!g_socket.server.joinable()) return;
  {
    const std::lock_guard<std::mutex> guard(g_socket.lock);
    g_socket.ended = true;
  }
  wake_server();
  g_socket.server.join();
  unlink(g_socket.path.c_str());
  for (const console_client& client : g_socket.clients) close(client.fd);
  g_socket.clients.clear();
  for (const int fd : {g_socket.listener, g_socket.wake[0], g_socket.wake[1]}) close(fd);
}

void console_socket_send(std::string_view line) {
  const std::lock_guard<std::mutex> guard(g_socket.lock);
  if (g_socket.clients.empty()) return;
  for (console_client& client : g_socket.clients) add_unread(client, std::string(line) + "\n");
  wake_server();
}

void console_socket_mark(uint32_t reader) {
  const std::lock_guard<std::mutex> guard(g_socket.lock);
  for (console_client& client : g_socket.clients) {
    if (client.number == reader) add_unread(client, std::string(CONSOLE_MARK_LINE) + "\n");
  }
  wake_server();
}
