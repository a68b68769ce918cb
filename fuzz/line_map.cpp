// The host's line map: any text is read as a whole or refused with one sentence for each fault.
#include "host/line_map.h"
#include "fuzz/memory_file.h"
#include "host/failure.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "FINDING: %s\n", what);
  std::abort();
}

void check_matches(const line_map& map, const line_matches& matches) {
  for (const auto& [vlans, index] : matches.by_vlan) check(index < map.lines.size(), "VLANs of no line");
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

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = memory_file(data, size);
  try {
    check_map(line_map_read(path));
  } catch (const host_failure& failure) {
    check(failure.code() == EXIT_LINES && std::strlen(failure.what()) > 0, "a failure without words");
  }
  return 0;
}
