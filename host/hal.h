// The host's side of the agent's callbacks: facts from the line map, trap rules as switches, sends, alarms and the
// packet hook handed on.
#pragma once

#include "host/line_map.h"
#include "host/octets.h"
#include "include/line_id.h"

// Takes what the agent does. Called on the thread that hands frames in and on the agent's worker; must not throw.
class frame_events {
public:
  virtual ~frame_events() = default;
  // The agent sends a frame; `port` is the low 16 bits of the number that it was handed in with.
  virtual void frame_sent(uint8_t direct, uint16_t port, octet_view frame) = 0;
  // The worker is through with the frame of this number: at most one send follows for it. Worker only.
  virtual void frame_processed(uint32_t number) = 0;
  // A spoofing alarm of the frame under way, before its frame_processed. Worker only.
  virtual void alarm_raised(const line_id_alarm& alarm) = 0;
};

// The callbacks for `map`, which stays the caller's and lives as long as the agent; `events` likewise. Slots that the
// map has no facts for are empty. Before line_id_data_init.
line_id_hal_func_table hal_install(const line_map& map, frame_events& events);

// Does the driver trap this protocol for this instance now? Any thread.
bool hal_is_trapped(uint8_t oltid, uint8_t protocol);

// "spoofing detected: MAC ... "
std::string alarm_text(const line_id_alarm& alarm);
