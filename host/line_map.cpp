// Look-ups in the line map.
#include "host/line_map.h"

#include <algorithm>

namespace {

template <typename condition> const subscriber_line* find_line(const line_map& map, condition fits) {
  const auto found = std::find_if(map.lines.begin(), map.lines.end(), fits);
  return found != map.lines.end() ? &*found : nullptr;
}

std::optional<size_t> find_match(const line_matches& matches, const frame_class& found, const mac_address& subscriber) {
  if (const auto line = matches.by_vlan.find({found.outer, found.inner}); line != matches.by_vlan.end()) {
    return line->second;
  }
  if (const auto line = matches.by_mac.find(subscriber); line != matches.by_mac.end()) return line->second;
  return matches.default_line;
}

} // namespace

const subscriber_line* line_map_find(const line_map& map, const frame_class& found, const mac_address& subscriber,
                                     const line_matches* of_port) {
  std::optional<size_t> index;
  if (of_port != nullptr) index = find_match(*of_port, found, subscriber);
  if (!index) index = find_match(map.common, found, subscriber);
  return index ? &map.lines[*index] : nullptr;
}

line_id_append_info line_append_info(const subscriber_line& line, const frame_class& found) {
  line_id_append_info info = line.append;
  // With one tag that is the inner VLAN, and there is no outer one.
  const bool one_tag = found.tags == 1;
  info.svlan = line.svlan.value_or(one_tag ? NO_VLAN : found.outer);
  info.cvlan = line.cvlan.value_or(one_tag ? found.outer : found.inner);
  return info;
}

const subscriber_line* line_map_by_onu(const line_map& map, uint16_t onu_ponno, uint16_t onu_authno) {
  return find_line(map, [=](const subscriber_line& line) {
    return line.append.onu_ponno == onu_ponno && line.append.onu_authno == onu_authno;
  });
}

const subscriber_line* line_map_by_port(const line_map& map, uint16_t onu_portid) {
  return find_line(map, [=](const subscriber_line& line) { return line.append.onu_portid == onu_portid; });
}
