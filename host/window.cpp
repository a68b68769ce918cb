// Frames under way.
#include "host/window.h"

#include "host/failure.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr size_t MAX_FRAMES = 4096;    // trapped or not
constexpr uint32_t MAX_WAITING = 1500; // below the places that the agent's queue keeps for frames
constexpr size_t PORTS = 65536;
constexpr std::chrono::seconds ANSWER_LIMIT{20};

// One less than units: a frame through the hook still holds its unit for a moment.
uint32_t room_of_pool(uint32_t pool_units) { return std::clamp(pool_units, 2U, MAX_WAITING + 1) - 1; }

} // namespace

frame_verdict frame_record::verdict() const {
  if (!trapped) return FRAME_UNTOUCHED;
  if (refusal < 0) return FRAME_REFUSED;
  if (sent_count == 0) return FRAME_DROPPED;
  return sent == captured.data ? FRAME_PASSED : FRAME_REBUILT;
}

frame_window::frame_window(uint32_t pool_units) : room_(room_of_pool(pool_units)), by_port_(PORTS) {}

// Sleeps until an event makes `until` true. A worker that says nothing for so long has lost a frame.
template <typename condition> void frame_window::wait(std::unique_lock<std::mutex>& guard, condition until) {
  while (!until()) {
    const uint64_t before = processed_;
    changed_.wait_for(guard, ANSWER_LIMIT, [&] { return processed_ != before; });
    if (processed_ == before) throw host_failure(EXIT_AGENT, "the agent does not finish its frames");
  }
}

frame_record& frame_window::add(frame_record&& frame) {
  const std::lock_guard<std::mutex> guard(lock_);
  frames_.push_back(std::move(frame));
  frame_record& added = frames_.back();
  added.done = !added.trapped;
  if (!added.trapped) return added;
  added.number = next_number_++;
  by_port_[static_cast<uint16_t>(added.number)] = &added;
  return added;
}

bool frame_window::hand_in(frame_record& frame, const std::function<int32_t()>& receive) {
  {
    std::unique_lock<std::mutex> guard(lock_);
    wait(guard, [this] { return waiting_ < room_; });
    ++waiting_; // before the call: the hook can come before it returns
  }
  sent_at_once_ = false;
  const int32_t result = receive();

  const std::lock_guard<std::mutex> guard(lock_);
  if (result >= 0 && !sent_at_once_) return true; // queued: the hook will say
  --waiting_;
  if (result == LINE_ID_ERR_POOL || result == LINE_ID_ERR_SEND_MSG) return false;
  frame.refusal = std::min(result, 0);
  frame.done = true;
  return true;
}

bool frame_window::wait_for_one() {
  std::unique_lock<std::mutex> guard(lock_);
  if (waiting_ == 0) return false;
  const uint64_t before = processed_;
  wait(guard, [this, before] { return processed_ != before; });
  return true;
}

void frame_window::finish_last() {
  const std::lock_guard<std::mutex> guard(lock_);
  if (current_ != nullptr) current_->done = true;
  current_ = nullptr;
}

std::optional<frame_record> frame_window::take() {
  const std::lock_guard<std::mutex> guard(lock_);
  if (frames_.empty() || !frames_.front().done) return std::nullopt;
  frame_record& front = frames_.front();
  if (front.trapped) by_port_[static_cast<uint16_t>(front.number)] = nullptr;
  std::optional<frame_record> taken = std::move(front);
  frames_.pop_front();
  return taken;
}

bool frame_window::is_empty() {
  const std::lock_guard<std::mutex> guard(lock_);
  return frames_.empty();
}

bool frame_window::is_full() {
  const std::lock_guard<std::mutex> guard(lock_);
  return frames_.size() >= MAX_FRAMES;
}

uint32_t frame_window::strays() {
  const std::lock_guard<std::mutex> guard(lock_);
  return strays_;
}

void frame_window::frame_sent(uint8_t, uint16_t port, octet_view frame) {
  const std::lock_guard<std::mutex> guard(lock_);
  frame_record* record = by_port_[port];
  const bool at_once = std::this_thread::get_id() == receiver_;
  if (record == nullptr || record->sent_count != 0 || (!at_once && record != current_)) {
    ++strays_;
    return;
  }
  if (at_once) sent_at_once_ = true;
  ++record->sent_count;
  record->sent.assign(frame.begin(), frame.end());
}

void frame_window::frame_processed(uint32_t number) {
  const std::lock_guard<std::mutex> guard(lock_);
  // The worker has come to the next frame: nothing more follows for the one before.
  if (current_ != nullptr) current_->done = true;
  current_ = by_port_[static_cast<uint16_t>(number)];
  ++processed_;
  if (current_ != nullptr && current_->number == number && !current_->done) {
    --waiting_;
    current_->alarms.swap(alarms_);
  } else {
    current_ = nullptr;
    ++strays_;
  }
  changed_.notify_all();
}

void frame_window::alarm_raised(const line_id_alarm& alarm) {
  const std::lock_guard<std::mutex> guard(lock_);
  alarms_.push_back(alarm);
}
