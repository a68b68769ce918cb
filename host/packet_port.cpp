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
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr uint32_t RING_BLOCK = 65536;
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

bool set_option(int fd, int option, int value) {
  return setsockopt(fd, SOL_PACKET, option, &value, sizeof(value)) == 0;
}

bool switch_on(int fd, int option) { return set_option(fd, option, 1); }

// The kernel and this thread hand a slot to each other by its first word.
std::atomic_ref<uint32_t> status_of(uint8_t* slot) {
  return std::atomic_ref<uint32_t>(*reinterpret_cast<uint32_t*>(slot));
}

// Beyond the system's limit where that is allowed.
void set_buffer(int fd, int forced_option, int option) {
  if (setsockopt(fd, SOL_SOCKET, forced_option, &BUFFER_OCTETS, sizeof(BUFFER_OCTETS)) == 0) return;
  setsockopt(fd, SOL_SOCKET, option, &BUFFER_OCTETS, sizeof(BUFFER_OCTETS));
}

bool is_gone(int error) { return error == ENETDOWN || error == ENODEV || error == ENXIO; }

} // namespace

packet_port::packet_port(std::string interface, uint32_t ring_frames)
    : name_(std::move(interface)), ring_frames_(ring_frames) {
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
  port_state state = look(index);
  int error = 0;
  if (socket_ >= 0 && (state != PORT_UP || index != index_)) close(); // perhaps another one of the same name
  if (state == PORT_UP && socket_ < 0) error = open(index);
  if (error != 0) state = is_gone(error) ? PORT_DOWN : PORT_REFUSED;
  if (state == state_) return;
  const std::string interface = "interface " + name_;
  switch (state) {
  case PORT_MISSING: console_note("lineid-host: there is no " + interface + "; waiting for it"); break;
  case PORT_DOWN: console_note("lineid-host: " + interface + " is down; waiting for it"); break;
  case PORT_REFUSED: {
    const std::string cause = "cannot listen on " + interface + ": " + std::strerror(error);
    if (state_ == PORT_UNKNOWN) throw host_failure(EXIT_PRIVILEGES, cause);
    console_note("lineid-host: " + cause + "; trying again");
    break;
  }
  default: console_note("lineid-host: " + interface + " is up"); break;
  }
  state_ = state;
}

// 0, or errno.
int packet_port::open(int index) {
  // Bound before it listens, so that no frame of another interface comes in.
  socket_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  packet_mreq promiscuous = {};
  promiscuous.mr_ifindex = index;
  promiscuous.mr_type = PACKET_MR_PROMISC;
  const sockaddr_ll address = address_of(index);
  const bool good = socket_ >= 0 && open_ring() && switch_on(socket_, PACKET_IGNORE_OUTGOING) &&
                    setsockopt(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof(promiscuous)) == 0 &&
                    bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  if (!good) {
    const int error = errno;
    close();
    return error;
  }
  index_ = index;
  raise_mtu();
  return 0;
}

// The ring is of the second version: the third wakes its reader by a timer of several milliseconds, which everything
// that crosses would feel.
bool packet_port::open_ring() {
  set_buffer(socket_, SO_RCVBUFFORCE, SO_RCVBUF); // for frames that are too long for the ring
  set_buffer(socket_, SO_SNDBUFFORCE, SO_SNDBUF);
  tpacket_req request = {};
  request.tp_block_size = RING_BLOCK;
  request.tp_block_nr = static_cast<unsigned>(ring_frames_ * SLOT_LEN / RING_BLOCK);
  request.tp_frame_size = SLOT_LEN;
  request.tp_frame_nr = ring_frames_;
  const bool good = switch_on(socket_, PACKET_VNET_HDR) && set_option(socket_, PACKET_VERSION, TPACKET_V2) &&
                    set_option(socket_, PACKET_RESERVE, TAG_LEN) && switch_on(socket_, PACKET_COPY_THRESH) &&
                    setsockopt(socket_, SOL_PACKET, PACKET_RX_RING, &request, sizeof(request)) == 0;
  if (!good) return false;
  void* memory = mmap(nullptr, ring_frames_ * SLOT_LEN, PROT_READ | PROT_WRITE, MAP_SHARED, socket_, 0);
  if (memory == MAP_FAILED) return false;
  ring_ = static_cast<uint8_t*>(memory);
  next_slot_ = slots_taken_ = 0;
  return true;
}

void packet_port::close() {
  if (socket_ < 0) return;
  add_lost();
  if (ring_ != nullptr) munmap(ring_, ring_frames_ * SLOT_LEN);
  ring_ = nullptr;
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
  if (socket_ < 0) return 0;
  size_t taken = 0;
  while (taken < receive_batch::FRAMES && slots_taken_ < ring_frames_) {
    const uint32_t status = status_of(slot(next_slot_)).load(std::memory_order_acquire);
    if ((status & TP_STATUS_USER) == 0) break;
    if (take_slot(slot(next_slot_), status, batch, taken)) ++taken;
    next_slot_ = next_slot_ + 1 == ring_frames_ ? 0 : next_slot_ + 1;
    ++slots_taken_;
  }
  counts_.received += slots_taken_;
  if (slots_taken_ == 0) take_notice();
  return taken;
}

bool packet_port::take_slot(uint8_t* slot, uint32_t status, receive_batch& batch, size_t taken) {
  tpacket2_hdr header = {};
  std::memcpy(&header, slot, sizeof(header));
  wire_frame& wire = batch.frames[taken];
  if ((status & TP_STATUS_COPY) != 0) { // too long for the slot: the whole frame is in the socket's queue
    wire.start = &batch.memory_[taken * receive_batch::STRIDE + TAG_LEN];
    const ssize_t len =
        recv(socket_, wire.start, OFFLOAD_LEN + receive_batch::MAX_WIRE_FRAME, MSG_DONTWAIT | MSG_TRUNC);
    wire.len = len > 0 ? static_cast<size_t>(len) : 0;
  } else {
    wire.start = slot + header.tp_mac - OFFLOAD_LEN;
    wire.len = OFFLOAD_LEN + header.tp_snaplen;
  }
  if (wire.len != OFFLOAD_LEN + header.tp_len || header.tp_len > receive_batch::MAX_WIRE_FRAME) {
    ++counts_.unreadable;
    return false;
  }
  // The tag's number alone does not say whether there was one.
  if ((status & TP_STATUS_VLAN_VALID) != 0) {
    const bool has_tpid = (status & TP_STATUS_VLAN_TPID_VALID) != 0;
    put_tag_back(wire, has_tpid ? header.tp_vlan_tpid : uint16_t{ETH_P_8021Q}, header.tp_vlan_tci);
  }
  return true;
}

void packet_port::release() {
  for (; slots_taken_ > 0 && ring_ != nullptr; --slots_taken_) {
    const uint32_t index = (next_slot_ + ring_frames_ - slots_taken_) % ring_frames_;
    status_of(slot(index)).store(TP_STATUS_KERNEL, std::memory_order_release);
  }
  slots_taken_ = 0;
}

// Woken without a frame: the socket has an error to tell, or a long frame whose slot is gone.
void packet_port::take_notice() {
  if (recv(socket_, nullptr, 0, MSG_DONTWAIT | MSG_TRUNC) >= 0) {
    ++counts_.unreadable;
  } else if (is_gone(errno)) {
    close();
  }
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
