// Settings of a line map that defeat each other: allowed, and worth a word.
#include "host/line_map_parts.h"

#include <cstring>

namespace {

using ex_table = line_id_ex_cfg_table;
constexpr uint8_t REGISTERED = 1;
constexpr uint8_t KEEP = 2;

// Fields of the start-up table that exist once in the agent, whichever instance they come with.
constexpr uint8_t ex_table::*SHARED_FIELDS[] = {
    &ex_table::dhcp_reg,
    &ex_table::dhcpv6_reg,
    &ex_table::pppoe_reg,
    &ex_table::dhcp_spoof_reg,
    &ex_table::pppoe_spoof_reg,
    &ex_table::def_std_fmt_type,
    &ex_table::dhcp_circuitid_up_policy,
    &ex_table::dhcp_remoteid_up_policy,
    &ex_table::pppoe_circuitid_up_policy,
    &ex_table::pppoe_remoteid_up_policy,
    &ex_table::dhcp_tag_dn_strip,
    &ex_table::pppoe_tag_dn_strip,
    &ex_table::dhcpv6_tag_dn_strip,
    &ex_table::pkt_exception_policy,
};

struct rule {
  bool (*applies)(const line_map& map, const instance_settings& instance, const ex_table& table);
  const char* text; // behind "instance N: "
};

// `table` is the one whose shared settings hold: the last instance's.
constexpr rule INSTANCE_RULES[] = {
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.pppoe_anti_spoofing_enable == 1 && table.pppoe_spoof_reg != REGISTERED;
     },
     "pppoe_anti_spoofing is on, and agent.pppoe_spoofing_check is not: every checked PPPoE frame is dropped"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.dhcp_anti_spoofing_enable == 1 && table.dhcp_spoof_reg != REGISTERED;
     },
     "dhcp_anti_spoofing is on, and agent.dhcp_spoofing_check is not: every upstream DHCPv4 frame is dropped"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.dhcp_anti_spoofing_enable == 1 && table.dhcp_spoof_reg == REGISTERED;
     },
     "dhcp_anti_spoofing is on, but this agent's DHCP binding table learns nothing and lets every frame through"},
    {[](const line_map& map, const instance_settings& i, const ex_table&) {
       return i.table.pppoe_anti_spoofing_enable == 1 && map.device.olt_slot.value_or(0) == 0;
     },
     "pppoe_anti_spoofing needs an OLT slot other than 0: every checked PPPoE frame is dropped"},
    {[](const line_map& map, const instance_settings& i, const ex_table&) {
       const bool counted = !map.instances.empty() &&
                            std::any_of(map.instances.begin(), map.instances.end(),
                                        [](auto& k) { return k->id == 0 && k->pppoe_binding_count.value_or(0) > 0; });
       return i.table.pppoe_anti_spoofing_enable == 1 && !counted;
     },
     "pppoe_anti_spoofing is on, and pppoe_binding_count of instance 0 is 0: an address is bound at its first frame"},
    {[](const line_map&, const instance_settings& i, const ex_table&) {
       return i.id != 0 && (i.pppoe_binding_count || i.dhcp_binding_count);
     },
     "binding counts are taken from instance 0 alone"},
    {[](const line_map&, const instance_settings& i, const ex_table&) {
       return i.table.option37_enable == 1 && i.table.option18_enable == 0;
     },
     "option37 is on and option18 is off: DHCPv6 frames pass unchanged"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.option82_enable == 1 && table.dhcp_reg != REGISTERED;
     },
     "option82 is on, and agent.dhcpv4_agent is not: DHCPv4 frames pass unchanged"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.option18_enable == 1 && table.dhcpv6_reg != REGISTERED;
     },
     "option18 is on, and agent.dhcpv6_agent is not: DHCPv6 frames pass unchanged"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.pppoe_plus_enable == 1 && table.pppoe_reg != REGISTERED;
     },
     "pppoe_plus is on, and agent.pppoe_agent is not: PPPoE frames pass unchanged"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.option82_enable == 1 && i.table.remoteid_enable == 1 && table.dhcp_remoteid_up_policy == KEEP;
     },
     "remote_id is on, and agent.dhcp_remote_id_policy is \"keep\": no Remote-ID is put into Option 82"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.pppoe_plus_enable == 1 && i.table.remoteid_enable == 1 && table.pppoe_remoteid_up_policy == KEEP;
     },
     "remote_id is on, and agent.pppoe_remote_id_policy is \"keep\": no Remote-ID is put into the PPPoE tag"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.option82_enable == 1 && i.table.circuitid_enable == 1 && table.dhcp_circuitid_up_policy == KEEP;
     },
     "circuit_id is on, and agent.dhcp_circuit_id_policy is \"keep\": no Circuit-ID is put into Option 82"},
    {[](const line_map&, const instance_settings& i, const ex_table& table) {
       return i.table.pppoe_plus_enable == 1 && i.table.circuitid_enable == 1 &&
              table.pppoe_circuitid_up_policy == KEEP;
     },
     "circuit_id is on, and agent.pppoe_circuit_id_policy is \"keep\": no Circuit-ID is put into the PPPoE tag"},
};

void check_device(const device_facts& device, std::vector<std::string>& warnings) {
  constexpr const char* EFFECT = " is 0: the line facts of every frame fail";
  if (device.olt_slot == 0) warnings.push_back(std::string("device: olt_slot") + EFFECT);
  if (device.onu_slot == 0) warnings.push_back(std::string("device: onu_slot") + EFFECT);
  if (device.onu_sub_slot == 0) warnings.push_back(std::string("device: onu_sub_slot") + EFFECT);
}

void check_shared(const line_map& map, std::vector<std::string>& warnings) {
  const ex_table& last = map.instances.back()->table;
  for (const auto& instance : map.instances) {
    const auto differs = [&](uint8_t ex_table::*field) { return instance->table.*field != last.*field; };
    if (std::any_of(std::begin(SHARED_FIELDS), std::end(SHARED_FIELDS), differs)) {
      warnings.push_back("instance " + std::to_string(instance->id) +
                         ": its mode brings other settings of the whole agent than the last instance's, whose hold; "
                         "give them in [agent]");
    }
  }
}

void check_line(const line_map& map, const subscriber_line& line, std::vector<std::string>& warnings) {
  const uint8_t* ext = line.append.ext;
  const std::string head = "line \"" + line.name + "\": ";
  if (ext[LINE_ID_EXT_LINE_ID_SWITCH] == 0) {
    warnings.push_back(head +
                       "line_id_switch is 0, the ONU inserts its identity itself: upstream frames pass unchanged");
  }
  const auto missing = [&](uint8_t number, uint8_t type) {
    return number != 0 && std::none_of(map.profiles.begin(), map.profiles.end(), [&](const vlan_profile& profile) {
             return profile.number == number && profile.type == type && profile.instance == ext[LINE_ID_EXT_OLTID];
           });
  };
  if (missing(ext[LINE_ID_EXT_CID], 0))
    warnings.push_back(head + "circuit_profile is not defined: its Circuit-ID is empty");
  if (missing(ext[LINE_ID_EXT_RID], 1))
    warnings.push_back(head + "remote_profile is not defined: its Remote-ID is empty");
}

} // namespace

std::vector<std::string> find_defeated_settings(const line_map& map) {
  std::vector<std::string> warnings;
  check_device(map.device, warnings);
  check_shared(map, warnings);
  for (const auto& instance : map.instances) {
    for (const rule& row : INSTANCE_RULES) {
      if (!row.applies(map, *instance, map.instances.back()->table)) continue;
      warnings.push_back("instance " + std::to_string(instance->id) + ": " + row.text);
    }
  }
  for (const subscriber_line& line : map.lines) check_line(map, line, warnings);
  return warnings;
}
