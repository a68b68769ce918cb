// A file in memory, for readers that take a path.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// Puts the octets into the process's one such file; its path.
inline std::string memory_file(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("fuzz", MFD_CLOEXEC);
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) std::perror("memory_file");
  return "/proc/self/fd/" + std::to_string(fd);
}
