// Device, agent and instance sections of a line map.
#include "host/line_map_parts.h"

#include <cstring>
#include <iterator>

namespace {

using ex_table = line_id_ex_cfg_table;

struct switch_row {
  const char* key;
  uint8_t ex_table::*field;
};
constexpr switch_row INSTANCE_SWITCHES[] = {
    {"option82", &ex_table::option82_enable},
    {"option18", &ex_table::option18_enable},
    {"option37", &ex_table::option37_enable},
    {"pppoe_plus", &ex_table::pppoe_plus_enable},
    {"circuit_id", &ex_table::circuitid_enable},
    {"remote_id", &ex_table::remoteid_enable},
    {"debug_dhcpv4", &ex_table::dhcpv4_debug},
    {"debug_dhcpv6", &ex_table::dhcpv6_debug},
    {"debug_pppoe", &ex_table::pppoe_plus_debug},
    {"pppoe_anti_spoofing", &ex_table::pppoe_anti_spoofing_enable},
    {"dhcp_anti_spoofing", &ex_table::dhcp_anti_spoofing_enable},
    {"dhcp_anti_spoofing_drop", &ex_table::dhcp_anti_spoofing_active},
};

// Registrations are 1 for yes and 2 for no, strips 1 and 0.
struct shared_switch_row {
  const char* key;
  uint8_t ex_table::*field;
  uint8_t off;
};
constexpr shared_switch_row SHARED_SWITCHES[] = {
    {"dhcpv4_agent", &ex_table::dhcp_reg, 2},
    {"dhcpv6_agent", &ex_table::dhcpv6_reg, 2},
    {"pppoe_agent", &ex_table::pppoe_reg, 2},
    {"dhcp_spoofing_check", &ex_table::dhcp_spoof_reg, 2},
    {"pppoe_spoofing_check", &ex_table::pppoe_spoof_reg, 2},
    {"dhcp_strip", &ex_table::dhcp_tag_dn_strip, 0},
    {"pppoe_strip", &ex_table::pppoe_tag_dn_strip, 0},
};
constexpr switch_row UP_POLICIES[] = {
    {"dhcp_circuit_id_policy", &ex_table::dhcp_circuitid_up_policy},
    {"dhcp_remote_id_policy", &ex_table::dhcp_remoteid_up_policy},
    {"pppoe_circuit_id_policy", &ex_table::pppoe_circuitid_up_policy},
    {"pppoe_remote_id_policy", &ex_table::pppoe_remoteid_up_policy},
};
constexpr uint8_t NOT_GIVEN = 0xFF;

template <size_t size> void read_format(toml_fields& fields, const char* key, char (&format)[size]) {
  std::string text;
  if (!fields.read_text(key, text, size)) return;
  if (line_id_check_format(text.c_str()) != LINE_ID_OK) {
    fields.fault(key, "expected a template whose %letters are each followed by one of \" ./:;[]{}<>()-_\" or the end");
    return;
  }
  copy_text(text, format);
}

void read_numbers_of_instance(toml_fields& fields, instance_settings& instance) {
  fields.read("rack", instance.rack, 0, 65535);
  fields.read("frame", instance.frame, 0, 65535);
  fields.read("slot", instance.slot, 0, 255);
  fields.read("dhcp_binding_count", instance.dhcp_binding_count, 0, UINT32_MAX);
  fields.read("pppoe_binding_count", instance.pppoe_binding_count, 0, UINT32_MAX);
}

void read_texts_of_instance(toml_fields& fields, instance_settings& instance) {
  fields.read_text("ani", instance.ani, LINE_ID_ANI_LEN);
  fields.read_text("uplink_type", instance.uplink_type, LINE_ID_UPLINK_LEN);
  fields.read_text("hostname", instance.hostname, LINE_ID_HOSTNAME_LEN);
  fields.read_ipv4("manage_ip", instance.manage_ip);
  mac_address mac = {};
  if (fields.read_mac("core_card_mac", mac)) instance.core_card_mac = mac;
  fields.read_table("override", "a letter and a text of at most 50 characters",
                    [&](const std::string& letter, const std::string& text) {
                      const bool is_letter = letter.size() == 1 && ((letter[0] >= 'A' && letter[0] <= 'Z') ||
                                                                    (letter[0] >= 'a' && letter[0] <= 'z'));
                      if (!is_letter || text.size() > MAX_TEXT) return false;
                      instance.overrides.push_back({static_cast<uint8_t>(letter[0]), text});
                      return true;
                    });
}

} // namespace

bool has_instance(const line_map& map, uint8_t id) {
  return std::any_of(map.instances.begin(), map.instances.end(),
                     [id](const auto& instance) { return instance->id == id; });
}

void read_device(toml_fields& fields, device_facts& device) {
  fields.read_text("access_type", device.access_type, MAX_TEXT);
  fields.read_text("card_type", device.card_type, MAX_TEXT);
  fields.read("olt_slot", device.olt_slot, 0, 65535);
  fields.read("onu_slot", device.onu_slot, 0, 65535);
  fields.read("onu_sub_slot", device.onu_sub_slot, 0, 65535);
  if (device.onu_slot.has_value() != device.onu_sub_slot.has_value()) {
    fields.fault("onu_slot", "expected together with onu_sub_slot, or neither");
  }
}

void read_agent(toml_fields& fields, agent_settings& agent, std::vector<shared_setting>& shared) {
  const auto keep = [&shared](uint8_t ex_table::*field, uint8_t value) {
    if (value != NOT_GIVEN) shared.push_back({field, value});
  };
  for (const shared_switch_row& row : SHARED_SWITCHES) {
    uint8_t value = NOT_GIVEN;
    fields.read_switch(row.key, value, 1, row.off);
    keep(row.field, value);
  }
  for (const switch_row& row : UP_POLICIES) {
    uint8_t value = NOT_GIVEN;
    fields.read_choice(row.key, value, {{"by-operation", 0}, {"rebuild", 1}, {"keep", 2}});
    keep(row.field, value);
  }
  uint8_t exception = NOT_GIVEN;
  fields.read_choice("exception_policy", exception, {{"by-result", 0}, {"pass", 1}, {"drop", 2}});
  keep(&ex_table::pkt_exception_policy, exception);
  uint8_t standard = NOT_GIVEN;
  fields.read("standard_format", standard, 0, 2);
  keep(&ex_table::def_std_fmt_type, standard);
  if (fields.read("dhcpv6_strip", agent.dhcpv6_strip, 1, 2)) keep(&ex_table::dhcpv6_tag_dn_strip, *agent.dhcpv6_strip);

  fields.read("option18_level", agent.option18_level, 0, 1);
  fields.read("debug_level", agent.debug_level, 0, 2);
  uint8_t all = 0;
  fields.read_switch("debug_all", all);
  agent.debug_all = all != 0;
}

void read_white_list(toml_fields& fields, line_id_white_list& list) {
  fields.read_switch("pass", list.trans_policy);
  fields.read_switch("dhcp", list.dhcp_enable);
  fields.read_switch("pppoe", list.pppoe_enable);
  uint16_t types[LINE_ID_WHITE_LIST_TYPES] = {};
  fields.read_numbers("onu_types", 0, 65535, [&](int64_t type) {
    if (list.num == LINE_ID_WHITE_LIST_TYPES) {
      fields.fault("onu_types", "expected at most 32 numbers");
      return true;
    }
    types[list.num++] = static_cast<uint16_t>(type);
    return true;
  });
  for (size_t i = 0; i < std::size(types); ++i) list.onu_type[i] = types[i];
}

void read_instance(toml_fields& fields, line_map& map) {
  auto instance = std::make_unique<instance_settings>();
  fields.read("id", instance->id, 0, LINE_ID_INSTANCES - 1);
  if (has_instance(map, instance->id)) fields.fault("id", "this instance is already there");
  instance->mode = LINE_ID_MODE_OLT;
  fields.read_choice(
      "mode", instance->mode,
      {{"olt", LINE_ID_MODE_OLT}, {"sfu", LINE_ID_MODE_SFU}, {"mdu", LINE_ID_MODE_MDU}, {"dsl", LINE_ID_MODE_DSL}});
  uint8_t technology = 0;
  fields.read("technology", technology, 0, 4);
  ex_table& table = instance->table;
  table.fmt_list = &instance->formats;
  if (line_id_obtain_cust_cfg_table_content(instance->mode, technology, &table) != LINE_ID_OK) {
    fields.fault("mode", "the agent has no profile for this mode and technology");
  }
  // The profile of an MDU unwraps DHCPv6 replies 0 times, which the agent refuses.
  if (table.dhcpv6_tag_dn_strip == 0) table.dhcpv6_tag_dn_strip = 1;

  for (const switch_row& row : INSTANCE_SWITCHES) fields.read_switch(row.key, table.*row.field);
  fields.read_choice("format", table.line_id_format_type, {{"custom", 0}, {"ctc", 1}, {"cnc", 2}});
  read_format(fields, "circuit_format", instance->formats.circuit_id);
  read_format(fields, "remote_format", instance->formats.remote_id);
  read_format(fields, "option37_format", instance->formats.option37);
  fields.read_switch("option82_transparent", instance->option82_transparent);
  fields.read_switch("pppoe_plus_transparent", instance->pppoe_plus_transparent);
  read_numbers_of_instance(fields, *instance);
  read_texts_of_instance(fields, *instance);
  map.instances.push_back(std::move(instance));
}

void read_profile(toml_fields& fields, line_map& map) {
  vlan_profile profile = {};
  fields.read("instance", profile.instance, 0, LINE_ID_INSTANCES - 1);
  if (!fields.read("number", profile.number, 1, LINE_ID_VLAN_PROFILES) && !fields.has("number")) {
    fields.fault("number", "expected a number from 1 to 64");
  }
  fields.read_choice("type", profile.type, {{"circuit-id", 0}, {"remote-id", 1}});
  uint8_t circuit_template = 0;
  fields.read_choice("template", circuit_template, {{"text", 0}, {"ctc", 1}, {"cnc", 2}});
  profile.circuit_template = circuit_template;
  char text[LINE_ID_FORMAT_LEN] = {};
  read_format(fields, "text", text);
  profile.text.assign(text, strnlen(text, sizeof(text)));
  const bool needs_text = profile.type == 1 || circuit_template == 0;
  if (needs_text && profile.text.empty()) fields.fault("text", "expected a template of 1 to 256 characters");
  if (!needs_text) profile.text = circuit_template == 1 ? "ctc" : "cnc";
  map.profiles.push_back(std::move(profile));
}
