// A clean store and parameter table, and a device that records the trap rules and log lines it is given.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/device_if.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/protocol_table.h"

// What rows of settings begin with.
#define ROW(name) #name, line_id_set_##name##_cfg, line_id_get_##name##_cfg

class ConfigTest : public testing::Test {
protected:
  void SetUp() override {
    std::memset(&g_line_id_common_cfg, 0, sizeof(g_line_id_common_cfg));
    std::memset(g_policy_cfg_table, 0, sizeof(g_policy_cfg_table));
    g_trans_white_list_obj = {};
    g_line_id_ptl_reg_func = {};
    line_id_reset_statistics_cfg();
    line_id_init_params();
    set_traces(0, 0);
    trap_rules.clear();
    log_lines.clear();
    g_device_if = {};
    g_device_if.trap_rule = [](uint8_t oltid, uint8_t protocol, uint8_t enable) {
      trap_rules.push_back({oltid, protocol, enable});
      return 0;
    };
    g_device_if.log_output = [](const char* text, int32_t, const char*) {
      log_lines.push_back(text);
      return 0;
    };
  }
  void TearDown() override {
    g_device_if = {};
    set_traces(0, 0);
  }

  static void set_traces(uint8_t level, uint32_t bits) {
    g_line_id_dbg_level = level;
    g_line_id_debug_bits = bits;
  }

  // What `work` prints.
  template <typename W> static std::string printed(W work) {
    testing::internal::CaptureStdout();
    work();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  }

  // The texts of several letters of a set, between bars.
  static std::string texts(int32_t set, std::string_view letters) {
    std::string all = "|";
    for (const char letter : letters) all.append(line_id_get_param_text(set, letter)).append("|");
    return all;
  }

  using trap_list = std::vector<std::vector<int>>; // {oltid, protocol, enable}
  static inline trap_list trap_rules;
  static inline std::vector<std::string> log_lines;
};
