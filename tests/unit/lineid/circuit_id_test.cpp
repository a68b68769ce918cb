// Circuit-ID and Remote-ID: templates, sub-options, and the rebuilding of received ones.
#include "lineid/circuit_id.h"
#include "lineid/remote_id.h"
#include "tests/unit/lineid/lineid_test.h"

#include <memory>

namespace {

using namespace std::string_literals;

constexpr uint8_t CUSTOM = 0;
constexpr uint8_t CTC = 1;
constexpr uint8_t CNC = 2;

// A sub-option operation's result with its output taken apart.
struct sub_option {
  int32_t result;
  int32_t type;
  int32_t length_octet;
  std::string text;
};

class identifier_test : public lineid_test {
protected:
  using operation = int32_t (*)(uint8_t, const uint8_t*, uint16_t, uint8_t*, uint16_t*, line_id_inf_info*);

  void SetUp() override {
    lineid_test::SetUp();
    fill(0);
  }

  sub_option run(operation op, const std::string& received, uint8_t oltid = 0) {
    const size_t old_len = received.size() + 2;
    const std::unique_ptr<uint8_t[]> old(new uint8_t[old_len]);
    old[0] = 1;
    old[1] = static_cast<uint8_t>(received.size());
    if (!received.empty()) std::memcpy(old.get() + 2, received.data(), received.size());
    const std::unique_ptr<uint8_t[]> out(new uint8_t[258]());
    uint16_t opt_len = 0xFFFF;
    sub_option seen = {};
    seen.result = op(oltid, old.get(), static_cast<uint16_t>(old_len), out.get(), &opt_len, &info);
    if (seen.result != 0) {
      EXPECT_EQ(opt_len, 0xFFFF);
      return seen;
    }
    seen.type = out[0];
    seen.length_octet = out[1];
    seen.text.assign(reinterpret_cast<const char*>(out.get()) + 2, opt_len - 2U);
    return seen;
  }
};

TEST_F(identifier_test, the_standard_templates_and_their_heads) {
  const struct {
    uint8_t format_type;
    uint8_t standard;
    uint8_t splice;
    uint8_t losn;
    const char* text;
  } rows[] = {
      {CTC, 0, 0, 1, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP"},
      {CTC, 1, 0, 1, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 1/2/7 GP"},
      {CTC, 2, 0, 1, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 1/2/7:eth/100/7 GP"},
      {CNC, 0, 0, 1, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1 GP"},
      {CNC, 1, 0, 1, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1/1/2/7 GP"},
      {CNC, 2, 0, 1, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1/1/2/7:eth/100/7 GP"},
      {CTC, 2, 1, 1, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 "},
      {CTC, 2, 1, 0, "0 0/0/0:100.200 an1/1/2/3/0/5/"},
      {CTC, 2, 1, 2, "0 0/0/0:100.200 an1/1/2/3/0/5/"},
      {CNC, 2, 1, 1, "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5/ONU42/ "},
      {CNC, 2, 1, 0, "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5 "},
      {7, 0, 0, 1, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP"}, // any other type is CTC
      {CUSTOM, 0, 0, 1, "custom ONU42"},
      {CUSTOM, 0, 1, 1, "custom ONU42"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    g_line_id_common_cfg[0].line_id_format_type = row.format_type;
    put(g_line_id_common_cfg[0].circuit_id_custom_format, "custom %m");
    line_id_set_def_std_fmt_type_cfg(row.standard);
    info.onu.onu_losn_valid_or_invalid = row.losn;
    uint8_t out[256] = {};
    const int32_t len = line_id_print_circuit_id(0, out, row.splice, &info);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), static_cast<size_t>(len)), row.text);
  }
}

TEST_F(identifier_test, a_vlan_profile_goes_before_the_format_type) {
  line_id_common_cfg& cfg = g_line_id_common_cfg[0];
  put(cfg.circuit_id_custom_format, "custom");
  put(cfg.vlan_circuit_format[1], "own %m");
  cfg.vlan_template[2] = CTC;
  cfg.vlan_template[64] = CNC;
  const struct {
    uint8_t format_type;
    uint8_t cid;
    const char* text;
  } rows[] = {
      {CTC, 1, "own ONU42"},
      {CTC, 3, ""}, // deleted, yet still named
      {CUSTOM, 2, "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP"},
      {CUSTOM, 64, "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1 GP"},
      {CUSTOM, 65, "custom"},
      {CUSTOM, 255, "custom"},
      {CUSTOM, 0, "custom"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(int{row.cid});
    cfg.line_id_format_type = row.format_type;
    info.cid = row.cid;
    const sub_option seen = run(line_id_circuit_id_replace, "");
    EXPECT_EQ(seen.result, 0);
    EXPECT_EQ(seen.text, row.text);
  }
}

TEST_F(identifier_test, remote_id_by_packet_type_and_profile) {
  line_id_common_cfg& cfg = g_line_id_common_cfg[1];
  std::string full(256, 'r'); // no terminator
  put(cfg.remote_id_format, full);
  put(cfg.option37_format, "%m/37");
  put(cfg.vlan_remote_format[9], "profile %m");
  for (int32_t set = 4; set < 8; ++set) line_id_write_param(set, 'm', std::to_string(set).c_str(), 1);
  const struct {
    uint8_t packet_type;
    uint8_t rid;
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
      const sub_option seen = run(op, "old", 1);
      EXPECT_EQ(seen.result, 0);
      EXPECT_EQ(seen.type, 2);
      EXPECT_EQ(seen.length_octet, static_cast<int>(row.text.size()));
      EXPECT_EQ(seen.text, row.text);
    }
  }
}

TEST_F(identifier_test, keep_and_remove) {
  const uint8_t old[5] = {1, 3, 'a', 'b', 'c'};
  for (const auto keep : {line_id_circuit_id_none, line_id_remote_id_none}) {
    uint8_t out[258] = {};
    uint16_t opt_len = 0;
    EXPECT_EQ(keep(old, 5, out, &opt_len), 0);
    EXPECT_EQ(opt_len, 5);
    EXPECT_EQ(std::memcmp(out, old, 5), 0);
    EXPECT_EQ(keep(old, 259, out, &opt_len), -157);
    EXPECT_EQ(keep(nullptr, 5, out, &opt_len), -9);
    EXPECT_EQ(keep(old, 5, nullptr, &opt_len), -9);
    EXPECT_EQ(keep(old, 5, out, nullptr), -9);
  }
  for (const auto remove : {line_id_circuit_id_remove, line_id_remote_id_remove}) {
    uint16_t opt_len = 9;
    EXPECT_EQ(remove(nullptr, 0, nullptr, &opt_len, nullptr), 0);
    EXPECT_EQ(opt_len, 0);
    EXPECT_EQ(remove(nullptr, 0, nullptr, nullptr, nullptr), -9);
  }
}

TEST_F(identifier_test, null_pointers_and_an_instance_out_of_range) {
  uint8_t out[258] = {};
  uint16_t opt_len = 0;
  for (const operation op :
       {line_id_circuit_id_modify, line_id_circuit_id_replace, line_id_remote_id_modify, line_id_remote_id_replace}) {
    EXPECT_EQ(op(0, out, 0, nullptr, &opt_len, &info), -9);
    EXPECT_EQ(op(0, out, 0, out, nullptr, &info), -9);
    EXPECT_EQ(op(9, out, 0, out, &opt_len, &info), -1);
  }
  EXPECT_EQ(line_id_circuit_id_modify(0, nullptr, 0, out, &opt_len, &info), -9);
  EXPECT_EQ(line_id_print_circuit_id(0, nullptr, 0, &info), -9);
  EXPECT_EQ(line_id_print_remote_id(0, nullptr, 0), -9);
  EXPECT_EQ(line_id_print_vlan_based_remote_fmt(0, nullptr, 0, &info), -9);
}

TEST_F(identifier_test, traces_that_name_something_else) {
  uint8_t out[258] = {};
  uint16_t opt_len = 0;
  EXPECT_NE(traced([&] { line_id_circuit_id_none(out, 2, out, &opt_len); }).find("remote id none.\r"),
            std::string::npos);
  EXPECT_NE(traced([&] {
              line_id_circuit_id_replace(9, nullptr, 0, out, &opt_len, &info);
            }).find("line_id_print_circuit_id  failed(-9).\r\n"),
            std::string::npos);
  g_line_id_common_cfg[0].line_id_format_type = CTC;
  info.form = LINE_ID_FORM_XGS;
  EXPECT_NE(traced([&] {
              run(line_id_circuit_id_modify, "a b c d " + std::string(20, 'z'));
            }).find("info->form == LNID_XGS_TECH_NORMS CTC 1\r\n"),
            std::string::npos);
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
    uint8_t mode;
    uint8_t losn;
    uint8_t form;
    std::string received;
    std::string text;
  } rows[] = {
      {"valid", CTC, 1, LINE_ID_FORM_GP, ctc, ctc_head + "1/2/7 GP"},
      {"not valid", CTC, 0, LINE_ID_FORM_GP, ctc, ctc_short + "m 1/2/7 GP"},
      {"XG", CTC, 1, LINE_ID_FORM_XG, ctc, ctc_head + "1/2/7 XG"},
      {"EP stays", CTC, 1, LINE_ID_FORM_EP, ctc, ctc_head + "1/2/7 EP"},
      {"no form", CTC, 1, 0, ctc, ctc_head + "1/2/7 EP"},
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
      {"empty", CTC, 1, LINE_ID_FORM_GP, "", ctc_head},
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
    const sub_option seen = run(line_id_circuit_id_modify, row.received);
    EXPECT_EQ(seen.result, 0);
    EXPECT_EQ(seen.type, 1);
    EXPECT_EQ(seen.length_octet, static_cast<int>(row.text.size()));
    EXPECT_EQ(seen.text, row.text);
  }
}

TEST_F(identifier_test, modify_limits) {
  g_line_id_common_cfg[0].line_id_format_type = CTC;
  info.onu.onu_losn_valid_or_invalid = 1; // a head of 36 octets
  const auto with_tail = [this](size_t tail) {
    return run(line_id_circuit_id_modify, "a b c " + std::string(tail, 'z'));
  };
  EXPECT_EQ(with_tail(219).text.size(), 255U);
  EXPECT_EQ(with_tail(220).text.size(), 256U);
  EXPECT_EQ(with_tail(220).length_octet, 0) << "the low 8 bits of 256";
  EXPECT_EQ(with_tail(221).result, -157);
  info.form = LINE_ID_FORM_XGS;
  EXPECT_EQ(run(line_id_circuit_id_modify, std::string(317, 'z')).text.size(), 36U);
  EXPECT_EQ(run(line_id_circuit_id_modify, "a b c" + std::string(311, 'z') + " ").text.substr(36), "X");
  EXPECT_EQ(run(line_id_circuit_id_modify, std::string(318, 'z')).result, -157);

  const uint8_t nothing[1] = {1};
  for (const uint16_t old_len : {uint16_t{0}, uint16_t{1}}) {
    uint8_t out[258] = {};
    uint16_t opt_len = 0;
    EXPECT_EQ(line_id_circuit_id_modify(0, nothing, old_len, out, &opt_len, &info), 0);
    EXPECT_EQ(opt_len, 38);
  }
}

TEST_F(identifier_test, cut_points_of_the_modes) {
  const std::string text = "a b c d/1/2/3/4/5/6/7/8/9/x";
  const struct {
    int32_t mode;
    uint8_t losn;
    int32_t pos;
  } rows[] = {{CTC, 1, 5}, {CTC, 0, 21}, {CNC, 1, 25}, {CNC, 0, 5}};
  for (const auto& row : rows) {
    info.onu.onu_losn_valid_or_invalid = row.losn;
    const auto bytes = reinterpret_cast<const uint8_t*>(text.data());
    EXPECT_EQ(line_id_circuit_id_cut_pos(row.mode, bytes, static_cast<uint32_t>(text.size()), &info), row.pos);
    EXPECT_EQ(line_id_circuit_id_cut_pos(row.mode, bytes, 5, &info), -1);
  }
}

TEST_F(identifier_test, custom_modify_takes_free_letters_from_the_received_text) {
  const struct {
    const char* name;
    uint8_t oltid;
    uint8_t cid;
    const char* received;
    const char* text;
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
    const sub_option seen = run(line_id_circuit_id_modify, row.received, row.oltid);
    EXPECT_EQ(seen.result, 0);
    EXPECT_EQ(info.is_parse_error, row.parse_error);
    EXPECT_STREQ(line_id_get_param_text(0, 'u'), "") << "no subscriber's text stays in a device-wide letter";
    EXPECT_EQ(seen.text, row.text);
  }
}

TEST_F(identifier_test, custom_modify_puts_released_device_letters_back) {
  put(g_line_id_common_cfg[0].circuit_id_custom_format, "%a %H");
  line_id_write_param_force(0, 'a', "released");
  line_id_set_param_flag(0, 'a', 0);
  line_id_write_param(0, 'H', "host", 1);
  EXPECT_EQ(run(line_id_circuit_id_modify, "evil name").text, "evil host");
  EXPECT_STREQ(line_id_get_param_text(0, 'a'), "released");
  EXPECT_EQ(run(line_id_circuit_id_replace, "").text, "released host");
}

} // namespace
