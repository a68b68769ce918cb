// The records that carry a frame through the agent, and the message that announces it to the worker.
#pragma once

#include "include/line_id.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

// A step that each frame takes, compiled in one piece with what its file has for it.
#define LINE_ID_FLAT __attribute__((flatten))

constexpr uint32_t LINE_ID_SCRATCH_LEN = 1536;   // the rebuilt frame: the longest frame, rounded up to whole words
constexpr size_t LINE_ID_SCRATCH_ALIGN = 2048;   // so that no page ends inside: stores across its end are slow
constexpr uint32_t LINE_ID_UNIT_LEN = 1600;      // a unit's frame copy
constexpr uint32_t LINE_ID_REBUILT_LEN = 1500;   // DHCPv4 and PPPoE frames do not grow past this
constexpr uint32_t LINE_ID_MAX_TAGS = 4;         // VLAN tags of a frame
constexpr uint32_t LINE_ID_IDENTIFIER_LEN = 256; // octets of a Circuit-ID or Remote-ID text
constexpr uint32_t LINE_ID_PARAM_SETS = LINE_ID_INSTANCES * 4; // instance x {DHCPv4, DHCPv6, PPPoE, spare}

// Facts of a frame that travel with its pool unit; filled by ingress, field by field, and never cleared between uses.
struct __attribute__((packed)) line_id_pkt_info {
  uint32_t recv_time;   //  0: ticks
  uint32_t src_port;    //  4
  uint16_t svlan;       //  8
  uint16_t cvlan;       // 10
  uint16_t onu_ponno;   // 12
  uint16_t onu_portid;  // 14
  uint16_t onu_gemid;   // 16
  uint16_t onu_authno;  // 18
  uint8_t vlan_count;   // 20: 0 to 4
  uint8_t onu_mac[6];   // 21
  uint8_t packet_type;  // 27: LINE_ID_DHCPV4, ...
  uint8_t direct;       // 28
  uint8_t unused[4];    // 29
  uint8_t reserved[32]; // 33: LINE_ID_EXT_*
};
static_assert(sizeof(line_id_pkt_info) == 65);
static_assert(offsetof(line_id_pkt_info, reserved) == 33);

// Where a unit is. The worker takes a message only for a unit that is queued for the message's kind, so a forged,
// repeated or left-over message is harmless.
enum line_id_unit_state : uint8_t {
  UNIT_FREE = 0,
  UNIT_INGRESS = 1,
  UNIT_IN_WORK = 2,
  UNIT_QUEUED = 16, // plus the message kind
};

// A frame copy of the pool. On exactly one of the pool's two lists. Units share no cache line: they are in the hands of
// different threads.
struct alignas(64) line_id_unit {
  line_id_unit* prev;
  line_id_unit* next;
  uint32_t length;                            // octets of `data` in use, 1 to 1534
  std::atomic<uint8_t> state;                 // line_id_unit_state
  line_id_pkt_info* pkt_info_ptr;             // `info` behind it
  line_id_pkt_info info;                      // reached through the pointer
  alignas(64) uint8_t data[LINE_ID_UNIT_LEN]; // from the destination MAC
};

// What the worker knows of the frame it handles; zeroed for each frame.
struct line_id_inf_info {
  line_id_pkt_info* pkt_info_ptr;
  uint8_t profile_flag; // VLAN profile numbers: 0 none; always 0 for DHCPv6
  uint8_t cid;
  uint8_t rid;
  uint8_t olt_slot; // shown to hooks as the property octet
  uint16_t onu_slot;
  uint16_t onu_sub_slot;
  uint8_t form;             // LINE_ID_FORM_*; set for GP, XG and XGS only
  uint8_t client_mac[6];    // source MAC as received
  line_id_onu_reg_info onu; // onu.onu_type_id is the property word
  line_id_onu_port_info port;
  const uint8_t* origin_pkt_ptr; // as received, inside the unit
  uint8_t* new_pkt;              // LINE_ID_SCRATCH_LEN octets
  uint16_t origin_pkt_len;
  uint16_t new_pkt_len;
  uint8_t is_parse_error; // a received Circuit-ID did not fit the custom template
  uint8_t anti_spoof_passed;
  uint8_t msg_kind; // DHCP message type for the binding check; stays 0
  uint8_t pppoe_code;
};

// Instance of a frame, and its parameter set for one protocol.
inline uint8_t line_id_info_oltid(const line_id_inf_info* info) {
  return info->pkt_info_ptr->reserved[LINE_ID_EXT_OLTID];
}
inline uint32_t line_id_vlan_tag_len(const line_id_inf_info* info) { return info->pkt_info_ptr->vlan_count * 4U; }
inline int32_t line_id_param_set_of(uint8_t oltid, uint8_t packet_type) { return oltid * 4 + packet_type - 1; }

// Kinds of the queue message.
enum line_id_msg_kind : uint16_t {
  MSG_SET = 0,
  MSG_GET = 1,
  MSG_SHOW = 2,
  MSG_DHCPV4 = 3,
  MSG_DHCPV6 = 4,
  MSG_PPPOE = 5,
  MSG_NONE = 0xFFFF, // wakes the worker, as every kind that it does not know
};

// The queue message; the wire format between processes.
struct __attribute__((packed)) line_id_msg {
  uint16_t kind;    // 0
  uint16_t code;    // 2: command code of a get or show
  uint8_t oltid;    // 4
  uint32_t pointer; // 5: packets: unit index + 1
};
static_assert(sizeof(line_id_msg) == 9);

constexpr uint32_t LINE_ID_MSG_PRIORITY_CFG = 1; // served first; frames are sent with pal_msgQ_send_own
constexpr uint32_t LINE_ID_MSG_DEPTH = 2048;

// A command area, shared between processes.
constexpr uint32_t LINE_ID_PAYLOAD_LEN = 300;
struct __attribute__((packed)) line_id_cmd_area {
  int16_t code;                         // 0
  uint32_t length;                      // 2: octets of payload
  uint8_t oltid;                        // 6
  uint8_t payload[LINE_ID_PAYLOAD_LEN]; // 7
};
static_assert(sizeof(line_id_cmd_area) == 307);

static_assert(sizeof(line_id_append_info) == 27);
static_assert(sizeof(line_id_pkt_property) == 71);
static_assert(sizeof(line_id_alarm) == 13);
static_assert(sizeof(line_id_white_list) == 72);
static_assert(sizeof(line_id_circuit_id_config) == 157);
static_assert(sizeof(line_id_circuit_id_format_mode) == 293);
static_assert(sizeof(line_id_fmt_list) == 768);
static_assert(sizeof(line_id_ex_cfg_table) == 32 + sizeof(void*));

// The flat form of the line information, and back. Both: 0, or -9 for a null pointer.
int32_t line_id_get_pkt_propety_by_inf_info(line_id_pkt_property* property, const line_id_inf_info* info);
int32_t line_id_set_inf_info_by_pkt_propety(const line_id_pkt_property* property, line_id_inf_info* info);
