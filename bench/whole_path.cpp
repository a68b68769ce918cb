// The whole road of a frame, from the receive call to the send callback: on one thread, on two, and with several
// threads that hand frames in; and the same with a POSIX queue in the middle.
#include "bench/desk.h"
#include "bench/targets.h"
#include "core/device_if.h"
#include "core/service.h"

#include <cstring>
#include <mqueue.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

constexpr uint32_t FRAMES = 24000;     // of one measurement with threads; 1 to 4 of them share it evenly
constexpr uint32_t QUEUE_FRAMES = 400; // the same through the slower POSIX queue

struct protocol {
  const char* name;
  uint8_t packet_type;
};
constexpr protocol PROTOCOLS[] = {{"DHCPv4", LINE_ID_DHCPV4}, {"PPPoE", LINE_ID_PPPOE}, {"DHCPv6", LINE_ID_DHCPV6}};

// The least that a road can be: a unit of a pool, the frame copied into it, a queue, the scratch frame cleared, the
// agent, the send callback, the unit back. No checks, settings, counters or events, nobody to wake, and locks that are
// given up without an atomic exchange.
struct bare_pipe {
  bench_desk& desk;
  std::atomic<uint32_t> pool_lock{0};
  std::atomic<uint32_t> queue_lock{0};
  line_id_unit* pool[16] = {};
  uint32_t left = 0;
  line_id_unit* queue[LINE_ID_MSG_DEPTH] = {};
  uint32_t head = 0;
  uint32_t tail = 0;

  explicit bare_pipe(bench_desk& of) : desk(of) { pool[left++] = of.unit.get(); }

  template <class Body> static void locked(std::atomic<uint32_t>& lock, Body body) {
    for (uint32_t open = 0; !lock.compare_exchange_weak(open, 1, std::memory_order_acquire); open = 0) {
    }
    body();
    lock.store(0, std::memory_order_release);
  }

  void run(const octets& frame) {
    line_id_unit* unit = nullptr;
    locked(pool_lock, [&] { unit = pool[--left]; });
    unit->length = static_cast<uint32_t>(frame.size());
    std::memcpy(unit->data, frame.data(), frame.size());
    locked(queue_lock, [&] { queue[tail++ % LINE_ID_MSG_DEPTH] = unit; });
    locked(queue_lock, [&] { unit = queue[head++ % LINE_ID_MSG_DEPTH]; });
    std::memset(desk.out, 0, sizeof(desk.out));
    keep(desk.ask());
    line_id_send_eth_pkt(0, LINE_ID_UPSTREAM, 1, desk.out, desk.info.new_pkt_len);
    locked(pool_lock, [&] { pool[left++] = unit; });
  }
};

// The same with what the agent's road owes: a pool whose semaphore others may wait for, a queue for several senders
// that puts configuration from other processes first and looks for a sleeping receiver, a unit that is handed over once
// and that no forged message can name, the time of receipt, the line's record, the frame's zeroed facts, an event, and
// a load or a store for each setting, hook, policy and counter. By hand, for the frame that is expected each time.
struct dutiful_pipe {
  enum : uint8_t { IS_FREE, IN_INGRESS, IN_QUEUE, IN_WORK };
  struct slot {
    std::atomic<uint32_t> filled;
    uint32_t unit;
  };
  using event = int32_t (*)(dutiful_pipe&);

  bench_desk& desk;
  line_id_append_info line = bench_line();
  std::atomic<uint8_t> settings[4] = {1, 0, 1, 0}; // as they are expected
  std::atomic<uint32_t> semaphore{1};
  std::atomic<uint8_t> state{IS_FREE};
  line_id_unit* pool[16] = {};
  uint32_t left = 0;
  std::atomic<uint32_t> ring_end{0};
  std::atomic<uint32_t> ring_first{0};
  std::atomic<uint32_t> asleep{0};
  slot ring[LINE_ID_MSG_DEPTH] = {};
  std::atomic<uint32_t> others[4][2] = {}; // head and tail of each ring of other processes
  event events[64] = {};
  uint32_t event_end = 0;
  uint32_t event_first = 0;
  std::atomic<uint32_t> stop{0};
  std::atomic<void*> hook{nullptr};
  std::atomic<uint8_t> policy{0};
  std::atomic<uint32_t> counters[2] = {};

  explicit dutiful_pipe(bench_desk& of) : desk(of) { pool[left++] = of.unit.get(); }

  template <class Body> void with_pool(Body body) {
    for (uint32_t open = 1; !semaphore.compare_exchange_weak(open, 0, std::memory_order_acquire); open = 1) {
    }
    body();
    if (semaphore.exchange(1, std::memory_order_release) != 0) std::abort(); // somebody waits
  }

  void fill(line_id_unit* unit, const octets& frame) {
    line_id_pkt_info* info = unit->pkt_info_ptr;
    std::memcpy(&info->svlan, &line.svlan, 2 * sizeof(uint16_t));
    info->src_port = 1;
    info->direct = LINE_ID_UPSTREAM;
    info->onu_ponno = line.onu_ponno;
    info->onu_portid = line.onu_portid;
    info->onu_gemid = line.onu_gemid;
    info->onu_authno = line.onu_authno;
    std::memcpy(info->onu_mac, line.onu_mac, sizeof(info->onu_mac));
    std::memcpy(info->reserved, line.ext, sizeof(line.ext));
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    info->recv_time = static_cast<uint32_t>(now.tv_sec * 100 + static_cast<uint32_t>(now.tv_nsec) / 10000000);
    unit->length = static_cast<uint32_t>(frame.size());
    std::memcpy(unit->data, frame.data(), frame.size());
  }

  void hand_in(const octets& frame) {
    line_id_unit* unit = nullptr;
    for (size_t i = 0; i < std::size(settings); i += 2) {
      if (settings[i].load(std::memory_order_relaxed) != 1 || settings[i + 1].load(std::memory_order_relaxed) != 0)
        return;
    }
    with_pool([&] {
      unit = pool[--left];
      state.store(IN_INGRESS, std::memory_order_relaxed);
    });
    fill(unit, frame);
    state.store(IN_QUEUE, std::memory_order_release);
    uint32_t at = ring_end.load(std::memory_order_relaxed);
    do {
      if (at - ring_first.load(std::memory_order_acquire) >= LINE_ID_MSG_DEPTH) return;
    } while (!ring_end.compare_exchange_weak(at, at + 1));
    slot& to = ring[at % LINE_ID_MSG_DEPTH];
    to.unit = left;
    to.filled.store(at + 1, std::memory_order_release);
    if (asleep.load() != 0) std::abort();
  }

  bool fetch() {
    uint32_t differ = stop.load();
    for (auto& each : others) differ |= each[0].load(std::memory_order_relaxed) ^ each[1].load();
    if (differ != 0) return false;
    const uint32_t at = ring_first.load(std::memory_order_relaxed);
    slot& from = ring[at % LINE_ID_MSG_DEPTH];
    if (from.filled.load(std::memory_order_acquire) != at + 1 || from.unit > left) return false;
    ring_first.store(at + 1, std::memory_order_release);
    uint8_t expected = IN_QUEUE;
    if (!state.compare_exchange_strong(expected, IN_WORK)) return false;
    events[event_end++ % std::size(events)] = [](dutiful_pipe& pipe) { return pipe.process(); };
    return true;
  }

  int32_t process() {
    line_id_unit* unit = desk.unit.get();
    std::memset(desk.out, 0, sizeof(desk.out));
    desk.info = {};
    desk.info.pkt_info_ptr = unit->pkt_info_ptr;
    desk.info.origin_pkt_ptr = unit->data;
    desk.info.origin_pkt_len = static_cast<uint16_t>(unit->length);
    desk.info.new_pkt = desk.out;
    std::memcpy(desk.info.client_mac, unit->data + 6, sizeof(desk.info.client_mac));
    if (desk.ask() != 0) return LINE_ID_ERR;
    if (hook.load(std::memory_order_acquire) != nullptr || policy.load(std::memory_order_relaxed) != 0)
      return LINE_ID_ERR;
    line_id_send_eth_pkt(0, LINE_ID_UPSTREAM, 1, desk.out, desk.info.new_pkt_len);
    for (auto& each : counters) each.store(each.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    with_pool([&] {
      state.store(IS_FREE, std::memory_order_release);
      pool[left++] = unit;
    });
    return LINE_ID_OK;
  }

  void run(const octets& frame) {
    hand_in(frame);
    if (fetch()) keep(events[event_first++ % std::size(events)](*this));
  }
};

void measure_one_thread(report& into) {
  one_thread_path path;
  for (const protocol& each : PROTOCOLS) {
    const octets frame = bench_frame(each.packet_type);
    bench_desk desk(frame, each.packet_type);
    bare_pipe bare(desk);
    dutiful_pipe dutiful(desk);
    const auto repeated = [](auto once) {
      return [once](uint32_t times) {
        for (uint32_t i = 0; i < times; ++i) once();
      };
    };
    const group_result found = into.add_group(std::string(each.name) + " path",
                                              {{"agent", repeated([&] { keep(desk.ask()); })},
                                               {"agent in a bare pipe", repeated([&] { bare.run(frame); })},
                                               {"agent in a dutiful pipe", repeated([&] { dutiful.run(frame); })},
                                               {"path", repeated([&] { path.run(frame, each.packet_type); })}});
    into.add_ratio("path / agent, 1 thread", each.name, found, "path", "agent", 1.5);
  }
}

// Frames handed in by so many threads, which are there already, until the last has been sent: nanoseconds for one.
double push_frames(const octets& frame, uint32_t threads) {
  const uint32_t from = g_sent_frames.load();
  std::atomic<uint32_t> ready{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> hands;
  for (uint32_t i = 0; i < threads; ++i) {
    hands.emplace_back([&frame, threads, &ready, &go] {
      const line_id_append_info line = bench_line();
      ++ready;
      go.wait(false);
      for (uint32_t left = FRAMES / threads; left > 0; --left) {
        while (bench_hand_in(frame, LINE_ID_DHCPV4, line) != LINE_ID_OK) std::this_thread::yield();
      }
    });
  }
  while (ready < threads) std::this_thread::yield();
  const int64_t start = now_ns();
  go = true;
  go.notify_all();
  for (std::thread& each : hands) each.join();
  while (g_sent_frames.load(std::memory_order_acquire) - from < FRAMES) std::this_thread::yield();
  return static_cast<double>(now_ns() - start) / FRAMES;
}

// The same agent behind a POSIX queue.
double push_through_mq(mqd_t queue, const octets& frame, bench_desk& desk) {
  const int64_t start = now_ns();
  std::thread worker([&] {
    char message[16];
    for (uint32_t i = 0; i < QUEUE_FRAMES; ++i) {
      if (mq_receive(queue, message, sizeof(message), nullptr) > 0) desk.ask();
    }
  });
  uint8_t copy[LINE_ID_UNIT_LEN];
  for (uint32_t i = 0; i < QUEUE_FRAMES; ++i) {
    std::memcpy(copy, frame.data(), frame.size());
    keep(copy);
    mq_send(queue, reinterpret_cast<const char*>(copy), sizeof(line_id_msg), 0);
  }
  worker.join();
  return static_cast<double>(now_ns() - start) / QUEUE_FRAMES;
}

mqd_t open_mq() {
  const std::string name = "/lineid.bench." + std::to_string(getpid());
  mq_attr attr = {};
  attr.mq_maxmsg = 10;
  attr.mq_msgsize = 16;
  const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attr);
  mq_unlink(name.c_str());
  return queue;
}

void measure_threads(report& into) {
  const octets frame = bench_frame(LINE_ID_DHCPV4);
  bench_desk desk(frame, LINE_ID_DHCPV4);
  const mqd_t queue = open_mq();
  std::thread worker = bench_start_worker();
  push_frames(frame, 1);
  constexpr uint32_t MOST = 4;
  target speed = {"frames/s, 2 threads", "DHCPv4", {}, 1.5, true, "M"};
  target slowest = {"least of 1 to 4 threads", "of one thread's", {}, 0.9, true, "x"};
  target against_mq = {"time / POSIX queue", "DHCPv4", {}, 0.25, false, "x"};
  measured times[MOST + 1];
  for (uint32_t run = 0; run < into.plan.runs; ++run) {
    std::vector<double> by_threads[MOST + 1]; // [0] the POSIX queue
    const uint32_t rounds = into.smoke ? 1 : 15;
    for (uint32_t round = 0; round < rounds; ++round) {
      for (uint32_t threads = 1; threads <= MOST; ++threads) by_threads[threads].push_back(push_frames(frame, threads));
      if (round % 4 == 0 && queue >= 0) by_threads[0].push_back(push_through_mq(queue, frame, desk));
    }
    double worst = 0;
    for (uint32_t i = 0; i <= MOST; ++i) {
      times[i].nanoseconds.push_back(median(by_threads[i]));
      if (i > 0) worst = std::max(worst, median(by_threads[i]));
    }
    const double one = median(by_threads[1]);
    speed.values.push_back(1000 / one);
    slowest.values.push_back(one / worst);
    if (queue >= 0) against_mq.values.push_back(one / median(by_threads[0]));
  }
  bench_stop_worker(worker);
  if (queue >= 0) mq_close(queue);
  for (uint32_t i = 0; i <= MOST; ++i) {
    times[i].group = "DHCPv4 with threads";
    times[i].name = i == 0 ? "POSIX queue" : std::to_string(i) + " ingress";
    if (i > 0 || queue >= 0) into.times.push_back(times[i]);
  }
  into.add(speed);
  into.add(slowest);
  if (queue >= 0) into.add(against_mq);
}

} // namespace

void measure_path(report& into) {
  desk_start(desk_mode::WHOLE);
  measure_one_thread(into);
  measure_threads(into);
}
