// A process that may write the shared objects and does, at random, until its standard input ends. Its arguments:
// the seed, and the queue's object when it is to write that as well.
#include "config/channel.h"
#include "core/records.h"
#include "platform/pal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <random>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Where a queue's record keeps `asleep` and the rings' heads and tails, and, behind the lock, the messages. The lock
// itself is spared: who overwrites it stops the queue.
constexpr size_t POSITIONS_AT = 12;
constexpr size_t POSITIONS_LEN = 4 + 4 * 8;
constexpr size_t MESSAGES_AT = 512;

std::mt19937 g_random;

uint32_t below(uint32_t limit) { return static_cast<uint32_t>(g_random()) % limit; }

void scribble(void* memory, size_t size) {
  auto* octets = static_cast<uint8_t*>(memory);
  for (size_t i = 0; i < size; ++i) octets[i] = static_cast<uint8_t>(g_random());
}

// Mostly near what an honest client writes, so that handlers are reached.
void forge_area(line_id_cmd_area* into) {
  line_id_cmd_area area;
  scribble(&area, sizeof(area));
  if (below(8) != 0) area.code = static_cast<int16_t>(below(51));
  if (below(8) != 0) area.length = below(4) != 0 ? below(10) : below(310);
  std::memcpy(into, &area, sizeof(area));
}

void forge_message() {
  line_id_msg msg;
  scribble(&msg, sizeof(msg));
  if (below(8) != 0) msg.kind = static_cast<uint16_t>(below(7));
  if (below(4) != 0) msg.oltid = static_cast<uint8_t>(below(10));
  if (below(4) != 0) msg.code = static_cast<uint16_t>(below(52));
  if (below(4) != 0) msg.pointer = below(80);
  // Reports are long: few of them.
  if (msg.kind == MSG_SHOW && below(20) != 0) msg.kind = MSG_SET;
  pal_msgQ_send_priority(g_line_id_msg_id, &msg, sizeof(msg), below(5));
}

// Any word: the count is one bit of it.
void forge_semaphore(pal_sem* sem) {
  switch (below(4)) {
  case 0: pal_sem_take(sem, 0); break;
  case 1: scribble(static_cast<uint8_t*>(sem->state) + 4, 4); break;
  default: pal_sem_give(sem);
  }
}

uint8_t* map_queue(const char* path, size_t& size) {
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  struct stat facts = {};
  if (fd < 0 || fstat(fd, &facts) != 0) return nullptr;
  size = static_cast<size_t>(facts.st_size);
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return memory == MAP_FAILED ? nullptr : static_cast<uint8_t*>(memory);
}

bool parent_waits() {
  pollfd input = {0, POLLIN, 0};
  return poll(&input, 1, 0) == 0;
}

// A semaphore that was given several times is still taken once only.
bool is_capped(pal_sem* sem) {
  for (int i = 0; i < 3; ++i) pal_sem_give(sem);
  return pal_sem_take(sem, 0) == 0 && pal_sem_take(sem, 0) != 0;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2 || line_id_init_share_resource(nullptr) != 0) return 2;
  g_random.seed(static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)));
  size_t queue_size = 0;
  uint8_t* queue = argc > 2 ? map_queue(argv[2], queue_size) : nullptr;
  pal_sem* const sems[] = {g_line_id_set_mem_mutex, g_line_id_get_mem_mutex, g_line_id_get_mem_sync};
  uint64_t rounds = 0;
  for (; rounds % 64 != 0 || parent_waits(); ++rounds) {
    forge_area(line_id_set_cfg_mem(0));
    forge_area(line_id_get_cfg_mem(0));
    forge_message();
    forge_semaphore(sems[below(3)]);
    if (queue != nullptr && below(64) == 0) scribble(queue + POSITIONS_AT + below(POSITIONS_LEN - 3), 1 + below(4));
    if (queue != nullptr) scribble(queue + MESSAGES_AT + below(static_cast<uint32_t>(queue_size) - 1024), 64);
    if (below(256) == 0) usleep(300);
  }
  std::fprintf(stderr, "%lu rounds of forging\n", static_cast<unsigned long>(rounds));
  for (pal_sem* sem : sems) {
    if (!is_capped(sem)) return 3;
  }
  line_id_set_mem_mutex_give();
  line_id_get_mem_mutex_give();
  return 0;
}
