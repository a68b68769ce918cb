// Texts made of octets.
#include "host/octets.h"

#include <cstdio>

std::string mac_text(const mac_address& mac) {
  char text[18];
  std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

std::string escaped(octet_view text) {
  std::string out;
  for (const uint8_t c : text) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
    } else {
      char hex[5];
      std::snprintf(hex, sizeof(hex), "\\x%02x", c);
      out += hex;
    }
  }
  return out;
}
