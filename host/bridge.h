// The bridge of the live host: frames of subscriber protocols go to the agent, all others cross as they are.
#pragma once

#include "host/forwarding.h"
#include "host/hal.h"
#include "host/line_map.h"
#include "host/packet_port.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

// What became of the frames of a port that were not sent on.
struct trap_counts {
  uint64_t trapped;                     // handed in to the agent
  std::map<int32_t, uint64_t> refusals; // of these, refused: by result
  uint64_t segmented;                   // frames to trap that came segmented or with a broken offload header
  uint64_t for_nobody;                  // replies to a subscriber that is behind no port
  uint64_t without_line;                // frames of subscriber protocols that belong to no line; they cross untouched
};

struct bridge_port {
  std::unique_ptr<packet_port> port;
  const line_matches* lines; // of its own, or null
  trap_counts counts;
};

// One thread runs the bridge. The agent's frames leave on the worker, on sockets of their own.
class live_bridge final : public frame_events {
public:
  // Throws host_failure. `map` outlives it.
  live_bridge(const std::vector<std::string>& subscribers, const std::string& uplink, const line_map& map);

  // Bridges until `ended` is set; the agent must be running. Ports that are not there are waited for.
  void run(const std::atomic<bool>& ended);

  // Subscriber ports, and the uplink as the last one.
  std::vector<bridge_port>& ports() { return ports_; }
  uint64_t alarms() const { return alarms_; }

  void frame_sent(uint8_t direct, uint16_t port, octet_view frame) override;
  void frame_processed(uint32_t) override {}
  void alarm_raised(const line_id_alarm&) override { ++alarms_; }

private:
  bridge_port& uplink() { return ports_.back(); }
  void check_ports();
  void rest(int64_t now);
  void serve(size_t index);
  void upstream(const wire_frame& wire, port_number from);
  void downstream(const wire_frame& wire);
  const subscriber_line* trapping_line(octet_view frame, const frame_class& found, uint8_t direct, bridge_port& from,
                                       const line_matches* lines);
  void hand_in(const wire_frame& wire, const frame_class& found, uint8_t direct, const subscriber_line& line,
               port_number port, bridge_port& from);

  const line_map& map_;
  std::vector<bridge_port> ports_;
  forwarding forwarding_;
  receive_batch batch_;
  uint32_t now_ = 0;        // seconds
  int64_t crowd_since_ = 0; // milliseconds
  int64_t crowd_ = 0;       // frames handed in to the agent since then
  bool crowded_ = false;    // these were many in the time before
  bool more_wait_ = false;  // the last round left frames in a ring, perhaps
  std::atomic<uint64_t> alarms_ = 0;
};
