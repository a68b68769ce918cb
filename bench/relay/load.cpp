// The load of bench/relay.sh: subscribers' frames into one interface at a given rate, counted as they come out of
// another one, and the processor time that the process between the two takes for them.
//   usage: relay_load dhcp4|dhcp6|pppoe INTO OUT-OF PID SECONDS
// Prints one line of JSON. SECONDS is the length of one measurement; there are about ten.
#include "tests/support/frames.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace {

using steady = std::chrono::steady_clock;
using std::chrono::duration;
using std::chrono::milliseconds;

constexpr uint32_t STATIONS = 256;
constexpr uint32_t BATCH = 32;
constexpr double TOP_RATE = 400000; // frames a second that nothing here keeps up with
constexpr double EVEN_RATE = 40000; // at which all contenders are compared
constexpr double LOST_AT_MOST = 0.001;
constexpr double FEWEST_RATE = 1000; // below it the search for a rate without loss ends
constexpr int SEARCH_STEPS = 6;
constexpr uint32_t UDP4_CHECKSUM = 14 + 20 + 6;

octets subscriber_frame(const std::string& kind, uint8_t station) {
  mac_octets mac = SUBSCRIBER_MAC;
  mac.at[5] = station;
  const mac_octets all_agents = {{0x33, 0x33, 0x00, 0x01, 0x00, 0x02}};
  const octets client = {0x00, 0x03, 0x00, 0x01, 0x00, 0x00, 0x5E, 0x00, 0x53, station}; // DUID-LL
  if (kind == "dhcp4") {
    octets frame = eth(mac).dhcp4(DISCOVER).option(53, {1}).option(61, {1, 0, 0, 0x5E, 0, 0x53, station}).end();
    frame[UDP4_CHECKSUM] = frame[UDP4_CHECKSUM + 1] = 0; // none: RFC 768
    return frame;
  }
  if (kind == "dhcp6") return eth(mac, all_agents).dhcp6(SOLICIT).option(1, client).option(8, {0, 0}).done();
  return eth(mac).pppoe(PADI).option(0x0101, {}).option(0x0103, {0x42, station}).done();
}

[[noreturn]] void give_up(const std::string& what) {
  std::fprintf(stderr, "relay_load: %s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(1);
}

int open_interface(const std::string& name, uint16_t protocol) {
  const int fd = socket(AF_PACKET, SOCK_RAW, 0);
  sockaddr_ll address = {};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(protocol);
  address.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
  if (fd < 0 || address.sll_ifindex == 0) give_up(name);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) give_up(name);
  return fd;
}

// Counts without reading: the kernel counts what passes the filter, also what finds no room.
int open_counter(const std::string& kind, const std::string& name) {
  const uint32_t ethertype = kind == "dhcp4" ? ETH_P_IP : kind == "dhcp6" ? ETH_P_IPV6 : ETH_P_PPP_DISC;
  const uint32_t port = kind == "dhcp4" ? 67 : 547;
  const uint32_t port_at = kind == "dhcp4" ? 14 + 20 + 2 : kind == "dhcp6" ? 14 + 40 + 2 : 0;
  const uint8_t wrong_port = kind == "pppoe" ? 0 : 1; // how far to jump: to the refusal
  std::array<sock_filter, 6> code = {{
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ethertype, 0, 3),
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, port_at),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, port, 0, wrong_port),
      BPF_STMT(BPF_RET | BPF_K, 0xFFFF),
      BPF_STMT(BPF_RET | BPF_K, 0),
  }};
  const sock_fprog program = {static_cast<unsigned short>(code.size()), code.data()};
  const int on = 1;
  const int fd = open_interface(name, ETH_P_ALL);
  if (setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof(on)) != 0) give_up("PACKET_IGNORE_OUTGOING");
  if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)) != 0) give_up("SO_ATTACH_FILTER");
  return fd;
}

// Frames counted since the last look.
uint64_t count_frames(int fd) {
  tpacket_stats stats = {};
  socklen_t size = sizeof(stats);
  if (getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &stats, &size) != 0) give_up("PACKET_STATISTICS");
  return stats.tp_packets;
}

// Nanoseconds that all threads of a process have run.
uint64_t processor_time(const std::string& pid) {
  uint64_t all = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + pid + "/task")) {
    uint64_t run = 0;
    std::ifstream(thread.path() / "schedstat") >> run;
    all += run;
  }
  return all;
}

struct load {
  int into;
  int out_of;
  std::string pid;
  double seconds;
  std::array<octets, STATIONS> frames;
  std::array<iovec, BATCH> parts;
  std::array<mmsghdr, BATCH> messages;
};

struct result {
  double sent_rate;
  double received_rate;
  double lost;       // part of what was sent
  double ns_a_frame; // of those that came out
};

uint64_t send_for(load& with, double rate) {
  const auto start = steady::now();
  uint64_t sent = 0;
  for (;;) {
    const double passed = duration<double>(steady::now() - start).count();
    if (passed >= with.seconds) return sent;
    const auto due = static_cast<uint64_t>(passed * rate);
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(due - std::min(due, sent), BATCH));
    for (uint32_t i = 0; i < count; ++i) {
      octets& frame = with.frames[(sent + i) % STATIONS];
      with.parts[i] = {frame.data(), frame.size()};
    }
    const int done = count == 0 ? 0 : sendmmsg(with.into, with.messages.data(), count, 0);
    if (done > 0) sent += static_cast<uint64_t>(done);
  }
}

result measure(load& with, double rate) {
  count_frames(with.out_of);
  const uint64_t time = processor_time(with.pid);
  const uint64_t sent = send_for(with, rate);
  uint64_t received = 0;
  for (uint64_t more = 1; more != 0; received += more) { // what is still under way
    std::this_thread::sleep_for(milliseconds(100));
    more = count_frames(with.out_of);
  }
  const auto taken = static_cast<double>(processor_time(with.pid) - time);
  const auto in = static_cast<double>(std::max<uint64_t>(sent, 1));
  const auto out = static_cast<double>(std::max<uint64_t>(received, 1));
  return {in / with.seconds, out / with.seconds, std::max(0.0, 1 - out / in), taken / out};
}

// The highest rate at which next to nothing is lost; if that happens at every rate, one of the lowest.
double find_lossless(load& with) {
  double high = measure(with, TOP_RATE).received_rate * 1.1;
  double low = 0;
  for (int step = 0; step < SEARCH_STEPS || (low == 0 && high > FEWEST_RATE); ++step) {
    const double rate = low == 0 ? high * 0.75 : (low + high) / 2;
    const result found = measure(with, rate);
    if (found.lost <= LOST_AT_MOST) {
      low = found.sent_rate;
    } else {
      high = rate;
    }
  }
  return low == 0 ? high : low;
}

// Octets of the first frame that comes out, which may take the contender some time; 0 when none does.
ssize_t try_one(load& with) {
  const timeval limit = {0, 200000};
  setsockopt(with.out_of, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  std::array<uint8_t, 2048> frame = {};
  for (int tries = 0; tries < 20; ++tries) {
    send(with.into, with.frames[0].data(), with.frames[0].size(), 0);
    const ssize_t len = recv(with.out_of, frame.data(), frame.size(), 0);
    if (len > 0) return len;
  }
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("usage: relay_load dhcp4|dhcp6|pppoe INTO OUT-OF PID SECONDS\n", stderr);
    return 2;
  }
  const std::string kind = argv[1];
  static load with = {open_interface(argv[2], 0), open_counter(kind, argv[3]), argv[4], std::atof(argv[5]), {}, {}, {}};
  for (uint32_t i = 0; i < STATIONS; ++i) with.frames[i] = subscriber_frame(kind, static_cast<uint8_t>(i));
  for (uint32_t i = 0; i < BATCH; ++i) with.messages[i].msg_hdr = {nullptr, 0, &with.parts[i], 1, nullptr, 0, 0};
  const ssize_t came_out = try_one(with);
  if (came_out <= 0) give_up("no frame comes out of " + std::string(argv[3]));
  const double lossless = find_lossless(with);
  const result twice = measure(with, 2 * lossless);
  const result even = measure(with, EVEN_RATE);
  std::printf("{\"octets_in\": %zu, \"octets_out\": %zd, \"lossless\": %.0f, \"lost_at_twice\": %.4f, "
              "\"us_a_frame\": %.3f, \"us_at_40000\": %.3f}\n",
              with.frames[0].size(), came_out, lossless, twice.lost, twice.ns_a_frame / 1000, even.ns_a_frame / 1000);
  return 0;
}
