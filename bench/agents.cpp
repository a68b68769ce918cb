// The agents against the same rewriting by hand, and against a packet library.
#include "bench/bare.h"
#include "bench/desk.h"
#include "bench/libtins_peer.h"
#include "bench/targets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct protocol {
  const char* name;
  uint8_t packet_type;
  uint32_t (*bare)(const uint8_t*, uint32_t, uint8_t*, const bare_texts&);
  uint32_t (*library)(const uint8_t*, uint32_t, uint8_t*, const bare_texts&);
  double whole_limit;   // of the whole agent, in bare ones
  double library_limit; // how often it goes into the library's time
};
constexpr protocol PROTOCOLS[] = {
    {"DHCPv4", LINE_ID_DHCPV4, bare_dhcp4, tins_dhcp4, 3.5, 8},
    {"PPPoE", LINE_ID_PPPOE, bare_pppoe, tins_pppoe, 5, 4.5},
    {"DHCPv6", LINE_ID_DHCPV6, bare_dhcp6, tins_dhcp6, 3, 7},
};

using by_hand = uint32_t (*)(const uint8_t*, uint32_t, uint8_t*, const bare_texts&);

std::function<void(uint32_t)> runner(by_hand function, const octets& frame) {
  return [function, frame](uint32_t times) {
    const bare_texts texts = {BENCH_CIRCUIT_ID, BENCH_REMOTE_ID};
    alignas(LINE_ID_SCRATCH_ALIGN) uint8_t out[LINE_ID_SCRATCH_LEN];
    for (uint32_t i = 0; i < times; ++i) {
      keep(function(frame.data(), static_cast<uint32_t>(frame.size()), out, texts));
      keep(out);
    }
  };
}

std::function<void(uint32_t)> runner(bench_desk& desk) {
  return [&desk](uint32_t times) {
    for (uint32_t i = 0; i < times; ++i) {
      if (desk.ask() != 0) std::abort();
      keep(desk.out);
    }
  };
}

std::function<void(uint32_t)> text_runner(bench_desk& desk) {
  return [&desk](uint32_t times) {
    for (uint32_t i = 0; i < times; ++i) {
      desk.ask_texts();
      keep(desk.out);
    }
  };
}

std::function<void(uint32_t)> copy_runner() {
  return [](uint32_t times) {
    alignas(LINE_ID_SCRATCH_ALIGN) uint8_t out[LINE_ID_SCRATCH_LEN];
    for (uint32_t i = 0; i < times; ++i) {
      bench_copy_texts(out, BENCH_CIRCUIT_ID, BENCH_REMOTE_ID);
      keep(out);
    }
  };
}

// The agent's rewrite with its facts and texts given, as the one by hand has them: without what finds them, but with
// the copying of the texts into the frame.
target rewrite_alone(const protocol& each, const group_result& found) {
  target row = {"rewrite alone / bare", each.name, {}, 1.25, false, "x"};
  for (const auto& run : found.runs) row.values.push_back(run[1].ratio - run[2].ratio + run[3].ratio);
  return row;
}

void measure(report& into, const protocol& each) {
  const octets frame = bench_frame(each.packet_type);
  bench_desk desk(frame, each.packet_type);
  const std::vector<contender> with_bare = {{"bare", runner(each.bare, frame)}, {"agent", runner(desk)}};

  desk_start(desk_mode::REWRITE_ONLY);
  std::vector<contender> alone = with_bare;
  alone.push_back({"letters and texts", text_runner(desk)});
  alone.push_back({"copying the texts", copy_runner()});
  into.add(rewrite_alone(each, into.add_group(std::string(each.name) + " rewrite", alone)));

  desk_start(desk_mode::WHOLE);
  std::vector<contender> all = with_bare;
  all.push_back({"libtins", runner(each.library, frame)});
  all.push_back({"facts, letters and texts", text_runner(desk)});
  const group_result whole = into.add_group(std::string(each.name) + " agent", all);
  into.add_ratio("whole agent / bare", each.name, whole, "agent", "bare", each.whole_limit);
  into.add_ratio("libtins / whole agent", each.name, whole, "libtins", "agent", each.library_limit, true);
}

} // namespace

void measure_agents(report& into) {
  for (const protocol& each : PROTOCOLS) measure(into, each);
}

// What one tag or one option more costs the DHCPv4 agent, against a copy of a frame and against the walk by hand.
void measure_growth(report& into) {
  desk_start(desk_mode::REWRITE_ONLY);
  constexpr uint32_t MORE_TAGS = 4;
  constexpr uint32_t MORE_OPTIONS = 55;
  constexpr uint32_t COPY_LEN = 342;
  bench_desk plain(bench_frame(LINE_ID_DHCPV4), LINE_ID_DHCPV4);
  bench_desk tagged(bench_frame(LINE_ID_DHCPV4, MORE_TAGS), LINE_ID_DHCPV4);
  bench_desk long_one(bench_frame(LINE_ID_DHCPV4, 0, MORE_OPTIONS), LINE_ID_DHCPV4);
  const group_result found =
      into.add_group("DHCPv4 growth", {{"copy of 342 octets",
                                        [&](uint32_t times) {
                                          alignas(LINE_ID_SCRATCH_ALIGN) uint8_t out[COPY_LEN];
                                          for (uint32_t i = 0; i < times; ++i) {
                                            std::memcpy(out, long_one.frame.data(), sizeof(out));
                                            keep(out);
                                          }
                                        }},
                                       {"agent", runner(plain)},
                                       {"agent, 4 tags", runner(tagged)},
                                       {"agent, 55 options more", runner(long_one)},
                                       {"bare", runner(bare_dhcp4, plain.frame)},
                                       {"bare, 55 options more", runner(bare_dhcp4, long_one.frame)}});
  target tag = {"a tag more / copy", "DHCPv4", {}, 0.15, false, "x"};
  target option = {"an option more / copy", "DHCPv4", {}, 0.15, false, "x"};
  target walk = {"an option more / bare's", "DHCPv4", {}, 1.1, false, "x"};
  for (const auto& run : found.runs) {
    tag.values.push_back((run[2].ratio - run[1].ratio) / MORE_TAGS);
    option.values.push_back((run[3].ratio - run[1].ratio) / MORE_OPTIONS);
    walk.values.push_back((run[3].ratio - run[1].ratio) / (run[5].ratio - run[4].ratio));
  }
  for (const target& row : {tag, option, walk}) into.add(row);
}
