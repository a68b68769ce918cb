// The identifiers that a frame carries: Option 82, options 18 and 37, the PPPoE vendor tag.
#include "host/classify.h"

namespace {

constexpr size_t BOOTP_OPTIONS = 240;
constexpr uint8_t DHCP_PAD = 0;
constexpr uint8_t DHCP_END = 255;
constexpr uint8_t DHCP_RELAY_AGENT = 82;
constexpr uint8_t CIRCUIT_ID = 1;
constexpr uint8_t REMOTE_ID = 2;
constexpr uint8_t DHCPV6_RELAY_FORW = 12;
constexpr size_t DHCPV6_RELAY_OPTIONS = 34;
constexpr uint16_t DHCPV6_INTERFACE_ID = 18;
constexpr uint16_t DHCPV6_REMOTE_ID = 37;
constexpr size_t ENTERPRISE_LEN = 4;
constexpr size_t PPPOE_HEADER = 6;
constexpr uint16_t PPPOE_VENDOR_TAG = 0x0105;
constexpr size_t VENDOR_LEN = 4;

void read_sub_options(octet_view value, frame_ids& ids) {
  for (size_t at = 0; at + 2 <= value.size(); at += size_t{2} + value[at + 1]) {
    const std::string text = escaped(slice(value, at + 2, value[at + 1]));
    if (value[at] == CIRCUIT_ID) ids.circuit_id = text;
    if (value[at] == REMOTE_ID) ids.remote_id = text;
  }
}

void read_dhcp4(octet_view bootp, frame_ids& ids) {
  size_t at = BOOTP_OPTIONS;
  while (at < bootp.size() && bootp[at] != DHCP_END) {
    if (bootp[at] == DHCP_PAD) {
      ++at;
      continue;
    }
    const size_t len = u8_at(bootp, at + 1);
    if (bootp[at] == DHCP_RELAY_AGENT) read_sub_options(slice(bootp, at + 2, len), ids);
    at += len + 2;
  }
}

// Options and tags of two-octet codes and lengths: `take` sees each.
template <typename function> void walk_words(octet_view data, function take) {
  for (size_t at = 0; at + 4 <= data.size();) {
    const size_t len = u16_at(data, at + 2);
    take(u16_at(data, at), slice(data, at + 4, len));
    at += len + 4;
  }
}

void read_dhcp6(octet_view message, frame_ids& ids) {
  if (u8_at(message, 0) != DHCPV6_RELAY_FORW) return;
  walk_words(slice(message, DHCPV6_RELAY_OPTIONS), [&](uint16_t code, octet_view value) {
    if (code == DHCPV6_INTERFACE_ID) ids.circuit_id = escaped(value);
    if (code == DHCPV6_REMOTE_ID) ids.remote_id = escaped(slice(value, ENTERPRISE_LEN));
  });
}

void read_pppoe(octet_view pppoe, frame_ids& ids) {
  walk_words(slice(pppoe, PPPOE_HEADER, u16_at(pppoe, 4)), [&](uint16_t type, octet_view value) {
    if (type == PPPOE_VENDOR_TAG) read_sub_options(slice(value, VENDOR_LEN), ids);
  });
}

} // namespace

frame_ids decode_ids(octet_view frame) {
  frame_ids ids;
  const frame_class found = classify_frame(frame);
  const octet_view message = slice(frame, found.message);
  switch (found.protocol) {
  case LINE_ID_DHCPV4: read_dhcp4(message, ids); break;
  case LINE_ID_DHCPV6: read_dhcp6(message, ids); break;
  case LINE_ID_PPPOE: read_pppoe(message, ids); break;
  default: break;
  }
  return ids;
}
