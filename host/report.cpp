// Tables, lines and JSON of a replay.
#include "host/report.h"

#include "host/console.h"

#include <nlohmann/json.hpp>

using json_object = nlohmann::ordered_json;

namespace {

constexpr const char* VERDICTS[] = {"untouched", "rebuilt", "passed", "dropped", "refused"};

struct protocol_name {
  const char* title;
  const char* key;
};
constexpr protocol_name PROTOCOLS[] = {
    {"other", "other"}, {"DHCPv4", "dhcpv4"}, {"DHCPv6", "dhcpv6"}, {"PPPoE", "pppoe"}};

const char* direction_name(uint8_t direct) {
  return direct == LINE_ID_UPSTREAM ? "up" : direct == LINE_ID_DOWNSTREAM ? "down" : "-";
}

std::string time_text(const timespec& time) {
  char text[32];
  std::snprintf(text, sizeof(text), "%lld.%09ld", static_cast<long long>(time.tv_sec), time.tv_nsec);
  return text;
}

std::string dump(const json_object& object) {
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void print_line(const json_object& object) { std::fprintf(console_out(), "%s\n", dump(object).c_str()); }

json_object counts_json(const frame_counts& counts) {
  return {{"read", counts.read},     {"trapped", counts.trapped}, {"rebuilt", counts.rebuilt},
          {"passed", counts.passed}, {"dropped", counts.dropped}, {"refused", counts.refused}};
}

void print_row(const char* protocol, const char* direction, const frame_counts& counts) {
  std::fprintf(console_out(), "%-9s %-9s %9u %9u %9u %9u %9u %9u\n", protocol, direction, counts.read, counts.trapped,
               counts.rebuilt, counts.passed, counts.dropped, counts.refused);
}

void add(frame_counts& sum, const frame_counts& counts) {
  sum.read += counts.read;
  sum.trapped += counts.trapped;
  sum.rebuilt += counts.rebuilt;
  sum.passed += counts.passed;
  sum.dropped += counts.dropped;
  sum.refused += counts.refused;
}

// The counters of the agent's report, which stand as "label:value"; its tables by VLAN have other lines.
json_object counters_json(const std::vector<std::string>& statistics) {
  json_object counters = json_object::object();
  for (const std::string& line : statistics) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || line.find_first_of(" \t") != std::string::npos) continue;
    counters[line.substr(0, colon)] = std::strtol(line.c_str() + colon + 1, nullptr, 10);
  }
  return counters;
}

} // namespace

void replay_report::count(const frame_record& frame) {
  frame_counts& counts = counts_[{frame.found.protocol, frame.direct}];
  ++counts.read;
  if (frame.trapped) ++counts.trapped;
  switch (frame.verdict()) {
  case FRAME_UNTOUCHED: break;
  case FRAME_REBUILT: ++counts.rebuilt; break;
  case FRAME_PASSED: ++counts.passed; break;
  case FRAME_DROPPED: ++counts.dropped; break;
  case FRAME_REFUSED:
    ++counts.refused;
    ++refusals_[frame.refusal];
    break;
  }
  if (frame.found.protocol != PROTOCOL_NONE && frame.line == nullptr) ++without_line_;
  alarms_ += static_cast<uint32_t>(frame.alarms.size());
  if (!verbose_) return;
  if (json_) {
    print_frame_json(frame);
  } else {
    print_frame(frame);
  }
}

void replay_report::print_frame(const frame_record& frame) const {
  std::string text;
  if (frame.line != nullptr) text += "  line \"" + frame.line->name + "\"";
  if (frame.refusal < 0) text += "  result " + std::to_string(frame.refusal);
  if (frame.sent_count > 0) {
    const frame_ids ids = decode_ids(frame.sent);
    if (ids.circuit_id) text += "  Circuit-ID \"" + *ids.circuit_id + "\"";
    if (ids.remote_id) text += "  Remote-ID \"" + *ids.remote_id + "\"";
  }
  for (const line_id_alarm& alarm : frame.alarms) text += "  alarm: " + alarm_text(alarm);
  std::fprintf(console_out(), "%6u  %-6s %-4s %-9s%s\n", frame.captured.number, PROTOCOLS[frame.found.protocol].title,
               direction_name(frame.direct), VERDICTS[frame.verdict()], text.c_str());
}

void replay_report::print_frame_json(const frame_record& frame) const {
  json_object object = {{"type", "frame"},
                        {"frame", frame.captured.number},
                        {"time", time_text(frame.captured.time)},
                        {"protocol", PROTOCOLS[frame.found.protocol].key}};
  if (frame.direct != 0) object["direction"] = direction_name(frame.direct);
  object["verdict"] = VERDICTS[frame.verdict()];
  if (frame.line != nullptr) object["line"] = frame.line->name;
  if (frame.refusal < 0) object["result"] = frame.refusal;
  if (frame.sent_count > 0) {
    const frame_ids ids = decode_ids(frame.sent);
    if (ids.circuit_id) object["circuit_id"] = *ids.circuit_id;
    if (ids.remote_id) object["remote_id"] = *ids.remote_id;
  }
  for (const line_id_alarm& alarm : frame.alarms) object["alarms"].push_back(alarm_text(alarm));
  print_line(object);
}

frame_counts replay_report::total() const {
  frame_counts sum = {};
  for (const auto& [key, counts] : counts_) add(sum, counts);
  return sum;
}

uint32_t replay_report::written() const {
  const frame_counts sum = total();
  return sum.read - sum.dropped - sum.refused;
}

void replay_report::print_table(const std::vector<std::string>& statistics) const {
  FILE* out = console_out();
  if (verbose_) std::fprintf(out, "\n");
  std::fprintf(out, "%-9s %-9s %9s %9s %9s %9s %9s %9s\n", "protocol", "direction", "read", "trapped", "rebuilt",
               "passed", "dropped", "refused");
  for (const auto& [key, counts] : counts_) {
    if (key.first != PROTOCOL_NONE) print_row(PROTOCOLS[key.first].title, direction_name(key.second), counts);
  }
  const auto other = counts_.find({PROTOCOL_NONE, 0});
  if (other != counts_.end()) print_row(PROTOCOLS[PROTOCOL_NONE].title, "-", other->second);
  print_row("total", "", total());
  for (const auto& [result, frames] : refusals_) {
    std::fprintf(out, "%u refused with result %d\n", frames, result);
  }
  if (alarms_ > 0) std::fprintf(out, "alarms: %u\n", alarms_);
  if (statistics.empty()) return;
  std::fprintf(out, "\nthe agent's own report:\n");
  for (const std::string& line : statistics) std::fprintf(out, "  %s\n", line.c_str());
}

void replay_report::print_json(const std::string& capture, const std::string& output,
                               const std::vector<std::string>& statistics) const {
  const frame_counts sum = total();
  json_object object = {{"type", "summary"}, {"capture", capture}, {"output", output}};
  object.update(counts_json(sum));
  object["untouched"] = sum.read - sum.trapped;
  object["written"] = written();
  object["without_line"] = without_line_;
  object["alarms"] = alarms_;
  object["protocols"] = json_object::array();
  for (const auto& [key, counts] : counts_) {
    json_object row = {{"protocol", PROTOCOLS[key.first].key}};
    if (key.second != 0) row["direction"] = direction_name(key.second);
    row.update(counts_json(counts));
    object["protocols"].push_back(row);
  }
  object["refusals"] = json_object::object();
  for (const auto& [result, frames] : refusals_) object["refusals"][std::to_string(result)] = frames;
  if (!statistics.empty()) object["statistics"] = {{"counters", counters_json(statistics)}, {"report", statistics}};
  print_line(object);
}

void replay_report::finish(const std::string& capture, const std::string& output,
                           const std::vector<std::string>& statistics) {
  if (json_) {
    print_json(capture, output, statistics);
  } else {
    print_table(statistics);
    std::fprintf(console_out(), "%u frames written to %s\n", written(), output.c_str());
  }
}
