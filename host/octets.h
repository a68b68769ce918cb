// Octets of a frame, read with bounds, and texts made of them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

using octets = std::vector<uint8_t>;
using octet_view = std::span<const uint8_t>;
using mac_address = std::array<uint8_t, 6>;

// Past the end everything reads as 0, and a slice ends with the octets that are there.
inline uint8_t u8_at(octet_view data, size_t at) { return at < data.size() ? data[at] : uint8_t{0}; }

inline uint16_t u16_at(octet_view data, size_t at) {
  return static_cast<uint16_t>(u8_at(data, at) << 8 | u8_at(data, at + 1));
}

inline octet_view slice(octet_view data, size_t at, size_t len = SIZE_MAX) {
  if (at >= data.size()) return {};
  return data.subspan(at, std::min(len, data.size() - at));
}

inline mac_address mac_at(octet_view data, size_t at) {
  mac_address mac = {};
  const octet_view found = slice(data, at, mac.size());
  std::copy(found.begin(), found.end(), mac.begin());
  return mac;
}

// Multicast and broadcast addresses belong to no station.
inline bool is_station(const mac_address& mac) { return (mac[0] & 1) == 0; }

// "00:00:5e:00:53:01"
std::string mac_text(const mac_address& mac);

// Printable ASCII as it is, a backslash doubled, everything else as \xHH.
std::string escaped(octet_view text);
