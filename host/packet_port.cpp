// Packet sockets.
#include "host/packet_port.h"

#include "host/console.h"
#include "host/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int BUFFER_OCTETS = 16 << 20; // of a socket: some bursts of segmented frames
// The longest frame that the agent makes has 1536 octets, 14 of them the Ethernet header. Frames with two VLAN tags,
// which the usual 1500 refuses, fit as well.
constexpr int WANTED_MTU = 1522;

sockaddr_ll address_of(int index) {
  sockaddr_ll address = {};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = index;
  return address;
}

bool switch_on(int fd, int option) {
  const int on = 1;
  return setsockopt(fd, SOL_PACKET, option, &on, sizeof(on)) == 0;
}

// Beyond the system's limit where that is allowed.
void set_buffer(int fd, int forced_option, int option) {
  if (setsockopt(fd, SOL_SOCKET, forced_option, &BUFFER_OCTETS, sizeof(BUFFER_OCTETS)) == 0) return;
  setsockopt(fd, SOL_SOCKET, option, &BUFFER_OCTETS, sizeof(BUFFER_OCTETS));
}

bool is_gone(int error) { return error == ENETDOWN || error == ENODEV || error == ENXIO; }

} // namespace

receive_batch::receive_batch() : frames(), memory_(FRAMES * STRIDE), control_(), parts_(), messages_() {
  for (size_t i = 0; i < FRAMES; ++i) {
    parts_[i] = {.iov_base = &memory_[i * STRIDE + TAG_LEN], .iov_len = OFFLOAD_LEN + MAX_WIRE_FRAME};
    messages_[i].msg_hdr.msg_iov = &parts_[i];
    messages_[i].msg_hdr.msg_iovlen = 1;
    prepare(i);
  }
}

// The kernel writes into both.
void receive_batch::prepare(size_t index) {
  messages_[index].msg_hdr.msg_control = control_[index];
  messages_[index].msg_hdr.msg_controllen = CONTROL_LEN;
}

packet_port::packet_port(std::string interface) : name_(std::move(interface)) {
  sender_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0); // protocol 0: it receives nothing
  if (sender_ < 0) {
    const bool forbidden = errno == EPERM || errno == EACCES;
    throw host_failure(EXIT_PRIVILEGES, forbidden
                                            ? "packet sockets need the capability CAP_NET_RAW, and CAP_NET_ADMIN "
                                              "to set the interfaces up: run it as root"
                                            : std::string("cannot open a packet socket: ") + std::strerror(errno));
  }
  set_buffer(sender_, SO_SNDBUFFORCE, SO_SNDBUF);
}

packet_port::~packet_port() {
  close();
  ::close(sender_);
}

packet_port::port_state packet_port::look(int& index) const {
  ifreq request = {};
  name_.copy(request.ifr_name, IFNAMSIZ - 1);
  if (ioctl(sender_, SIOCGIFINDEX, &request) != 0) return PORT_MISSING;
  index = request.ifr_ifindex;
  if (ioctl(sender_, SIOCGIFFLAGS, &request) != 0) return PORT_MISSING;
  return (request.ifr_flags & IFF_UP) != 0 ? PORT_UP : PORT_DOWN;
}

void packet_port::check() {
  int index = 0;
  const port_state found = look(index);
  if (socket_ >= 0 && (found != PORT_UP || index != index_)) close(); // perhaps another one of the same name
  if (found == PORT_UP && socket_ < 0) open(index);
  const port_state state = found == PORT_UP && socket_ < 0 ? PORT_DOWN : found;
  if (state == state_) return;
  switch (state) {
  case PORT_MISSING: console_note("lineid-host: there is no interface " + name_ + "; waiting for it"); break;
  case PORT_DOWN: console_note("lineid-host: interface " + name_ + " is down; waiting for it"); break;
  default: console_note("lineid-host: interface " + name_ + " is up"); break;
  }
  state_ = state;
}

void packet_port::open(int index) {
  // Bound before it listens, so that no frame of another interface comes in.
  socket_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  packet_mreq promiscuous = {};
  promiscuous.mr_ifindex = index;
  promiscuous.mr_type = PACKET_MR_PROMISC;
  const sockaddr_ll address = address_of(index);
  const bool good = socket_ >= 0 && switch_on(socket_, PACKET_VNET_HDR) && switch_on(socket_, PACKET_AUXDATA) &&
                    switch_on(socket_, PACKET_IGNORE_OUTGOING) &&
                    setsockopt(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof(promiscuous)) == 0;
  if (good) {
    set_buffer(socket_, SO_RCVBUFFORCE, SO_RCVBUF);
    set_buffer(socket_, SO_SNDBUFFORCE, SO_SNDBUF);
  }
  if (!good || bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int error = errno;
    close();
    if (!is_gone(error)) {
      throw host_failure(EXIT_PRIVILEGES, "cannot listen on interface " + name_ + ": " + std::strerror(error));
    }
    return;
  }
  index_ = index;
  raise_mtu();
}

void packet_port::close() {
  if (socket_ < 0) return;
  add_lost();
  ::close(socket_);
  socket_ = -1;
  index_ = 0;
}

void packet_port::raise_mtu() {
  ifreq request = {};
  name_.copy(request.ifr_name, IFNAMSIZ - 1);
  if (ioctl(sender_, SIOCGIFMTU, &request) != 0 || request.ifr_mtu >= WANTED_MTU) return;
  const std::string from = std::to_string(request.ifr_mtu);
  request.ifr_mtu = WANTED_MTU;
  const bool raised = ioctl(sender_, SIOCSIFMTU, &request) == 0;
  const std::string to = std::to_string(WANTED_MTU);
  if (raised) {
    console_note("lineid-host: MTU of interface " + name_ + " raised from " + from + " to " + to);
  } else if (!mtu_settled_) {
    console_note("warning: the MTU of interface " + name_ + " stays at " + from + ", not " + to + " (" +
                 std::strerror(errno) + "): full frames with two VLAN tags or an added identity cannot be sent there");
  }
  mtu_settled_ = true;
}

size_t packet_port::receive(receive_batch& batch) {
  const int got = recvmmsg(socket_, batch.messages_, receive_batch::FRAMES, MSG_DONTWAIT, nullptr);
  if (got < 0) {
    if (is_gone(errno)) {
      close();
    } else if (errno != EAGAIN && errno != EINTR) {
      ++counts_.unreadable;
    }
    return 0;
  }
  size_t taken = 0;
  for (size_t i = 0; i < static_cast<size_t>(got); ++i) {
    if (take_message(batch, i, taken)) ++taken;
    batch.prepare(i);
  }
  counts_.received += static_cast<uint64_t>(got);
  return taken;
}

bool packet_port::take_message(receive_batch& batch, size_t index, size_t slot) {
  msghdr& message = batch.messages_[index].msg_hdr;
  if ((message.msg_flags & MSG_TRUNC) != 0 || batch.messages_[index].msg_len < OFFLOAD_LEN) {
    ++counts_.unreadable;
    return false;
  }
  wire_frame& wire = batch.frames[slot];
  wire.start = static_cast<uint8_t*>(batch.parts_[index].iov_base);
  wire.len = batch.messages_[index].msg_len;
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_PACKET || part->cmsg_type != PACKET_AUXDATA) continue;
    tpacket_auxdata found = {};
    std::memcpy(&found, CMSG_DATA(part), sizeof(found));
    if ((found.tp_status & TP_STATUS_VLAN_VALID) == 0) continue;
    const bool has_tpid = (found.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    put_tag_back(wire, has_tpid ? found.tp_vlan_tpid : uint16_t{ETH_P_8021Q}, found.tp_vlan_tci);
  }
  return true;
}

void packet_port::queue(const wire_frame& wire) { queued_.push_back({.iov_base = wire.start, .iov_len = wire.len}); }

void packet_port::flush() {
  if (queued_.empty()) return;
  outgoing_.assign(queued_.size(), {});
  for (size_t i = 0; i < queued_.size(); ++i) {
    outgoing_[i].msg_hdr.msg_iov = &queued_[i];
    outgoing_[i].msg_hdr.msg_iovlen = 1;
  }
  size_t done = 0;
  while (done < outgoing_.size() && socket_ >= 0) {
    const int sent = sendmmsg(socket_, &outgoing_[done], static_cast<unsigned>(outgoing_.size() - done), MSG_DONTWAIT);
    if (sent > 0) {
      counts_.bridged += static_cast<uint64_t>(sent);
      done += static_cast<size_t>(sent);
    } else if (errno != EINTR) {
      count_failure(errno); // the first of them; the others may still go
      ++done;
    }
  }
  if (done < outgoing_.size()) count_failure(ENETDOWN, outgoing_.size() - done);
  queued_.clear();
}

void packet_port::send(octet_view frame) {
  const sockaddr_ll address = address_of(index_);
  ssize_t sent = -1;
  do {
    sent = sendto(sender_, frame.data(), frame.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address),
                  sizeof(address));
  } while (sent < 0 && errno == EINTR);
  if (sent >= 0) {
    agent_sent_.fetch_add(1, std::memory_order_relaxed);
  } else {
    count_failure(is_gone(errno) ? ENETDOWN : errno);
  }
}

void packet_port::count_failure(int error, uint64_t frames) {
  const std::lock_guard<std::mutex> guard(error_lock_);
  send_errors_[error] += frames;
}

void packet_port::add_lost() {
  tpacket_stats found = {};
  socklen_t len = sizeof(found);
  // Reading sets them to zero.
  if (getsockopt(socket_, SOL_PACKET, PACKET_STATISTICS, &found, &len) == 0) counts_.lost += found.tp_drops;
}

port_counts packet_port::counts() {
  if (socket_ >= 0) add_lost();
  port_counts counts = counts_;
  counts.agent_sent = agent_sent_;
  const std::lock_guard<std::mutex> guard(error_lock_);
  counts.send_errors = send_errors_;
  for (const auto& [error, frames] : send_errors_) counts.send_failed += frames;
  return counts;
}
