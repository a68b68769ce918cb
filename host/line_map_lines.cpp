// The lines of a line map.
#include "host/line_map_parts.h"

#include <charconv>
#include <cstring>

namespace {

constexpr int MAX_VLAN = 4095;
constexpr size_t MAX_INTERFACE = 15; // characters of a name

std::optional<uint16_t> parse_vlan(std::string_view text) {
  int vlan = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), vlan);
  if (error != std::errc() || end != text.data() + text.size() || vlan < 0 || vlan > MAX_VLAN) return std::nullopt;
  return static_cast<uint16_t>(vlan);
}

// "untagged", "100", or "100.7" for outer and inner VLAN.
std::optional<vlan_pair> parse_vlans(std::string_view text) {
  if (text == "untagged") return vlan_pair{NO_VLAN, NO_VLAN};
  const size_t dot = text.find('.');
  const std::optional<uint16_t> outer = parse_vlan(text.substr(0, dot));
  if (!outer) return std::nullopt;
  if (dot == std::string_view::npos) return vlan_pair{*outer, NO_VLAN};
  const std::optional<uint16_t> inner = parse_vlan(text.substr(dot + 1));
  return inner ? std::optional<vlan_pair>({*outer, *inner}) : std::nullopt;
}

void read_match(toml_fields& fields, line_map& map, size_t index) {
  std::string interface;
  const bool of_port = fields.read_text("interface", interface, MAX_INTERFACE);
  line_matches& matches = of_port ? map.by_port[interface] : map.common;
  fields.read_texts("vlans", "a list of texts such as \"100\", \"100.7\" or \"untagged\"",
                    [&](const std::string& text) {
                      const std::optional<vlan_pair> vlans = parse_vlans(text);
                      if (vlans && !matches.by_vlan.emplace(*vlans, index).second)
                        fields.fault("vlans", "\"" + text + "\" is taken already");
                      return vlans.has_value();
                    });
  fields.read_texts("macs", "a list of MAC addresses such as \"00:00:5e:00:53:01\"", [&](const std::string& text) {
    const std::optional<mac_address> mac = parse_mac(text);
    if (mac && !matches.by_mac.emplace(*mac, index).second) fields.fault("macs", "\"" + text + "\" is taken already");
    return mac.has_value();
  });
  // A port by itself names the line of all its frames.
  uint8_t is_default = of_port && !fields.has("vlans") && !fields.has("macs") ? 1 : 0;
  fields.read_switch("default", is_default);
  if (is_default == 0) return;
  if (matches.default_line)
    fields.fault(fields.has("default") ? "default" : "interface", "another line is the default");
  matches.default_line = index;
}

void read_append(toml_fields& fields, subscriber_line& line) {
  line_id_append_info& append = line.append;
  append = {};
  // Packed fields are read by value.
  const auto read_word = [&fields](const char* key, uint16_t initial) {
    uint16_t value = initial;
    fields.read(key, value);
    return value;
  };
  append.onu_ponno = read_word("pon", 1);
  append.onu_authno = read_word("onu", 1);
  append.onu_portid = read_word("port", 1);
  append.onu_gemid = read_word("gem", 0);
  mac_address mac = {};
  fields.read_mac("onu_mac", mac);
  std::copy(mac.begin(), mac.end(), append.onu_mac);
  uint8_t* ext = append.ext;
  ext[LINE_ID_EXT_LINE_ID_SWITCH] = 1;
  fields.read("line_id_switch", ext[LINE_ID_EXT_LINE_ID_SWITCH], 0, 1);
  fields.read("instance", ext[LINE_ID_EXT_OLTID], 0, LINE_ID_INSTANCES - 1);
  fields.read("circuit_profile", ext[LINE_ID_EXT_CID], 0, LINE_ID_VLAN_PROFILES);
  fields.read("remote_profile", ext[LINE_ID_EXT_RID], 0, LINE_ID_VLAN_PROFILES);
  fields.read_switch("circuit_by_vlan", ext[LINE_ID_EXT_CIRCUIT_BY_VLAN]);
  fields.read("svlan", line.svlan, 0, NO_VLAN);
  fields.read("cvlan", line.cvlan, 0, NO_VLAN);
}

void read_onu(toml_fields& fields, subscriber_line& line) {
  line.form = LINE_ID_FORM_GP;
  fields.read_choice("technology", line.form,
                     {{"gp", LINE_ID_FORM_GP},
                      {"ep", LINE_ID_FORM_EP},
                      {"xe", LINE_ID_FORM_XE},
                      {"xg", LINE_ID_FORM_XG},
                      {"xgs", LINE_ID_FORM_XGS},
                      {"none", LINE_ID_FORM_NONE}});
  line_id_onu_reg_info& onu = line.onu;
  onu = {};
  onu.onu_auth = line.append.onu_authno;
  onu.onu_ponno = onu.onu_rpc_ponno = line.append.onu_ponno;
  fields.read("registered_pon", onu.onu_rpc_ponno);
  fields.read("onu_type", onu.onu_type_id);
  fields.read_switch("losn_valid", onu.onu_losn_valid_or_invalid);
  const auto read_name = [&fields](const char* key, char(&field)[LINE_ID_TEXT_SIZE]) {
    std::string text;
    if (fields.read_text(key, text, MAX_TEXT)) copy_text(text, field);
  };
  read_name("onu_id", onu.onu_id);
  read_name("text_n", onu.onu_text_n);
  read_name("text_c", onu.onu_text_c);
}

void read_port(toml_fields& fields, subscriber_line& line, line_map& map) {
  line.port = {};
  line.port.port_type = LINE_ID_PORT_ETH;
  if (fields.has("port_type")) map.has_port_facts = true;
  fields.read_choice("port_type", line.port.port_type, {{"eth", LINE_ID_PORT_ETH}, {"atm", LINE_ID_PORT_ATM}});
  fields.read("circuit_x", line.port.circuit_x);
  fields.read("circuit_y", line.port.circuit_y);
  uint16_t number = 0;
  fields.read("port_number", number);
  line.port.number[0] = static_cast<uint8_t>(number >> 8);
  line.port.number[1] = static_cast<uint8_t>(number);
}

bool same_onu(const subscriber_line& a, const subscriber_line& b) {
  return a.form == b.form && a.onu.onu_rpc_ponno == b.onu.onu_rpc_ponno && a.onu.onu_type_id == b.onu.onu_type_id &&
         a.onu.onu_losn_valid_or_invalid == b.onu.onu_losn_valid_or_invalid &&
         std::strcmp(a.onu.onu_id, b.onu.onu_id) == 0 && std::strcmp(a.onu.onu_text_n, b.onu.onu_text_n) == 0 &&
         std::strcmp(a.onu.onu_text_c, b.onu.onu_text_c) == 0;
}

// The agent asks for an ONU's facts by PON and ONU alone, and for a port's by its number alone.
void check_agreement(toml_fields& fields, const line_map& map, const subscriber_line& line) {
  for (const subscriber_line& other : map.lines) {
    const bool one_onu =
        other.append.onu_ponno == line.append.onu_ponno && other.append.onu_authno == line.append.onu_authno;
    if (one_onu && !same_onu(other, line)) {
      fields.fault("onu", "line \"" + other.name + "\" has the same PON and ONU, and says something else of that ONU");
    }
    if (other.append.onu_portid == line.append.onu_portid &&
        std::memcmp(&other.port, &line.port, sizeof(line.port)) != 0) {
      fields.fault("port",
                   "line \"" + other.name + "\" has the same port number, and says something else of that port");
    }
  }
}

} // namespace

void read_line(toml_fields& fields, line_map& map) {
  subscriber_line line = {};
  const size_t index = map.lines.size();
  line.name = "line " + std::to_string(index + 1);
  fields.read_text("name", line.name, 64);
  read_append(fields, line);
  read_onu(fields, line);
  read_port(fields, line, map);
  read_match(fields, map, index);
  if (!fields.has("vlans") && !fields.has("macs") && !fields.has("default") && !fields.has("interface")) {
    fields.fault("vlans", "expected vlans, macs, interface or default, so that frames find their line");
  }
  if (!has_instance(map, line.append.ext[LINE_ID_EXT_OLTID])) {
    fields.fault("instance", "there is no [[instance]] of this number");
  }
  check_agreement(fields, map, line);
  map.lines.push_back(std::move(line));
}
