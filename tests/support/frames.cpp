// Frame builder of the tests.
#include "tests/support/frames.h"

#include <cstring>

namespace {

void put16(octets& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value >> 8));
  out.push_back(static_cast<uint8_t>(value));
}

void set16(octets& out, size_t at, size_t value) {
  out[at] = static_cast<uint8_t>(value >> 8);
  out[at + 1] = static_cast<uint8_t>(value);
}

void append(octets& out, const octets& more) { out.insert(out.end(), more.begin(), more.end()); }

octets all_relays() { return {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2}; } // ff02::1:2

bool from_server(dhcp6_type type) {
  return type == ADVERTISE || type == REPLY || type == RECONFIGURE || type == RELAY_REPL;
}

} // namespace

octets text(std::string_view s) { return {s.begin(), s.end()}; }

octets tlv1(uint8_t code, const octets& value) {
  octets out = {code, static_cast<uint8_t>(value.size())};
  append(out, value);
  return out;
}

octets tlv2(uint16_t code, const octets& value) {
  octets out;
  put16(out, code);
  put16(out, static_cast<uint16_t>(value.size()));
  append(out, value);
  return out;
}

octets join(std::initializer_list<octets> parts) {
  octets out;
  for (const octets& part : parts) append(out, part);
  return out;
}

octets link_local(uint8_t last) { return {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last}; }

octets dhcp6_message(dhcp6_type type, std::initializer_list<octets> options) {
  octets out = {type, 0x12, 0x34, 0x56};
  append(out, join(options));
  return out;
}

octets relay6_message(dhcp6_type type, uint8_t hops, const octets& peer, std::initializer_list<octets> options) {
  octets out = {type, hops};
  append(out, octets(16, 0));
  append(out, peer);
  append(out, join(options));
  return out;
}

frame_builder eth(const mac_octets& src, const mac_octets& dst) {
  frame_builder builder;
  builder.frame.insert(builder.frame.end(), dst.at, dst.at + 6);
  builder.frame.insert(builder.frame.end(), src.at, src.at + 6);
  return builder;
}

frame_builder& frame_builder::vlan(uint16_t vid, uint16_t tpid) {
  put16(frame, tpid);
  put16(frame, vid);
  return *this;
}

frame_builder& frame_builder::raw(const octets& more) {
  append(frame, more);
  return *this;
}

frame_builder& frame_builder::dhcp4(uint8_t bootp_op, uint16_t src_port, uint16_t dst_port) {
  put16(frame, 0x0800);
  ip_at = static_cast<uint32_t>(frame.size());
  raw({0x45, 0x10, 0, 0, 0x12, 0x34, 0, 0, 64, 17, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255});
  udp_at = static_cast<uint32_t>(frame.size());
  put16(frame, src_port);
  put16(frame, dst_port);
  raw({0, 0, 0xAB, 0xCD}); // a checksum that must become 0 when the frame is rebuilt
  octets bootp(236, 0);
  bootp[0] = bootp_op;
  bootp[1] = 1;
  bootp[2] = 6;
  std::memcpy(&bootp[4], "\x39\x03\xF3\x26", 4);
  std::memcpy(&bootp[28], SUBSCRIBER_MAC.at, 6);
  raw(bootp);
  return raw({0x63, 0x82, 0x53, 0x63});
}

frame_builder& frame_builder::dhcp4(dhcp4_type type) {
  const bool reply = type == OFFER || type == ACK || type == NAK;
  return reply ? dhcp4(2, 67, 68) : dhcp4(1, 68, 67);
}

frame_builder& frame_builder::ip6_udp(const octets& ext_headers, uint8_t first_next_header, uint16_t src_port,
                                      uint16_t dst_port) {
  put16(frame, 0x86DD);
  ip6 = true;
  two_octet_options = true;
  ip_at = static_cast<uint32_t>(frame.size());
  raw({0x60, 0, 0, 0, 0, 0, first_next_header, 1});
  const bool down = dst_port == 546 || src_port == 547;
  raw(down ? link_local(0xFE) : link_local(1));
  raw(down ? link_local(1) : all_relays());
  raw(ext_headers);
  udp_at = static_cast<uint32_t>(frame.size());
  put16(frame, src_port);
  put16(frame, dst_port);
  return raw({0, 0, 0, 0});
}

frame_builder& frame_builder::dhcp6(dhcp6_type type) {
  if (from_server(type)) {
    ip6_udp({}, 17, 547, 546);
  } else {
    ip6_udp({}, 17, 546, 547);
  }
  return raw(dhcp6_message(type));
}

frame_builder& frame_builder::relay6(dhcp6_type type, uint8_t hops, const octets& peer) {
  return ip6_udp({}, 17, 547, 547).raw(relay6_message(type, hops, peer, {}));
}

frame_builder& frame_builder::pppoe(pppoe_code code, uint16_t session) {
  put16(frame, 0x8863);
  pppoe_at = static_cast<uint32_t>(frame.size());
  two_octet_options = true;
  raw({0x11, code});
  put16(frame, session);
  return raw({0, 0});
}

frame_builder& frame_builder::option(uint16_t code, const octets& value) {
  return raw(two_octet_options ? tlv2(code, value) : tlv1(static_cast<uint8_t>(code), value));
}

frame_builder& frame_builder::payload_len(uint16_t len) {
  claimed_len = len;
  return *this;
}

octets frame_builder::end() {
  frame.push_back(0xFF);
  return done();
}

octets frame_builder::done() {
  if (udp_at != 0) set16(frame, udp_at + 4, frame.size() - udp_at);
  if (pppoe_at != 0) {
    set16(frame, pppoe_at + 4, claimed_len >= 0 ? static_cast<size_t>(claimed_len) : frame.size() - pppoe_at - 6);
  }
  if (ip_at != 0 && !ip6) {
    set16(frame, ip_at + 2, frame.size() - ip_at);
    set16(frame, ip_at + 10, test_checksum({frame.begin() + ip_at, frame.begin() + ip_at + 20}));
  }
  if (ip_at != 0 && ip6) {
    set16(frame, ip_at + 4, frame.size() - ip_at - 40);
    set16(frame, udp_at + 6, 0);
    octets pseudo(frame.begin() + ip_at + 8, frame.begin() + ip_at + 40);
    append(pseudo, {0, 0});
    put16(pseudo, static_cast<uint16_t>(frame.size() - udp_at));
    append(pseudo, {0, 0, 0, 17});
    pseudo.insert(pseudo.end(), frame.begin() + udp_at, frame.end());
    const uint16_t sum = test_checksum(pseudo);
    set16(frame, udp_at + 6, sum == 0 ? 0xFFFF : sum);
  }
  return frame;
}

octets frame_builder::padded(uint32_t padding) {
  octets out = done();
  out.insert(out.end(), padding, 0);
  return out;
}

uint16_t test_checksum(const octets& data) {
  uint64_t sum = 0;
  for (size_t i = 0; i < data.size(); ++i) sum += i % 2 == 0 ? static_cast<uint64_t>(data[i]) << 8 : data[i];
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return static_cast<uint16_t>(~sum);
}

bool udp6_checksum_good(const octets& frame, uint32_t ip_at, uint32_t udp_at) {
  if (frame.size() < udp_at + 8 || (frame[udp_at + 6] == 0 && frame[udp_at + 7] == 0)) return false;
  octets pseudo(frame.begin() + ip_at + 8, frame.begin() + ip_at + 40);
  append(pseudo, {0, 0, frame[udp_at + 4], frame[udp_at + 5], 0, 0, 0, 17});
  const size_t udp_len = static_cast<size_t>(frame[udp_at + 4]) << 8 | frame[udp_at + 5];
  if (udp_len > frame.size() - udp_at) return false;
  pseudo.insert(pseudo.end(), frame.begin() + udp_at, frame.begin() + static_cast<std::ptrdiff_t>(udp_at + udp_len));
  return test_checksum(pseudo) == 0;
}
