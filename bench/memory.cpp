// What a running agent holds in memory, against the sum of its parts, and whether frames make it grow.
#include "antispoof/binding_table.h"
#include "bench/desk.h"
#include "bench/targets.h"
#include "config/channel.h"
#include "core/worker.h"
#include "lineid/params.h"
#include "packet/pool.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <malloc.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uint32_t FRAMES = 10'000'000;
constexpr uint32_t SMOKE_FRAMES = 6'000;
constexpr uint32_t BINDINGS = 16384; // of each table
constexpr uint64_t PAGE = 4096;

struct findings {
  double held;  // octets, on the heap and in shared objects
  double parts; // octets of the records
  double growth;
};

uint64_t heap_octets() {
  const struct mallinfo2 now = mallinfo2();
  return now.uordblks + now.hblkhd;
}

// The objects of this agent's prefix, in whole pages.
uint64_t shared_octets() {
  const std::string prefix = std::string(getenv("LINE_ID_IPC_PREFIX")) + ".";
  uint64_t octets = 0;
  for (const auto& each : std::filesystem::directory_iterator("/dev/shm")) {
    if (each.path().filename().string().starts_with(prefix)) octets += (each.file_size() + PAGE - 1) / PAGE * PAGE;
  }
  return octets;
}

// Two tables as full as they get.
void learn_all() {
  for (uint32_t i = 0; i < BINDINGS; ++i) {
    const uint8_t mac[6] = {
        2, 0, static_cast<uint8_t>(i * 37), 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    line_id_add_dhcp_binding_entry(0, mac, 3, 5, 42, nullptr);
    line_id_add_pppoe_binding_entry(0, mac, 3, 5, 42, nullptr);
  }
  if (g_dhcp_binding_entries != BINDINGS || g_pppoe_binding_entries != BINDINGS) std::exit(1);
}

// Records in memory that is not the program's own from its start, by their sizes.
uint64_t sum_of_parts() {
  constexpr uint64_t EVENT = 2 * sizeof(void*);
  uint64_t letters = 0;
  for (int32_t set = 0; set < static_cast<int32_t>(LINE_ID_PARAM_SETS); ++set) {
    for (int32_t letter = 'A'; letter <= 'z'; ++letter) {
      if (line_id_param_slot(letter) >= 0) letters += static_cast<uint64_t>(line_id_param_allocated(set, letter));
    }
  }
  const uint64_t units = uint64_t{g_line_id_buf_pool_num} * (sizeof(line_id_unit) + sizeof(line_id_unit*));
  constexpr uint32_t RINGS = PAL_MSGQ_PRIORITIES + 1; // and the agent's own
  const uint64_t queue = uint64_t{RINGS} * LINE_ID_MSG_DEPTH * sizeof(line_id_msg);
  return units + sizeof(line_id_buf_pool) + 2 * BINDINGS * sizeof(line_id_binding_entry) + letters * LINE_ID_TEXT_SIZE +
         queue + 2 * sizeof(line_id_cmd_area) + LINE_ID_MSG_DEPTH * EVENT;
}

void push(one_thread_path& path, uint32_t frames) {
  constexpr uint8_t TYPES[] = {LINE_ID_DHCPV4, LINE_ID_DHCPV6, LINE_ID_PPPOE};
  octets mixed[6];
  for (uint32_t i = 0; i < 3; ++i) {
    mixed[2 * i] = bench_frame(TYPES[i], i);
    mixed[2 * i + 1] = bench_frame_with_identity(TYPES[i], i);
  }
  for (uint32_t i = 0; i < frames; ++i) {
    if (path.run(mixed[i % 6], TYPES[i % 6 / 2]) != LINE_ID_OK) std::exit(1);
  }
}

findings weigh(uint32_t frames) {
  const uint64_t before = heap_octets();
  desk_start(desk_mode::WHOLE, true);
  one_thread_path path;
  learn_all();
  const uint64_t full = heap_octets() - before + shared_octets();
  const uint64_t parts = sum_of_parts();
  push(path, 600);
  const uint64_t warm = heap_octets() + shared_octets();
  push(path, frames);
  return {static_cast<double>(full), static_cast<double>(parts),
          static_cast<double>(heap_octets() + shared_octets()) - static_cast<double>(warm)};
}

} // namespace

// In a process of its own, where no other part has allocated anything.
void measure_memory(report& into) {
  int ends[2];
  if (pipe(ends) != 0) return;
  const pid_t child = fork();
  if (child == 0) {
    const findings found = weigh(into.smoke ? SMOKE_FRAMES : FRAMES);
    _exit(write(ends[1], &found, sizeof(found)) == sizeof(found) ? 0 : 1);
  }
  close(ends[1]);
  findings found = {};
  const bool whole = read(ends[0], &found, sizeof(found)) == sizeof(found);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  bench_remove_shared_objects();
  if (!whole) {
    std::fprintf(stderr, "the agent whose memory is measured has failed\n");
    std::exit(1);
  }
  into.add({"memory / sum of its parts", "1,000 units, full tables", {found.held / found.parts}, 1.05, false, "x"});
  into.add({"memory: growth", into.smoke ? "6,000 frames" : "10 million frames", {found.growth}, 0, false, " "});
}
