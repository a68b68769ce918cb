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

constexpr uint32_t FRAMES = 4800;      // of one measurement with threads; 1 to 4 of them share it evenly
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

void measure_one_thread(report& into) {
  one_thread_path path;
  for (const protocol& each : PROTOCOLS) {
    const octets frame = bench_frame(each.packet_type);
    bench_desk desk(frame, each.packet_type);
    bare_pipe pipe(desk);
    const auto repeated = [](auto once) {
      return [once](uint32_t times) {
        for (uint32_t i = 0; i < times; ++i) once();
      };
    };
    const group_result found = into.add_group(std::string(each.name) + " path",
                                              {{"agent", repeated([&] { keep(desk.ask()); })},
                                               {"agent in a bare pipe", repeated([&] { pipe.run(frame); })},
                                               {"path", repeated([&] { path.run(frame, each.packet_type); })}});
    into.add_ratio("path / agent, 1 thread", each.name, found, "path", "agent", 1.5);
  }
}

// Frames handed in by so many threads, until the last has been sent: nanoseconds for one.
double push_frames(const octets& frame, uint32_t threads) {
  const uint32_t from = g_sent_frames.load();
  const int64_t start = now_ns();
  std::vector<std::thread> hands;
  for (uint32_t i = 0; i < threads; ++i) {
    hands.emplace_back([&frame, threads] {
      const line_id_append_info line = bench_line();
      for (uint32_t left = FRAMES / threads; left > 0; --left) {
        while (bench_hand_in(frame, LINE_ID_DHCPV4, line) != LINE_ID_OK) std::this_thread::yield();
      }
    });
  }
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
