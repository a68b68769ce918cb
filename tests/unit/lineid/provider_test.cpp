// HAL registration and the parameter provider: letters, failures, the host's hook.
#include "tests/unit/lineid/lineid_test.h"

#include <functional>
#include <tuple>

namespace {

// What the callbacks answer, and what they saw.
struct host_facts {
  uint16_t olt_slot = 3;
  uint16_t onu_slot = 1;
  uint16_t onu_sub_slot = 2;
  uint8_t form = LINE_ID_FORM_GP;
  line_id_onu_port_info port = {LINE_ID_PORT_ETH, 11, 12, {0x12, 0x34}};
  int failing = -1; // slot whose callback fails
  line_id_onu_reg_info asked = {};
  uint16_t form_asked_onu = 0;
};
host_facts g_host;

int answer(int slot) { return g_host.failing == slot ? -77 : 0; }

int access_name(char* buf, uint32_t size) {
  std::memset(buf, 'A', size); // leaves no terminator
  return answer(4);
}
int card_name(char* buf, uint32_t) {
  std::strcpy(buf, "CARD");
  return answer(5);
}
int olt_slot(uint16_t* slot) {
  *slot = g_host.olt_slot;
  return answer(6);
}
int onu_slot(uint16_t* slot, uint16_t* sub_slot) {
  *slot = g_host.onu_slot;
  *sub_slot = g_host.onu_sub_slot;
  return answer(7);
}
int tech_form(uint16_t, uint16_t onu_authno, uint8_t* form) {
  g_host.form_asked_onu = onu_authno;
  *form = g_host.form;
  return answer(8);
}
int onu_reg(line_id_onu_reg_info* reg) {
  g_host.asked = *reg;
  reg->onu_auth = 43;
  reg->onu_rpc_ponno = 6;
  reg->onu_losn_valid_or_invalid = 1;
  reg->onu_type_id = 9;
  std::strcpy(reg->onu_id, "ONU43");
  std::strcpy(reg->onu_text_n, "N1");
  std::memset(reg->onu_text_c, 'C', sizeof(reg->onu_text_c)); // leaves no terminator
  return answer(9);
}
int onu_port(uint16_t, line_id_onu_port_info* port) {
  *port = g_host.port;
  return answer(10);
}

line_id_hal_func_table full_table() {
  line_id_hal_func_table table = {};
  table.set_drv_enable = [](uint8_t, uint8_t, uint8_t) { return 21; };
  table.send_eth_frame = [](uint8_t, uint8_t, uint16_t, const uint8_t*, uint32_t) { return 22; };
  table.mac_spoof_alarm = [](const line_id_alarm*) { return 23; };
  table.log_output = [](const char*, int32_t, const char*) { return 24; };
  table.get_access_typename = access_name;
  table.get_card_typename = card_name;
  table.get_olt_card_slot_info = olt_slot;
  table.get_onu_card_slot_info = onu_slot;
  table.get_access_device_tech_form = tech_form;
  table.get_onu_reg_info_by_optional_elem = onu_reg;
  table.get_onu_port_info_by_logic_port = onu_port;
  return table;
}

class hal_test : public lineid_test {
protected:
  void SetUp() override {
    lineid_test::SetUp();
    g_host = {};
    const line_id_hal_func_table table = full_table();
    ASSERT_EQ(line_id_reg_hal_func(1, &table), 0);
    pkt.svlan = 100;
    pkt.cvlan = 200;
    pkt.onu_ponno = 5;
    pkt.onu_authno = 42;
    pkt.onu_portid = 7;
    pkt.onu_gemid = 1001;
    std::memcpy(info.client_mac, "\x00\x00\x5e\x00\x53\x01", 6);
  }

  static std::string text(char letter, int32_t set = 0) { return line_id_get_param_text(set, letter); }
};

TEST_F(hal_test, each_device_kind_needs_its_slots) {
  using cut = std::function<void(line_id_hal_func_table&)>;
  const struct {
    const char* slot;
    cut empty;
    int32_t code;
    const char* kinds; // that need it
  } rows[] = {
      {"set_drv_enable", [](auto& t) { t.set_drv_enable = nullptr; }, -128, "1234"},
      {"send_eth_frame", [](auto& t) { t.send_eth_frame = nullptr; }, -129, "1234"},
      {"alarm", [](auto& t) { t.mac_spoof_alarm = nullptr; }, 0, ""},
      {"log", [](auto& t) { t.log_output = nullptr; }, 0, ""},
      {"get_access_typename", [](auto& t) { t.get_access_typename = nullptr; }, -130, "1"},
      {"get_card_typename", [](auto& t) { t.get_card_typename = nullptr; }, -131, "1"},
      {"get_olt_card_slot_info", [](auto& t) { t.get_olt_card_slot_info = nullptr; }, -132, "1"},
      {"get_onu_card_slot_info", [](auto& t) { t.get_onu_card_slot_info = nullptr; }, 0, ""},
      {"tech form", [](auto& t) { t.get_access_device_tech_form = nullptr; }, -134, "1234"},
      {"onu reg", [](auto& t) { t.get_onu_reg_info_by_optional_elem = nullptr; }, -135, "1234"},
      {"onu port", [](auto& t) { t.get_onu_port_info_by_logic_port = nullptr; }, -15, "4"},
  };
  for (const auto& row : rows) {
    for (uint8_t kind = 0; kind <= 4; ++kind) {
      line_id_hal_func_table table = full_table();
      row.empty(table);
      const bool needed = std::string(row.kinds).find(static_cast<char>('0' + kind)) != std::string::npos;
      EXPECT_EQ(line_id_reg_hal_func(kind, &table), needed ? row.code : 0) << row.slot << " kind " << int{kind};
    }
  }
  const line_id_hal_func_table nothing = {};
  EXPECT_EQ(line_id_reg_hal_func(0, &nothing), 0);
  EXPECT_EQ(line_id_reg_hal_func(4, &nothing), -128) << "the first missing slot counts";
  EXPECT_EQ(line_id_reg_hal_func(5, &nothing), -1);
  EXPECT_EQ(line_id_reg_hal_func(0, nullptr), -9);
}

TEST_F(hal_test, registration_builds_the_device_interface) {
  EXPECT_EQ(g_device_if.trap_rule(0, 1, 1), 21);
  EXPECT_EQ(g_device_if.send_eth_frame(0, 1, 1, nullptr, 0), 22);
  EXPECT_EQ(g_device_if.mac_spoof_alarm(nullptr), 23);
  EXPECT_EQ(g_device_if.log_output("", 0, ""), 24);
  EXPECT_EQ(g_device_if.param_provider, &line_id_hal_param_func);
  EXPECT_EQ(lineid_get_hal_func_ptr()->get_olt_card_slot_info, &olt_slot);
}

TEST_F(hal_test, start_up_writes_the_device_names_into_all_sets) {
  ASSERT_EQ(line_id_set_init_param(), 0);
  for (const int32_t set : {0, 17, 35}) {
    EXPECT_EQ(text('B', set), std::string(50, 'A'));
    EXPECT_EQ(text('L', set), "CARD");
    EXPECT_EQ(text('S', set), "3");
  }
  for (const int slot : {4, 5, 6}) {
    g_host.failing = slot;
    EXPECT_EQ(line_id_set_init_param(), -1) << slot;
  }
  g_host = {};
  g_host.olt_slot = 0;
  EXPECT_EQ(line_id_set_init_param(), 0) << "a slot of 0 fails frames only";
  const line_id_hal_func_table nothing = {};
  ASSERT_EQ(line_id_reg_hal_func(0, &nothing), 0);
  EXPECT_EQ(line_id_set_init_param(), 0);
  EXPECT_EQ(text('B'), "");
}

TEST_F(hal_test, a_frame_gets_the_letters_of_its_line) {
  std::strcpy(info.onu.onu_id, "before");
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  const struct {
    char letter;
    const char* text;
    int flag;
  } rows[] = {{'s', "100", 1},   {'c', "200", 1},  {'S', "3", 1},    {'T', "1", 1},
              {'M', "2", 1},     {'F', "GP", 1},   {'P', "7", 0},    {'o', "43", 1},
              {'p', "6", 1},     {'g', "1001", 1}, {'n', "N1", 1},   {'t', "eth", 1},
              {'m', "ONU43", 1}, {'X', "100", 1},  {'x', "4660", 1}, {'h', "00005e005301", 1}};
  for (const auto& row : rows) {
    EXPECT_EQ(text(row.letter), row.text) << row.letter;
    EXPECT_EQ(g_params[0].flag[row.letter - 'A'], row.flag) << row.letter;
  }
  EXPECT_EQ(text('C'), std::string(50, 'C'));
  EXPECT_EQ(text('s', 1), "");
  EXPECT_EQ(g_host.asked.onu_auth, 42);
  EXPECT_EQ(g_host.asked.onu_ponno, 5);
  EXPECT_STREQ(g_host.asked.onu_id, "before");
  EXPECT_EQ(g_host.form_asked_onu, 43) << "the corrected number";
  EXPECT_EQ(pkt.onu_authno, 43);
  EXPECT_EQ(info.onu.onu_type_id, 9);
  EXPECT_EQ(info.onu.onu_losn_valid_or_invalid, 1);
  EXPECT_EQ(info.olt_slot, 3);
  pkt.onu_portid = 0;
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(text('P'), "");
}

auto fields(const line_id_onu_reg_info& reg) {
  return std::make_tuple(reg.onu_auth, reg.onu_ponno, std::string(reg.onu_id), reg.onu_rpc_ponno,
                         reg.onu_losn_valid_or_invalid, reg.onu_type_id, std::string(reg.onu_text_n),
                         std::string(reg.onu_text_c));
}

TEST_F(hal_test, a_registration_is_asked_for_anew_and_a_refused_one_leaves_nothing) {
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  g_host.failing = 9;
  ASSERT_EQ(line_id_param_proc(0, &info), -1);
  line_id_onu_reg_info question = {};
  question.onu_auth = 43; // as the first answer corrected it
  question.onu_ponno = 5;
  std::strcpy(question.onu_id, "ONU43");
  EXPECT_EQ(fields(g_host.asked), fields(question)) << "no more of the first answer than these";
  EXPECT_EQ(fields(info.onu), fields({})) << "the callback writes before it refuses";
}

TEST_F(hal_test, an_atm_port_has_circuit_numbers_and_absent_slots_give_zeros) {
  g_host.port = {LINE_ID_PORT_ATM, 11, 12, {0, 0}};
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(text('t') + text('X') + text('x'), "atm110") << "the number replaces the second circuit number";

  const line_id_hal_func_table nothing = {};
  ASSERT_EQ(line_id_reg_hal_func(0, &nothing), 0);
  line_id_inf_info fresh = {};
  fresh.pkt_info_ptr = &pkt;
  ASSERT_EQ(line_id_param_proc(0, &fresh), 0);
  EXPECT_EQ(text('S') + text('T') + text('M') + text('x') + text('p'), "00000");
  EXPECT_EQ(text('F') + text('t') + text('X') + text('m'), "");
}

TEST_F(hal_test, technology_forms) {
  const struct {
    uint8_t form;
    int32_t result;
    const char* text;
    uint8_t kept;
  } rows[] = {{1, 0, "GP", 1},  {2, 0, "EP", 99}, {3, 0, "XE", 99}, {4, 0, "XG", 4},   {5, -14, "", 99},
              {6, 0, "XGS", 6}, {7, 0, "", 99},   {0, -14, "", 99}, {255, -14, "", 99}};
  for (const auto& row : rows) {
    SCOPED_TRACE(int{row.form});
    g_host.form = row.form;
    info.form = 99;
    EXPECT_EQ(line_id_param_proc(0, &info), row.result);
    EXPECT_EQ(text('F'), row.text);
    EXPECT_EQ(info.form, row.kept);
  }
}

TEST_F(hal_test, a_missing_fact_fails_the_frame) {
  const struct {
    const char* name;
    std::function<void()> spoil;
  } rows[] = {
      {"olt slot 0", [] { g_host.olt_slot = 0; }},        {"olt slot", [] { g_host.failing = 6; }},
      {"onu slot 0", [] { g_host.onu_slot = 0; }},        {"sub-slot 0", [] { g_host.onu_sub_slot = 0; }},
      {"onu slot", [] { g_host.failing = 7; }},           {"tech form", [] { g_host.failing = 8; }},
      {"registration", [] { g_host.failing = 9; }},       {"port", [] { g_host.failing = 10; }},
      {"port type 0", [] { g_host.port.port_type = 0; }}, {"port type 3", [] { g_host.port.port_type = 3; }},
  };
  for (const auto& row : rows) {
    g_host = {};
    row.spoil();
    info.onu = {};
    pkt.onu_authno = 42;
    line_id_write_param(0, 'm', "former frame", 1);
    EXPECT_EQ(line_id_param_proc(0, &info), -1) << row.name;
    EXPECT_EQ(text('m'), "") << row.name;
    EXPECT_EQ(pkt.onu_authno, g_host.failing == 9 || row.name[0] == 'o' || row.name[0] == 's' ? 42 : 43) << row.name;
  }
  EXPECT_EQ(line_id_hal_param_func(2, line_id_param_write_inf, nullptr), -9);
  EXPECT_EQ(line_id_hal_param_func(2, nullptr, &info), -9);
}

// ---- the hook

uint8_t g_hook_mode;
line_id_pkt_property g_hook_saw;
line_id_pkt_property g_hook_writes;
int g_hook_result;

int test_hook(uint8_t mode, line_id_param_write_func write, line_id_pkt_property* property) {
  g_hook_mode = mode;
  g_hook_saw = *property;
  write('Y', "hook", 4, 1);
  if (mode == 2) *property = g_hook_writes;
  return g_hook_result;
}

TEST_F(hal_test, the_hook_sees_a_zero_record_at_start) {
  g_hook_result = 0;
  ASSERT_EQ(line_id_reg_param_custom_if(test_hook), 0);
  ASSERT_EQ(line_id_set_init_param(), 0);
  EXPECT_EQ(g_hook_mode, 1);
  const line_id_pkt_property zero = {};
  EXPECT_EQ(std::memcmp(&g_hook_saw, &zero, sizeof(zero)), 0);
  EXPECT_EQ(text('Y', 35), "hook");
  g_hook_result = 1;
  EXPECT_EQ(line_id_set_init_param(), -1);
  EXPECT_EQ(line_id_param_proc(0, &info), -1);
}

TEST_F(hal_test, what_the_hook_writes_back_holds_within_bounds) {
  g_hook_result = 0;
  line_id_reg_param_custom_if(test_hook);
  const struct {
    uint8_t packet_type;
    uint8_t cid;
    uint8_t rid;
    uint8_t cid_taken;
    uint8_t rid_taken;
  } rows[] = {{LINE_ID_DHCPV4, 64, 1, 64, 1}, {LINE_ID_PPPOE, 65, 255, 0, 0}, {LINE_ID_DHCPV6, 5, 6, 0, 0}};
  for (const auto& row : rows) {
    pkt.packet_type = row.packet_type;
    pkt.vlan_count = 2;
    info.cid = 3;
    g_hook_writes = {};
    g_hook_writes.packet_type = row.packet_type;
    g_hook_writes.svlan = 7;
    g_hook_writes.reserved[LINE_ID_EXT_CID] = row.cid;
    g_hook_writes.reserved[LINE_ID_EXT_RID] = row.rid;
    const int32_t set = row.packet_type - 1;
    ASSERT_EQ(line_id_param_proc(set, &info), 0);
    EXPECT_EQ(g_hook_mode, 2);
    EXPECT_EQ(g_hook_saw.olt_slot, 3);
    EXPECT_EQ(g_hook_saw.onu_type_id, 9);
    EXPECT_EQ(pkt.svlan, 7);
    EXPECT_EQ(pkt.vlan_count, 2);
    EXPECT_EQ(info.cid, row.cid_taken);
    EXPECT_EQ(info.rid, row.rid_taken);
    EXPECT_EQ(text('Y', set), "hook");
  }
  g_hook_writes.reserved[LINE_ID_EXT_OLTID] = 255;
  EXPECT_EQ(line_id_param_proc(1, &info), 0);
  line_id_reg_param_custom_if(nullptr);
  pkt.reserved[LINE_ID_EXT_OLTID] = 0;
  ASSERT_EQ(line_id_param_proc(1, &info), 0);
  EXPECT_EQ(text('Y', 1), "");
}

} // namespace
