// The serving host.
#include "host/serve.h"

#include "host/agent.h"
#include "host/console.h"

#include <chrono>
#include <thread>

namespace {

constexpr std::chrono::milliseconds LOOK_EVERY{20}; // for the signal that ends it

// No frame is ever handed in.
class no_events final : public frame_events {
public:
  void frame_sent(uint8_t, uint16_t, octet_view) override {}
  void frame_processed(uint32_t) override {}
  void alarm_raised(const line_id_alarm&) override {}
};

void say(const std::string& text) {
  std::fprintf(console_out(), "%s\n", text.c_str());
  std::fflush(console_out());
}

} // namespace

void serve(uint32_t pool_units, const line_map& map, const std::atomic<bool>& ended) {
  for (const std::string& warning : map.warnings) console_note("warning: " + warning);
  no_events events;
  running_agent agent(map, events, {.pool_units = pool_units, .other_processes = true});
  console_set_mode(CONSOLE_RELAY);
  const std::string path = console_publish();
  say("serving; " + (path.empty() ? "no console" : "console " + path));
  while (!ended) std::this_thread::sleep_for(LOOK_EVERY);
  say("ended");
}
