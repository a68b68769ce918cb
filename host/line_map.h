// The line map: which line a frame belongs to, what the driver and the device know of that line, and how each
// configuration instance of the agent is set up. Unchanging once it is read.
#pragma once

#include "host/classify.h"
#include "host/octets.h"
#include "include/line_id.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct subscriber_line {
  std::string name;
  std::optional<uint16_t> svlan; // of the line; the frame's own when not given
  std::optional<uint16_t> cvlan;
  uint8_t form; // LINE_ID_FORM_*
  line_id_append_info append;
  line_id_onu_reg_info onu;
  line_id_onu_port_info port;
};

struct letter_override {
  uint8_t letter;
  std::string text;
};

// Settings of an instance. The start-up table carries the first group; a client call sets the others once the agent
// runs.
struct instance_settings {
  uint8_t id;
  uint8_t mode;
  line_id_ex_cfg_table table; // its fmt_list points at `formats` when it is used
  line_id_fmt_list formats;

  uint8_t option82_transparent;
  uint8_t pppoe_plus_transparent;
  std::optional<std::string> ani;
  std::optional<uint16_t> rack;
  std::optional<uint16_t> frame;
  std::optional<uint8_t> slot;
  std::optional<std::string> uplink_type;
  std::optional<uint32_t> manage_ip;
  std::optional<std::string> hostname;
  std::optional<mac_address> core_card_mac;
  std::optional<uint32_t> dhcp_binding_count;
  std::optional<uint32_t> pppoe_binding_count;
  std::vector<letter_override> overrides;
};

struct vlan_profile {
  uint8_t instance;
  uint8_t type; // 0 Circuit-ID, 1 Remote-ID
  uint32_t number;
  uint32_t circuit_template; // 0 the text, 1 CTC, 2 CNC
  std::string text;
};

struct device_facts {
  std::string access_type;
  std::string card_type;
  std::optional<uint16_t> olt_slot;
  std::optional<uint16_t> onu_slot;
  std::optional<uint16_t> onu_sub_slot;
};

// Settings of the whole agent.
struct agent_settings {
  std::optional<uint8_t> debug_level;
  bool debug_all;
  std::optional<uint8_t> option18_level;
  std::optional<uint8_t> dhcpv6_strip;
  line_id_white_list white_list;
};

using vlan_pair = std::pair<uint16_t, uint16_t>; // outer and inner, NO_VLAN for a tag that is not there

// How frames find their line; indexes of `lines`.
struct line_matches {
  std::map<vlan_pair, size_t> by_vlan;
  std::map<mac_address, size_t> by_mac;
  std::optional<size_t> default_line;
};

struct line_map {
  device_facts device;
  agent_settings agent;
  std::vector<std::unique_ptr<instance_settings>> instances;
  std::vector<vlan_profile> profiles;
  std::vector<subscriber_line> lines;
  bool has_port_facts; // a line says what its port is

  line_matches common;                         // for frames from anywhere
  std::map<std::string, line_matches> by_port; // for frames of a subscriber port, by its interface
  std::vector<std::string> warnings;           // of settings that defeat each other
};

// Reads and checks a whole file. Throws host_failure (EXIT_LINES) that names file, line and what was expected; several
// faults are reported together, one a line.
line_map line_map_read(const std::string& path);

// One instance with everything on and one line for all frames: what a run without a line map uses.
line_map line_map_built_in();

// The line of a frame: by its VLANs, else by the subscriber's address, else the default; or null. The lines of the
// frame's subscriber port come first, where it has one.
const subscriber_line* line_map_find(const line_map& map, const frame_class& found, const mac_address& subscriber,
                                     const line_matches* of_port = nullptr);

// The record that the driver hands in with a frame of the line.
line_id_append_info line_append_info(const subscriber_line& line, const frame_class& found);

// The facts of a place, as the agent asks for them; null for a place that is not in the map.
const subscriber_line* line_map_by_onu(const line_map& map, uint16_t onu_ponno, uint16_t onu_authno);
const subscriber_line* line_map_by_port(const line_map& map, uint16_t onu_portid);
