// The yardstick: the same rewriting written by hand for one protocol each, straight over the octets, with the checks
// that keep it inside the frame and nothing that can be configured.
#pragma once

#include <cstdint>
#include <string_view>

struct bare_texts {
  std::string_view circuit_id;
  std::string_view remote_id;
};

// Check `frame`, copy it to `out` (1536 octets) and insert the two texts. Octets of the result, 0 for a refused frame.
uint32_t bare_dhcp4(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts);
uint32_t bare_pppoe(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts);
uint32_t bare_dhcp6(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts);

// The walk over a frame's DHCPv4 options alone: the offset of the End option, 0 when there is none.
uint32_t bare_find_end(const uint8_t* frame, uint32_t len, uint32_t at);
