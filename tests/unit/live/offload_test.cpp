// Frames as network devices leave them.
#include "host/offload.h"
#include "tests/support/frames.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

// A received frame: room for a tag, the header, the frame.
struct received_frame {
  octets memory;
  wire_frame wire;

  received_frame(const offload_header& header, const octets& frame) : memory(TAG_LEN + OFFLOAD_LEN + frame.size()) {
    std::memcpy(&memory[TAG_LEN], &header, OFFLOAD_LEN);
    std::copy(frame.begin(), frame.end(), memory.begin() + TAG_LEN + OFFLOAD_LEN);
    wire = {.start = &memory[TAG_LEN], .len = OFFLOAD_LEN + frame.size()};
  }
  octets frame() const { return {wire.frame().begin(), wire.frame().end()}; }
};

TEST(put_tag_back, moves_what_the_header_points_at) {
  struct {
    const char* name;
    offload_header before, after;
  } const rows[] = {
      {"nothing", {}, {}},
      {"segments and a checksum", {1, 1, 66, 1448, 34, 16}, {1, 1, 70, 1448, 38, 16}},
      {"a checksum that the device has verified: offsets mean nothing", {2, 0, 0, 0, 0, 0}, {2, 0, 0, 0, 0, 0}}};
  const octets inner = eth().vlan(7).dhcp4(DISCOVER).end();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    received_frame received(row.before, inner);
    put_tag_back(received.wire, 0x88A8, 0x60C8); // priority 3, VLAN 200
    EXPECT_EQ(received.wire.start, received.memory.data());
    EXPECT_EQ(received.frame(), eth().vlan(0x60C8, 0x88A8).vlan(7).dhcp4(DISCOVER).end());
    const offload_header found = received.wire.offload();
    EXPECT_EQ(std::memcmp(&found, &row.after, OFFLOAD_LEN), 0);
  }
}

TEST(finish_checksum, completes_what_was_left_to_the_device) {
  const octets whole = eth().vlan(100).dhcp6(SOLICIT).done();
  const uint32_t udp = 14 + 4 + 40;
  octets unfinished = whole;
  // The sum of the pseudo header alone: both addresses, the length and the protocol.
  octets pseudo(whole.begin() + 18 + 8, whole.begin() + 18 + 40);
  const auto udp_len = static_cast<uint16_t>(whole.size() - udp);
  pseudo.insert(pseudo.end(), {static_cast<uint8_t>(udp_len >> 8), static_cast<uint8_t>(udp_len), 0, 17});
  const auto sum = static_cast<uint16_t>(~test_checksum(pseudo));
  unfinished[udp + 6] = static_cast<uint8_t>(sum >> 8);
  unfinished[udp + 7] = static_cast<uint8_t>(sum);
  offload_header header = {.flags = 1, .header_len = 0, .checksum_start = udp, .checksum_offset = 6};
  received_frame received(header, unfinished);
  EXPECT_TRUE(finish_checksum(received.wire));
  EXPECT_EQ(received.frame(), whole);

  struct {
    const char* name;
    uint8_t flags, segmentation;
    size_t start;
    uint16_t offset;
    bool result;
  } const rows[] = {{"nothing to do", 0, 0, 0, 0, true},
                    {"the field ends with the frame", 1, 0, whole.size() - 8, 6, true},
                    {"the field ends behind the frame", 1, 0, whole.size() - 7, 6, false},
                    {"starts behind the frame", 1, 0, 0xFFFF, 0xFFFF, false},
                    {"segmented", 1, 5, udp, 6, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    header = {.flags = row.flags,
              .segmentation = row.segmentation,
              .checksum_start = static_cast<uint16_t>(row.start),
              .checksum_offset = row.offset};
    EXPECT_EQ(finish_checksum(received_frame(header, whole).wire), row.result);
  }
}

TEST(without_padding, cuts_what_the_lengths_do_not_cover) {
  const octets padi = eth().vlan(7).pppoe(PADI).option(0x0101, {}).done(); // 28 octets
  struct {
    const char* name;
    octets frame;
    size_t len;
  } const rows[] = {
      {"PADI", eth().vlan(7).pppoe(PADI).option(0x0101, {}).padded(36), 28},
      {"exact", padi, 28},
      {"a length that runs over", eth().vlan(7).pppoe(PADI).payload_len(99).option(0x0101, {}).padded(36), 64},
      {"too long for padding", eth().vlan(7).pppoe(PADI).option(0x0101, {}).padded(37), 65}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(without_padding(row.frame, classify_frame(row.frame)).size(), row.len);
  }
}

} // namespace
