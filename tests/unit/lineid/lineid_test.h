// A clean table and store, and one frame's line information.
#pragma once

#include "lineid/hal.h"
#include "tests/unit/config/config_test.h"

class lineid_test : public ConfigTest {
protected:
  void SetUp() override {
    ConfigTest::SetUp();
    line_id_reg_param_custom_if(nullptr);
    g_device_if = {};
    info.pkt_info_ptr = &pkt;
    pkt.packet_type = LINE_ID_DHCPV4;
  }

  // Letters of a whole line, as the provider and the operator's settings would leave them.
  static void fill(int32_t set) {
    const char* const texts[][2] = {{"s", "100"}, {"c", "200"}, {"a", "an1"}, {"r", "1"},     {"f", "2"},
                                    {"S", "3"},   {"p", "5"},   {"o", "42"},  {"m", "ONU42"}, {"n", "N1"},
                                    {"T", "1"},   {"M", "2"},   {"P", "7"},   {"t", "eth"},   {"X", "100"},
                                    {"x", "7"},   {"F", "GP"},  {"B", "ACC"}, {"L", "CARD"}};
    for (const auto& row : texts) ASSERT_EQ(line_id_write_param(set, row[0][0], row[1], 1), 0);
  }

  template <size_t N> static void put(char (&field)[N], const std::string& text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), text.size() < N ? text.size() : N);
  }

  // What `work` prints with all general traces on.
  template <typename W> static std::string traced(W work) {
    set_traces(2, 1U << LOG_GENERAL);
    const std::string text = printed(work);
    set_traces(0, 0);
    return text;
  }

  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};
};
