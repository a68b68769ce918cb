// The frames under way, in the order of the capture: what the agent says about each, and which are finished at the
// front.
#pragma once

#include "host/capture.h"
#include "host/hal.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

enum frame_verdict : uint8_t {
  FRAME_UNTOUCHED, // not trapped: the agent never saw it
  FRAME_REBUILT,
  FRAME_PASSED, // sent as received
  FRAME_DROPPED,
  FRAME_REFUSED, // by the receive call
};

struct frame_record {
  captured_frame captured;
  frame_class found;
  uint8_t direct;              // 0 for a frame that is no subscriber protocol's
  const subscriber_line* line; // or null
  bool trapped;
  uint32_t number;    // of trapped frames, in the order in which they were handed in; comes back with each event
  int32_t refusal;    // result of a refused receive call, else 0
  uint8_t sent_count; // sends that the agent made
  octets sent;        // the last of them
  std::vector<line_id_alarm> alarms;
  bool done;

  frame_verdict verdict() const;
};

// One thread adds frames, hands the trapped ones in and takes the finished ones out; the agent's events come on that
// thread and on the worker.
class frame_window : public frame_events {
public:
  // `pool_units` of the agent: no more frames are let in at a time than it surely has room for.
  explicit frame_window(uint32_t pool_units);

  // Adds a frame behind the others; its record stays where it is until it is taken out.
  frame_record& add(frame_record&& frame);
  // Hands a trapped frame in through `receive`, which returns the receive call's result, once there is room. False: the
  // agent had none after all, nothing has happened.
  bool hand_in(frame_record& frame, const std::function<int32_t()>& receive);
  // Waits until one more frame went through the packet hook; false when no frame is on its way there.
  bool wait_for_one();
  // No frame is on its way to the hook, and the worker has come to rest: the last one is finished too.
  void finish_last();
  // The frame at the front, if it is finished.
  std::optional<frame_record> take();
  bool is_empty();
  bool is_full();

  // Events that belong to no frame, and second sends of one frame: none, unless the agent is broken.
  uint32_t strays();

  void frame_sent(uint8_t direct, uint16_t port, octet_view frame) override;
  void frame_processed(uint32_t number) override;
  void alarm_raised(const line_id_alarm& alarm) override;

private:
  template <typename condition> void wait(std::unique_lock<std::mutex>& guard, condition until);

  const uint32_t room_; // frames that may be on their way to the hook
  const std::thread::id receiver_ = std::this_thread::get_id();
  bool sent_at_once_ = false; // during the receive call under way; receiver's thread only

  std::mutex lock_; // guards what follows
  std::condition_variable changed_;
  std::deque<frame_record> frames_;
  std::vector<frame_record*> by_port_; // trapped frames by the low 16 bits of their number
  uint32_t next_number_ = 0;
  uint32_t waiting_ = 0;            // handed in and not yet through the hook
  uint64_t processed_ = 0;          // hooks seen
  frame_record* current_ = nullptr; // through the hook, perhaps not yet sent
  std::vector<line_id_alarm> alarms_;
  uint32_t strays_ = 0;
};
