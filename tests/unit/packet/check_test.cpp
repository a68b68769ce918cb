// Header checks, VLAN tags, checksums and the closing step.
#include "include/line_id.h"
#include "packet/check.h"
#include "packet/closing.h"
#include "tests/support/frames.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

// A heap copy of exactly `len` octets, so that the sanitizer sees a read behind it.
std::unique_ptr<uint8_t[]> exact_copy(const octets& from, size_t len) {
  std::unique_ptr<uint8_t[]> copy(new uint8_t[len]);
  if (len > 0) std::memcpy(copy.get(), from.data(), len);
  return copy;
}

octets after_macs(std::initializer_list<uint16_t> words) {
  octets frame(12, 0);
  for (const uint16_t word : words) {
    frame.push_back(static_cast<uint8_t>(word >> 8));
    frame.push_back(static_cast<uint8_t>(word));
  }
  return frame;
}

octets discover(uint32_t tags = 0) {
  frame_builder builder = eth();
  for (uint32_t i = 0; i < tags; ++i) builder.vlan(100);
  return builder.dhcp4(DISCOVER).option(53, {DISCOVER}).end();
}

octets patched(octets frame, std::initializer_list<std::pair<size_t, uint8_t>> changes) {
  for (const auto& [at, value] : changes) frame[at] = value;
  return frame;
}

using facts = std::vector<int>; // tags, S-VLAN, C-VLAN, packet type

facts vlan_facts(const octets& whole, size_t cut) {
  const auto len = static_cast<uint32_t>(cut);
  const auto frame = exact_copy(whole, len);
  uint16_t svlan = 0;
  uint16_t cvlan = 0;
  const int32_t tags = line_id_check_vlan(frame.get(), len, &svlan, &cvlan);
  EXPECT_EQ(line_id_check_vlan_tag_num(frame.get(), len), tags);
  return {tags, svlan, cvlan, line_id_get_eth_header_type(frame.get(), len)};
}

} // namespace

TEST(check_vlan, rows) {
  const struct {
    const char* name;
    octets frame;
    facts expected;
  } rows[] = {
      {"untagged", after_macs({0x0800, 0x4500}), {0, 4096, 4096, 1}},
      {"a TPID at 16 alone is none", after_macs({0x0800, 0, 0x8100, 1}), {0, 4096, 4096, 1}},
      {"one, priority bits masked", after_macs({0x8100, 0xE064, 0x0800}), {1, 4096, 100, 1}},
      {"one, untagged marker", after_macs({0x88A8, 0x0FF8, 0x0800}), {1, 4096, 4096, 1}},
      {"two, the inner VLAN is the EtherType", after_macs({0x88A8, 100, 0x8100, 200, 0x0800}), {2, 100, 2048, 1}},
      {"two, IPv6", after_macs({0x8100, 100, 0x8100, 200, 0x86DD}), {2, 100, 1757, 2}},
      {"two, marker at 20", after_macs({0x8100, 100, 0x8100, 200, 0x0FF8}), {2, 100, 4096, 1}},
      {"two, outer marker", after_macs({0x8100, 4088, 0x8100, 200, 7}), {2, 4096, 7, 1}},
      {"12 and 20 but not 16", after_macs({0x8100, 100, 0x1234, 0, 0x8100, 300, 0x0800}), {3, 4096, 100, 1}},
      {"12 and 24 alone", after_macs({0x8100, 100, 0, 0, 0, 0, 0x88A8, 1, 0x0800}), {4, 4096, 100, 1}},
      {"five count four", after_macs({0x8100, 1, 0x8100, 2, 0x8100, 3, 0x8100, 4, 0x8100, 5}), {4, 1, 256, 1}},
  };
  for (const auto& row : rows) EXPECT_EQ(vlan_facts(row.frame, row.frame.size()), row.expected) << row.name;
  const octets& frame = rows[0].frame;
  uint16_t vlan = 0;
  EXPECT_EQ(line_id_check_vlan_tag_num(nullptr, 60), -9);
  EXPECT_EQ(line_id_check_vlan(nullptr, 60, &vlan, &vlan), -9);
  EXPECT_EQ(line_id_check_vlan(frame.data(), 16, nullptr, &vlan), -9);
  EXPECT_EQ(line_id_check_vlan(frame.data(), 16, &vlan, nullptr), -9);
}

TEST(check_vlan, cut_words_are_no_tags) {
  const octets whole = after_macs({0x8100, 100, 0x8100, 200, 0x86DD});
  const std::pair<size_t, facts> rows[] = {{0, {0, 4096, 4096, 1}}, {13, {0, 4096, 4096, 1}}, {14, {1, 4096, 4096, 1}},
                                           {16, {1, 4096, 100, 1}}, {17, {1, 4096, 100, 1}},  {18, {2, 100, 4096, 1}},
                                           {21, {2, 100, 4096, 1}}, {22, {2, 100, 1757, 2}}};
  for (const auto& [len, expected] : rows) EXPECT_EQ(vlan_facts(whole, len), expected) << len;
}

TEST(check_time, only_the_same_and_the_next_tick_fail) {
  EXPECT_EQ(line_id_check_processed_time(5, 4), 0);
  EXPECT_EQ(line_id_check_processed_time(5, 5), -1);
  EXPECT_EQ(line_id_check_processed_time(5, 6), -1);
  EXPECT_EQ(line_id_check_processed_time(5, 7), 0);
}

TEST(check_sum, vectors) {
  EXPECT_EQ(line_id_check_sum(octets{0x01}.data(), 1), 0xFEFF);
  EXPECT_EQ(line_id_check_sum(nullptr, 0), 0xFFFF);
  EXPECT_EQ(line_id_check_sum(octets{0, 1, 0xF2, 3, 0xF4, 0xF5, 0xF6, 0xF7}.data(), 8), 0x220D); // RFC 1071, 3
  EXPECT_EQ(line_id_check_sum(octets(1534, 0xFF).data(), 1534), 0);

  octets data(80);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 37 + 201);
  for (uint32_t start = 0; start < 3; ++start) {
    for (uint32_t len = 0; len <= 64; ++len) {
      const octets part(data.begin() + start, data.begin() + start + len);
      EXPECT_EQ(line_id_check_sum(exact_copy(part, len).get(), len), test_checksum(part)) << start << "+" << len;
    }
  }
}

TEST(check_sum, written_into_a_header) {
  const octets ip = {0x45, 0, 0, 0x73, 0, 0, 0x40, 0, 0x40, 0x11, 0, 0, 0xC0, 0xA8, 0, 1, 0xC0, 0xA8, 0, 0xC7, 1, 2};
  const octets summed = patched(ip, {{10, 0xB8}, {11, 0x61}});
  const struct {
    uint32_t len, offset;
    const octets& result;
  } rows[] = {{20, 10, summed}, {20, 0x1000A, summed},                            // the offset counts in 16 bits
              {22, 10, ip},     {20, 20, ip},          {0, 0, ip}, {20, 19, ip}}; // one octet would lie outside
  for (const auto& row : rows) {
    octets buf = ip;
    line_id_caculate_check_sum(buf.data(), row.len, row.offset);
    EXPECT_EQ(buf, row.result) << row.len << " " << row.offset;
  }
}

TEST(check_dhcp, rows) {
  const octets frame = discover();
  struct {
    const char* name;
    octets frame;
    uint8_t direct;
    int32_t result;
  } const rows[] = {
      {"up", frame, 1, 0},
      {"up, four tags", discover(4), 1, 0},
      {"down", eth().dhcp4(OFFER).option(53, {OFFER}).end(), 2, 0},
      {"Ethernet padding", eth().dhcp4(DISCOVER).padded(6), 1, -82},
      {"IP length too long", patched(frame, {{17, static_cast<uint8_t>(frame[17] + 1)}}), 1, -82},
      {"server's ports upstream", eth().dhcp4(1, 67, 68).end(), 1, -84},
      {"client's ports downstream", frame, 2, -84},
      {"source port", patched(frame, {{35, 69}}), 1, -84},
      {"direction", frame, 3, -84},
      {"UDP length", patched(frame, {{39, static_cast<uint8_t>(frame[39] - 1)}}), 1, -84},
      {"IP header of 60 octets", patched(frame, {{14, 0x4F}}), 1, -84},
      {"six tags", discover(6), 1, -82},
  };
  for (const auto& row : rows) {
    const auto len = static_cast<uint32_t>(row.frame.size());
    EXPECT_EQ(line_id_check_dhcp_pkt(exact_copy(row.frame, len).get(), len, row.direct), row.result) << row.name;
  }
  EXPECT_EQ(line_id_check_dhcp_pkt(nullptr, 300, 1), -9);
}

TEST(check_dhcp, own_codes_of_the_parts) {
  const octets udp = {0, 67, 0, 68, 0, 8, 0, 0};
  EXPECT_EQ(line_id_check_udp_header(udp.data(), 8, 1), -85);
  EXPECT_EQ(line_id_check_udp_header(udp.data(), 8, 2), 0);
  EXPECT_EQ(line_id_check_udp_header(udp.data(), 9, 2), -84);
  EXPECT_EQ(line_id_check_udp_header(udp.data(), 7, 2), -84);
  EXPECT_EQ(line_id_check_udp_header(udp.data(), -1, 2), -84);
  EXPECT_EQ(line_id_check_udp_header(udp.data(), 8, 0), -41);
  EXPECT_EQ(line_id_check_ip_header(octets{0x45, 0, 0, 20}.data(), -6), -84);
}

TEST(check_dhcp, every_cut_is_refused) {
  for (const uint32_t tags : {0U, 2U, 4U}) {
    const octets whole = discover(tags);
    // A total length that agrees with the cut must not help either.
    octets agreeing = whole;
    for (size_t len = 0; len < whole.size(); ++len) {
      const size_t ip = 14 + 4 * tags;
      EXPECT_NE(line_id_check_dhcp_pkt(exact_copy(whole, len).get(), static_cast<uint32_t>(len), 1), 0) << len;
      if (len < ip) continue;
      agreeing[ip + 2] = static_cast<uint8_t>((len - ip) >> 8);
      agreeing[ip + 3] = static_cast<uint8_t>(len - ip);
      EXPECT_NE(line_id_check_dhcp_pkt(exact_copy(agreeing, len).get(), static_cast<uint32_t>(len), 1), 0) << len;
    }
  }
}

TEST(check_pppoe, rows) {
  const struct {
    octets header;
    int32_t up, down;
  } rows[] = {{{0x11, PADI, 0, 0, 0, 0}, 0, -87},         {{0x11, PADR, 0, 0, 0, 0}, 0, -87},
              {{0x11, PADT, 0, 0, 0, 0}, 0, -87},         {{0x11, PADO, 0, 0, 0, 0}, -87, 0},
              {{0x11, PADS, 0, 0, 0, 0}, -87, 0},         {{0x12, PADI, 0, 0, 0, 0}, -86, -86},
              {{0x11, PADI, 0, 0, 0, 2, 0, 0}, 0, -87},   {{0x11, PADI, 0, 0, 0, 1, 0, 0}, 0, -87},
              {{0x11, PADI, 0, 0, 0, 3, 0, 0}, -88, -87}, {{0x11, PADI, 0, 0, 0xFF, 0xFF}, -88, -87},
              {{0x11, PADI, 0, 0, 0}, -88, -88},          {{}, -88, -88}};
  for (const auto& row : rows) {
    const auto header = exact_copy(row.header, row.header.size());
    const auto len = static_cast<int32_t>(row.header.size());
    EXPECT_EQ(line_id_check_pppoe_header(header.get(), len, 1), row.up) << testing::PrintToString(row.header);
    EXPECT_EQ(line_id_check_pppoe_header(header.get(), len, 2), row.down) << testing::PrintToString(row.header);
  }
  EXPECT_EQ(line_id_check_pppoe_header(rows[0].header.data(), -8, 1), -88);
}

TEST(closing, dhcp4_as_an_untouched_frame_but_without_udp_checksum) {
  for (const uint32_t tags : {0U, 4U}) {
    const octets whole = discover(tags);
    const uint32_t vlan = 4 * tags;
    octets frame = patched(whole, {{16 + vlan, 0x7F}, {24 + vlan, 1}, {25 + vlan, 2}, {38 + vlan, 0x7F}});
    line_id_close_dhcp4(frame.data(), static_cast<uint32_t>(frame.size()), vlan);
    EXPECT_EQ(frame, patched(whole, {{40 + vlan, 0}, {41 + vlan, 0}}));
  }
  octets cut = discover();
  cut.resize(41);
  const octets before = cut;
  line_id_close_dhcp4(cut.data(), 41, 0);
  EXPECT_EQ(cut, before);
}

TEST(closing, dhcp6_lengths_and_checksum) {
  const octets ext = {17, 0, 1, 2, 3, 4, 5, 6};
  const struct {
    octets frame;
    uint32_t vlan, ext;
  } rows[] = {{eth().dhcp6(SOLICIT).option(1, {1, 2, 3}).done(), 0, 0}, // odd length
              {eth().vlan(7).ip6_udp(ext, 0, 546, 547).raw(dhcp6_message(SOLICIT)).done(), 4, 8}};
  for (const auto& [whole, vlan, ext_len] : rows) {
    const uint32_t udp = 54 + vlan + ext_len;
    octets frame = patched(whole, {{18 + vlan, 0x7F}, {udp + 4, 0x7F}, {udp + 6, 0xAA}, {udp + 7, 0xBB}});
    line_id_close_dhcp6(frame.data(), static_cast<uint32_t>(frame.size()), vlan, ext_len);
    EXPECT_EQ(frame, whole);
    EXPECT_TRUE(udp6_checksum_good(frame, 14 + vlan, udp));
  }
}

TEST(closing, a_checksum_of_zero_is_sent_as_ones) {
  octets frame = eth().dhcp6(SOLICIT).option(1, {0, 0}).done();
  const size_t value = frame.size() - 2;
  frame[value] = frame[60]; // the checksum so far, put into the payload, makes it zero
  frame[value + 1] = frame[61];
  line_id_close_dhcp6(frame.data(), static_cast<uint32_t>(frame.size()), 0, 0);
  EXPECT_EQ(frame[60], 0xFF);
  EXPECT_EQ(frame[61], 0xFF);
}

TEST(closing, pppoe_payload_length) {
  const octets whole = eth().vlan(7).pppoe(PADI).option(0x0101, octets(300, 1)).done();
  octets frame = whole;
  const auto len = static_cast<uint32_t>(frame.size());
  line_id_close_pppoe(frame.data(), len, 4, 10);
  EXPECT_EQ(frame, patched(whole, {{22, 1}, {23, 58}})); // 304 + 10
  line_id_close_pppoe(frame.data(), len, 4, -64);
  EXPECT_EQ(frame, patched(whole, {{22, 0}, {23, 250}}));
}
