// The replay's loop.
#include "host/replay.h"

#include "host/agent.h"
#include "host/capture.h"
#include "host/console.h"
#include "host/failure.h"
#include "host/report.h"
#include "host/window.h"

#include <poll.h>
#include <unistd.h>

namespace {

constexpr int HOLD_POLL_MS = 50; // between looks for an interrupt
constexpr int MAX_TRIES = 3;     // with the worker at rest, the agent has room unless it has lost its units

struct replay_run {
  replay_run(const replay_options& given, const line_map& lines)
      : options(given), map(lines), report(given.json, given.verbose), reader(given.capture),
        writer(given.output, given.capture), window(given.pool_units),
        agent(lines, window, {.pool_units = given.pool_units, .other_processes = given.hold}) {}

  frame_record prepare(captured_frame&& captured);
  void hand_in(frame_record& frame);
  void settle();
  void write_finished();
  void run(const std::atomic<bool>& interrupted);

  const replay_options& options;
  const line_map& map;
  direction_finder directions;
  replay_report report;
  capture_reader reader;
  capture_writer writer;
  frame_window window;
  running_agent agent; // last: it is stopped before what its callbacks use goes away
};

// What the driver would find out about a frame, and whether it would trap it.
frame_record replay_run::prepare(captured_frame&& captured) {
  frame_record frame = {};
  frame.captured = std::move(captured);
  const octet_view data = frame.captured.data;
  frame.found = classify_frame(data);
  if (frame.found.protocol == PROTOCOL_NONE) return frame;
  frame.direct = options.direct != 0 ? options.direct : directions.find(data, frame.found);
  frame.line = line_map_find(map, frame.found, subscriber_mac(data, frame.found, frame.direct));
  if (frame.line == nullptr) return frame;
  frame.trapped = hal_is_trapped(frame.line->append.ext[LINE_ID_EXT_OLTID], frame.found.protocol);
  return frame;
}

void replay_run::hand_in(frame_record& frame) {
  const line_id_append_info info = line_append_info(*frame.line, frame.found);
  const auto receive = frame.found.protocol == LINE_ID_PPPOE ? line_id_pppoe_receive : line_id_dhcp_receive;
  const octets& data = frame.captured.data;
  const auto call = [&] {
    return receive(data.data(), static_cast<uint32_t>(data.size()), frame.number, frame.direct, &info);
  };
  if (options.pool_units == 1) {
    // The only unit: wait until the frame before has given it back.
    while (window.wait_for_one()) continue;
    agent.barrier();
  }
  for (int tries = 0; !window.hand_in(frame, call);) {
    if (window.wait_for_one()) continue;
    if (++tries == MAX_TRIES) throw host_failure(EXIT_AGENT, "the agent has no room for a single frame");
    agent.barrier();
  }
}

// Waits for one more frame to be finished.
void replay_run::settle() {
  if (window.wait_for_one()) return;
  agent.barrier();
  window.finish_last();
}

void replay_run::write_finished() {
  while (const std::optional<frame_record> frame = window.take()) {
    report.count(*frame);
    if (!frame->trapped) {
      writer.write(frame->captured.time, frame->captured.data);
    } else if (frame->sent_count > 0) {
      writer.write(frame->captured.time, frame->sent);
    }
  }
}

void replay_run::run(const std::atomic<bool>& interrupted) {
  captured_frame captured;
  while (reader.next(captured)) {
    if (interrupted) throw host_failure(EXIT_INTERRUPTED, "interrupted");
    frame_record& frame = window.add(prepare(std::move(captured)));
    if (frame.trapped) hand_in(frame);
    write_finished();
    while (window.is_full()) {
      settle();
      write_finished();
    }
    if (options.progress) console_progress(reader.position());
  }
  while (!window.is_empty()) {
    settle();
    write_finished();
  }
  console_progress_end();
  if (window.strays() > 0) throw host_failure(EXIT_AGENT, "the agent sent frames that nobody had handed in");
}

// Until a line, or the end, of standard input.
void wait_until_told(const std::atomic<bool>& interrupted) {
  console_publish();
  console_note("holding the capture back; a line on standard input lets it go");
  for (char octet = 0; octet != '\n';) {
    if (interrupted) throw host_failure(EXIT_INTERRUPTED, "interrupted");
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, HOLD_POLL_MS) <= 0) continue;
    if (read(STDIN_FILENO, &octet, 1) <= 0) return;
  }
}

} // namespace

void replay(const replay_options& options, const line_map& map, const std::atomic<bool>& interrupted) {
  for (const std::string& warning : map.warnings) console_note("warning: " + warning);
  replay_run replay(options, map);
  if (options.verbose) {
    for (const std::string& line : console_take_held()) console_note("agent: " + line);
  }
  console_set_mode(CONSOLE_RELAY);
  if (options.hold) wait_until_told(interrupted);
  replay.run(interrupted);
  std::vector<std::string> statistics;
  if (options.statistics) statistics = replay.agent.statistics();
  replay.writer.finish();
  if (replay.report.without_line() > 0) {
    console_note("warning: " + std::to_string(replay.report.without_line()) +
                 " frames belong to no line of the map and passed untouched");
  }
  replay.report.finish(options.capture, options.output, statistics);
  if (std::fflush(console_out()) != 0)
    throw host_failure(EXIT_OUTPUT, "the summary cannot be written; the output is complete");
}
