// Tags, checksums and padding.
#include "host/offload.h"

#include <cstring>

namespace {

constexpr size_t MACS_LEN = 12;
constexpr size_t IPV6_HEADER = 40;
constexpr size_t PPPOE_HEADER = 6;
constexpr size_t MIN_FRAME = 60; // what Ethernet pads to; longer frames have no padding

void put_u16(uint8_t* at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

// Internet checksum (RFC 1071) with the sum that stands in its field.
uint16_t checksum(octet_view data) {
  uint32_t sum = 0;
  for (size_t at = 0; at < data.size(); at += 2) sum += u16_at(data, at);
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

} // namespace

offload_header wire_frame::offload() const {
  offload_header header;
  std::memcpy(&header, start, OFFLOAD_LEN);
  return header;
}

void put_tag_back(wire_frame& wire, uint16_t tpid, uint16_t tci) {
  wire.start -= TAG_LEN;
  wire.len += TAG_LEN;
  std::memmove(wire.start, wire.start + TAG_LEN, OFFLOAD_LEN + MACS_LEN);
  uint8_t* tag = wire.start + OFFLOAD_LEN + MACS_LEN;
  put_u16(tag, tpid);
  put_u16(tag + 2, tci);

  offload_header header = wire.offload();
  if (header.header_len != 0) header.header_len += TAG_LEN;
  if ((header.flags & OFFLOAD_CHECKSUM) != 0) header.checksum_start += TAG_LEN;
  std::memcpy(wire.start, &header, OFFLOAD_LEN);
}

bool finish_checksum(const wire_frame& wire) {
  const offload_header header = wire.offload();
  if (header.segmentation != 0) return false;
  if ((header.flags & OFFLOAD_CHECKSUM) == 0) return true;
  const octet_view covered = slice(wire.frame(), header.checksum_start);
  if (covered.size() < size_t{header.checksum_offset} + 2) return false;
  const uint16_t sum = checksum(covered); // the field holds the pseudo header's sum
  put_u16(wire.start + OFFLOAD_LEN + header.checksum_start + header.checksum_offset, sum != 0 ? sum : 0xFFFF);
  return true;
}

octet_view without_padding(octet_view frame, const frame_class& found) {
  if (frame.size() > MIN_FRAME + TAG_LEN * found.tags) return frame;
  const size_t payload = found.payload;
  size_t len = payload;
  switch (found.protocol) {
  case LINE_ID_DHCPV4: len += u16_at(frame, payload + 2); break;
  case LINE_ID_DHCPV6: len += IPV6_HEADER + u16_at(frame, payload + 4); break;
  default: len += PPPOE_HEADER + u16_at(frame, payload + 4); break;
  }
  return len >= found.message ? slice(frame, 0, len) : frame;
}
