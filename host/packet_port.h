// A network interface as a port of the live host: raw frames in and out, with what the device leaves to do in them, and
// picked up again when the interface goes away and comes back.
#pragma once

#include "host/offload.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <vector>

// The longest frame that counts: segmented ones reach 64 KiB and their headers.
constexpr size_t MAX_WIRE_FRAME = 65536 + 128;

// Frames received in one go, and the memory for them. One batch serves all ports of a thread.
class receive_batch {
public:
  static constexpr size_t FRAMES = 64;
  receive_batch();

  wire_frame frames[FRAMES];

private:
  friend class packet_port;
  void prepare(size_t index);

  static constexpr size_t CONTROL_LEN = 64; // a tpacket_auxdata with its header
  // Not a power of two apart: the heads of all frames would share the same lines of the cache.
  static constexpr size_t STRIDE = TAG_LEN + OFFLOAD_LEN + MAX_WIRE_FRAME + 578;
  std::vector<uint8_t> memory_;
  alignas(8) uint8_t control_[FRAMES][CONTROL_LEN];
  iovec parts_[FRAMES];
  mmsghdr messages_[FRAMES];
};

struct port_counts {
  uint64_t received;                   // frames read
  uint64_t bridged;                    // frames sent on as they were received
  uint64_t unreadable;                 // frames that the kernel could not describe, or that were too long
  uint64_t lost;                       // frames that the kernel dropped because they were not read in time
  uint64_t agent_sent;                 // frames sent for the agent
  uint64_t send_failed;                // frames that could not be sent
  std::map<int, uint64_t> send_errors; // the same by errno
};

class packet_port {
public:
  // Throws host_failure (EXIT_PRIVILEGES) when this process may not open packet sockets. The interface need not be
  // there.
  explicit packet_port(std::string interface);
  ~packet_port();
  packet_port(const packet_port&) = delete;
  packet_port& operator=(const packet_port&) = delete;

  // The bridge's thread.
  const std::string& name() const { return name_; }
  // Opens or closes the port as the interface has come or gone, and says so.
  void check();
  int descriptor() const { return socket_; } // to poll; -1 while the port is closed
  // Takes frames that have come in, with their tags put back: how many.
  size_t receive(receive_batch& batch);
  // Sends a frame, header and all, with the next flush; its memory must stay until then.
  void queue(const wire_frame& wire);
  void flush();

  // Sends a frame that has no header. Any thread.
  void send(octet_view frame);
  port_counts counts(); // the bridge's thread

private:
  enum port_state : uint8_t { PORT_UNKNOWN, PORT_MISSING, PORT_DOWN, PORT_UP };
  port_state look(int& index) const;
  void open(int index);
  void close();
  bool take_message(receive_batch& batch, size_t index, size_t slot);
  void raise_mtu();
  void count_failure(int error, uint64_t frames = 1);
  void add_lost();

  const std::string name_;
  int sender_ = -1; // for frames without a header, and for questions about the interface
  int socket_ = -1;
  port_state state_ = PORT_UNKNOWN;
  bool mtu_settled_ = false;
  std::atomic<int> index_ = 0; // of the interface while the port is open
  port_counts counts_ = {};
  std::atomic<uint64_t> agent_sent_ = 0;
  std::vector<iovec> queued_;
  std::vector<mmsghdr> outgoing_;

  std::mutex error_lock_; // guards what follows
  std::map<int, uint64_t> send_errors_;
};
