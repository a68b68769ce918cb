// lineid-host: the reference host of the Line ID agent, a program over the public header alone.
#include "host/console.h"
#include "host/failure.h"
#include "host/line_map.h"
#include "host/live_command.h"
#include "host/replay.h"
#include "host/serve.h"
#include "include/line_id.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <functional>

namespace {

constexpr uint32_t DEFAULT_POOL = 1000;
constexpr uint32_t MAX_POOL = 100000;

constexpr const char* ABOUT =
    "lineid-host puts frames through the Line ID agent, as the packet process of an access device does:\n"
    "the agent writes the line's identity into subscribers' DHCPv4, DHCPv6 and PPPoE Discovery frames.";

constexpr const char* REPLAY_ABOUT =
    "Put the frames of a capture (pcap or pcapng, Ethernet) through the agent and write what it sends.\n\n"
    "The frames that a device would trap (DHCPv4, DHCPv6, PPPoE Discovery, on lines of instances that have the\n"
    "protocol on) are handed to the agent; all others are written as they are. Order and time stamps stay.\n"
    "Directions come from the messages. A summary follows on standard output; warnings, alarms and the agent's\n"
    "own messages go to standard error.\n\n"
    "Example: lineid-host replay subscribers.pcap -o out.pcap --lines lines.toml --verbose";

constexpr const char* SERVE_ABOUT =
    "Run an agent without frames until SIGINT or SIGTERM, for other processes to configure and read: the command line\n"
    "client, or programs over the client calls. LINE_ID_IPC_PREFIX keeps several apart. What the agent prints goes to\n"
    "standard error, and to those that read the published console.\n\n"
    "Example: lineid-host serve --lines lines.toml";

constexpr const char* LINES_ABOUT =
    "line map (TOML): lines, devices and settings of the agent; without it everything is on and all frames belong to "
    "one line";

constexpr const char* EXIT_CODES =
    "Exit codes: 0 done, 1 the agent failed, 2 wrong arguments, 3 the capture cannot be read,\n"
    "4 the line map cannot be read, 5 the output cannot be written, 6 packet sockets are not\n"
    "allowed, 130 interrupted.\n"
    "After a failed replay there is no output file.";

std::atomic<bool> g_interrupted{false}; // set by the signal handler, read by the run

void on_signal(int) { g_interrupted = true; }

void install_signals() {
  struct sigaction action = {};
  action.sa_handler = on_signal;
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

struct arguments {
  replay_options replay = {};
  std::string lines;
  std::string direction;
  bool no_progress = false;
  uint32_t serve_pool_units = DEFAULT_POOL;
  live_arguments live;
};

void add_replay(CLI::App& app, arguments& given) {
  CLI::App* replay = app.add_subcommand("replay", REPLAY_ABOUT);
  replay->footer(EXIT_CODES);
  replay->add_option("CAPTURE", given.replay.capture, "the capture to read")->required();
  replay->add_option("-o,--output", given.replay.output, "the pcap file to write; replaced when it exists")->required();
  replay->add_option("-l,--lines", given.lines, LINES_ABOUT);
  replay->add_option("-d,--direction", given.direction, "direction of all frames, where the messages mislead")
      ->check(CLI::IsMember({"up", "down"}));
  replay->add_option("--pool", given.replay.pool_units, "frames that the agent can hold at a time")
      ->check(CLI::Range(1U, MAX_POOL))
      ->capture_default_str();
  replay->add_flag("-v,--verbose", given.replay.verbose, "a line for each frame, with the identifiers it carries");
  replay->add_flag("-s,--statistics", given.replay.statistics, "add the agent's own report to the summary");
  replay->add_flag("--json", given.replay.json,
                   "the summary as one line of JSON; with --verbose a line for each frame before it");
  replay->add_flag("--no-progress", given.no_progress, "no progress bar on a terminal");
  replay->add_flag("--hold", given.replay.hold,
                   "let other processes configure the agent, and hold the capture back until a line, or the end, of "
                   "standard input");
}

CLI::App* add_serve(CLI::App& app, arguments& given) {
  CLI::App* serve = app.add_subcommand("serve", SERVE_ABOUT);
  serve->add_option("-l,--lines", given.lines, LINES_ABOUT);
  serve->add_option("--pool", given.serve_pool_units, "frames that the agent can hold at a time")
      ->check(CLI::Range(1U, MAX_POOL))
      ->capture_default_str();
  return serve;
}

// Runs `work` with the map of the file `lines`, or the built-in one, and the console moved: the exit code.
int run_with_map(const std::string& lines, console_patience patience,
                 const std::function<void(const line_map&)>& work) {
  int code = EXIT_OK;
  console_open(patience);
  try {
    work(lines.empty() ? line_map_built_in() : line_map_read(lines));
  } catch (const host_failure& failure) {
    console_progress_end();
    if (failure.code() == EXIT_AGENT) {
      for (const std::string& line : console_take_held()) console_note("agent: " + line);
    }
    console_note(std::string("lineid-host: ") + failure.what());
    code = failure.code();
  } catch (const std::exception& failure) { // out of memory and the like
    console_progress_end();
    console_note(std::string("lineid-host: ") + failure.what());
    code = EXIT_AGENT;
  }
  console_close();
  return code;
}

int run_replay(arguments& given) {
  replay_options& options = given.replay;
  if (given.direction == "up") options.direct = LINE_ID_UPSTREAM;
  if (given.direction == "down") options.direct = LINE_ID_DOWNSTREAM;
  options.progress = !given.no_progress && !options.verbose;
  return run_with_map(given.lines, CONSOLE_WAIT,
                      [&options](const line_map& map) { replay(options, map, g_interrupted); });
}

int run_live(const live_arguments& given) {
  return run_with_map(given.lines, CONSOLE_DROP,
                      [&given](const line_map& map) { live(given.options, map, g_interrupted); });
}

int run_serve(const arguments& given) {
  return run_with_map(given.lines, CONSOLE_DROP,
                      [&given](const line_map& map) { serve(given.serve_pool_units, map, g_interrupted); });
}

int run(int argc, char** argv) {
  CLI::App app(ABOUT, "lineid-host");
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("lineid-host " LINE_ID_VERSION));
  app.footer(EXIT_CODES);
  arguments given;
  given.replay.pool_units = DEFAULT_POOL;
  add_replay(app, given);
  const CLI::App* serve = add_serve(app, given);
  const CLI::App* live = add_live(app, given.live);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? EXIT_OK : EXIT_USAGE;
  }
  install_signals();
  if (serve->parsed()) return run_serve(given);
  return live->parsed() ? run_live(given.live) : run_replay(given);
}

} // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "lineid-host: %s\n", failure.what());
    return EXIT_AGENT;
  }
}
