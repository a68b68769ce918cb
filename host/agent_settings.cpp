// The settings that a client call carries.
#include "host/agent.h"
#include "host/failure.h"

#include <algorithm>

namespace {

void check(int32_t ret, const std::string& setting, uint8_t oltid) {
  if (ret >= 0) return;
  throw host_failure(EXIT_AGENT, "the agent refuses " + setting + " of instance " + std::to_string(oltid) + " (" +
                                     std::to_string(ret) + ")");
}

uint32_t text_len(const std::string& text) { return static_cast<uint32_t>(text.size()); }

// The host name travels only in the block of the device's identity, which carries the other settings too.
void set_identity_block(const instance_settings& instance) {
  line_id_circuit_id_config block = {};
  block.slot = instance.slot.value_or(0);
  const line_id_ex_cfg_table& table = instance.table;
  block.enable = static_cast<uint8_t>((table.option82_enable != 0 ? LINE_ID_ENABLE_OPTION82 : 0) |
                                      (table.option18_enable != 0 ? LINE_ID_ENABLE_OPTION18 : 0) |
                                      (table.option37_enable != 0 ? LINE_ID_ENABLE_OPTION37 : 0));
  block.pppoe_plus_enable = table.pppoe_plus_enable;
  const auto fill = [](char* field, size_t size, const std::optional<std::string>& text) {
    if (text) std::copy_n(text->data(), std::min(size, text->size()), field);
  };
  fill(block.ani_str, sizeof(block.ani_str), instance.ani);
  fill(block.uplink_type, sizeof(block.uplink_type), instance.uplink_type);
  fill(block.hostname, sizeof(block.hostname), instance.hostname);
  block.rack_no = static_cast<int16_t>(instance.rack.value_or(0));
  block.frame_no = static_cast<int16_t>(instance.frame.value_or(0));
  block.manage_ip = instance.manage_ip.value_or(0);
  check(volt_line_id_set_circuit_id_config(instance.id, &block), "hostname", instance.id);
}

void set_identity(const instance_settings& instance) {
  const uint8_t id = instance.id;
  if (instance.hostname || instance.slot) {
    set_identity_block(instance);
  } else {
    if (instance.ani) check(line_id_set_ani_str(id, instance.ani->c_str(), text_len(*instance.ani)), "ani", id);
    if (instance.rack) check(line_id_set_rack_no(id, *instance.rack), "rack", id);
    if (instance.frame) check(line_id_set_frame_no(id, *instance.frame), "frame", id);
    if (const auto& uplink = instance.uplink_type) {
      check(line_id_set_uplink_type(id, uplink->c_str(), text_len(*uplink)), "uplink_type", id);
    }
    if (instance.manage_ip) check(line_id_set_manage_ip(id, *instance.manage_ip), "manage_ip", id);
  }
  if (const auto& mac = instance.core_card_mac) {
    check(line_id_set_remoteid_core_cardinnermac(id, mac->data(), uint32_t{sizeof(mac_address)}), "core_card_mac", id);
  }
}

void set_switches(const instance_settings& instance) {
  const uint8_t id = instance.id;
  if (instance.option82_transparent != 0) check(line_id_set_option82_transparent(id, 1), "option82_transparent", id);
  if (instance.pppoe_plus_transparent != 0) {
    check(line_id_set_pppoe_plus_transparent(id, 1), "pppoe_plus_transparent", id);
  }
  if (const auto count = instance.dhcp_binding_count) {
    check(line_id_set_dhcp_valid_binding_count(id, *count), "dhcp_binding_count", id);
  }
  if (const auto count = instance.pppoe_binding_count) {
    check(line_id_set_pppoe_valid_binding_count(id, *count), "pppoe_binding_count", id);
  }
  for (const letter_override& pin : instance.overrides) {
    check(line_id_override_param(id, pin.letter, pin.text.c_str(), text_len(pin.text)), "override", id);
  }
}

} // namespace

void apply_settings(const line_map& map) {
  for (const auto& instance : map.instances) {
    set_identity(*instance);
    set_switches(*instance);
  }
  for (const vlan_profile& profile : map.profiles) {
    check(lineid_vlan_profile_cfg_add(profile.instance, profile.type, profile.number, profile.circuit_template,
                                      profile.text.c_str(), text_len(profile.text)),
          "profile " + std::to_string(profile.number), profile.instance);
  }
  const agent_settings& agent = map.agent;
  if (agent.option18_level) check(line_id_set_dhcpv6_option18(0, *agent.option18_level), "option18_level", 0);
  // The level brings a strip setting of its own.
  if (agent.option18_level && agent.dhcpv6_strip) {
    check(line_id_set_dhcpv6_option18_relay_strip(0, *agent.dhcpv6_strip), "dhcpv6_strip", 0);
  }
  if (agent.debug_all) check(line_id_set_all_debug(0, 1), "debug_all", 0);
  if (agent.debug_level) check(line_id_set_level_debug(0, *agent.debug_level), "debug_level", 0);
}
