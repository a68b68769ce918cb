// The circuit-ID configuration block and the format-mode block.
#include "tests/unit/config/config_test.h"

namespace {

using BlockTest = ConfigTest;

line_id_circuit_id_config enabled(uint8_t bits, uint8_t pppoe) {
  line_id_circuit_id_config block = {};
  block.enable = bits;
  block.pppoe_plus_enable = pppoe;
  return block;
}

TEST_F(BlockTest, SetStoresAllAndReachesTheParameters) {
  line_id_circuit_id_config block = enabled(0xFF, 1);
  block.slot = 9;
  std::memset(block.ani_str, 'a', 50); // no terminators: the texts fill their fields
  std::memset(block.uplink_type, 'u', 32);
  std::memset(block.hostname, 'h', 64);
  block.rack_no = -2;
  block.frame_no = 3;
  block.manage_ip = 0x0A000102;
  EXPECT_EQ(line_id_set_circuit_id_config_cfg(8, &block), 0);
  EXPECT_EQ(line_id_get_slot(8), 9);
  EXPECT_EQ(line_id_get_option82_enable_cfg(8), 1);
  EXPECT_EQ(line_id_get_option18_enable_cfg(8), 1);
  EXPECT_EQ(line_id_get_option37_enable_cfg(8), 1);
  EXPECT_EQ(line_id_get_pppoe_plus_enable_cfg(8), 1);
  EXPECT_EQ(line_id_get_rack_no_cfg(8), -2);
  EXPECT_EQ(trap_rules, (trap_list{{8, 1, 1}, {8, 2, 1}, {8, 3, 1}}));
  const std::string letters =
      "|" + std::string(50, 'a') + "|-2|3|10.0.1.2|" + std::string(32, 'u') + "|" + std::string(50, 'h') + "|";
  for (const int set : {32, 35}) EXPECT_EQ(texts(set, "arfOuH"), letters) << set;
}

TEST_F(BlockTest, GetLeavesTheHostNameAndTheOtherBits) {
  line_id_circuit_id_config block = enabled(LINE_ID_ENABLE_OPTION82 | LINE_ID_ENABLE_OPTION37, 0);
  std::strcpy(block.ani_str, "node");
  std::strcpy(block.hostname, "host");
  block.frame_no = 258;
  line_id_set_circuit_id_config_cfg(0, &block);

  line_id_circuit_id_config read;
  std::memset(&read, 0xFF, sizeof(read));
  EXPECT_EQ(line_id_get_circuit_id_config_cfg(0, &read), 0);
  EXPECT_EQ(read.enable, 0xFD);
  EXPECT_EQ(read.pppoe_plus_enable, 0);
  EXPECT_EQ(read.ani_str, std::string("node"));
  const auto* octets = reinterpret_cast<const uint8_t*>(&read);
  EXPECT_EQ(octets[55], 2); // frame 258, little-endian host
  EXPECT_EQ(octets[56], 1);
  EXPECT_EQ(octets[92], 0);
  for (int i = 93; i < 157; ++i) ASSERT_EQ(octets[i], 0xFF) << i;
}

TEST_F(BlockTest, TrapRuleGoesOffWithTheLastInstance) {
  line_id_circuit_id_config on = enabled(3, 1), off = enabled(0, 0);
  line_id_set_circuit_id_config_cfg(0, &on);
  line_id_set_circuit_id_config_cfg(7, &on);
  trap_rules.clear();
  line_id_set_circuit_id_config_cfg(0, &off);
  EXPECT_EQ(trap_rules, trap_list{});
  line_id_set_circuit_id_config_cfg(7, &off);
  EXPECT_EQ(trap_rules, (trap_list{{7, 1, 0}, {7, 2, 0}, {7, 3, 0}}));
}

TEST_F(BlockTest, EnableAboveOneIsOnButKeepsNoRuleAlive) {
  line_id_circuit_id_config odd = enabled(0, 2), off = enabled(0, 0);
  line_id_set_circuit_id_config_cfg(1, &odd);
  EXPECT_EQ(line_id_get_pppoe_plus_enable_cfg(1), 2);
  EXPECT_EQ(trap_rules.back(), (std::vector<int>{1, 3, 2}));
  trap_rules.clear();
  line_id_set_circuit_id_config_cfg(0, &off);
  EXPECT_EQ(trap_rules.back(), (std::vector<int>{0, 3, 0}));
}

TEST_F(BlockTest, FormatModeTakesAnyTypeAndTheWholeTemplate) {
  line_id_circuit_id_format_mode block = {};
  block.line_id_format_type = 200;
  std::memset(block.custom_format, 'f', 256);
  EXPECT_EQ(line_id_set_circuit_id_format_mode_cfg(3, &block), 0);
  EXPECT_EQ(line_id_get_line_id_format_type_cfg(3), -56);
  line_id_circuit_id_format_mode read;
  std::memset(&read, 0xEE, sizeof(read));
  EXPECT_EQ(line_id_get_circuit_id_format_mode_cfg(3, &read), 0);
  EXPECT_EQ(read.line_id_format_type, 200);
  EXPECT_EQ(read.custom_format[255], 'f');
  for (const uint8_t octet : read.reserved) EXPECT_EQ(octet, 0xEE);
}

TEST_F(BlockTest, NoBlockOrNoInstance) {
  line_id_circuit_id_config config = enabled(7, 1);
  line_id_circuit_id_format_mode mode = {};
  for (const uint8_t id : {uint8_t{0}, uint8_t{9}, uint8_t{255}}) {
    EXPECT_EQ(line_id_set_circuit_id_config_cfg(id, id == 0 ? nullptr : &config), -147);
    EXPECT_EQ(line_id_get_circuit_id_config_cfg(id, id == 0 ? nullptr : &config), -9);
    EXPECT_EQ(line_id_set_circuit_id_format_mode_cfg(id, id == 0 ? nullptr : &mode), -147);
    EXPECT_EQ(line_id_get_circuit_id_format_mode_cfg(id, id == 0 ? nullptr : &mode), -9);
  }
  EXPECT_EQ(trap_rules, trap_list{});
}

} // namespace
