// The yardstick of bench/relay.sh: moves frames between two interfaces, one system call to get each and one to put it.
//   usage: relay_forwarder INTERFACE INTERFACE
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

int open_interface(const char* name) {
  const int fd = socket(AF_PACKET, SOCK_RAW, 0);
  const int on = 1;
  setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof(on));
  sockaddr_ll address = {};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(name));
  if (fd >= 0 && address.sll_ifindex != 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0)
    return fd;
  std::fprintf(stderr, "%s: %s\n", name, std::strerror(errno));
  return -1;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: relay_forwarder INTERFACE INTERFACE\n", stderr);
    return 2;
  }
  std::array<pollfd, 2> sides = {{{open_interface(argv[1]), POLLIN, 0}, {open_interface(argv[2]), POLLIN, 0}}};
  if (sides[0].fd < 0 || sides[1].fd < 0) return 1;
  static std::array<uint8_t, 65536> frame;
  while (poll(sides.data(), sides.size(), -1) >= 0 || errno == EINTR) {
    for (size_t from = 0; from < sides.size(); ++from) {
      if ((sides[from].revents & POLLIN) == 0) continue;
      const ssize_t len = recv(sides[from].fd, frame.data(), frame.size(), MSG_DONTWAIT);
      if (len > 0) send(sides[1 - from].fd, frame.data(), static_cast<size_t>(len), 0);
    }
  }
  return 1;
}
