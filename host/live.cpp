// The live host's run and what it reports.
#include "host/live.h"

#include "host/agent.h"
#include "host/bridge.h"
#include "host/console.h"
#include "host/failure.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

namespace {

// Lines of interfaces that are no subscriber port never get a frame.
void warn_of_idle_lines(const live_options& options, const line_map& map) {
  for (const auto& [interface, lines] : map.by_port) {
    if (std::count(options.subscribers.begin(), options.subscribers.end(), interface) != 0) continue;
    console_note("warning: the line map has a line for interface " + interface + ", which is no subscriber port");
  }
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

void print_row(const bridge_port& each, const char* side, const port_counts& counts) {
  uint64_t dropped = counts.unreadable + counts.lost + each.counts.segmented + each.counts.for_nobody;
  for (const auto& [result, frames] : each.counts.refusals) dropped += frames;
  std::fprintf(console_out(),
               "%-15s %-10s %11" PRIu64 " %11" PRIu64 " %11" PRIu64 " %11" PRIu64 " %11" PRIu64 " %11" PRIu64 "\n",
               each.port->name().c_str(), side, counts.received, each.counts.trapped, dropped, counts.bridged,
               counts.agent_sent, counts.send_failed);
}

void print_reason(const bridge_port& each, uint64_t frames, const std::string& reason) {
  if (frames == 0) return;
  std::fprintf(console_out(), "%s: %" PRIu64 " %s\n", each.port->name().c_str(), frames, reason.c_str());
}

void print_reasons(const bridge_port& each, const port_counts& counts) {
  for (const auto& [result, frames] : each.counts.refusals) {
    print_reason(each, frames, "dropped: the agent refused them with result " + std::to_string(result));
  }
  print_reason(each, each.counts.for_nobody, "dropped: replies to a subscriber that is behind no port");
  print_reason(each, each.counts.segmented, "dropped: frames to trap that came segmented");
  print_reason(each, counts.unreadable, "dropped: the kernel could not describe them, or they were too long");
  print_reason(each, counts.lost, "dropped by the kernel: they came faster than they were read");
  print_reason(each, each.counts.without_line, "crossed untouched: subscriber protocols that belong to no line");
  for (const auto& [error, frames] : counts.send_errors) {
    print_reason(each, frames, std::string("not sent: ") + std::strerror(error));
  }
}

void print_report(live_bridge& bridge, const std::vector<std::string>& statistics) {
  std::fprintf(console_out(), "%-15s %-10s %11s %11s %11s %11s %11s %11s\n", "interface", "side", "received", "trapped",
               "dropped", "bridged out", "agent out", "not sent");
  std::vector<port_counts> counts;
  for (const bridge_port& each : bridge.ports()) {
    counts.push_back(each.port->counts());
    print_row(each, &each == &bridge.ports().back() ? "uplink" : "subscriber", counts.back());
  }
  for (size_t i = 0; i < counts.size(); ++i) print_reasons(bridge.ports()[i], counts[i]);
  if (bridge.alarms() > 0) std::fprintf(console_out(), "alarms: %" PRIu64 "\n", bridge.alarms());
  if (statistics.empty()) return;
  std::fprintf(console_out(), "\nthe agent's own report:\n");
  for (const std::string& line : statistics) std::fprintf(console_out(), "  %s\n", line.c_str());
}

} // namespace

void live(const live_options& options, const line_map& map, const std::atomic<bool>& ended) {
  for (const std::string& warning : map.warnings) console_note("warning: " + warning);
  warn_of_idle_lines(options, map);
  live_bridge bridge(options.subscribers, options.uplink, map);
  std::vector<std::string> statistics;
  {
    running_agent agent(map, bridge, {.pool_units = options.pool_units, .other_processes = true});
    console_set_mode(CONSOLE_RELAY);
    console_publish();
    console_note("lineid-host: ready; subscribers on " + joined(options.subscribers) + ", uplink on " + options.uplink);
    bridge.run(ended);
    statistics = agent.statistics();
  }
  print_report(bridge, statistics);
}
