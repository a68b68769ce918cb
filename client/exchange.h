// What all configuration calls have in common: the exchange with the agent. Any thread, once the channel is open.
//
// `function` is the name of the call, for the message that every failure prints. Results are those of the calls in
// include/line_id.h.
#pragma once

#include "include/line_id.h"

#include <cstdint>
#include <initializer_list>

// Octets of a payload; several are laid one behind the other.
struct client_part {
  const void* octets;
  uint32_t len;
};

// Print the failure of a call, and pass the code on.
int32_t client_fail(const char* function, int32_t result);

// Send a command: 0 once it is queued; -1 above 300 octets, -25, -22, -21.
int32_t client_set(const char* function, uint8_t oltid, uint16_t code, std::initializer_list<client_part> payload);
// One octet: `refusal` outside lo..hi.
int32_t client_set_octet(const char* function, uint8_t oltid, uint16_t code, uint8_t value, uint8_t lo, uint8_t hi,
                         int32_t refusal);
// A text of at most `limit` octets, or a MAC: -1 for null or another length.
int32_t client_set_text(const char* function, uint8_t oltid, uint16_t code, const void* text, uint32_t len,
                        uint32_t limit);
int32_t client_set_mac(const char* function, uint8_t oltid, uint16_t code, const uint8_t* mac, uint32_t len);
// A record of `len` octets: -9 for null.
int32_t client_set_record(const char* function, uint8_t oltid, uint16_t code, const void* record, uint32_t len);

// Fetch `len` octets into `reply`, which stays as it is on failure: 0; -9 null, -27, -21, -22, -23, -24.
int32_t client_get(const char* function, uint8_t oltid, uint16_t code, void* reply, uint32_t len);
// Fetch a number, signed types sign-extended; or the failure's code.
template <class Value> int32_t client_get_value(const char* function, uint8_t oltid, uint16_t code) {
  Value value = 0;
  const int32_t ret = client_get(function, oltid, code, &value, sizeof(value));
  return ret < 0 ? ret : static_cast<int32_t>(value);
}

// Have a report printed by the agent: 0 or -21.
int32_t client_show(const char* function, uint8_t oltid, uint16_t code);
