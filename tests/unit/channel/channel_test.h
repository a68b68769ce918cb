// A clean store behind an open channel; the test itself is the worker, or runs one on a thread.
#pragma once

#include "config/channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using namespace std::string_literals;

constexpr uint8_t ABSENT_INSTANCES[] = {9, 255};

// Text padded with zero octets to `size`.
inline std::string padded(std::string text, size_t size) {
  text.resize(size);
  return text;
}

class channel_test : public testing::Test {
protected:
  void SetUp() override;
  void TearDown() override;

  // Areas, semaphores and an empty queue in a mode.
  static void open(int32_t mode);

  static std::optional<line_id_msg> receive(int32_t wait = 0);
  static void serve(const line_id_msg& msg);
  // One command: false when none waits.
  static bool turn();

  static void fill_set_area(uint8_t oltid, int16_t code, const std::string& payload, uint32_t len);
  // Counts of the semaphores: set mutex, get mutex, reply.
  static std::string counts();
  static std::string payload_of(const line_id_cmd_area* area, size_t len);

  static inline std::vector<std::string> log_lines;
};

// A worker on a thread, until the end of the scope.
class serving : channel_test {
public:
  serving();
  ~serving() override;

private:
  void TestBody() override {}
  std::atomic<bool> stop_{false};
  std::thread thread_;
};
