// What a frame is, where it is going and which identifiers it carries.
#pragma once

#include "host/octets.h"
#include "include/line_id.h"

#include <optional>
#include <string>
#include <unordered_map>

constexpr uint8_t PROTOCOL_NONE = 0; // beside LINE_ID_DHCPV4, LINE_ID_DHCPV6 and LINE_ID_PPPOE
constexpr uint16_t NO_VLAN = 4096;   // the agent's number for a tag that is not there
constexpr size_t TAG_LEN = 4;        // of a VLAN tag

struct frame_class {
  uint8_t protocol; // what a trap rule goes by: 0 to 4 VLAN tags, then UDP to a DHCP port or PPPoE Discovery
  uint8_t tags;
  uint16_t outer; // VLAN of the first tag, or NO_VLAN
  uint16_t inner; // VLAN of the second tag, or NO_VLAN
  mac_address source;
  mac_address destination;
  uint16_t udp_source;
  uint16_t udp_destination;
  size_t payload; // offset of what follows the EtherType
  size_t message; // offset of the BOOTP, DHCPv6 or PPPoE header
};
frame_class classify_frame(octet_view frame);

// The subscriber's address in a frame: the source upstream, the destination downstream; of a reply to everybody the
// hardware address that its BOOTP header names.
mac_address subscriber_mac(octet_view frame, const frame_class& found, uint8_t direct);

// Direction of the frames of one capture. It remembers on which side each address was seen.
class direction_finder {
public:
  // LINE_ID_UPSTREAM or LINE_ID_DOWNSTREAM, by the message; where the message can go both ways, by the side on which
  // its source or destination was seen, and upstream when neither was.
  uint8_t find(octet_view frame, const frame_class& found);

private:
  void learn(const mac_address& subscriber, const mac_address& server);
  std::optional<uint8_t> learnt(const frame_class& found) const;
  std::unordered_map<uint64_t, uint8_t> side_; // address to the direction of the frames that it sends
};

struct frame_ids {
  std::optional<std::string> circuit_id; // escaped
  std::optional<std::string> remote_id;
};
frame_ids decode_ids(octet_view frame);
