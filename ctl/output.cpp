// Standard output for the program, standard error for the library.
#include "ctl/output.h"

#include "ctl/failure.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace {

FILE* g_output = nullptr; // set before anything is printed

[[noreturn]] void cannot_write() {
  throw ctl_failure(STATUS_FAILED, std::string("cannot write to standard output: ") + std::strerror(errno));
}

void copy_to_error(FILE* from) {
  std::rewind(from);
  char part[512];
  for (size_t len; (len = std::fread(part, 1, sizeof(part), from)) > 0;) std::fwrite(part, 1, len, stderr);
}

} // namespace

void output_open() {
  const int own = dup(STDOUT_FILENO);
  if (own < 0 || (g_output = fdopen(own, "w")) == nullptr) cannot_write();
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) cannot_write();
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

void output_close() {
  const bool good = std::fflush(g_output) == 0 && std::ferror(g_output) == 0;
  if (!good) cannot_write();
}

FILE* output() { return g_output; }

void output_line(std::string_view text) {
  std::fprintf(g_output, "%.*s\n", static_cast<int>(text.size()), text.data());
}

void complain(std::string_view text) {
  std::fflush(g_output); // in the order of the events, where both streams are one terminal
  std::fflush(stdout);
  std::fprintf(stderr, "lineidctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

int output_hush(const std::function<int()>& call) {
  const std::unique_ptr<FILE, int (*)(FILE*)> kept(std::tmpfile(), std::fclose);
  if (kept == nullptr) return call();
  std::fflush(stdout);
  dup2(fileno(kept.get()), STDOUT_FILENO);
  const int ret = call();
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  if (ret < 0) copy_to_error(kept.get());
  return ret;
}
