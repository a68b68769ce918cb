// The host's line map: any text is read as a whole or refused with one sentence for each fault.
#include "host/line_map.h"
#include "fuzz/memory_file.h"
#include "host/failure.h"
#include "host/toml_fields.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "FINDING: %s\n", what);
  std::abort();
}

void check_matches(const line_map& map, const line_matches& matches) {
  for (const auto& [vlans, index] : matches.by_vlan) {
    check(index < map.lines.size(), "VLANs of no line");
    check(vlans.first <= NO_VLAN && vlans.second <= NO_VLAN, "a VLAN out of range");
  }
  for (const auto& [mac, index] : matches.by_mac) check(index < map.lines.size(), "a MAC address of no line");
  check(!matches.default_line || *matches.default_line < map.lines.size(), "a default that is no line");
}

void check_map(const line_map& map) {
  for (const auto& instance : map.instances) {
    check(instance->id < LINE_ID_INSTANCES, "an instance out of range");
    check(instance->mode >= LINE_ID_MODE_OLT && instance->mode <= LINE_ID_MODE_DSL, "a mode out of range");
  }
  check_matches(map, map.common);
  for (const auto& [interface, matches] : map.by_port) check_matches(map, matches);
  check(!map.lines.empty() && !map.instances.empty(), "a map without lines or instances");
  check(map.agent.white_list.num <= LINE_ID_WHITE_LIST_TYPES, "a white list too long");
  for (const vlan_profile& profile : map.profiles) {
    check(profile.number >= 1 && profile.number <= LINE_ID_VLAN_PROFILES && profile.text.size() <= LINE_ID_FORMAT_LEN,
          "a profile out of range");
  }
  for (const subscriber_line& line : map.lines) {
    check(std::memchr(line.onu.onu_id, '\0', sizeof(line.onu.onu_id)) != nullptr, "an ONU without end");
    frame_class found = {};
    found.tags = 2;
    found.outer = line.svlan.value_or(NO_VLAN);
    found.inner = line.cvlan.value_or(NO_VLAN);
    if (const subscriber_line* hit = line_map_find(map, found, {2, 0, 0, 0, 0, 1})) line_append_info(*hit, found);
    const subscriber_line* place = line_map_by_onu(map, line.append.onu_ponno, line.append.onu_authno);
    check(place != nullptr && line_map_by_port(map, line.append.onu_portid) != nullptr, "a line without its place");
  }
}

// Small letters, and numbers without zeros in front.
std::string plain(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  if (text.find(':') != std::string::npos) return text;
  for (size_t at = 0; at + 1 < text.size(); ++at) {
    while (text[at] == '0' && (at == 0 || text[at - 1] == '.') && at + 1 < text.size() && text[at + 1] != '.')
      text.erase(at, 1);
  }
  return text;
}

bool lists(const toml::array* texts, const std::string& wanted) {
  return texts != nullptr && std::any_of(texts->begin(), texts->end(), [&](const toml::node& text) {
           return plain(text.value_or(std::string())) == wanted;
         });
}

// The map says what its file says: each line's texts lead to it, and to no other.
void check_against_file(const line_map& map, std::string_view text) {
  const toml::table tree = toml::parse(text);
  const toml::array& lines = *tree["line"].as_array();
  check(lines.size() == map.lines.size(), "lines were lost");
  std::map<const line_matches*, size_t> matches; // how many texts each should hold
  for (size_t i = 0; i < lines.size(); ++i) {
    const toml::table& fields = *lines[i].as_table();
    const subscriber_line& line = map.lines[i];
    const auto interface = fields["interface"].value<std::string>();
    const line_matches& of = interface ? map.by_port.at(*interface) : map.common;
    check(line.onu.onu_id == fields["onu_id"].value_or(std::string()), "another ONU");
    check(line.append.onu_portid == fields["port"].value_or(1), "another port");
    if (const toml::array* vlans = fields["vlans"].as_array()) matches[&of] += vlans->size();
    for (const auto& [pair, index] : of.by_vlan) {
      if (index != i) continue;
      std::string name = pair.first == NO_VLAN ? "untagged" : std::to_string(pair.first);
      if (pair.second != NO_VLAN) name += "." + std::to_string(pair.second);
      check(lists(fields["vlans"].as_array(), name), "VLANs that the file does not give");
    }
    for (const auto& [mac, index] : of.by_mac) {
      check(index != i || lists(fields["macs"].as_array(), mac_text(mac)), "a MAC address that the file does not give");
    }
  }
  for (const auto& [of, count] : matches) check(of->by_vlan.size() == count, "VLANs were lost");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = memory_file(data, size);
  try {
    const line_map map = line_map_read(path);
    check_map(map);
    check_against_file(map, {reinterpret_cast<const char*>(data), size});
  } catch (const host_failure& failure) {
    check(failure.code() == EXIT_LINES && std::strlen(failure.what()) > 0, "a failure without words");
  }
  return 0;
}
