// Runs each agent, or with "path" the whole road of a frame, on the same frames under callgrind, one dump for each
// case, for bench/check_instructions.py and bench/instruction_targets.py; without callgrind it checks that each frame
// was rewritten.
#include "bench/bare.h"
#include "bench/desk.h"

#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr uint32_t FRAMES = 100;

struct protocol {
  const char* name;
  uint8_t packet_type;
  uint32_t (*bare)(const uint8_t*, uint32_t, uint8_t*, const bare_texts&);
};
constexpr protocol PROTOCOLS[] = {
    {"dhcp4", LINE_ID_DHCPV4, bare_dhcp4},
    {"dhcp6", LINE_ID_DHCPV6, bare_dhcp6},
    {"pppoe", LINE_ID_PPPOE, bare_pppoe},
};

template <class Run> void count(const std::string& name, Run run) {
  if (!run()) { // also brings code and data into their places
    std::fprintf(stderr, "%s: the frame was not rewritten\n", name.c_str());
    std::exit(1);
  }
  CALLGRIND_TOGGLE_COLLECT;
  for (uint32_t i = 0; i < FRAMES; ++i) run();
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_DUMP_STATS_AT(name.c_str());
}

void count_agent(const std::string& name, const octets& frame, uint8_t packet_type) {
  bench_desk desk(frame, packet_type);
  count(name, [&desk] { return desk.ask() == 0 && desk.info.new_pkt_len > 0; });
}

void count_agents() {
  const bare_texts texts = {BENCH_CIRCUIT_ID, BENCH_REMOTE_ID};
  for (const protocol& each : PROTOCOLS) {
    const octets frame = bench_frame(each.packet_type);
    uint8_t out[LINE_ID_SCRATCH_LEN];
    count(std::string("bare.") + each.name,
          [&] { return each.bare(frame.data(), static_cast<uint32_t>(frame.size()), out, texts) > frame.size(); });
  }
  desk_start(desk_mode::REWRITE_ONLY);
  uint8_t copies[LINE_ID_SCRATCH_LEN];
  count("copies", [&] { return bench_copy_texts(copies, BENCH_CIRCUIT_ID, BENCH_REMOTE_ID), true; });
  for (const protocol& each : PROTOCOLS) {
    bench_desk desk(bench_frame(each.packet_type), each.packet_type);
    count(std::string("texts.") + each.name, [&] { return desk.ask_texts(), true; });
    count_agent(std::string("rewrite.") + each.name, bench_frame(each.packet_type), each.packet_type);
  }
  desk_start(desk_mode::WHOLE);
  for (const protocol& each : PROTOCOLS) {
    count_agent(std::string("insert.") + each.name, bench_frame(each.packet_type), each.packet_type);
    count_agent(std::string("replace.") + each.name, bench_frame_with_identity(each.packet_type), each.packet_type);
  }
}

void count_paths() {
  desk_start(desk_mode::WHOLE);
  one_thread_path path;
  for (const protocol& each : PROTOCOLS) {
    const octets frame = bench_frame(each.packet_type);
    count(std::string("path.") + each.name,
          [&] { return path.run(frame, each.packet_type) == LINE_ID_OK && g_sent_len > frame.size(); });
  }
}

} // namespace

int main(int argc, char** argv) {
  // The agent reports its start on standard output.
  std::printf("compiler %s\nframes %u\n", __VERSION__, FRAMES);
  if (argc > 1 && std::strcmp(argv[1], "path") == 0) {
    count_paths();
  } else {
    count_agents();
  }
  return 0;
}
