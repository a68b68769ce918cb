// Where a frame goes on a two-armed access node: which subscriber port a station is behind, learnt from what
// subscribers send. One thread.
#pragma once

#include "host/classify.h"
#include "host/octets.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <unordered_map>
#include <vector>

using port_number = uint16_t; // of a subscriber port, from 0
constexpr port_number ALL_PORTS = UINT16_MAX;
constexpr port_number NO_PORT = ALL_PORTS - 1; // the frame goes nowhere

// Who is behind a port: a station's address in its VLANs, or a DHCP client's own name.
struct station_key {
  uint64_t high;
  uint64_t low;
  bool operator==(const station_key&) const = default;
};

struct station_hash {
  size_t operator()(const station_key& key) const;
};

// Stations by port. Each port has room of its own, so that one subscriber cannot make the node forget another's
// stations: a port that is full forgets the station that was silent longest.
class station_table {
public:
  station_table(size_t ports, size_t room_of_port, uint32_t age_limit);

  // A frame of the station came from `port`. `now` in seconds, never falling.
  void learn(const station_key& key, port_number port, uint32_t now);
  // Its port, or ALL_PORTS when it is not known, or was silent for longer than the age limit.
  port_number find(const station_key& key, uint32_t now) const;
  size_t size() const { return by_key_.size(); }

private:
  struct station {
    station_key key;
    port_number port;
    uint32_t seen;
  };
  using station_list = std::list<station>; // the one heard last in front

  size_t room_of_port_;
  uint32_t age_limit_;
  std::vector<station_list> ports_;
  std::unordered_map<station_key, station_list::iterator, station_hash> by_key_;
};

// What the node knows of its subscribers.
class forwarding {
public:
  explicit forwarding(size_t ports);

  // Takes note of an upstream frame.
  void learn(octet_view frame, const frame_class& found, port_number port, uint32_t now);
  // Port of a downstream frame: that of its station; ALL_PORTS for a station that nobody knows, and for broadcasts and
  // multicasts but those of subscriber protocols, which go to the subscriber that they are for, or to NO_PORT.
  port_number find(octet_view frame, const frame_class& found, uint32_t now) const;

private:
  size_t ports_;
  station_table stations_;
  station_table clients_; // by the name in the message, where that is not the frame's own source
};
