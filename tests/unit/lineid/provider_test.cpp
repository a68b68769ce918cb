// HAL registration and the parameter provider: letters, failures, the host's hook.
#include "tests/support/agent.h"
#include "tests/unit/lineid/lineid_test.h"

#include <tuple>

namespace {

using hal_table = line_id_hal_func_table;

// What the callbacks were asked.
line_id_onu_reg_info g_asked;
uint16_t g_form_asked_onu;

int onu_reg(line_id_onu_reg_info* reg) {
  g_asked = *reg;
  const uint16_t pon = reg->onu_ponno;
  *reg = g_agent.onu;
  reg->onu_ponno = pon;
  std::memset(reg->onu_text_c, 'C', sizeof(reg->onu_text_c)); // leaves no terminator
  return g_agent.facts_result;
}

// The answers of the test agent, but for a corrected ONU number and texts without terminators.
class hal_test : public lineid_test {
protected:
  void SetUp() override {
    lineid_test::SetUp();
    agent_reset_record();
    g_agent.onu.onu_auth = 43;
    g_agent.onu.onu_rpc_ponno = 6;
    g_agent.port.number[0] = 0x12;
    g_agent.hal.get_onu_reg_info_by_optional_elem = onu_reg;
    g_agent.hal.get_access_typename = [](char* buf, uint32_t size) {
      std::memset(buf, 'A', size);
      return 0;
    };
    g_agent.hal.get_access_device_tech_form = [](uint16_t, uint16_t onu, uint8_t* form) {
      g_form_asked_onu = onu;
      *form = g_agent.form;
      return 0;
    };
    ASSERT_EQ(line_id_reg_hal_func(1, &g_agent.hal), 0);
    pkt.svlan = 100;
    pkt.cvlan = 200;
    pkt.onu_ponno = 5;
    pkt.onu_authno = 42;
    pkt.onu_portid = 7;
    pkt.onu_gemid = 1001;
    std::memcpy(info.client_mac, SUBSCRIBER_MAC.at, 6);
  }
};

TEST_F(hal_test, each_device_kind_needs_its_slots) {
  const struct {
    int32_t code;      // when the slot is empty
    std::string kinds; // that need it
  } rows[] = {{-128, "1234"}, {-129, "1234"}, {0, ""},        {0, ""},        {-130, "1"}, {-131, "1"},
              {-132, "1"},    {0, ""},        {-134, "1234"}, {-135, "1234"}, {-15, "4"}}; // in the order of the table
  static_assert(sizeof(g_agent.hal) == std::size(rows) * sizeof(void*));
  for (size_t slot = 0; slot < std::size(rows); ++slot) {
    for (uint8_t kind = 0; kind <= 4; ++kind) {
      hal_table table = g_agent.hal;
      std::memset(reinterpret_cast<uint8_t*>(&table) + slot * sizeof(void*), 0, sizeof(void*));
      const bool needed = rows[slot].kinds.find(static_cast<char>('0' + kind)) != std::string::npos;
      EXPECT_EQ(line_id_reg_hal_func(kind, &table), needed ? rows[slot].code : 0) << slot << " kind " << int{kind};
    }
  }
  const hal_table nothing = {};
  EXPECT_EQ(line_id_reg_hal_func(0, &nothing), 0);
  EXPECT_EQ(line_id_reg_hal_func(4, &nothing), -128) << "the first missing slot counts";
  EXPECT_EQ(line_id_reg_hal_func(5, &nothing), -1);
  EXPECT_EQ(line_id_reg_hal_func(0, nullptr), -9);
}

TEST_F(hal_test, registration_builds_the_device_interface) {
  EXPECT_EQ(g_device_if.trap_rule, g_agent.hal.set_drv_enable);
  EXPECT_EQ(g_device_if.send_eth_frame, g_agent.hal.send_eth_frame);
  EXPECT_EQ(g_device_if.mac_spoof_alarm, g_agent.hal.mac_spoof_alarm);
  EXPECT_EQ(g_device_if.log_output, g_agent.hal.log_output);
  EXPECT_EQ(g_device_if.param_provider, &line_id_hal_param_func);
  EXPECT_EQ(lineid_get_hal_func_ptr()->get_olt_card_slot_info, g_agent.hal.get_olt_card_slot_info);
}

using spoiler = void (*)(hal_table&); // of the registered table

// A callback that answers, and fails all the same.
template <auto Slot> void fails(hal_table& hal) {
  hal.*Slot = [](auto... arguments) {
    (g_agent.hal.*Slot)(arguments...);
    return -77;
  };
}

TEST_F(hal_test, start_up_writes_the_device_names_into_all_sets) {
  ASSERT_EQ(line_id_set_init_param(), 0);
  for (const int32_t set : {0, 17, 35}) EXPECT_EQ(texts(set, "BLS"), "|" + std::string(50, 'A') + "|CARD|3|") << set;
  for (const spoiler spoil : {fails<&hal_table::get_access_typename>, fails<&hal_table::get_card_typename>,
                              fails<&hal_table::get_olt_card_slot_info>}) {
    *lineid_get_hal_func_ptr() = g_agent.hal;
    spoil(*lineid_get_hal_func_ptr());
    EXPECT_EQ(line_id_set_init_param(), -1);
  }
  *lineid_get_hal_func_ptr() = g_agent.hal;
  g_agent.olt_slot = 0;
  EXPECT_EQ(line_id_set_init_param(), 0) << "a slot of 0 fails frames only";
  *lineid_get_hal_func_ptr() = {};
  EXPECT_EQ(line_id_set_init_param(), 0);
  EXPECT_EQ(texts(0, "B"), "||");
}

TEST_F(hal_test, a_frame_gets_the_letters_of_its_line) {
  std::strcpy(info.onu.onu_id, "before");
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(texts(0, "scSTMFPopgnmtXxhC"),
            "|100|200|3|1|2|GP|7|43|6|1001|N1|ONU42|eth|100|4615|00005e005301|" + std::string(50, 'C') + "|");
  EXPECT_EQ(texts(1, "s"), "||");
  for (const char letter : std::string("scSTMFPopgnmtXxhC")) {
    EXPECT_EQ(g_params[0].flag[letter - 'A'], letter == 'P' ? 0 : 1) << letter;
  }
  EXPECT_EQ((std::vector<int>{g_asked.onu_auth, g_asked.onu_ponno}), (std::vector<int>{42, 5}));
  EXPECT_STREQ(g_asked.onu_id, "before");
  EXPECT_EQ(g_form_asked_onu, 43) << "the corrected number";
  EXPECT_EQ(pkt.onu_authno, 43);
  EXPECT_EQ((std::vector<int>{info.onu.onu_type_id, info.onu.onu_losn_valid_or_invalid, info.olt_slot}),
            (std::vector<int>{9, 1, 3}));
  pkt.onu_portid = 0;
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(texts(0, "P"), "||");
}

// What a callback other than the parameter table's own gets to write.
std::string g_written;
int note_letter(int letter, const char* text, int length, int flag) {
  g_written += static_cast<char>(letter) + std::string(text) + (flag == 1 ? "" : "?") + "|";
  EXPECT_EQ(length, static_cast<int>(std::strlen(text)));
  return 0;
}

TEST_F(hal_test, letters_are_the_same_whichever_way_they_are_written) {
  const char* letters = "scSTMFPopgnmtXxhC";
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  const std::string plain = texts(0, letters);
  const auto again = [&] {
    for (const char* letter = letters; *letter != '\0'; ++letter) line_id_write_param(0, *letter, "former frame", 1);
    EXPECT_EQ(line_id_param_proc(0, &info), 0);
    EXPECT_EQ(g_params[0].flag['P' - 'A'], 0);
    return texts(0, letters);
  };
  line_id_dbg_type_enable(LOG_DEVICE);
  line_id_dbg_level_set(2);
  testing::internal::CaptureStdout();
  EXPECT_EQ(again(), plain) << "with traces";
  EXPECT_NE(testing::internal::GetCapturedStdout().find("onu_id after = ONU42"), std::string::npos);
  line_id_dbg_level_set(0);
  line_id_write_param_force(0, 'm', "pinned");
  const std::string beside = again();
  EXPECT_EQ(beside, std::string(plain).replace(plain.find("ONU42"), 5, "pinned"));
  line_id_set_param_flag(0, 'm', PARAM_FREE);
  EXPECT_EQ(again(), plain) << "released again";

  g_written.clear();
  ASSERT_EQ(line_id_hal_param_func(2, note_letter, &info), 0);
  EXPECT_EQ(g_written, "teth|X100|x200|x4615|s100|c200|S3|T1|M2|FGP|h00005e005301|P7?|o43|p6|g1001|nN1|mONU42|C" +
                           std::string(50, 'C') + "|");
  g_device_if.param_provider = [](uint8_t, line_id_param_write_func write, line_id_inf_info*) {
    return write('m', "other", 5, 1);
  };
  EXPECT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(texts(0, "sm"), "||other|") << "another provider than the host's callbacks";
}

TEST_F(hal_test, texts_of_any_length_are_whole) {
  for (const size_t len : {1, 15, 16, 17, 49, 50}) {
    std::memset(g_agent.onu.onu_id, 0, sizeof(g_agent.onu.onu_id));
    std::memset(g_agent.onu.onu_id, 'i', len);
    ASSERT_EQ(line_id_param_proc(0, &info), 0);
    EXPECT_EQ(texts(0, "m"), "|" + std::string(len, 'i') + "|");
  }
}

auto fields(const line_id_onu_reg_info& reg) {
  return std::make_tuple(reg.onu_auth, reg.onu_ponno, std::string(reg.onu_id), reg.onu_rpc_ponno,
                         reg.onu_losn_valid_or_invalid, reg.onu_type_id, std::string(reg.onu_text_n),
                         std::string(reg.onu_text_c));
}

TEST_F(hal_test, a_registration_is_asked_for_anew_and_a_refused_one_leaves_nothing) {
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  g_agent.facts_result = -77;
  ASSERT_EQ(line_id_param_proc(0, &info), -1);
  line_id_onu_reg_info question = {};
  question.onu_auth = 43; // as the first answer corrected it
  question.onu_ponno = 5;
  std::strcpy(question.onu_id, "ONU42");
  EXPECT_EQ(fields(g_asked), fields(question)) << "no more of the first answer than these";
  EXPECT_EQ(fields(info.onu), fields({})) << "the callback writes before it refuses";
}

TEST_F(hal_test, an_atm_port_has_circuit_numbers_and_absent_slots_give_zeros) {
  g_agent.port = {LINE_ID_PORT_ATM, 11, 12, {0, 0}};
  ASSERT_EQ(line_id_param_proc(0, &info), 0);
  EXPECT_EQ(texts(0, "tXx"), "|atm|11|0|") << "the number replaces the second circuit number";

  *lineid_get_hal_func_ptr() = {};
  line_id_inf_info fresh = {};
  fresh.pkt_info_ptr = &pkt;
  ASSERT_EQ(line_id_param_proc(0, &fresh), 0);
  EXPECT_EQ(texts(0, "STMxpFtXm"), "|0|0|0|0|0|||||");
}

TEST_F(hal_test, technology_forms) {
  const struct {
    uint8_t form;
    int32_t result;
    const char* text;
    uint8_t kept;
  } rows[] = {{1, 0, "|GP|", 1},  {2, 0, "|EP|", 99}, {3, 0, "|XE|", 99}, {4, 0, "|XG|", 4},   {5, -14, "||", 99},
              {6, 0, "|XGS|", 6}, {7, 0, "||", 99},   {0, -14, "||", 99}, {255, -14, "||", 99}};
  for (const auto& row : rows) {
    SCOPED_TRACE(int{row.form});
    g_agent.form = row.form;
    info.form = 99;
    EXPECT_EQ(line_id_param_proc(0, &info), row.result);
    EXPECT_EQ(texts(0, "F"), row.text);
    EXPECT_EQ(info.form, row.kept);
  }
}

TEST_F(hal_test, a_missing_fact_fails_the_frame) {
  const struct {
    const char* name;
    uint16_t onu; // the frame's ONU number then: 43 once the registration has corrected it
    spoiler spoil;
  } rows[] = {
      {"olt slot 0", 42, [](auto&) { g_agent.olt_slot = 0; }},
      {"olt slot", 42, fails<&hal_table::get_olt_card_slot_info>},
      {"onu slot 0", 42, [](auto&) { g_agent.onu_slot = 0; }},
      {"sub-slot 0", 42, [](auto&) { g_agent.onu_sub_slot = 0; }},
      {"onu slot", 42, fails<&hal_table::get_onu_card_slot_info>},
      {"registration", 42, fails<&hal_table::get_onu_reg_info_by_optional_elem>},
      {"tech form", 43, fails<&hal_table::get_access_device_tech_form>},
      {"port", 43, fails<&hal_table::get_onu_port_info_by_logic_port>},
      {"port type 0", 43, [](auto&) { g_agent.port.port_type = 0; }},
      {"port type 3", 43, [](auto&) { g_agent.port.port_type = 3; }},
  };
  const test_agent answers = g_agent;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    g_agent = answers;
    *lineid_get_hal_func_ptr() = g_agent.hal;
    row.spoil(*lineid_get_hal_func_ptr());
    info.onu = {};
    pkt.onu_authno = 42;
    line_id_write_param(0, 'm', "former frame", 1);
    line_id_write_param(0, 'S', "12", 1);
    EXPECT_EQ(line_id_param_proc(0, &info), -1);
    EXPECT_EQ(texts(0, "mS"), "||12|") << "the device's letters stay";
    EXPECT_EQ(pkt.onu_authno, row.onu);
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
  EXPECT_EQ(texts(35, "Y"), "|hook|");
  g_hook_result = 1;
  EXPECT_EQ(line_id_set_init_param(), -1);
  EXPECT_EQ(line_id_param_proc(0, &info), -1);
}

TEST_F(hal_test, what_the_hook_writes_back_holds_within_bounds) {
  g_hook_result = 0;
  line_id_reg_param_custom_if(test_hook);
  const struct {
    uint8_t packet_type, cid, rid, cid_taken, rid_taken;
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
    EXPECT_EQ((std::vector<int>{g_hook_saw.olt_slot, g_hook_saw.onu_type_id}), (std::vector<int>{3, 9}));
    EXPECT_EQ((std::vector<int>{pkt.svlan, pkt.vlan_count}), (std::vector<int>{7, 2}));
    EXPECT_EQ((octets{info.cid, info.rid}), (octets{row.cid_taken, row.rid_taken})) << int{row.packet_type};
    EXPECT_EQ(texts(set, "Y"), "|hook|");
  }
  g_hook_writes.reserved[LINE_ID_EXT_OLTID] = 255;
  EXPECT_EQ(line_id_param_proc(1, &info), 0);
  line_id_reg_param_custom_if(nullptr);
  pkt.reserved[LINE_ID_EXT_OLTID] = 0;
  ASSERT_EQ(line_id_param_proc(1, &info), 0);
  EXPECT_EQ(texts(1, "Y"), "||");
}

} // namespace
