// The judge of sent frames.
#include "fuzz/oracle.h"

#include "packet/check.h"

#include <algorithm>
#include <cstring>

namespace {

uint32_t u16_at(const octets& frame, size_t at) {
  FUZZ_CHECK(at + 2 <= frame.size(), "a field at %zu of a frame of %zu", at, frame.size());
  return static_cast<uint32_t>(frame[at]) << 8 | frame[at + 1];
}

octets part(const octets& from, size_t at, size_t len) {
  FUZZ_CHECK(at <= from.size() && len <= from.size() - at, "octets %zu to %zu of %zu", at, at + len, from.size());
  return {from.begin() + static_cast<std::ptrdiff_t>(at), from.begin() + static_cast<std::ptrdiff_t>(at + len)};
}

bool contains(const octets& whole, const octets& piece) {
  return std::search(whole.begin(), whole.end(), piece.begin(), piece.end()) != whole.end();
}

// Where a frame was rewritten: `old_len` octets at `at` became `new_len`.
struct rewrite {
  size_t at;
  size_t old_len;
  size_t new_len;
};

// Everything outside of the rewrite is as received, but for the two-octet fields at `closed`.
void check_untouched(const octets& received, const octets& sent, const rewrite& place,
                     std::initializer_list<size_t> closed) {
  octets head = part(received, 0, place.at);
  octets sent_head = part(sent, 0, place.at);
  for (const size_t field : closed) {
    for (const size_t at : {field, field + 1}) {
      if (at < place.at) head[at] = sent_head[at] = 0;
    }
  }
  FUZZ_CHECK(head == sent_head, "octets in front of the option changed");
  const size_t rest = received.size() - place.at - place.old_len;
  FUZZ_CHECK(part(sent, place.at + place.new_len, rest) == part(received, place.at + place.old_len, rest),
             "octets behind the option changed");
}

rewrite rewrite_at(const octets& received, const octets& sent, size_t at, size_t old_len) {
  FUZZ_CHECK(sent.size() + old_len >= received.size(), "%zu octets became %zu", received.size(), sent.size());
  return {at, old_len, sent.size() + old_len - received.size()};
}

// Sub-options 1 and 2 fill the value. A PPPoE text of 256 octets has the length octet 0.
void check_sub_options(const octets& value, bool may_have_256) {
  std::vector<bool> reached(value.size() + 1, false);
  reached[0] = true;
  for (size_t at = 0; at + 2 <= value.size(); ++at) {
    if (!reached[at] || (value[at] != 1 && value[at] != 2)) continue;
    const size_t len = value[at + 1];
    if (at + 2 + len <= value.size()) reached[at + 2 + len] = true;
    if (len == 0 && may_have_256 && at + 2 + 256 <= value.size()) reached[at + 2 + 256] = true;
  }
  FUZZ_CHECK(reached[value.size()], "sub-options do not fill their option of %zu", value.size());
}

// ---- DHCPv4

void check_dhcp4(const fuzz_case& input, const octets& received, const octets& sent, size_t vlan_len) {
  FUZZ_CHECK((input.settings.down & 1) == 0, "a DHCPv4 frame was changed downstream");
  const size_t ip = 14 + vlan_len;
  const size_t udp = ip + 20;
  size_t at = udp + 8 + 240;
  size_t option = 0;
  while (at < received.size() && received[at] != 255) {
    FUZZ_CHECK(received[at] != 0 && at + 2 <= received.size(), "sent in spite of its options");
    if (received[at] == 82) option = at;
    at += size_t{2} + received[at + 1];
  }
  FUZZ_CHECK(at < received.size(), "sent without an End option");
  const rewrite place = option != 0 ? rewrite_at(received, sent, option, size_t{2} + received[option + 1])
                                    : rewrite_at(received, sent, at, 0);
  check_untouched(received, sent, place, {ip + 2, ip + 10, udp + 4, udp + 6});
  FUZZ_CHECK(u16_at(sent, ip + 2) == sent.size() - ip, "IPv4 length");
  FUZZ_CHECK(test_checksum(part(sent, ip, 20)) == 0, "IPv4 checksum");
  FUZZ_CHECK(u16_at(sent, udp + 4) == sent.size() - udp && u16_at(sent, udp + 6) == 0, "UDP length and checksum");
  if (input.settings.line.ext[LINE_ID_EXT_CIRCUIT_BY_VLAN] == 1 && place.new_len == 0) return;
  FUZZ_CHECK(place.new_len >= 2 && sent[place.at] == 82 && sent[place.at + 1] + size_t{2} == place.new_len,
             "no whole Option 82 of %zu", place.new_len);
  FUZZ_CHECK(sent.size() <= 1500, "grown to %zu", sent.size());
  check_sub_options(part(sent, place.at + 2, place.new_len - 2), false);
}

// ---- PPPoE

void check_pppoe(const fuzz_case& input, const octets& received, const octets& sent, size_t vlan_len) {
  const bool down = (input.settings.down & 1) != 0;
  const size_t header = 14 + vlan_len;
  const size_t payload = header + 6;
  const size_t end = payload + u16_at(received, header + 4);
  FUZZ_CHECK(end <= received.size(), "sent in spite of its length");
  size_t at = payload;
  size_t old_at = end; // a tag that is inserted goes behind the payload
  size_t old_len = 0;
  while (at + 4 <= end && old_len == 0) {
    const size_t len = 4 + u16_at(received, at + 2);
    const bool vendor = u16_at(received, at) == 0x0105;
    FUZZ_CHECK(!vendor || at + len <= end, "a vendor tag that runs past the payload was rewritten");
    if (vendor) old_at = at, old_len = len;
    at += len;
  }
  const rewrite place = rewrite_at(received, sent, old_at, old_len);
  check_untouched(received, sent, place, {header + 4});
  FUZZ_CHECK(u16_at(sent, header + 4) == ((end - payload + sent.size() - received.size()) & 0xFFFF), "payload length");
  if (down) {
    FUZZ_CHECK(place.new_len == 0 && (input.settings.strips & STRIP_PPPOE) != 0, "more than a removal downstream");
    return;
  }
  if (input.settings.line.ext[LINE_ID_EXT_CIRCUIT_BY_VLAN] == 1 && place.new_len == 0) return;
  constexpr uint8_t VENDOR[] = {0, 0, 0x0D, 0xE9}; // 3561
  FUZZ_CHECK(place.new_len >= 8 && u16_at(sent, place.at) == 0x0105 &&
                 u16_at(sent, place.at + 2) + 4 == place.new_len &&
                 std::memcmp(&sent[place.at + 4], VENDOR, sizeof(VENDOR)) == 0,
             "no whole vendor tag of %zu", place.new_len);
  FUZZ_CHECK(sent.size() <= 1500, "grown to %zu", sent.size());
  check_sub_options(part(sent, place.at + 8, place.new_len - 8), true);
}

// ---- DHCPv6

// The Relay-Forward's options: Relay Message, then Interface-ID and Remote-ID, each at most once, to the last octet.
void check_relay_options(const octets& received, const octets& sent, size_t at, size_t received_message) {
  const octets message = part(received, received_message, received.size() - received_message);
  constexpr uint32_t ORDER[] = {9, 18, 37};
  size_t next = 0;
  for (size_t len = 0; at < sent.size(); at += 4 + len) {
    const uint32_t code = u16_at(sent, at);
    len = u16_at(sent, at + 2);
    while (next < std::size(ORDER) && ORDER[next] != code) ++next;
    FUZZ_CHECK(next < std::size(ORDER), "option %u out of place", code);
    const octets value = part(sent, at + 4, len);
    if (code == 9) FUZZ_CHECK(value == message || (message[0] == 12 && contains(message, value)), "Relay Message");
    if (code == 18) FUZZ_CHECK(len <= 256, "an Interface-ID of %zu", len);
    if (code == 37) FUZZ_CHECK(len >= 4 && u16_at(value, 0) == 0 && u16_at(value, 2) == 3807, "enterprise number");
    if (next == 0) FUZZ_CHECK(code == 9, "the Relay Message is not first");
    ++next;
  }
  FUZZ_CHECK(at == sent.size() && next > 0, "the options do not end with the frame");
}

void check_dhcp6(const fuzz_case& input, const octets& received, const octets& sent, size_t vlan_len) {
  const bool down = (input.settings.down & 1) != 0;
  const size_t ip = 14 + vlan_len;
  FUZZ_CHECK(u16_at(sent, ip + 4) == sent.size() - ip - 40, "IPv6 payload length");
  octets head = part(received, 0, ip + 40);
  octets sent_head = part(sent, 0, ip + 40);
  head[ip + 4] = sent_head[ip + 4] = head[ip + 5] = sent_head[ip + 5] = 0;
  const octets destination = part(sent, ip + 24, 16);
  if (down) std::copy(destination.begin(), destination.end(), head.begin() + static_cast<std::ptrdiff_t>(ip + 24));
  FUZZ_CHECK(head == sent_head, "octets of the IPv6 header changed");
  if (received[ip + 6] != 17) return; // where UDP is behind extension headers is for the unit tests
  const size_t udp = ip + 40;
  const size_t message = udp + 8;
  FUZZ_CHECK(u16_at(sent, udp + 4) == sent.size() - udp, "UDP length");
  FUZZ_CHECK(udp6_checksum_good(sent, static_cast<uint32_t>(ip), static_cast<uint32_t>(udp)), "UDP checksum");
  if (down) {
    const octets relayed = part(received, message, received.size() - message);
    const octets inner = part(sent, message, sent.size() - message);
    FUZZ_CHECK(contains(relayed, inner) && contains(relayed, destination), "not unwrapped from what came");
    const bool to_client = inner[0] == 2 || inner[0] == 7 || inner[0] == 10;
    FUZZ_CHECK(to_client ? u16_at(sent, udp + 2) == 546 : inner[0] == 13, "message type %u", inner[0]);
    return;
  }
  FUZZ_CHECK(u16_at(sent, udp) == 547 && u16_at(sent, udp + 2) == 547 && sent[message] == 12, "no Relay-Forward");
  FUZZ_CHECK(part(sent, message + 2, 16) == octets(16, 0), "link address");
  FUZZ_CHECK(part(sent, message + 18, 16) == part(received, ip + 8, 16), "peer address");
  check_relay_options(received, sent, message + 34, message);
}

} // namespace

void fuzz_check_sent(uint8_t protocol, const fuzz_case& input, const octets& received, const octets& sent) {
  FUZZ_CHECK(sent.size() <= 1536, "a frame of %zu octets", sent.size());
  if (sent == received) return;
  const auto len = static_cast<uint32_t>(received.size());
  const size_t vlan_len = static_cast<size_t>(line_id_check_vlan_tag_num(received.data(), len)) * 4;
  const bool ip6 = line_id_get_eth_header_type(received.data(), len) == LINE_ID_DHCPV6;
  if (protocol == LINE_ID_PPPOE) {
    check_pppoe(input, received, sent, vlan_len);
  } else if (ip6) {
    check_dhcp6(input, received, sent, vlan_len);
  } else {
    check_dhcp4(input, received, sent, vlan_len);
  }
}
