// A message into a queue and out of it again on one thread: ours and those of others, the same nine octets.
#include "bench/targets.h"
#include "core/records.h"
#include "platform/pal.h"

#include <boost/interprocess/ipc/message_queue.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mqueue.h>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

namespace ipc = boost::interprocess;

constexpr uint32_t SHARED_KEY = 977;
constexpr uint32_t LEN = sizeof(line_id_msg);

struct system_v_message {
  long type;
  uint8_t octets[LEN];
};

[[noreturn]] void give_up(const char* what) {
  std::fprintf(stderr, "%s refused\n", what);
  std::exit(1);
}

// Repeats one exchange, which says whether it worked.
template <class Once> contender repeated(const char* name, Once once) {
  return {name, [name, once](uint32_t times) {
            for (uint32_t i = 0; i < times; ++i) {
              if (!once()) give_up(name);
            }
          }};
}

using send_func = int32_t (*)(pal_msgQ_id id, const void* message, uint32_t len);

contender ours(const char* name, uint32_t key, send_func send) {
  pal_msgQ_id id = 0;
  if (pal_msgQ_create_ex(&id, key, LINE_ID_MSG_DEPTH, LEN, 0) != 0) give_up(name);
  return repeated(name, [id, send] {
    line_id_msg message = {MSG_DHCPV4, 0, 0, 1};
    return send(id, &message, LEN) == 0 &&
           pal_msgQ_receive_wait_priority(id, &message, LEN, 0, 0) == static_cast<int32_t>(LEN);
  });
}

int32_t send_as_client(pal_msgQ_id id, const void* message, uint32_t len) {
  return pal_msgQ_send_priority(id, message, len, LINE_ID_MSG_PRIORITY_CFG);
}
int32_t send_as_ingress(pal_msgQ_id id, const void* message, uint32_t len) {
  return pal_msgQ_send_own(id, message, len);
}

} // namespace

void measure_queues(report& into) {
  const std::string name = "lineid.bench." + std::to_string(getpid());
  std::vector<contender> group = {ours("ours, between processes", SHARED_KEY, send_as_client),
                                  ours("ours, in one process", 0, send_as_ingress)};

  ipc::message_queue::remove(name.c_str());
  ipc::message_queue boost_queue(ipc::create_only, name.c_str(), LINE_ID_MSG_DEPTH, LEN);
  ipc::message_queue::remove(name.c_str());
  group.push_back(repeated("Boost.Interprocess", [&boost_queue] {
    uint8_t message[LEN] = {};
    ipc::message_queue::size_type received = 0;
    unsigned priority = 0;
    return boost_queue.try_send(message, LEN, 3) && boost_queue.try_receive(message, LEN, received, priority);
  }));

  mq_attr attr = {};
  attr.mq_maxmsg = 10;
  attr.mq_msgsize = LEN;
  const mqd_t posix = mq_open(("/" + name).c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attr);
  mq_unlink(("/" + name).c_str());
  if (posix >= 0) { // absent where the kernel has no limit left
    group.push_back(repeated("POSIX", [posix] {
      char message[LEN] = {};
      return mq_send(posix, message, LEN, 3) == 0 && mq_receive(posix, message, LEN, nullptr) > 0;
    }));
  }
  const int system_v = msgget(IPC_PRIVATE, 0600);
  if (system_v >= 0) {
    group.push_back(repeated("System V", [system_v] {
      system_v_message message = {3, {}};
      return msgsnd(system_v, &message, LEN, 0) == 0 && msgrcv(system_v, &message, LEN, 0, 0) > 0;
    }));
  }
  into.add_group("queue, send and receive", group);
  if (posix >= 0) mq_close(posix);
  if (system_v >= 0) msgctl(system_v, IPC_RMID, nullptr);
  unlink(("/dev/shm/" + name + ".q." + std::to_string(SHARED_KEY)).c_str());
}
