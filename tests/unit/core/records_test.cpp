// The property record: octet positions, and back.
#include "core/records.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(property_record, carries_every_field_at_its_place_and_back) {
  line_id_pkt_info pkt = {};
  pkt.recv_time = 0x01020304;
  pkt.src_port = 0x11223344;
  pkt.svlan = 0x0A0B;
  pkt.cvlan = 0x0C0D;
  pkt.onu_ponno = 5;
  pkt.onu_portid = 7;
  pkt.onu_gemid = 1001;
  pkt.onu_authno = 42;
  std::memcpy(pkt.onu_mac, "\x21\x22\x23\x24\x25\x26", 6);
  pkt.packet_type = LINE_ID_PPPOE;
  pkt.direct = LINE_ID_DOWNSTREAM;
  for (uint8_t i = 0; i < sizeof(pkt.reserved); ++i) pkt.reserved[i] = static_cast<uint8_t>(0x80 + i);
  line_id_inf_info info = {};
  info.pkt_info_ptr = &pkt;
  info.olt_slot = 3;
  info.onu.onu_type_id = 0x0909;
  std::memcpy(info.client_mac, "\x31\x32\x33\x34\x35\x36", 6);

  line_id_pkt_property property = {};
  ASSERT_EQ(line_id_get_pkt_propety_by_inf_info(&property, &info), 0);
  const uint8_t places[][2] = {{4, 0x31}, {10, 0x21}, {24, 0xE9}, {25, 3},    {32, 4},   {35, 1},
                               {36, 3},   {37, 3},    {38, 2},    {39, 0x80}, {70, 0x9F}};
  uint8_t raw[71];
  std::memcpy(raw, &property, sizeof(raw));
  for (const auto& [at, value] : places) EXPECT_EQ(raw[at], value) << int{at};

  property.onu_gemid = 0x00051234;
  line_id_pkt_info pkt_back = {};
  line_id_inf_info back = {};
  back.pkt_info_ptr = &pkt_back;
  ASSERT_EQ(line_id_set_inf_info_by_pkt_propety(&property, &back), 0);
  EXPECT_EQ(pkt_back.onu_gemid, 0x1234) << "the upper half is lost";
  pkt_back.onu_gemid = pkt.onu_gemid;
  EXPECT_EQ(std::memcmp(&pkt_back, &pkt, sizeof(pkt)), 0);
  EXPECT_EQ(back.olt_slot, 3);
  EXPECT_EQ(back.onu.onu_type_id, 0x0909);
  EXPECT_EQ(std::memcmp(back.client_mac, info.client_mac, 6), 0);

  EXPECT_EQ(line_id_get_pkt_propety_by_inf_info(nullptr, &info), -9);
  EXPECT_EQ(line_id_set_inf_info_by_pkt_propety(&property, nullptr), -9);
}

} // namespace
