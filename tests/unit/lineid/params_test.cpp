// The parameter table: letters, flags, overrides, resets, device-wide setters, the provider's calls.
#include "tests/unit/lineid/lineid_test.h"

#include <cstdlib>
#include <vector>

namespace {

using params_test = lineid_test;
using namespace std::string_literals;

std::string text_of(int32_t set, char letter) { return line_id_get_param_text(set, letter); }

TEST_F(params_test, refuses_what_is_no_letter_or_no_set) {
  const struct {
    int32_t set, letter;
    int32_t text_result; // of line_id_write_param; all others give -1
  } rows[] = {{-1, 'a', -1},  {36, 'a', -1},   {0, '[', -113},   {0, '`', -113},
              {0, '@', -113}, {35, '{', -113}, {35, -200, -113}, {0, 0x7FFFFFFF, -113}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.set << " " << row.letter);
    EXPECT_EQ(line_id_write_param(row.set, row.letter, "x", 1), row.text_result);
    EXPECT_EQ(line_id_write_param_int(row.set, row.letter, 1, 1), -1);
    EXPECT_EQ(line_id_write_param_force(row.set, row.letter, "x"), -1);
    EXPECT_EQ(line_id_write_param_int_force(row.set, row.letter, 1), -1);
    EXPECT_EQ(line_id_param_allocated(row.set, row.letter), 0);
    EXPECT_STREQ(line_id_get_param_text(row.set, row.letter), "");
    line_id_set_param_flag(row.set, row.letter, 2);
    line_id_set_param(row.set, row.letter, nullptr);
    line_id_print_param(row.set, row.letter);
  }
  line_id_reset_params(36);
  EXPECT_EQ(line_id_write_param(0, 'a', nullptr, 1), -9);
  EXPECT_EQ(line_id_write_param_force(0, 'a', nullptr), -1);
}

TEST_F(params_test, keeps_fifty_characters_and_replaces_the_whole_text) {
  const std::string fifty(50, 'q');
  for (const auto write : {+[](const char* text) { return line_id_write_param(3, 'z', text, 1); },
                           +[](const char* text) { return line_id_write_param_force(3, 'z', text); }}) {
    for (const std::string& text : {fifty, fifty + "r", "ab"s}) {
      EXPECT_EQ(write(text.c_str()), 0);
      EXPECT_EQ(text_of(3, 'z'), text.substr(0, 50));
    }
  }
  EXPECT_EQ(line_id_write_param_int(3, 'A', -2147483647 - 1, 1), 0);
  EXPECT_EQ(text_of(3, 'A'), "-2147483648");
}

TEST_F(params_test, a_pinned_letter_stays_until_it_is_released) {
  ASSERT_EQ(line_id_write_param(5, 'm', "system", 1), 0);
  ASSERT_EQ(line_id_write_param_force(5, 'm', "operator"), 0);
  EXPECT_EQ(line_id_write_param(5, 'm', "late", 1), -113);
  const std::string printed = traced([] { line_id_write_param(5, 'm', "late", 1); });
  EXPECT_NE(printed.find("line_id_write_param  lineid_set err (-113).\r\n"), std::string::npos) << printed;
  EXPECT_EQ(line_id_write_param_int(5, 'm', 1, 1), -113);
  line_id_reset_params(5);
  EXPECT_EQ(text_of(5, 'm'), "operator");
  EXPECT_EQ(line_id_write_param_int_force(5, 'm', 7), 0);
  EXPECT_EQ(text_of(5, 'm'), "7");
  line_id_set_param_flag(5, 'm', 0);
  EXPECT_EQ(text_of(5, 'm'), "7");
  line_id_reset_params(5);
  EXPECT_EQ(text_of(5, 'm'), "");
  line_id_write_param_force(35, 'm', "operator");
  ASSERT_EQ(line_id_init_params(), 0);
  EXPECT_EQ(text_of(35, 'm'), "");
  EXPECT_EQ(line_id_write_param(35, 'm', "free", 1), 0);
}

TEST_F(params_test, the_reset_empties_all_but_device_wide_and_pinned_letters) {
  for (int32_t letter = 'A'; letter <= 'z'; ++letter) line_id_write_param(8, letter, "x", letter % 2);
  ASSERT_EQ(line_id_write_param_force(8, 'Y', "pinned"), 0);
  line_id_write_param(9, 's', "other set", 1);
  line_id_reset_params(8);
  std::string kept;
  for (int32_t letter = 'A'; letter <= 'z'; ++letter) {
    if (line_id_get_param_text(8, letter)[0] != '\0') kept += static_cast<char>(letter);
  }
  EXPECT_EQ(kept, "BHLOSYafruz");
  EXPECT_EQ(g_params[8].flag['s' - 'A'], 0);
  EXPECT_EQ(g_params[8].flag['a' - 'A'], 1);
  EXPECT_EQ(text_of(9, 's'), "other set");
}

TEST_F(params_test, buffers_change_owner_without_leak) {
  auto buffer = static_cast<char*>(std::calloc(1, 51));
  ASSERT_NE(buffer, nullptr);
  std::strcpy(buffer, "given");
  line_id_set_param(1, 'q', buffer);
  line_id_set_param(1, 'q', buffer);
  EXPECT_EQ(text_of(1, 'q'), "given");
  ASSERT_EQ(line_id_init_params(), 0);
  EXPECT_EQ(text_of(1, 'q'), "");
  EXPECT_EQ(line_id_write_param(1, 'q', "again", 1), 0);
  EXPECT_EQ(text_of(1, 'q'), "again");
  line_id_set_param(1, 'q', nullptr);
  EXPECT_EQ(line_id_param_allocated(1, 'q'), 0);
  EXPECT_EQ(line_id_write_param(1, 'q', "own", 1), 0);
  EXPECT_EQ(line_id_param_allocated(1, 'q'), 1);
  line_id_set_param(1, 'q', nullptr);
}

TEST_F(params_test, device_wide_setters_write_the_four_sets_of_an_instance) {
  EXPECT_EQ(line_id_set_param_ani(2, "node"), 0);
  EXPECT_EQ(line_id_set_param_ani(2, nullptr), 0);
  EXPECT_EQ(line_id_set_param_rack_no(2, static_cast<int16_t>(40000)), 0);
  EXPECT_EQ(line_id_set_param_hostname(2, nullptr), 0);
  EXPECT_EQ(line_id_set_param_corecard_inner_mac(2, nullptr), -9);
  EXPECT_EQ(line_id_set_param_uplink_type(2, nullptr), -9);
  EXPECT_EQ(line_id_set_param_ani(200, "nobody"), 0);
  for (int32_t set = 7; set <= 12; ++set) {
    EXPECT_EQ(texts(set, "arzu"), set >= 8 && set < 12 ? "|node|-25536|||" : "|||||") << set;
  }
}

TEST_F(params_test, reports_print_one_letter_and_plain_hex_digits) {
  const uint8_t mac[6] = {0x00, 0xAB, 0xCD, 0x0F, 0x10, 0xFF};
  line_id_write_param(0, 'a', "node", 1);
  const auto print = [&] {
    line_id_print_param(0, 'a');
    line_id_printf_mac(mac);
  };
  EXPECT_EQ(printed(print), "a: node\r\n00abcd0f10ff");
}

uint8_t g_provider_mode;
int32_t g_provider_result;

int32_t test_provider(uint8_t mode, line_id_param_write_func write, line_id_inf_info* info) {
  g_provider_mode = mode;
  write('Y', mode == 1 ? "start" : "frame", 0, 1);
  write('Z', "unset", 0, 0);
  write('a', "late", 0, 2);
  if (info != nullptr) {
    info->pkt_info_ptr->reserved[LINE_ID_EXT_OLTID] = info->profile_flag; // the test's choice
    info->pkt_info_ptr->packet_type = info->form;
  }
  return g_provider_result;
}

TEST_F(params_test, the_provider_fills_all_sets_at_start_and_one_for_a_frame) {
  EXPECT_EQ(line_id_set_init_param(), 0);
  EXPECT_EQ(line_id_param_proc(3, &info), 0);
  g_device_if.param_provider = test_provider;
  g_provider_result = -5;
  EXPECT_EQ(line_id_set_init_param(), -5);
  EXPECT_EQ(g_provider_mode, 1);
  for (int32_t set = 0; set < 36; ++set) ASSERT_EQ(text_of(set, 'Y'), "start");
  EXPECT_EQ(line_id_param_proc(0, &info), -5);
  g_provider_result = 0;
  line_id_write_param(0, 'm', "former frame", 1);
  EXPECT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(g_provider_mode, 2);
  EXPECT_EQ(texts(0, "Ym"), "|frame||");
  EXPECT_EQ(text_of(1, 'Y'), "start");
  EXPECT_EQ(g_params[0].flag['Z' - 'A'], 0);
  EXPECT_EQ(g_params[0].flag['a' - 'A'], 1) << "a hook cannot pin";
}

TEST_F(params_test, a_frame_that_a_hook_moves_to_another_set_takes_its_letters_along) {
  g_device_if.param_provider = test_provider;
  g_provider_result = 0;
  const struct {
    uint8_t oltid, packet_type;
    std::vector<int32_t> sets; // that the frame's identifiers may be printed from
  } rows[] = {{0, LINE_ID_DHCPV4, {0}},
              {1, LINE_ID_DHCPV4, {0, 4}},
              {0, LINE_ID_PPPOE, {0, 2}},
              {1, LINE_ID_PPPOE, {0, 2, 6}},
              {9, LINE_ID_DHCPV4, {0}},
              {0, 0, {0}},
              {255, 255, {0}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << int{row.oltid} << " " << int{row.packet_type});
    for (int32_t set = 0; set < 36; ++set) {
      line_id_reset_params(set);
      line_id_write_param(set, 'm', "somebody else", 1);
      line_id_write_param(set, 'H', std::to_string(set).c_str(), 1); // the device's: not the frame's to take along
    }
    info.profile_flag = row.oltid;
    info.form = row.packet_type;
    EXPECT_EQ(line_id_param_proc(0, &info), 0);
    for (const int32_t set : row.sets) EXPECT_EQ(texts(set, "mYH"), "||frame|" + std::to_string(set) + "|");
  }
}

TEST_F(params_test, a_frame_outside_the_sets_writes_nothing) {
  g_device_if.param_provider = test_provider;
  for (const int32_t set : {-1, 36, 37}) EXPECT_EQ(line_id_param_proc(set, &info), -1);
  for (int32_t set = 0; set < 36; ++set) ASSERT_EQ(text_of(set, 'Y'), "");
}

} // namespace
