// The server over every command and query, and over what no honest client sends.
#include "config/message_server.h"

#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/protocol_table.h"
#include "tests/unit/channel/channel_test.h"
#include "tests/unit/channel/commands.h"

#include <climits>
#include <cstring>

namespace {

const std::string LONGEST(256, 'x');
const std::string MAC_TEXT("\0\x11\x22\x33\x44\x55", 6);

std::string g_spoof_operations; // on the binding tables

template <char table> int32_t record_spoof(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac) {
  g_spoof_operations = table;
  for (const int number : {int{oltid}, int{op}, int{pon}, int{onu}}) g_spoof_operations += " " + std::to_string(number);
  if (mac != nullptr) g_spoof_operations += " " + std::string(reinterpret_cast<const char*>(mac), 6);
  return 0;
}

template <class Value> std::string octets_of(const Value& value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

// All that a command may change.
std::string settings() {
  return octets_of(g_line_id_common_cfg) + octets_of(g_params) + octets_of(g_trans_white_list_obj) +
         octets_of(g_policy_cfg_table) + octets_of(g_line_id_statics) + octets_of(g_line_id_debug_bits) +
         octets_of(g_line_id_dbg_level) + std::to_string(line_id_get_gemport_cfg()) +
         std::to_string(line_id_get_dhcpv6_option18_cfg()) + g_spoof_operations;
}

class message_server_test : public channel_test {
protected:
  void SetUp() override {
    channel_test::SetUp();
    g_spoof_operations.clear();
    g_line_id_ptl_reg_func.dhcp_spoof_oper = record_spoof<'d'>;
    g_line_id_ptl_reg_func.pppoe_spoof_oper = record_spoof<'p'>;
  }

  static int32_t set(uint8_t oltid, int code, const std::string& payload) {
    return set(oltid, code, payload, static_cast<uint32_t>(payload.size()));
  }
  static int32_t set(uint8_t oltid, int code, const std::string& payload, uint32_t len) {
    EXPECT_EQ(line_id_set_mem_mutex_take(), 0);
    fill_set_area(oltid, static_cast<int16_t>(code), payload, len);
    const int32_t ret = line_id_set_cfg_msg_proc(oltid);
    EXPECT_EQ(pal_sem_count(g_line_id_set_mem_mutex), 1) << "command " << code;
    return ret;
  }
};

// What each command does is shown by an agent in another process; these leave no trace there.
TEST_F(message_server_test, commands_that_no_report_shows) {
  set(3, 39, "\x01");
  EXPECT_EQ(g_line_id_debug_bits, 4U);
  set(3, 40, "\x01");
  EXPECT_EQ(g_line_id_debug_bits, 4U + 8U);
  set(3, 42, "\x01");
  EXPECT_EQ(g_line_id_debug_bits, 510U);
  set(3, 34, "\x01");
  EXPECT_EQ(g_line_id_common_cfg[3].remoteid_trans_enable, 1);
  set(3, 26, MAC_TEXT);
  EXPECT_EQ(g_spoof_operations, "d 3 2 0 0 " + MAC_TEXT);
  set(3, 28, "\x02\x01\x07\x00"s);
  EXPECT_EQ(g_spoof_operations, "d 3 3 258 7");
}

TEST_F(message_server_test, other_lengths_change_nothing) {
  std::vector<command_row> rows = command_rows();
  for (const int16_t code : ONE_OCTET) rows.push_back({code, nullptr, "\x01", 1, 1, -112, -112});
  EXPECT_EQ(rows.size(), line_id_set_proc_func.size());
  // What commands would undo that take away or set to 1.
  set(3, 46, "\0"s);
  set(3, 48, "\x01\x3F\x00\x00\x00\x00\x00\x00\x00gone"s);
  line_id_write_param_force(15, 'y', "y");
  line_id_dhcpv4_pkt_dropped_up_add();
  const std::string before = settings();
  for (const command_row& row : rows) {
    const struct {
      int32_t len;
      int32_t result;
    } lengths[] = {
        {row.shortest - 1, row.too_short}, {row.longest + 1, row.too_long}, {301, row.too_long}, {-1, row.too_short},
        {INT_MIN, row.too_short},          {INT_MAX, row.too_long}};
    const std::string payload = padded(row.payload, 300);
    const auto* octets = reinterpret_cast<const uint8_t*>(payload.data());
    const auto handler = line_id_set_proc_func[static_cast<size_t>(row.code)];
    for (const auto& each : lengths) {
      EXPECT_EQ(handler(3, octets, each.len), each.result) << row.code << ", length " << each.len;
      EXPECT_EQ(log_lines.back(), "failed(len = " + std::to_string(each.len) + ").\r\n");
      EXPECT_EQ(set(3, row.code, payload, static_cast<uint32_t>(each.len)), 0);
    }
    EXPECT_TRUE(settings() == before) << row.code;
    EXPECT_EQ(handler(3, nullptr, row.shortest), -9) << row.code;
    EXPECT_EQ(log_lines.back(), "ptr_mtext is NULL, failed(-9).\r\n");
  }
  set(3, 46, "\x01");
}

TEST_F(message_server_test, longest_and_shortest_texts) {
  const std::string full(50, 'a');
  EXPECT_EQ(set(3, 11, full + "\x01\x00\x02\x00"s), 0);
  EXPECT_EQ(line_id_get_param_text(12, 'a'), full);
  EXPECT_EQ(line_id_get_param_text(12, 'f'), "2"s);
  set(3, 11, "\x03\x00\x04\x00"s);
  EXPECT_EQ(line_id_get_param_text(12, 'a'), ""s);
  EXPECT_EQ(line_id_get_param_text(12, 'r'), "3"s);
  set(3, 32, "a" + full);
  EXPECT_EQ(line_id_get_param_text(12, 'a'), full);
  set(3, 6, "");
  EXPECT_EQ(g_line_id_common_cfg[3].circuit_id_custom_format[0], 0);
}

TEST_F(message_server_test, refusals_of_the_parameter_table_are_reported) {
  // No instance 9, so each setter refuses.
  const struct {
    size_t code;
    int32_t len;
    const char* log;
  } rows[] = {{11, 6, "line_id_set_ani_param_cfg failed(len = 6).\r\n"},
              {12, 3, "line_id_set_ani_str_cfg failed(len = 3).\r\n"},
              {13, 2, "line_id_set_rack_no_cfg fail(-147).!\r\n"},
              {14, 2, "line_id_set_frame_no_cfg fail(-147).!\r\n"},
              {15, 3, "line_id_set_uplink_type_cfg fail(-147).!\r\n"},
              {16, 4, "line_id_set_manage_ip_cfg fail(-147).!\r\n"},
              {17, 6, "line_id_set_remoteid_core_cardinnermac_cfg fail(-147).!\r\n"}};
  const uint8_t payload[300] = {};
  for (const auto& row : rows) {
    EXPECT_EQ(line_id_set_proc_func[row.code](9, payload, row.len), -113) << row.code;
    EXPECT_EQ(log_lines.back(), row.log);
  }
}

TEST_F(message_server_test, queries_want_a_reply_and_its_length) {
  size_t handlers = 0;
  for (size_t code = 0; code < line_id_get_proc_func.size(); ++code) {
    const line_id_get_handler handler = line_id_get_proc_func[code];
    if (handler == nullptr) continue;
    ++handlers;
    uint8_t reply[300];
    uint32_t len = 0;
    EXPECT_EQ(handler(3, nullptr, &len), -9) << code;
    EXPECT_EQ(handler(3, reply, nullptr), -9) << code;
    EXPECT_EQ(log_lines.back(),
              code == 0 ? "ptr_mtext is NULL, failed(-9).\r\n" : "ptr_mtext OR len is NULL, failed(-9).\r\n");
  }
  EXPECT_EQ(handlers, 23U);
}

// Their other octets are what the area held before.
TEST_F(message_server_test, blocks_leave_out_what_they_do_not_tell) {
  set(3, 12, "an8");
  set(3, 14, "\x02\x01");
  set(3, 6, LONGEST);
  for (const int code : {0, 1, 2, 5}) set(3, code, "\x01");
  const struct {
    uint16_t code;
    std::string reply;
  } rows[] = {{9, "\x00\xFF\x00"s + padded("an8", 50) + "\x00\x00\x02\x01"s + padded("", 36) + std::string(64, '~')},
              {10, "\x01" + LONGEST + std::string(36, '~')}};
  for (const auto& row : rows) {
    line_id_cmd_area* area = line_id_get_cfg_mem(3);
    std::memset(area->payload, '~', 300);
    area->payload[1] = 0xF8; // bits of the enables that no block has
    EXPECT_EQ(line_id_get_cfg_msg_proc(3, row.code), 0);
    EXPECT_EQ(area->code, row.code);
    EXPECT_EQ(area->length, row.reply.size());
    EXPECT_EQ(payload_of(area, row.reply.size()), row.reply);
    EXPECT_EQ(pal_sem_count(g_line_id_get_mem_sync), 1);
    line_id_get_mem_sync_take();
  }
}

TEST_F(message_server_test, empty_slots_leave_the_former_reply) {
  for (const int code : {11, 17, 45, 46, 255, 0x8000, 0xFFFF}) {
    line_id_cmd_area* area = line_id_get_cfg_mem(0);
    *area = {5, 1, 0, {7}};
    EXPECT_EQ(line_id_get_cfg_msg_proc(0, static_cast<uint16_t>(code)), 0);
    EXPECT_EQ(area->code, static_cast<int16_t>(code));
    EXPECT_EQ(area->length, 1U);
    EXPECT_EQ(area->payload[0], 7);
    EXPECT_EQ(pal_sem_count(g_line_id_get_mem_sync), 1) << code;
    line_id_get_mem_sync_take();
  }
  for (const int code : {-1, 51, 32767, -32768}) EXPECT_EQ(set(0, code, "\x01"), 0);
  for (const int code : {6, 255, 0xFFFF}) EXPECT_EQ(line_id_show_cfg_msg_proc(0, static_cast<uint16_t>(code)), 0);
  EXPECT_TRUE(log_lines.empty());
}

TEST_F(message_server_test, absent_areas_still_complete_the_exchange) {
  for (const uint8_t oltid : ABSENT_INSTANCES) {
    line_id_set_mem_mutex_take();
    EXPECT_EQ(line_id_set_cfg_msg_proc(oltid), -110);
    EXPECT_EQ(pal_sem_count(g_line_id_set_mem_mutex), 1);
    EXPECT_EQ(log_lines.back(), "line_id_set_cfg_mem failed(-110).\r\n");
    EXPECT_EQ(line_id_get_cfg_msg_proc(oltid, 0), -110);
    EXPECT_EQ(log_lines.back(), "line_id_get_cfg_mem failed(-110).\r\n");
    EXPECT_EQ(pal_sem_count(g_line_id_get_mem_sync), 1);
    line_id_get_mem_sync_take();
  }
}

TEST_F(message_server_test, the_message_names_the_instance) {
  fill_set_area(3, 0, "\x01", 1);
  line_id_set_cfg_mem(3)->oltid = 5;
  line_id_set_cfg_msg_proc(3);
  EXPECT_EQ(line_id_get_option82_enable_cfg(3), 1);
  EXPECT_EQ(line_id_get_option82_enable_cfg(5), 0);
}

} // namespace
