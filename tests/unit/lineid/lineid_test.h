// A clean table and store, and one frame's line information.
#pragma once

#include "config/policy.h"
#include "config/store.h"
#include "core/device_if.h"
#include "core/log.h"
#include "lineid/hal.h"
#include "lineid/params.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

class lineid_test : public testing::Test {
protected:
  void SetUp() override {
    for (line_id_common_cfg& cfg : g_line_id_common_cfg) cfg = {};
    line_id_set_def_std_fmt_type_cfg(0);
    line_id_reg_param_custom_if(nullptr);
    g_device_if = {};
    ASSERT_EQ(line_id_init_params(), 0);
    info.pkt_info_ptr = &pkt;
    pkt.packet_type = LINE_ID_DHCPV4;
  }
  void TearDown() override { g_device_if = {}; }

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

  // The texts of several letters, between bars.
  static std::string texts(int32_t set, std::string_view letters) {
    std::string all = "|";
    for (const char letter : letters) all.append(line_id_get_param_text(set, letter)).append("|");
    return all;
  }

  // What `work` prints with all general traces on.
  template <typename W> static std::string traced(W work) {
    line_id_dbg_level_set(2);
    line_id_dbg_type_enable(LOG_GENERAL);
    testing::internal::CaptureStdout();
    work();
    line_id_dbg_level_set(0);
    line_id_dbg_type_disable(LOG_GENERAL);
    return testing::internal::GetCapturedStdout();
  }

  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};
};
