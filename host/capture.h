// Captures: pcap and pcapng in, pcap with nanoseconds out.
#pragma once

#include "host/octets.h"

#include <ctime>
#include <memory>
#include <string>

struct pcap;
struct pcap_dumper;

struct captured_frame {
  uint32_t number; // from 1
  timespec time;
  octets data;
};

// Throws host_failure (EXIT_CAPTURE) for a file that is missing, broken or of another link type than Ethernet, and for
// a frame that was cut when it was captured.
class capture_reader {
public:
  explicit capture_reader(const std::string& path);
  ~capture_reader();
  capture_reader(const capture_reader&) = delete;
  capture_reader& operator=(const capture_reader&) = delete;

  bool next(captured_frame& frame); // false at the end of the file
  double position() const;          // share of the file that was read, 0 to 1

private:
  std::string path_;
  pcap* handle_;
  uint32_t frames_ = 0;
  long size_ = 0;
};

// Writes beside `path` and takes that name only in finish(): an unfinished output is never seen under its name and is
// removed by the destructor. Throws host_failure (EXIT_OUTPUT).
class capture_writer {
public:
  capture_writer(const std::string& path, const std::string& capture_path);
  ~capture_writer();
  capture_writer(const capture_writer&) = delete;
  capture_writer& operator=(const capture_writer&) = delete;

  void write(const timespec& time, octet_view frame);
  void finish();

private:
  [[noreturn]] void fail(const char* what, int error) const;
  void open(int fd);
  std::string path_;
  std::string part_path_; // empty once finished
  pcap* handle_ = nullptr;
  pcap_dumper* dumper_ = nullptr;
};
