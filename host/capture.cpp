// Captures through libpcap.
#include "host/capture.h"

#include "host/failure.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int OUTPUT_SNAP_LEN = 262144; // the largest that readers accept

[[noreturn]] void capture_failure(const std::string& path, const std::string& what) {
  throw host_failure(EXIT_CAPTURE, "cannot read the capture " + path + ": " + what);
}

// Without the name of the file, which libpcap puts before some of its messages.
std::string without_path(const std::string& text, const std::string& path) {
  const std::string prefix = path + ": ";
  return text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : text;
}

mode_t file_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

} // namespace

capture_reader::capture_reader(const std::string& path) : path_(path) {
  struct stat info = {};
  if (stat(path.c_str(), &info) != 0) capture_failure(path, std::strerror(errno));
  if (S_ISDIR(info.st_mode)) capture_failure(path, "it is a directory");
  size_ = info.st_size;
  char error[PCAP_ERRBUF_SIZE] = {};
  handle_ = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error);
  if (handle_ == nullptr) capture_failure(path, without_path(error, path));
  if (const int link = pcap_datalink(handle_); link != DLT_EN10MB) {
    const char* name = pcap_datalink_val_to_name(link);
    pcap_close(handle_);
    capture_failure(path, std::string("its link type is ") + (name != nullptr ? name : std::to_string(link)) +
                              ", and only Ethernet (EN10MB) can be replayed");
  }
}

capture_reader::~capture_reader() { pcap_close(handle_); }

bool capture_reader::next(captured_frame& frame) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  const int ret = pcap_next_ex(handle_, &header, &data);
  if (ret == PCAP_ERROR_BREAK) return false;
  const std::string at = "frame " + std::to_string(frames_ + 1) + ": ";
  if (ret != 1) capture_failure(path_, at + without_path(pcap_geterr(handle_), path_));
  if (header->caplen != header->len) {
    capture_failure(path_, at + "cut by the snap length, " + std::to_string(header->caplen) + " of " +
                               std::to_string(header->len) + " octets are there; capture again with -s 0");
  }
  frame.number = ++frames_;
  frame.time = {header->ts.tv_sec, header->ts.tv_usec}; // nanoseconds, by the precision asked for
  frame.data.assign(data, data + header->caplen);
  return true;
}

double capture_reader::position() const {
  const long at = ftell(pcap_file(handle_));
  return size_ > 0 && at > 0 ? static_cast<double>(at) / static_cast<double>(size_) : 0;
}

capture_writer::capture_writer(const std::string& path, const std::string& capture_path) : path_(path) {
  std::error_code error;
  if (std::filesystem::exists(path, error)) {
    if (std::filesystem::equivalent(path, capture_path, error)) fail("it is the capture itself", 0);
    if (!std::filesystem::is_regular_file(path, error)) fail("it exists and is not a regular file", 0);
    if (access(path.c_str(), W_OK) != 0) fail(nullptr, errno);
    path_ = std::filesystem::canonical(path, error).string(); // the file behind a link, not the link
  }
  part_path_ = path_ + ".part-XXXXXX";
  const int fd = mkstemp(part_path_.data());
  if (fd < 0) {
    const int cause = errno;
    part_path_.clear();
    fail(nullptr, cause);
  }
  fchmod(fd, file_mode());
  open(fd);
}

void capture_writer::open(int fd) {
  FILE* file = fdopen(fd, "wb");
  handle_ = pcap_open_dead_with_tstamp_precision(DLT_EN10MB, OUTPUT_SNAP_LEN, PCAP_TSTAMP_PRECISION_NANO);
  if (file != nullptr && handle_ != nullptr) dumper_ = pcap_dump_fopen(handle_, file);
  if (dumper_ != nullptr) return;
  if (file != nullptr) fclose(file);
  if (handle_ != nullptr) pcap_close(handle_);
  unlink(part_path_.c_str());
  fail("its header cannot be written", 0);
}

capture_writer::~capture_writer() {
  if (dumper_ != nullptr) pcap_dump_close(dumper_);
  pcap_close(handle_);
  if (!part_path_.empty()) unlink(part_path_.c_str());
}

void capture_writer::write(const timespec& time, octet_view frame) {
  pcap_pkthdr header = {};
  header.ts.tv_sec = time.tv_sec;
  header.ts.tv_usec = time.tv_nsec; // nanoseconds, by the precision of the handle
  header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
  errno = 0;
  pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, frame.data());
  if (ferror(pcap_dump_file(dumper_)) != 0) fail(nullptr, errno);
}

void capture_writer::finish() {
  errno = 0;
  const bool flushed = pcap_dump_flush(dumper_) == 0 && ferror(pcap_dump_file(dumper_)) == 0;
  if (!flushed || fsync(fileno(pcap_dump_file(dumper_))) != 0) fail(nullptr, errno);
  pcap_dump_close(dumper_);
  dumper_ = nullptr;
  if (std::rename(part_path_.c_str(), path_.c_str()) != 0) fail(nullptr, errno);
  part_path_.clear();
}

void capture_writer::fail(const char* what, int error) const {
  const std::string cause = what != nullptr ? what : error != 0 ? std::strerror(error) : "writing failed";
  throw host_failure(EXIT_OUTPUT, "cannot write the output " + path_ + ": " + cause);
}
