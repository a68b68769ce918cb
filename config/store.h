// Every setting of the agent, kept in process memory: one record for each configuration instance, and a few words for
// the whole agent.
//
// Setters are called by start-up, and later by the message server on the worker. Getters are called by the worker, and
// the switches also by ingress on host threads: switches are relaxed atomics, all else belongs to the worker.
//
// Setters return 0, or a negative code with the store as it was; one-octet getters return the octet sign-extended. An
// `oltid` above 8 is harmless: setters refuse it with -147, buffer getters with -9, other getters give 0.
#pragma once

#include "include/line_id.h"

#include <atomic>
#include <cstdint>

constexpr uint32_t LINE_ID_MAC_LEN = 6;
constexpr uint32_t LINE_ID_PROFILE_SLOTS = LINE_ID_VLAN_PROFILES + 1; // profile 0 is stored, no packet refers to it

// The settings of one instance. Texts are NUL-padded and may fill their field without a terminator.
struct line_id_common_cfg {
  uint8_t option82_enable;
  uint8_t option18_enable;
  uint8_t option37_enable;
  uint8_t pppoe_plus_enable;
  uint8_t remoteid_enable;
  uint8_t line_id_format_type; // 0 custom, 1 CTC, 2 CNC; unchecked when it came with the format-mode block
  char circuit_id_custom_format[LINE_ID_FORMAT_LEN];
  char remote_id_format[LINE_ID_FORMAT_LEN];
  char option37_format[LINE_ID_FORMAT_LEN];
  uint8_t slot;
  char ani_str[LINE_ID_ANI_LEN];
  int16_t rack_no;
  int16_t frame_no;
  char uplink_type[LINE_ID_UPLINK_LEN];
  uint32_t manage_ip; // host order
  char hostname[LINE_ID_HOSTNAME_LEN];
  uint8_t corecard_inner_mac[LINE_ID_MAC_LEN];
  uint8_t pppoe_anti_spoofing_enable;
  uint8_t dhcp_anti_spoofing_enable;
  uint8_t dhcp_anti_spoofing_active;
  uint32_t dhcp_valid_binding_count;
  uint32_t pppoe_valid_binding_count;
  uint8_t option82_transparent;
  uint8_t pppoe_plus_transparent;
  uint8_t remoteid_trans_enable;
  uint8_t circuitid_enable;
  uint8_t vlan_template[LINE_ID_PROFILE_SLOTS]; // of VLAN profile i: 0 its own circuit format, 1 CTC, 2 CNC
  char vlan_circuit_format[LINE_ID_PROFILE_SLOTS][LINE_ID_FORMAT_LEN];
  char vlan_remote_format[LINE_ID_PROFILE_SLOTS][LINE_ID_FORMAT_LEN];
};

extern line_id_common_cfg g_line_id_common_cfg[LINE_ID_INSTANCES];

// The record of an instance, or null above 8. The one way to the records.
inline line_id_common_cfg* line_id_cfg_of(uint8_t oltid) {
  return oltid < LINE_ID_INSTANCES ? &g_line_id_common_cfg[oltid] : nullptr;
}

// One-octet fields are read and written through these alone.
using line_id_switch_field = uint8_t line_id_common_cfg::*;
inline uint8_t line_id_load_switch(const line_id_common_cfg* cfg, line_id_switch_field field) {
  // The records are not constant themselves.
  return std::atomic_ref<uint8_t>(const_cast<line_id_common_cfg*>(cfg)->*field).load(std::memory_order_relaxed);
}
inline void line_id_store_switch(line_id_common_cfg* cfg, line_id_switch_field field, uint8_t value) {
  std::atomic_ref<uint8_t>(cfg->*field).store(value, std::memory_order_relaxed);
}

// What the getters of switches return; frames ask for a field themselves.
inline int32_t line_id_get_switch(const line_id_common_cfg* cfg, line_id_switch_field field) {
  return cfg != nullptr ? static_cast<int8_t>(line_id_load_switch(cfg, field)) : 0;
}
inline int32_t line_id_get_switch(uint8_t oltid, line_id_switch_field field) {
  return line_id_get_switch(line_id_cfg_of(oltid), field);
}

// ---- switches: -147 outside 0..1 (format type 0..2). Option 82, Option 18 and PPPoE+ push the trap rule at once.

int32_t line_id_set_option82_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_option18_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_option37_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_pppoe_plus_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_remoteid_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_line_id_format_type_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_pppoe_anti_spoofing_enable_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_dhcp_anti_spoofing_enable_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_dhcp_anti_spoofing_active_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_option82_transparent_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_pppoe_plus_transparent_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_circuitid_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_remoteid_trans_enable_cfg(uint8_t oltid, uint8_t value);
int32_t line_id_set_dhcp6_enable_cfg(uint8_t oltid, uint8_t value); // Option 37, then Option 18
int32_t line_id_set_gemport_cfg(uint8_t oltid, uint8_t value);      // of the whole agent; `oltid` is not used
int32_t line_id_set_slot(uint8_t oltid, uint8_t value);             // any value

int32_t line_id_get_option82_enable_cfg(uint8_t oltid);
int32_t line_id_get_option18_enable_cfg(uint8_t oltid);
int32_t line_id_get_option37_enable_cfg(uint8_t oltid);
int32_t line_id_get_pppoe_plus_enable_cfg(uint8_t oltid);
int32_t line_id_get_remote_id_enable_cfg(uint8_t oltid);
int32_t line_id_get_line_id_format_type_cfg(uint8_t oltid);
int32_t line_id_get_pppoe_anti_spoofing_enable_cfg(uint8_t oltid);
int32_t line_id_get_dhcp_anti_spoofing_enable_cfg(uint8_t oltid);
int32_t line_id_get_dhcp_anti_spoofing_active_cfg(uint8_t oltid);
int32_t line_id_get_option82_transparent_cfg(uint8_t oltid);
int32_t line_id_get_pppoe_plus_transparent_cfg(uint8_t oltid);
int32_t line_id_get_circuitid_cfg(uint8_t oltid);
int32_t line_id_get_gemport_cfg();
int32_t line_id_get_slot(uint8_t oltid);

// ---- numbers, any value. Rack and frame are stored even when the parameter table refuses them.

int32_t line_id_set_rack_no_cfg(uint8_t oltid, uint16_t value);
int32_t line_id_set_frame_no_cfg(uint8_t oltid, uint16_t value);
int32_t line_id_set_dhcp_valid_binding_count_cfg(uint8_t oltid, uint32_t value);
int32_t line_id_set_pppoe_valid_binding_count_cfg(uint8_t oltid, uint32_t value);
int32_t line_id_set_manage_ip_cfg(uint8_t oltid, uint32_t value); // host order

int32_t line_id_get_rack_no_cfg(uint8_t oltid); // sign-extended from 16 bits
int32_t line_id_get_frame_no_cfg(uint8_t oltid);
uint32_t line_id_get_dhcp_valid_binding_count_cfg(uint8_t oltid);
uint32_t line_id_get_pppoe_valid_binding_count_cfg(uint8_t oltid);
int32_t line_id_get_manage_ip_cfg(uint8_t oltid, uint32_t* value); // 0 or -9

// ---- templates: -147 null, -157 above 256 octets. Getters copy 256 octets: 0, or -9 null.

int32_t line_id_set_circuit_id_custom_format_cfg(uint8_t oltid, const char* text, uint32_t len);
int32_t line_id_set_remote_id_format_cfg(uint8_t oltid, const char* text, uint32_t len);
int32_t line_id_set_option37_format_cfg(uint8_t oltid, const char* text, uint32_t len);

int32_t line_id_get_circuit_id_custom_format_cfg(uint8_t oltid, char* buf);
int32_t line_id_get_remote_id_format_cfg(uint8_t oltid, char* buf);
int32_t line_id_get_option37_format_cfg(uint8_t oltid, char* buf);

// ---- texts and addresses that are also line parameters; the parameter table's refusal is passed on

// -157 null or above 50 octets.
int32_t line_id_set_ani_param_cfg(uint8_t oltid, const char* text, uint32_t len, uint16_t rack, uint16_t frame);
// -9 null, -157 above 50 octets.
int32_t line_id_set_ani_str_cfg(uint8_t oltid, const char* text, uint32_t len);
// -147 null, -157 above 32 octets.
int32_t line_id_set_uplink_type_cfg(uint8_t oltid, const char* text, uint32_t len);
// -147 null, -112 unless 6 octets.
int32_t line_id_set_remoteid_core_cardinnermac_cfg(uint8_t oltid, const uint8_t* mac, uint32_t len);
// -147 enable outside 0..1, -9 null, -112 unless 6 octets.
int32_t line_id_set_remote_id_enable_and_params_cfg(uint8_t oltid, uint8_t enable, const uint8_t* mac, uint32_t len);

// 50 and 32 octets: 0, or -9 null.
int32_t line_id_get_ani_str_cfg(uint8_t oltid, char* buf);
int32_t line_id_get_uplink_type_cfg(uint8_t oltid, char* buf);

// ---- blocks (config/circuit_block.cpp)

// Stores the whole block; a trap rule is switched off only when no instance needs it any more. -147 null; the parameter
// table's first refusal is passed on with everything stored.
int32_t line_id_set_circuit_id_config_cfg(uint8_t oltid, const line_id_circuit_id_config* block);
// Fills all but the host name and the enable bits from 3 up, which stay as they are. 0, or -9 null.
int32_t line_id_get_circuit_id_config_cfg(uint8_t oltid, line_id_circuit_id_config* block);
// -147 null; the format type is not checked.
int32_t line_id_set_circuit_id_format_mode_cfg(uint8_t oltid, const line_id_circuit_id_format_mode* block);
// Fills the first 257 octets. 0, or -9 null.
int32_t line_id_get_circuit_id_format_mode_cfg(uint8_t oltid, line_id_circuit_id_format_mode* block);

// ---- of the whole agent

// DHCPv6 Option 18 level: 1 replaces a received Relay-Forward and unwraps once, 0 wraps again and unwraps twice. -147.
int32_t line_id_set_dhcpv6_option18_cfg(uint8_t value);
int32_t line_id_get_dhcpv6_option18_cfg();
// Behind it: any value is stored, 0 and 1 also set the strip policy. Always 0.
int32_t line_id_set_dhcpv6_option18_level(uint32_t value);
// The strip policy alone, 1 or 2, else -147.
int32_t line_id_set_dhcpv6_option18_relay_strip_cfg(uint8_t value);

// Customer mode, one for each instance.
int32_t line_id_set_cust_mode_cfg(uint8_t oltid, uint8_t mode);
int32_t line_id_get_cust_mode_cfg(uint8_t oltid);

// Traces: one category each, all of them, and the level (0 to 2). -147 out of range.
int32_t line_id_set_dhcpv4_debug_cfg(uint8_t value);
int32_t line_id_set_dhcpv6_debug_cfg(uint8_t value);
int32_t line_id_set_pppoe_plus_debug_cfg(uint8_t value);
int32_t line_id_set_device_debug_cfg(uint8_t value);
int32_t line_id_set_lineid_debug_cfg(uint8_t value);
int32_t line_id_set_comm_tx_debug_cfg(uint8_t value);
int32_t line_id_set_comm_rx_debug_cfg(uint8_t value);
int32_t line_id_set_cfg_debug_cfg(uint8_t value);
int32_t line_id_set_all_debug_cfg(uint8_t value);
int32_t line_id_set_level_debug_cfg(uint8_t value);

// ---- operations that keep nothing here

// Deletions from the binding tables. By MAC: null -9 (DHCP) or -147 (PPPoE), -112 unless 6 octets. By ONU: always 0.
int32_t line_id_del_dhcp_anti_spoofing_entry_by_mac_cfg(uint8_t oltid, const uint8_t* mac, uint32_t len);
int32_t line_id_del_pppoe_anti_spoofing_entry_by_mac_cfg(uint8_t oltid, const uint8_t* mac, uint32_t len);
int32_t line_id_del_dhcp_anti_spoofing_entry_by_onu_cfg(uint8_t oltid, uint16_t pon, uint16_t onu);
int32_t line_id_del_pppoe_anti_spoofing_entry_by_onu_cfg(uint8_t oltid, uint16_t pon, uint16_t onu);

// Pin a letter to a text in the instance's four parameter sets. -9 null, -157 above 50 octets.
int32_t line_id_override_param_cfg(uint8_t oltid, uint8_t letter, const char* text, uint32_t len);
// Release a letter in all sets of all instances. Always 0.
int32_t line_id_unoverride_param_cfg(uint8_t letter);
