// Named records in shared memory, and the keyed segments made of them.
#include "platform/pal_shared.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/pal.h"
#include "platform/pal_settings.h"

namespace {

struct mapping {
  mapping* next;
  void* record;
  uint32_t size;
  pal_object_path path;
};

// Attached records, never detached: a late user of one cannot fault. Any thread, under the lock.
mapping* g_mappings = nullptr;
std::mutex g_mappings_lock;

mapping* find_mapping(const pal_object_path& path) {
  for (mapping* known = g_mappings; known != nullptr; known = known->next) {
    if (std::strcmp(known->path.data(), path.data()) == 0) return known;
  }
  return nullptr;
}

bool lock_object(int fd) {
  int ret = flock(fd, LOCK_EX);
  while (ret != 0 && errno == EINTR) ret = flock(fd, LOCK_EX);
  return ret == 0;
}

// The object has its size, or gets it. Its pages are reserved at once: a full file system must show here, not as a
// fault at the first write.
bool size_object(int fd, uint32_t size) {
  struct stat facts = {};
  if (fstat(fd, &facts) != 0 || facts.st_uid != geteuid()) return false;
  if (facts.st_size != 0) return facts.st_size == static_cast<off_t>(size);
  int ret = posix_fallocate(fd, 0, static_cast<off_t>(size));
  while (ret == EINTR) ret = posix_fallocate(fd, 0, static_cast<off_t>(size));
  return ret == 0;
}

void* map_object(int fd, uint32_t size, pal_record_init init, const void* arg) {
  if (!lock_object(fd) || !size_object(fd, size)) return nullptr;
  void* record = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (record == MAP_FAILED) return nullptr;
  if (init != nullptr && !init(record, arg)) {
    munmap(record, size);
    return nullptr;
  }
  return record;
}

} // namespace

void* pal_shared_attach(const char* suffix, uint32_t size, pal_record_init init, const void* arg) {
  const pal_object_path path = pal_object_name(suffix);
  if (path[0] == '\0' || size == 0) return nullptr;
  const std::lock_guard<std::mutex> guard(g_mappings_lock);
  if (const mapping* known = find_mapping(path)) return known->size == size ? known->record : nullptr;

  auto* added = new (std::nothrow) mapping{g_mappings, nullptr, size, path};
  if (added == nullptr) return nullptr;
  const int fd = shm_open(path.data(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (fd >= 0) {
    added->record = map_object(fd, size, init, arg);
    flock(fd, LOCK_UN); // the mapping keeps the file open, and with it the lock
    close(fd);
  }
  if (added->record == nullptr) {
    delete added;
    return nullptr;
  }
  g_mappings = added;
  return added->record;
}

void* pal_share_mem_init(uint32_t key, uint32_t size) {
  char suffix[16] = "";
  std::snprintf(suffix, sizeof(suffix), "mem.%u", static_cast<unsigned>(key));
  void* segment = pal_shared_attach(suffix, size, nullptr, nullptr);
  return segment != nullptr ? segment : PAL_NO_MEM;
}
