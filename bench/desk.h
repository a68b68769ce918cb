// The agent under measurement: a host whose callbacks cost next to nothing, frames, and one frame put before an agent
// past ingress.
#pragma once

#include "core/records.h"
#include "platform/lib_comm.h"
#include "tests/support/frames.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <thread>

// The texts that the agent builds for bench_line().
// Each within a cache line: where the linker puts them must not show.
alignas(64) inline constexpr char BENCH_CIRCUIT_ID[] = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP";
inline constexpr char BENCH_SPLICE_HEAD[] = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 ";
alignas(64) inline constexpr char BENCH_REMOTE_ID[] = "ONU42";

// What the agent does for a frame besides rewriting it.
enum class desk_mode {
  WHOLE,        // facts through the callbacks, both identifiers expanded
  REWRITE_ONLY, // no callbacks, the identifiers are given texts
};

// Bring instance 0 up; again: in another mode. Ends the process when the agent refuses.
void desk_start(desk_mode mode, bool cross_process = false);

line_id_append_info bench_line();

// What the send callback saw last; kept apart so that nothing can be optimised away.
extern std::atomic<uint32_t> g_sent_len;
extern std::atomic<uint32_t> g_sent_frames;
// Called for each sent frame, or null.
extern void (*g_after_send)();

// A subscriber's frame with `tags` VLAN tags. DHCPv4: 330 octets with five options, which every further option makes
// four octets longer; DHCPv6 and PPPoE: as clients send them.
octets bench_frame(uint8_t packet_type, uint32_t tags = 0, uint32_t more_options = 0);
// The same frame with an identity from a line nearer to the subscriber, which is rewritten.
octets bench_frame_with_identity(uint8_t packet_type, uint32_t tags = 0, uint32_t more_options = 0);

// One frame before its agent, as the worker's entry leaves it.
struct bench_desk {
  octets frame;
  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};
  std::unique_ptr<line_id_unit> unit = std::make_unique<line_id_unit>();
  alignas(LINE_ID_SCRATCH_ALIGN) uint8_t out[LINE_ID_SCRATCH_LEN] = {};

  bench_desk(const octets& from, uint8_t packet_type);
  bench_desk(const bench_desk&) = delete;
  bench_desk& operator=(const bench_desk&) = delete;

  // Header checks of ingress, then the agent: its verdict.
  int32_t ask();
  // The part of it that a rewrite with given texts has not: facts and letters of the set, and both texts, which go to
  // `out`.
  void ask_texts();
};

// The whole road of a frame on one thread: the receive call, the queue, the worker's turn, the send callback.
struct one_thread_path {
  lib_comm_lib* worker;
  line_id_append_info line = bench_line();

  one_thread_path();
  ~one_thread_path();
  one_thread_path(const one_thread_path&) = delete;
  one_thread_path& operator=(const one_thread_path&) = delete;

  // The result of the receive call.
  int32_t run(const octets& frame, uint8_t packet_type);
};

// A number below `count`, from a sequence that never comes again (Knuth's linear congruential generator): a processor
// learns the way through a small table by heart when its look-ups repeat.
inline uint32_t bench_random_below(uint64_t& state, uint32_t count) {
  state = state * 6364136223846793005 + 1442695040888963407;
  return static_cast<uint32_t>((state >> 32) * count >> 32);
}

// Copy the two texts to `out`, as a rewrite by hand does.
void bench_copy_texts(uint8_t* out, std::string_view circuit_id, std::string_view remote_id);

// Run the agent's loop on a thread of its own, until frames go through it: at its start it throws away what is queued.
std::thread bench_start_worker();
void bench_stop_worker(std::thread& worker);

// Unlink every object of this program's prefix.
void bench_remove_shared_objects();

// The receive call of a frame's protocol, upstream.
int32_t bench_hand_in(const octets& frame, uint8_t packet_type, const line_id_append_info& line);
