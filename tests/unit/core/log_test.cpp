// What reaches the console and the host's log, by level and category.
#include "core/log.h"

#include "core/device_if.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string g_host_text;
int32_t g_host_len;

int keep_log(const char* text, int32_t len, const char*) {
  g_host_text = text;
  g_host_len = len;
  return 0;
}

class log_test : public testing::Test {
protected:
  void SetUp() override {
    g_host_text.clear();
    g_host_len = -1;
    g_device_if = {};
    g_device_if.log_output = keep_log;
    line_id_dbg_level_set(0);
    g_line_id_debug_bits = 0;
  }
  void TearDown() override {
    g_device_if = {};
    line_id_dbg_level_set(0);
    g_line_id_debug_bits = 0;
  }
};

// The console text with the source line number taken out.
template <typename F> std::string console(F print) {
  testing::internal::CaptureStdout();
  print();
  std::string text = testing::internal::GetCapturedStdout();
  const size_t open = text.find('(');
  const size_t close = text.find(')', open);
  if (open != std::string::npos && text.rfind("[LNID", 0) == 0) text.erase(open + 1, close - open - 1);
  return text;
}

void print_all() {
  LINE_ID_WARN(LOG_PPPOE, "warning %d\r\n", 1);
  LINE_ID_INFO(LOG_PPPOE, "information\r");
}

TEST_F(log_test, errors_always_print_and_reach_the_host) {
  const auto named = [] { line_id_log_error("step", 12, "step failed(%d).\r\n", -9); };
  EXPECT_EQ(console(named), "[LNID_ERR]step(): step failed(-9).\r\n\r\n");
  EXPECT_EQ(g_host_text, "step failed(-9).\r\n");
  const auto plain = [] { line_id_log_error("step", 12, "lineid data is not initialized.!\r"); };
  EXPECT_EQ(console(plain), "[LNID_ERR]step(): lineid data is not initialized.!\r\n\r\n");

  g_device_if.log_output = nullptr;
  EXPECT_EQ(console(named), "[LNID_ERR]step(): step failed(-9).\r\n\r\n");
  EXPECT_EQ(line_id_log_print_proc("text"), 0);
}

TEST_F(log_test, traces_need_level_and_category) {
  EXPECT_EQ(console(print_all), "");
  line_id_dbg_level_set(2);
  EXPECT_EQ(console(print_all), "") << "no category is on";
  line_id_dbg_type_enable(LOG_DHCPV6);
  EXPECT_EQ(console(print_all), "") << "another category is on";
  line_id_dbg_type_enable(LOG_PPPOE);
  const std::string both = console(print_all);
  EXPECT_EQ(both.rfind("[LNID_WARN]print_all(): warning 1\r\n\r\n[LNID_INFO]print_all(", 0), 0U) << both;
  EXPECT_EQ(both.substr(both.size() - 18), "): information\r\n\r\n");
  line_id_dbg_level_set(1);
  EXPECT_EQ(console(print_all), "[LNID_WARN]print_all(): warning 1\r\n\r\n");
  EXPECT_EQ(g_host_text, "") << "traces are not for the host";
}

TEST_F(log_test, long_errors_are_cut_for_the_host_only) {
  const std::string long_text(300, 'x');
  const std::string printed = console([&] { line_id_log_error("f", 1, "%s", long_text.c_str()); });
  EXPECT_NE(printed.find(long_text), std::string::npos);
  EXPECT_EQ(g_host_text, std::string(255, 'x'));
  EXPECT_EQ(g_host_len, 300);
  const std::string longer(5000, 'y');
  EXPECT_NE(console([&] { line_id_log_error("f", 1, "%s", longer.c_str()); }).find(longer), std::string::npos);
}

TEST_F(log_test, levels_and_categories_keep_their_ranges) {
  EXPECT_EQ(line_id_dbg_level_set(2), 0);
  EXPECT_EQ(line_id_dbg_level_set(3), -31);
  EXPECT_EQ(g_line_id_dbg_level, 2);
  line_id_dbg_type_enable(32);
  line_id_dbg_type_enable(255);
  EXPECT_EQ(g_line_id_debug_bits, 0U);
  line_id_dbg_type_enable(5);
  line_id_dbg_type_enable(8);
  EXPECT_EQ(g_line_id_debug_bits, 0x120U);
  line_id_dbg_type_disable(5);
  EXPECT_EQ(g_line_id_debug_bits, 0x100U);
}

TEST_F(log_test, dump_breaks_after_seventeen_then_sixteen) {
  uint8_t data[34];
  for (uint8_t i = 0; i < sizeof(data); ++i) data[i] = i;
  EXPECT_EQ(console([&] { line_id_dbg_buf_print(data, sizeof(data)); }),
            "\r\n buf is:\r\n"
            "00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 \n"
            "11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20 \n"
            "21 \r\n");
  EXPECT_EQ(console([] { line_id_dbg_buf_print(nullptr, 4); }), "buf is NULL!\r\n");
  EXPECT_EQ(line_id_dbg_buf_print(data, 0), -1);
}

} // namespace
