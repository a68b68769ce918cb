// Circuit-ID and Remote-ID: templates, sub-options, and the rebuilding of received ones.
#include "lineid/circuit_id.h"
#include "lineid/remote_id.h"
#include "tests/support/frames.h"
#include "tests/unit/lineid/lineid_test.h"

namespace {

using namespace std::string_literals;

constexpr uint8_t CUSTOM = 0;
constexpr uint8_t CTC = 1;
constexpr uint8_t CNC = 2;

std::string sub_option(char type, const std::string& value) {
  return std::string{type, static_cast<char>(value.size())} + value;
}

class identifier_test : public lineid_test {
protected:
  using operation = int32_t (*)(uint8_t, const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);

  void SetUp() override {
    lineid_test::SetUp();
    fill(0);
  }

  // The sub-option that `op` makes of a received text, or its refusal; both buffers have exactly their size.
  std::string run(operation op, const std::string& received, uint8_t oltid = 0) {
    const octets option = tlv1(1, text(received));
    const octets old(option.begin(), option.end());
    octets out(258);
    uint16_t opt_len = 0xFFFF;
    const int32_t result = op(oltid, old.data(), static_cast<uint16_t>(old.size()), out.data(), &opt_len, &info);
    if (result == 0) return std::string(out.begin(), out.begin() + opt_len);
    EXPECT_EQ(opt_len, 0xFFFF) << "a refusal with a length";
    return std::to_string(result);
  }
};

TEST_F(identifier_test, the_standard_templates) {
  const struct {
    uint8_t format_type, standard;
    const char* text;
  } rows[] = {
      {CTC, 0, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP"},
      {CTC, 1, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 1/2/7 GP"},
      {CTC, 2, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 1/2/7:eth/100/7 GP"},
      {CNC, 0, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1 GP"},
      {CNC, 1, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1/1/2/7 GP"},
      {CNC, 2, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1/1/2/7:eth/100/7 GP"},
      {7, 0, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP"}, // any other type is CTC
      {CUSTOM, 0, "custom ONU42"},
  };
  put(g_line_id_common_cfg[0].circuit_id_custom_format, "custom %m");
  for (const auto& row : rows) {
    g_line_id_common_cfg[0].line_id_format_type = row.format_type;
    line_id_set_def_std_fmt_type_cfg(row.standard);
    EXPECT_EQ(run(line_id_circuit_id_replace, ""), sub_option(1, row.text));
  }
  uint8_t out[256] = {};
  EXPECT_EQ(line_id_print_circuit_id(0, out, 1, &info), 12) << "a custom template is its own head";
}

TEST_F(identifier_test, a_vlan_profile_goes_before_the_format_type) {
  line_id_common_cfg& cfg = g_line_id_common_cfg[0];
  put(cfg.circuit_id_custom_format, "custom");
  put(cfg.vlan_circuit_format[1], "own %m");
  cfg.vlan_template[2] = CTC;
  cfg.vlan_template[64] = CNC;
  const struct {
    uint8_t format_type, cid;
    const char* text;
  } rows[] = {
      {CTC, 1, "own ONU42"},
      {CTC, 3, ""}, // deleted, yet still named
      {CUSTOM, 2, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP"},
      {CUSTOM, 64, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1 GP"},
      {CUSTOM, 65, "custom"},
      {CUSTOM, 0, "custom"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(int{row.cid});
    cfg.line_id_format_type = row.format_type;
    info.cid = row.cid;
    EXPECT_EQ(run(line_id_circuit_id_replace, ""), sub_option(1, row.text));
  }
}

TEST_F(identifier_test, remote_id_by_packet_type_and_profile) {
  line_id_common_cfg& cfg = g_line_id_common_cfg[1];
  put(cfg.remote_id_format, std::string(256, 'r')); // no terminator
  put(cfg.option37_format, "%m/37");
  put(cfg.vlan_remote_format[9], "profile %m");
  for (int32_t set = 4; set < 8; ++set) line_id_write_param(set, 'm', std::to_string(set).c_str(), 1);
  const struct {
    uint8_t packet_type, rid;
    std::string text;
  } rows[] = {
      {LINE_ID_DHCPV4, 0, std::string(248, 'r')},
      {LINE_ID_DHCPV6, 0, "5/37"},
      {LINE_ID_PPPOE, 0, std::string(248, 'r')},
      {LINE_ID_DHCPV4, 9, "profile 4"},
      {LINE_ID_DHCPV6, 9, "5/37"},
      {LINE_ID_PPPOE, 9, "profile 6"},
      {LINE_ID_DHCPV4, 65, std::string(248, 'r')},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << int{row.packet_type} << " " << int{row.rid});
    pkt.packet_type = row.packet_type;
    info.rid = row.rid;
    for (const operation op : {line_id_remote_id_replace, line_id_remote_id_modify}) {
      EXPECT_EQ(run(op, "old", 1), sub_option(2, row.text));
    }
  }
}

TEST_F(identifier_test, keep_remove_and_missing_arguments) {
  const octets old = {1, 3, 'a', 'b', 'c'};
  octets out(258);
  uint16_t opt_len = 0;
  for (const auto keep : {line_id_circuit_id_none, line_id_remote_id_none}) {
    out.assign(258, 0);
    EXPECT_EQ(keep(old.data(), 5, out.data(), &opt_len), 0);
    EXPECT_EQ(octets(out.begin(), out.begin() + opt_len), old);
    EXPECT_EQ(keep(old.data(), 259, out.data(), &opt_len), -157);
    EXPECT_EQ(keep(nullptr, 5, out.data(), &opt_len), -9);
    EXPECT_EQ(keep(old.data(), 5, nullptr, &opt_len), -9);
    EXPECT_EQ(keep(old.data(), 5, out.data(), nullptr), -9);
  }
  for (const auto remove : {line_id_circuit_id_remove, line_id_remote_id_remove}) {
    opt_len = 9;
    EXPECT_EQ(remove(nullptr, 0, nullptr, &opt_len, nullptr), 0);
    EXPECT_EQ(opt_len, 0);
    EXPECT_EQ(remove(nullptr, 0, nullptr, nullptr, nullptr), -9);
  }
  for (const operation op :
       {line_id_circuit_id_modify, line_id_circuit_id_replace, line_id_remote_id_modify, line_id_remote_id_replace}) {
    EXPECT_EQ(op(0, old.data(), 0, nullptr, &opt_len, &info), -9);
    EXPECT_EQ(op(0, old.data(), 0, out.data(), nullptr, &info), -9);
    EXPECT_EQ(op(9, old.data(), 0, out.data(), &opt_len, &info), -1) << "no such instance";
  }
  EXPECT_EQ(line_id_circuit_id_modify(0, nullptr, 0, out.data(), &opt_len, &info), -9);
  EXPECT_EQ(line_id_print_circuit_id(0, nullptr, 0, &info), -9);
  EXPECT_EQ(line_id_print_remote_id(0, nullptr, 0), -9);
  EXPECT_EQ(line_id_print_vlan_based_remote_fmt(0, nullptr, 0, &info), -9);
}

TEST_F(identifier_test, traces_that_name_something_else) {
  uint8_t out[258] = {};
  uint16_t opt_len = 0;
  g_line_id_common_cfg[0].line_id_format_type = CTC;
  info.form = LINE_ID_FORM_XGS;
  const std::string printed = traced([&] {
    line_id_circuit_id_none(out, 2, out, &opt_len);
    line_id_circuit_id_replace(9, nullptr, 0, out, &opt_len, &info);
    run(line_id_circuit_id_modify, "a b c d " + std::string(20, 'z'));
  });
  for (const char* words : {"remote id none.\r", "line_id_print_circuit_id  failed(-9).\r\n",
                            "info->form == LNID_XGS_TECH_NORMS CTC 1\r\n"}) {
    EXPECT_NE(printed.find(words), std::string::npos) << words << "in: " << printed;
  }
}

TEST_F(identifier_test, modify_joins_a_fresh_head_with_the_received_tail) {
  const std::string ctc_head = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 ";
  const std::string ctc_short = "0 0/0/0:100.200 an1/1/2/3/0/5/";
  const std::string cnc_head = "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5/ONU42/ ";
  const std::string cnc_short = "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5 ";
  const std::string ctc = "0 0/0/0:1.2 x/1/1/1/1/1/m 1/2/7 EP";
  const std::string cnc = "0 0/0/0:1.2 olt/a/1/2/3/L/0/5/m/ 1/2 EP";
  const struct {
    const char* name;
    uint8_t mode, losn, form;
    std::string received, text;
  } rows[] = {
      {"valid", CTC, 1, LINE_ID_FORM_GP, ctc, ctc_head + "1/2/7 GP"},
      {"not valid", CTC, 0, LINE_ID_FORM_GP, ctc, ctc_short + "m 1/2/7 GP"},
      {"only 1 is valid", CTC, 2, LINE_ID_FORM_GP, ctc, ctc_short + "m 1/2/7 GP"},
      {"XG", CTC, 1, LINE_ID_FORM_XG, ctc, ctc_head + "1/2/7 XG"},
      {"EP stays", CTC, 1, LINE_ID_FORM_EP, ctc, ctc_head + "1/2/7 EP"},
      {"XGS grows", CTC, 1, LINE_ID_FORM_XGS, ctc, ctc_head + "1/2/7 XGS"},
      {"XGS over more text", CTC, 1, LINE_ID_FORM_XGS, ctc + " q", ctc_head + "1/2/7 XGSq\0"s},
      {"marker at third space", CTC, 1, LINE_ID_FORM_XG, "0 0/0/0:1.2 x/1/1/1/1/1/m EP", ctc_head + "XG"},
      {"XGS at third space", CTC, 0, LINE_ID_FORM_XGS, "0 0/0/0:1.2 x/1/1/1/1/1/m EP", ctc_short + "m XGS"},
      {"two spaces", CTC, 0, LINE_ID_FORM_GP, "0 0/0/0:1.2 x/1/1/1/1/1/mmm", ctc_short + "mmm"},
      {"marker makes a slash vanish", CTC, 0, LINE_ID_FORM_GP, "a b c d /e/////// tail tail", ctc_short},
      {"fourth space last", CTC, 1, LINE_ID_FORM_XGS, "0 0/0/0:1.2 x/1/1/1/1/1/m p ", ctc_head + "p X"},
      {"no third space", CTC, 1, LINE_ID_FORM_GP, std::string(40, 'z'), ctc_head},
      {"24 octets", CTC, 1, 0, "a b c 89abcdef0123456789", ctc_head},
      {"25 octets", CTC, 1, 0, "a b c 89abcdef0123456789z", ctc_head + "89abcdef0123456789z"},
      {"valid", CNC, 1, LINE_ID_FORM_GP, cnc, cnc_head + "m/ 1/2 GP"},
      {"not valid", CNC, 0, LINE_ID_FORM_XG, cnc, cnc_short + "1/2 XG"},
      {"XGS grows", CNC, 0, LINE_ID_FORM_XGS, cnc, cnc_short + "1/2 XGS"},
      {"third space is no marker", CNC, 0, LINE_ID_FORM_GP, "0 0/0/0:1.2 olt/a/1/2/3/L/0/5 EPEP", cnc_short + "EPEP"},
      {"nine slashes", CNC, 1, LINE_ID_FORM_GP, "0 0/0/0:1.2 olt/a/1/2/3/L/0 5 EP", cnc_head},
      {"28 octets", CNC, 0, 0, "a b c 89abcdef0123456789abcd", cnc_short},
      {"29 octets", CNC, 0, 0, "a b c 89abcdef0123456789abcde", cnc_short + "89abcdef0123456789abcde"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << int{row.mode} << " " << row.name);
    g_line_id_common_cfg[0].line_id_format_type = row.mode;
    info.onu.onu_losn_valid_or_invalid = row.losn;
    info.form = row.form;
    EXPECT_EQ(run(line_id_circuit_id_modify, row.received), sub_option(1, row.text));
  }
}

TEST_F(identifier_test, modify_limits) {
  g_line_id_common_cfg[0].line_id_format_type = CTC;
  info.onu.onu_losn_valid_or_invalid = 1;
  const std::string head = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 "; // 36 octets
  const auto modified = [this](const std::string& received) { return run(line_id_circuit_id_modify, received); };
  for (const size_t tail : {219U, 220U}) { // the length octet of 256 is 0
    EXPECT_EQ(modified("a b c " + std::string(tail, 'z')), sub_option(1, head + std::string(tail, 'z')));
  }
  EXPECT_EQ(modified("a b c " + std::string(221, 'z')), "-157");
  info.form = LINE_ID_FORM_XGS;
  EXPECT_EQ(modified(std::string(317, 'z')), sub_option(1, head));
  EXPECT_EQ(modified("a b c" + std::string(311, 'z') + " "), sub_option(1, head + "X"));
  EXPECT_EQ(modified(std::string(318, 'z')), "-157");

  const uint8_t nothing[1] = {1};
  for (const uint16_t old_len : {uint16_t{0}, uint16_t{1}}) {
    uint8_t out[258] = {};
    uint16_t opt_len = 0;
    EXPECT_EQ(line_id_circuit_id_modify(0, nothing, old_len, out, &opt_len, &info), 0);
    EXPECT_EQ(opt_len, 38);
  }
}

TEST_F(identifier_test, custom_modify_takes_free_letters_from_the_received_text) {
  const struct {
    const char* name;
    uint8_t oltid, cid;
    const char *received, *text;
    uint8_t parse_error;
  } rows[] = {
      {"own letters win, free ones are taken", 0, 0, "up/9/77", "up/100/77", 0},
      {"mismatch prints what was found", 0, 0, "up-9", "up-9/100/7", 1},
      {"mismatch after some letters", 0, 0, "up/9", "up/100/7", 1},
      {"another instance parses into the first", 1, 0, "up/9/77", "0/100/7", 0},
      {"own profile template, parsed by the custom one", 0, 5, "up/9/77", "P77", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (const int32_t set : {0, 4}) {
      line_id_reset_params(set);
      fill(set);
      line_id_set_param_flag(set, 'P', 0);
    }
    line_id_common_cfg& cfg = g_line_id_common_cfg[row.oltid];
    cfg.line_id_format_type = row.cid != 0 ? CTC : CUSTOM;
    put(cfg.circuit_id_custom_format, "%u/%s/%P");
    put(cfg.vlan_circuit_format[5], "P%P");
    info.cid = row.cid;
    info.is_parse_error = 0;
    EXPECT_EQ(run(line_id_circuit_id_modify, row.received, row.oltid), sub_option(1, row.text));
    EXPECT_EQ(info.is_parse_error, row.parse_error);
    EXPECT_EQ(texts(0, "u"), "||") << "no subscriber's text stays in a device-wide letter";
  }
}

TEST_F(identifier_test, custom_modify_puts_released_device_letters_back) {
  put(g_line_id_common_cfg[0].circuit_id_custom_format, "%a %H");
  line_id_write_param_force(0, 'a', "released");
  line_id_set_param_flag(0, 'a', 0);
  line_id_write_param(0, 'H', "host", 1);
  EXPECT_EQ(run(line_id_circuit_id_modify, "evil name"), sub_option(1, "evil host"));
  EXPECT_EQ(run(line_id_circuit_id_replace, ""), sub_option(1, "released host"));
}

} // namespace
