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
#include <sys/uio.h>
#include <vector>

// Frames taken from a port in one go. They stay in the port's ring, but for those that are too long for it, whose
// memory is here. One batch serves all ports of a thread.
class receive_batch {
public:
  static constexpr size_t FRAMES = 64;
  receive_batch() : memory_(FRAMES * STRIDE) {}

  wire_frame frames[FRAMES] = {};

private:
  friend class packet_port;
  // Segmented frames reach 64 KiB and their headers.
  static constexpr size_t MAX_WIRE_FRAME = 65536 + 128;
  static constexpr size_t STRIDE = TAG_LEN + OFFLOAD_LEN + MAX_WIRE_FRAME + 2;
  std::vector<uint8_t> memory_;
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
  // `ring_frames`: short frames that wait here until they are received.
  packet_port(std::string interface, uint32_t ring_frames);
  ~packet_port();
  packet_port(const packet_port&) = delete;
  packet_port& operator=(const packet_port&) = delete;

  // The bridge's thread.
  const std::string& name() const { return name_; }
  // Opens or closes the port as the interface has come or gone, and says so.
  void check();
  int descriptor() const { return socket_; } // to poll; -1 while the port is closed
  // Takes frames that have come in, with their tags put back: how many. They are there until release().
  size_t receive(receive_batch& batch);
  void release();
  // Sends a frame, header and all, with the next flush; its memory must stay until then.
  void queue(const wire_frame& wire);
  void flush();

  // Sends a frame that has no header. Any thread.
  void send(octet_view frame);
  port_counts counts(); // the bridge's thread

private:
  enum port_state : uint8_t { PORT_UNKNOWN, PORT_MISSING, PORT_DOWN, PORT_REFUSED, PORT_UP };
  port_state look(int& index) const;
  int open(int index);
  void close();
  bool open_ring();
  uint8_t* slot(uint32_t index) const { return ring_ + size_t{index} * SLOT_LEN; }
  bool take_slot(uint8_t* slot, uint32_t status, receive_batch& batch, size_t taken);
  void take_notice();
  void raise_mtu();
  void count_failure(int error, uint64_t frames = 1);
  void add_lost();

  static constexpr size_t SLOT_LEN = 2048; // holds a frame of the usual MTU

  const std::string name_;
  const uint32_t ring_frames_;
  int sender_ = -1; // for frames without a header, and for questions about the interface
  int socket_ = -1;
  uint8_t* ring_ = nullptr;
  uint32_t next_slot_ = 0;
  uint32_t slots_taken_ = 0; // before the next one, since the last release()
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
