// Which process serves the prefix: a record lock on one object, which the kernel drops with the process.
#include "platform/pal.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/pal_settings.h"

namespace {

// A record lock and no flock: a forked child does not inherit it, and it can be tested without being taken. Closing any
// descriptor of the object drops the process's lock, so this file alone opens it, under g_claim_lock. Any thread.
std::mutex g_claim_lock;
int g_claim_fd = -1;     // open while the claim is held, here or in the parent this process was forked from
pid_t g_claim_owner = 0; // the process that took it

bool holds_claim() { return g_claim_fd >= 0 && g_claim_owner == getpid(); }

// What a fork left behind belongs to the parent.
void forget_inherited() {
  if (g_claim_fd < 0 || holds_claim()) return;
  close(g_claim_fd);
  g_claim_fd = -1;
}

int open_claim(int create) {
  return shm_open(pal_object_name("claim").data(), O_RDWR | O_CLOEXEC | create, S_IRUSR | S_IWUSR);
}

} // namespace

int32_t pal_service_claim() {
  const std::lock_guard<std::mutex> guard(g_claim_lock);
  if (holds_claim()) return 0;
  forget_inherited();
  const int fd = open_claim(O_CREAT);
  if (fd < 0) return -1;
  struct stat facts = {};
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (fstat(fd, &facts) != 0 || facts.st_uid != geteuid() || fcntl(fd, F_SETLK, &whole) != 0) {
    close(fd);
    return -1;
  }
  g_claim_fd = fd;
  g_claim_owner = getpid();
  return 0;
}

void pal_service_release() {
  const std::lock_guard<std::mutex> guard(g_claim_lock);
  if (!holds_claim()) return;
  close(g_claim_fd);
  g_claim_fd = -1;
}

int32_t pal_service_is_claimed() {
  const std::lock_guard<std::mutex> guard(g_claim_lock);
  if (holds_claim()) return 1;
  forget_inherited();
  const int fd = open_claim(0);
  if (fd < 0) return 0;
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  const bool claimed = fcntl(fd, F_GETLK, &whole) == 0 && whole.l_type != F_UNLCK;
  close(fd);
  return claimed ? 1 : 0;
}
