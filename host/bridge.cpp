// The bridge's loop.
#include "host/bridge.h"

#include "host/console.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <poll.h>
#include <sched.h>
#include <time.h>

namespace {

// Frames of 2 KiB that wait in the rings of the ports.
constexpr uint32_t MAX_RING_FRAMES = 2048;
constexpr uint32_t MIN_RING_FRAMES = 128;
constexpr size_t SUBSCRIBER_FRAMES = 32768; // of all subscriber ports together

// From so many frames for the agent on, they wait a little for each other: one wake-up of this thread and of the worker
// then serves several. Fewer ones never wait, nor does what only crosses at other times.
constexpr int64_t CROWD_FRAMES_A_MS = 10;
constexpr timespec GATHERING_TIME = {0, 150000};

constexpr int CHECK_INTERVAL_MS = 500; // of the interfaces, and of the wish to end

int64_t now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now); // a few milliseconds do not matter, and it costs next to nothing
  return now.tv_sec * int64_t{1000} + now.tv_nsec / 1000000;
}

bridge_port make_port(const std::string& interface, uint32_t ring_frames, const line_map& map) {
  bridge_port made = {};
  const auto lines = map.by_port.find(interface);
  if (lines != map.by_port.end()) made.lines = &lines->second;
  made.port = std::make_unique<packet_port>(interface, ring_frames);
  return made;
}

} // namespace

live_bridge::live_bridge(const std::vector<std::string>& subscribers, const std::string& uplink, const line_map& map)
    : map_(map), forwarding_(subscribers.size()) {
  // A power of two, so that it fills whole blocks of memory.
  const auto share = std::bit_floor(static_cast<uint32_t>(SUBSCRIBER_FRAMES / std::max<size_t>(subscribers.size(), 1)));
  const uint32_t ring_frames = std::clamp(share, MIN_RING_FRAMES, MAX_RING_FRAMES);
  for (const std::string& interface : subscribers) ports_.push_back(make_port(interface, ring_frames, map));
  ports_.push_back(make_port(uplink, MAX_RING_FRAMES, map));
}

void live_bridge::check_ports() {
  for (bridge_port& each : ports_) each.port->check();
}

void live_bridge::run(const std::atomic<bool>& ended) {
  std::vector<pollfd> polled(ports_.size());
  int64_t next_check = 0;
  while (!ended) {
    const int64_t now = now_ms();
    now_ = static_cast<uint32_t>(now / 1000);
    if (now >= next_check) {
      check_ports();
      next_check = now + CHECK_INTERVAL_MS;
    }
    rest(now);
    for (size_t i = 0; i < ports_.size(); ++i) polled[i] = {ports_[i].port->descriptor(), POLLIN, 0};
    if (poll(polled.data(), polled.size(), CHECK_INTERVAL_MS) <= 0) continue;
    for (size_t i = 0; i < ports_.size(); ++i) {
      if (polled[i].revents != 0) serve(i);
    }
  }
}

// Between two rounds. Where frames wait already, only the worker, which may share this processor, gets its turn.
void live_bridge::rest(int64_t now) {
  if (now != crowd_since_) {
    crowded_ = crowd_ >= CROWD_FRAMES_A_MS * (now - crowd_since_);
    crowd_since_ = now;
    crowd_ = 0;
  }
  if (crowded_ && more_wait_) {
    sched_yield();
  } else if (crowded_) {
    nanosleep(&GATHERING_TIME, nullptr);
  }
  more_wait_ = false;
}

void live_bridge::serve(size_t index) {
  const size_t count = ports_[index].port->receive(batch_);
  if (count == receive_batch::FRAMES) more_wait_ = true;
  if (ports_[index].port->descriptor() < 0) check_ports(); // it has gone: say so
  const bool from_uplink = index == ports_.size() - 1;
  for (size_t i = 0; i < count; ++i) {
    if (from_uplink) {
      downstream(batch_.frames[i]);
    } else {
      upstream(batch_.frames[i], static_cast<port_number>(index));
    }
  }
  for (bridge_port& each : ports_) each.port->flush();
  ports_[index].port->release();
}

void live_bridge::upstream(const wire_frame& wire, port_number from) {
  const octet_view frame = wire.frame();
  const frame_class found = classify_frame(frame);
  forwarding_.learn(frame, found, from, now_);
  bridge_port& port = ports_[from];
  if (const subscriber_line* line = trapping_line(frame, found, LINE_ID_UPSTREAM, port, port.lines)) {
    hand_in(wire, found, LINE_ID_UPSTREAM, *line, from, port);
  } else {
    uplink().port->queue(wire);
  }
}

void live_bridge::downstream(const wire_frame& wire) {
  const octet_view frame = wire.frame();
  const frame_class found = classify_frame(frame);
  const port_number to = forwarding_.find(frame, found, now_);
  if (to == NO_PORT) {
    ++uplink().counts.for_nobody;
    return;
  }
  const line_matches* lines = to != ALL_PORTS ? ports_[to].lines : nullptr;
  if (const subscriber_line* line = trapping_line(frame, found, LINE_ID_DOWNSTREAM, uplink(), lines)) {
    hand_in(wire, found, LINE_ID_DOWNSTREAM, *line, to, uplink());
  } else if (to != ALL_PORTS) {
    ports_[to].port->queue(wire);
  } else {
    for (size_t i = 0; i + 1 < ports_.size(); ++i) ports_[i].port->queue(wire);
  }
}

// The line that a frame to trap belongs to; null for all others.
const subscriber_line* live_bridge::trapping_line(octet_view frame, const frame_class& found, uint8_t direct,
                                                  bridge_port& from, const line_matches* lines) {
  if (found.protocol == PROTOCOL_NONE) return nullptr;
  const subscriber_line* line = line_map_find(map_, found, subscriber_mac(frame, found, direct), lines);
  if (line == nullptr) {
    if (from.counts.without_line++ == 0) {
      console_note("warning: a frame of a subscriber protocol on interface " + from.port->name() +
                   " belongs to no line of the map and crosses untouched; further ones are only counted");
    }
    return nullptr;
  }
  return hal_is_trapped(line->append.ext[LINE_ID_EXT_OLTID], found.protocol) ? line : nullptr;
}

void live_bridge::hand_in(const wire_frame& wire, const frame_class& found, uint8_t direct, const subscriber_line& line,
                          port_number port, bridge_port& from) {
  if (!finish_checksum(wire)) {
    ++from.counts.segmented;
    return;
  }
  const octet_view frame = without_padding(wire.frame(), found);
  const line_id_append_info info = line_append_info(line, found);
  const auto receive = found.protocol == LINE_ID_PPPOE ? line_id_pppoe_receive : line_id_dhcp_receive;
  const int32_t result = receive(frame.data(), static_cast<uint32_t>(frame.size()), port, direct, &info);
  ++from.counts.trapped;
  ++crowd_;
  if (result < 0) ++from.counts.refusals[result];
}

// `port` is the subscriber port that hand_in() gave, in both directions.
void live_bridge::frame_sent(uint8_t direct, uint16_t port, octet_view frame) {
  if (direct == LINE_ID_UPSTREAM) {
    uplink().port->send(frame);
  } else if (port < ports_.size() - 1) {
    ports_[port].port->send(frame);
  } else {
    for (size_t i = 0; i + 1 < ports_.size(); ++i) ports_[i].port->send(frame);
  }
}
