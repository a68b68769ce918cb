// What has no limit to keep, over ranges: agents by tags and options, texts, checksums, the tree by size, and the whole
// road by ingress threads. Google Benchmark; takes its options.
#include "antispoof/binding_table.h"
#include "bench/desk.h"
#include "lineid/circuit_id.h"
#include "lineid/format.h"
#include "lineid/params.h"
#include "packet/check.h"
#include "packet/closing.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

struct protocol {
  const char* name;
  uint8_t packet_type;
  uint32_t options; // of its frames without more
};
constexpr protocol PROTOCOLS[] = {
    {"dhcp4", LINE_ID_DHCPV4, 5}, {"dhcp6", LINE_ID_DHCPV6, 5}, {"pppoe", LINE_ID_PPPOE, 2}};

// Registers a benchmark that repeats `once`.
template <class Once> void add(const std::string& name, Once once) {
  benchmark::RegisterBenchmark(name.c_str(), [once](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(once());
  });
}

void add_agent(const std::string& name, const octets& frame, uint8_t packet_type) {
  benchmark::RegisterBenchmark(name.c_str(), [frame, packet_type](benchmark::State& state) {
    bench_desk desk(frame, packet_type);
    for (auto _ : state) {
      if (desk.ask() != 0) state.SkipWithError("the frame was not rewritten");
    }
    state.counters["octets"] = static_cast<double>(frame.size());
  });
}

void add_agents() {
  for (const protocol& each : PROTOCOLS) {
    const std::string name = each.name;
    for (const bool rewrite : {false, true}) {
      const auto make = rewrite ? bench_frame_with_identity : bench_frame;
      const std::string kind = name + (rewrite ? "/rewrite/" : "/insert/");
      for (uint32_t tags = 0; tags <= LINE_ID_MAX_TAGS; ++tags) {
        add_agent(kind + "tags:" + std::to_string(tags), make(each.packet_type, tags, 0), each.packet_type);
      }
      for (const uint32_t options : {5, 10, 20, 40, 60}) {
        add_agent(kind + "options:" + std::to_string(options),
                  make(each.packet_type, 0, options - std::min(options, each.options)), each.packet_type);
      }
    }
  }
}

void add_texts() {
  static bench_desk desk(bench_frame(LINE_ID_DHCPV4), LINE_ID_DHCPV4);
  static const octets old = tlv1(1, text("0 0/0/0:9.9 home/0/0/0/0/0/ONUX/1/2 GP"));
  static uint8_t out[512];
  desk.ask();
  add("parameters/fill", [] { return line_id_param_proc(0, &desk.info); });
  for (const std::string_view format : {CTC_FORMAT[0], CTC_FORMAT[2], CNC_FORMAT[2]}) {
    add("template/" + std::to_string(format.size()) + " characters",
        [format] { return line_id_expand_template(0, format, reinterpret_cast<char*>(out)); });
  }
  add("circuit_id/modify", [] {
    uint16_t len = 0;
    std::memset(out, 0, sizeof(out));
    return line_id_circuit_id_modify(0, old.data(), static_cast<uint16_t>(old.size()), out, &len, &desk.info);
  });
}

void add_check_sums() {
  static uint8_t buffer[LINE_ID_MAX_FRAME_LEN];
  for (uint32_t i = 0; i < sizeof(buffer); ++i) buffer[i] = static_cast<uint8_t>(i * 7);
  add("check_sum/ip4", [] { return line_id_check_sum(buffer, 20); });
  for (const uint32_t len : {64, 300, 1400}) {
    add("check_sum/udp6/" + std::to_string(len), [len] { return line_id_udp6_check_sum(buffer, buffer + 32, len); });
  }
}

struct mac_key {
  uint8_t octets[6];
};

// Scattered addresses: a step through all residues.
mac_key mac_of(uint32_t i) {
  mac_key mac = {{2, 0, 0, 0, 0, 0}};
  const uint32_t value = i * 2654435761U;
  std::memcpy(mac.octets + 2, &value, sizeof(value));
  return mac;
}

void walk_tree(benchmark::State& state, bool erase) {
  const auto count = static_cast<uint32_t>(state.range(0));
  line_id_pppoe_binding_table_init();
  line_id_clear_pppoe_binding_table();
  for (uint32_t i = 0; i < count; ++i) line_id_add_pppoe_binding_entry(0, mac_of(i).octets, 3, 5, 42, nullptr);
  uint64_t random = 1;
  for (auto _ : state) {
    const mac_key mac = mac_of(bench_random_below(random, count));
    line_id_binding_place place = {};
    if (erase) {
      line_id_del_pppoe_binding_entry(mac.octets);
      line_id_add_pppoe_binding_entry(0, mac.octets, 3, 5, 42, nullptr);
    } else if (line_id_search_pppoe_binding_table(mac.octets, &place) != LINE_ID_OK) {
      state.SkipWithError("a binding is missing");
    }
  }
  line_id_clear_pppoe_binding_table();
}

void add_trees() {
  for (const bool erase : {false, true}) {
    benchmark::RegisterBenchmark(erase ? "tree/erase, learn" : "tree/look-up", walk_tree, erase)
        ->RangeMultiplier(4)
        ->Range(64, 16384);
  }
}

// One to four threads hand in; the worker is one more. A frame that finds no unit free is handed in again.
void add_paths() {
  for (const protocol& each : PROTOCOLS) {
    const octets frame = bench_frame(each.packet_type);
    benchmark::RegisterBenchmark((std::string(each.name) + "/path").c_str(),
                                 [frame, each](benchmark::State& state) {
                                   const line_id_append_info line = bench_line();
                                   for (auto _ : state) {
                                     while (bench_hand_in(frame, each.packet_type, line) != LINE_ID_OK) {
                                       std::this_thread::yield();
                                     }
                                   }
                                   state.SetItemsProcessed(state.iterations());
                                 })
        ->DenseThreadRange(1, 4)
        ->UseRealTime();
  }
}

} // namespace

int main(int argc, char** argv) {
  setenv("LINE_ID_IPC_PREFIX", ("lineid.bench." + std::to_string(getpid())).c_str(), 1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  // The agent reports its start on standard output, which belongs to the table.
  std::ofstream out("/dev/fd/" + std::to_string(dup(STDOUT_FILENO)));
  if (!out || std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
  reporter.SetOutputStream(&out);
  reporter.SetErrorStream(&out);

  desk_start(desk_mode::WHOLE);
  add_agents();
  add_texts();
  add_check_sums();
  add_trees();
  add_paths();
  std::thread worker = bench_start_worker();
  const size_t ran = benchmark::RunSpecifiedBenchmarks(&reporter);
  bench_stop_worker(worker);
  benchmark::Shutdown();
  return ran > 0 ? 0 : 1;
}
